/*
 * The bus of this machine: datagrams through sockets in a folder.
 */
#ifndef HOSTED_LOCAL_TRANSPORT_H
#define HOSTED_LOCAL_TRANSPORT_H

#include "bus_transport.h"

namespace hosted {

extern const BusTransport kLocalTransport;

}  // namespace hosted

#endif
