#include "heap.h"

#ifdef TAV_HEAP_MIMALLOC
#include <mimalloc.h>
#include <sys/mman.h>

#include <algorithm>
#else
#include <cstdlib>
#endif

namespace hosted {

#ifdef TAV_HEAP_MIMALLOC

// mimalloc is called by its own names: being among a library's dependencies does not put its malloc in front of the C
// library's, and a platform library should not exchange the heap of the process that loads it anyway.

namespace {

constexpr size_t kLargePage = size_t{1} << 21;
constexpr size_t kOwnPages = size_t{1} << 23;  // blocks of this size and more get pages to themselves
constexpr uint32_t kGrowsOnFrom = 1 << 18;     // blocks that grow to this size and more get room to spare

/**
 * Takes a block in pages of its own. The heap asks for large pages by whole pages only, so here it is done by hand.
 */
[[gnu::noinline]] void *TakeOwnPages(size_t size) {
    void *const memory = mi_malloc_aligned(size, kLargePage);
    if (memory != nullptr && mi_option_is_enabled(mi_option_large_os_pages)) {
        madvise(memory, size, MADV_HUGEPAGE);  // a wish: small pages serve as well
    }
    return memory;
}

}  // namespace

void *HeapTake(size_t size) {
    return size < kOwnPages ? mi_malloc(size) : TakeOwnPages(size);
}

void HeapReturn(void *memory) {
    mi_free(memory);
}

size_t HeapRoom(const void *memory) {
    return mi_usable_size(memory);
}

/**
 * A large block that grows is likely to grow on: half as much again is taken for it. What is never touched of that is
 * address space alone.
 */
uint32_t WithSpare(uint32_t size) {
    return size < kGrowsOnFrom ? size : size + std::min(size / 2, UINT32_MAX - size);
}

/**
 * A store is many small blocks, looked at in no order: in large pages they cost fewer faults and fewer misses of the
 * translation buffer. MIMALLOC_LARGE_OS_PAGES=0 in the environment keeps to small ones.
 */
void SetUpHeap() {
    mi_option_set_enabled_default(mi_option_large_os_pages, true);
}

#else

void *HeapTake(size_t size) {
    return malloc(size);
}

void HeapReturn(void *memory) {
    free(memory);
}

/**
 * A block that changes its size always moves: this is the heap of the sanitizers, which then see any use of its old
 * place, and of bytes beyond its size.
 */
size_t HeapRoom(const void * /*memory*/) {
    return 0;
}

uint32_t WithSpare(uint32_t size) {
    return size;
}

void SetUpHeap() {}

#endif

}  // namespace hosted
