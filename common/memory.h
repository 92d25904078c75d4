/*
 * Blocks of the heap: one way to take, zero and return them for all rooms.
 */
#ifndef COMMON_MEMORY_H
#define COMMON_MEMORY_H

#include "platform/bex_string.h"
#include "platform/dms_message.h"
#include "platform/mel_memory.h"
#include "tav_common.h"

namespace common {

/**
 * A room's access to the platform's allocator. The platform accounts each block to the room's name and to the line that
 * takes it, and its return likewise: so the calls have the caller's line as their last argument, which nobody gives.
 */
class Heap {
  public:
    /** `room` is the name in the platform's accounts; a literal, because blocks refer to it as long as they live. */
    explicit constexpr Heap(const char *room) : room_(room) {}

    /** Takes a block of `size` bytes, whose content is undefined; null when memory is short. */
    void *Take(uint32_t size, uintptr_t memModule = g_pTavCommHandle, uint32_t line = __builtin_LINE()) const {
        return MEL_Malloc_F(memModule, g_aucMelMemPt[0], size, room_, line);
    }

    /** Takes a zero-filled block of `size` bytes; null when memory is short or the platform refuses to fill it. */
    void *TakeZeroed(uint32_t size, uintptr_t memModule = g_pTavCommHandle, uint32_t line = __builtin_LINE()) const {
        void *const block = Take(size, memModule, line);
        if (block != nullptr && memset_s(block, size, 0, size) != 0) {
            Return(block, line);
            return nullptr;
        }
        return block;
    }

    /** Takes a zero-filled structure; null when memory is short. */
    template <typename Structure>
    Structure *New(uintptr_t memModule = g_pTavCommHandle, uint32_t line = __builtin_LINE()) const {
        return static_cast<Structure *>(TakeZeroed(sizeof(Structure), memModule, line));
    }

    /** Takes a message of `size` bytes, header included, of a sender; null when memory is short. */
    void *TakeMessage(uint32_t sender, uint32_t size, uint32_t line = __builtin_LINE()) const {
        return MEL_MsgAlloc_F(sender, size, room_, line);
    }

    /** Returns a block. Null is ignored. */
    void Return(void *block, uint32_t line = __builtin_LINE()) const {
        if (block != nullptr) {
            MEL_Free_F(block, room_, line);
        }
    }

  private:
    const char *room_;
};

}  // namespace common

#endif
