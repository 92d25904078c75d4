/*
 * The heap below the allocator: mimalloc's, or the C library's for sanitizers and heap checkers.
 */
#ifndef HOSTED_HEAP_H
#define HOSTED_HEAP_H

#include <cstddef>
#include <cstdint>

namespace hosted {

/** Prepares the heap. Called once, before the first block is taken by a thread with a ledger of its own. */
void SetUpHeap();

/** Takes a block; null when memory is short. */
void *HeapTake(size_t size);

void HeapReturn(void *memory);

/**
 * Returns how many bytes may be used where a block of the heap begins: those that were asked for, and often more. 0
 * when a block must move to change its size.
 */
size_t HeapRoom(const void *memory);

/** Returns the size to take for a block that grows to `size`. */
uint32_t WithSpare(uint32_t size);

}  // namespace hosted

#endif
