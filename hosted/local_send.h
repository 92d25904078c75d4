/*
 * Sending on this machine's bus.
 */
#ifndef HOSTED_LOCAL_SEND_H
#define HOSTED_LOCAL_SEND_H

#include "bus_transport.h"

namespace hosted {

/** As the transport's send. */
uint32_t SendLocally(MessageHeader *message, uint32_t length);

}  // namespace hosted

#endif
