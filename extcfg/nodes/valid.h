/*
 * What every function that takes a store asks first.
 */
#ifndef EXTCFG_NODES_VALID_H
#define EXTCFG_NODES_VALID_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

inline constexpr uint32_t kMagic = 0x0807ABCD;  // of a store that is open

/** Returns whether a store is one, as far as its magic says. */
inline bool IsValid(const CfgLocal *local) {
    return local != nullptr && local->magic == kMagic;
}

}  // namespace extcfg

#endif
