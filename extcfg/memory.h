/*
 * The store's heap blocks.
 */
#ifndef EXTCFG_MEMORY_H
#define EXTCFG_MEMORY_H

#include <memory>

#include "common/memory.h"

namespace extcfg {

inline constexpr common::Heap kHeap("tav_extcfg");

/** A block of bytes that is returned with its holder. */
struct BufferFreer {
    void operator()(uint8_t *buffer) const { kHeap.Return(buffer); }
};
using OwnedBuffer = std::unique_ptr<uint8_t[], BufferFreer>;

}  // namespace extcfg

#endif
