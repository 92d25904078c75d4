/*
 * Blocks and messages of event detection. Macros, so that each block is accounted to the line that takes it.
 */
#ifndef DETECT_MEMORY_H
#define DETECT_MEMORY_H

#include "platform/bex_string.h"
#include "platform/dms_message.h"
#include "platform/mel_memory.h"

/** Takes a block of `size` bytes, or null. */
#define DETECT_TAKE(memModule, size) \
    MEL_Malloc_F(memModule, g_aucMelMemPt[0], static_cast<uint32_t>(size), "aru_detect", __LINE__)

/** Takes a zero-filled structure of a type, or null. */
#define DETECT_NEW(memModule, Type) \
    static_cast<Type *>(detect::Zeroed(DETECT_TAKE(memModule, sizeof(Type)), sizeof(Type)))

/** Returns a block. */
#define DETECT_GIVE_BACK(block) MEL_Free_F(block, "aru_detect", __LINE__)

/** Takes a message of `size` bytes of a sender, or null. */
#define DETECT_TAKE_MESSAGE(sender, size) MEL_MsgAlloc_F(sender, static_cast<uint32_t>(size), "aru_detect", __LINE__)

namespace detect {

/** Fills a block with zeros. Returns it; null stays null. */
inline void *Zeroed(void *block, uint32_t size) {
    if (block != nullptr) {
        memset_s(block, size, 0, size);
    }
    return block;
}

}  // namespace detect

#endif
