/*
 * Preloaded into the interpreter that runs the tests: makes the nth request for memory fail, of the library's C++ code
 * or of the product, and counts the blocks that C++ code holds. Where a sanitizer has the C++ allocator, it keeps it.
 */
#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <initializer_list>
#include <new>

namespace {

std::atomic<int64_t> g_left, g_live;

bool Fails() {
    return g_left.load() > 0 && --g_left == 0;
}

void *PlatformFunction(const char *name) {
    for (const char *library : {"libtav_posix.so.1", "libtav_posix.so"}) {
        if (void *const loaded = dlopen(library, RTLD_LAZY | RTLD_NOLOAD)) {
            return dlsym(loaded, name);
        }
    }
    abort();
}

}  // namespace

/** Makes the nth request from now on fail; 0 none. Returns how many were left of the last time. */
extern "C" int64_t TestFailMemory(int64_t nth) {
    return g_left.exchange(nth);
}

extern "C" int64_t TestLiveBlocks() {
    return g_live;
}

void *operator new(size_t size) {
    void *const block = Fails() ? nullptr : malloc(size != 0 ? size : 1);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++g_live;
    return block;
}

void operator delete(void *block) noexcept {
    g_live -= block != nullptr ? 1 : 0;
    free(block);
}

void operator delete(void *block, size_t) noexcept {
    operator delete(block);
}

extern "C" void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line) {
    static const auto kReal = reinterpret_cast<decltype(&MEL_Malloc_F)>(PlatformFunction("MEL_Malloc_F"));
    return Fails() ? nullptr : kReal(handle, memPt, size, source, line);
}
