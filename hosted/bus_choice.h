/*
 * Which transport carries messages: the one of this machine, or, when the environment names servers, a module's.
 */
#ifndef HOSTED_BUS_CHOICE_H
#define HOSTED_BUS_CHOICE_H

#include "bus_transport.h"

namespace hosted {

/**
 * Returns the transport that the environment asks for now, which lives as long as the process.
 *
 * @return 0; ELIBACC when the module is not there, may be written to by others, or cannot be loaded; ELIBBAD when it is
 *         of another build. A line on the standard error output says so, once
 */
uint32_t ChooseTransport(const BusTransport **transport);

}  // namespace hosted

#endif
