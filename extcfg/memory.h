/*
 * The store's heap blocks. Macros, so that each block is accounted to the line that takes it.
 */
#ifndef EXTCFG_MEMORY_H
#define EXTCFG_MEMORY_H

#include <memory>

#include "platform/mel_memory.h"

/** Takes a block of `size` bytes, or null. */
#define TAV_TAKE(size) \
    MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], static_cast<uint32_t>(size), "tav_extcfg", __LINE__)

/** Returns a block. */
#define TAV_GIVE_BACK(block) MEL_Free_F(block, "tav_extcfg", __LINE__)

namespace extcfg {

/** A block of bytes that is returned with its holder. */
struct BufferFreer {
    void operator()(uint8_t *buffer) const { TAV_GIVE_BACK(buffer); }
};
using OwnedBuffer = std::unique_ptr<uint8_t[], BufferFreer>;

}  // namespace extcfg

#endif
