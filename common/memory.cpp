/*
 * Zeroes a fresh block.
 */
#include "common/memory.h"

#include "platform/bex_string.h"

void *TAV_MallocInit(void *block, uint32_t size) {
    if (block != nullptr) {
        memset_s(block, size, 0, size);
    }
    return block;
}
