/*
 * A bound component, whatever carries its messages: those that wait to be received, and the descriptor that tells so.
 */
#ifndef HOSTED_BUS_PORT_H
#define HOSTED_BUS_PORT_H

#include <mutex>

#include "bus_queue.h"
#include "bus_transport.h"
#include "descriptor.h"
#include "interfaces.h"

struct TAV_Posix_BusPort {
    const hosted::BusTransport *transport = nullptr;
    hosted::BusBinding *binding = nullptr;  // the transport's, as long as the component is bound
    hosted::Descriptor event;               // readable as long as there is something to receive here
    hosted::Descriptor ready;               // readable when that one is, or what else the transport watches
    std::mutex taking;                      // held while what follows is in use
    bool isTold = false;                    // whether `event` is readable
    uint32_t code = 0;                      // what receiving returns when no message waits; 0: that none does
    hosted::MessageQueue waiting;
    hosted::Refusals refusals;
};

namespace hosted {

/** Makes the port's descriptors. Returns 0, else an errno code. */
uint32_t OpenPort(TAV_Posix_BusPort *port);

/** Makes the port's descriptor readable also when another one is. Returns 0, else an errno code. */
uint32_t Watch(TAV_Posix_BusPort *port, const Descriptor &source);

/** Takes the next message, if there is one. Returns 0, else an errno code: EAGAIN when there is none. */
uint32_t TakeNext(TAV_Posix_BusPort *port, MessageHeader **message);

/** Counts what was refused, by its sender, and by whom it named as that. The port is locked. */
void Refuse(TAV_Posix_BusPort *port, const ucred &sender, uint32_t component);

/** What a module may call. */
extern const BusHost kBusHost;

}  // namespace hosted

#endif
