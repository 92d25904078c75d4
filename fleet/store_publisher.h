/*
 * A file that is published.
 */
#ifndef FLEET_STORE_PUBLISHER_H
#define FLEET_STORE_PUBLISHER_H

#include "fleet/store_call.h"

namespace fleet {

/** Does what TAV_FleetPublish promises. Throws Error, and Over. */
void Publish(Call *call);

}  // namespace fleet

#endif
