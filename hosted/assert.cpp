/*
 * Assertions: print and abort, unless the host decides otherwise.
 */
#include <cstdio>
#include <cstdlib>

#include <atomic>

#include "interfaces.h"

namespace {

constinit std::atomic<TAV_Posix_AssertHandler> assertHandler{nullptr};

}  // namespace

TAV_Posix_AssertHandler TAV_Posix_SetAssertHandler(TAV_Posix_AssertHandler handler) {
    return assertHandler.exchange(handler);
}

void MEL_Assert(const char *source, uint32_t line) {
    const TAV_Posix_AssertHandler handler = assertHandler.load();
    if (handler != nullptr) {
        handler(source, line);
        return;
    }
    fprintf(stderr, "assertion failed: %s line %u\n", source != nullptr ? source : "(unknown)", line);
    abort();
}
