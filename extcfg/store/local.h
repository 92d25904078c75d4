/*
 * What opening and writing ask of a store.
 */
#ifndef EXTCFG_STORE_LOCAL_H
#define EXTCFG_STORE_LOCAL_H

#include "tav_extcfg.h"

namespace extcfg {

/** Returns the path of a store's refer file, or null when it has none. */
const char *ReferPath(const CfgLocal *local);

}  // namespace extcfg

#endif
