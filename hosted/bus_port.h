/*
 * A bound component.
 */
#ifndef HOSTED_BUS_PORT_H
#define HOSTED_BUS_PORT_H

#include <mutex>

#include "bus_folder.h"
#include "descriptor.h"
#include "interfaces.h"

struct TAV_Posix_BusPort {
    hosted::BusFolder folder;   // where it is bound, whatever the environment says later
    uint32_t componentId;       // its id
    hosted::Descriptor lock;    // the lock file, held as long as this lives
    hosted::Descriptor socket;  // where its datagrams come in
    std::mutex taking;          // held between the look at a datagram's length and its receipt
};

#endif
