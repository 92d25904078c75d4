/*
 * A file that follows a bucket.
 */
#ifndef FLEET_STORE_FOLLOWER_H
#define FLEET_STORE_FOLLOWER_H

#include "fleet/store_call.h"

namespace fleet {

/** Does what TAV_FleetFollow promises. Throws Error, and Over. */
void Follow(Call *call);

}  // namespace fleet

#endif
