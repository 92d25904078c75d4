#include "modules.h"

#include <cstring>

#include <atomic>
#include <mutex>

namespace hosted {

namespace {

std::mutex moduleMutex;  // guards registration
// Index to name; an entry never changes once it is set.
constinit std::atomic<const char *> moduleNames[kMaxModules]{"(others)"};
constinit std::atomic<uint16_t> moduleCount{1};

/** Finds a module among the first `count`. Returns its index, or `count`. */
uint16_t SearchModule(const char *name, uint16_t count) {
    uint16_t index = 0;
    while (index < count && strcmp(name, moduleNames[index].load(std::memory_order_relaxed)) != 0) {
        ++index;
    }
    return index;
}

/**
 * Enters a module under the next free index. Returns that; kOtherModules when the table is full or memory is short.
 */
uint16_t RegisterModule(const char *name) {
    const std::lock_guard lock(moduleMutex);
    const uint16_t count = moduleCount.load(std::memory_order_relaxed);
    const uint16_t index = SearchModule(name, count);  // another thread may have been faster
    if (index < count) {
        return index;
    }
    char *const copy = count < kMaxModules ? strdup(name) : nullptr;
    if (copy == nullptr) {
        return kOtherModules;
    }
    moduleNames[count].store(copy, std::memory_order_relaxed);
    moduleCount.store(static_cast<uint16_t>(count + 1), std::memory_order_release);
    return count;
}

}  // namespace

uint16_t FindModule(const char *name) {
    const uint16_t count = moduleCount.load(std::memory_order_acquire);
    const uint16_t index = SearchModule(name, count);
    return index < count ? index : RegisterModule(name);
}

uint16_t ModuleCount() {
    return moduleCount.load(std::memory_order_acquire);
}

const char *ModuleName(uint16_t index) {
    return moduleNames[index].load(std::memory_order_relaxed);
}

}  // namespace hosted
