/*
 * Receiving on this machine's bus.
 */
#ifndef HOSTED_LOCAL_RECEIVE_H
#define HOSTED_LOCAL_RECEIVE_H

#include "bus_transport.h"

namespace hosted {

/**
 * As the transport's fetch: takes all datagrams that the kernel has, as far as there is room for them. Returns 0, else
 * an errno code.
 */
uint32_t FetchLocally(BusBinding *binding);

}  // namespace hosted

#endif
