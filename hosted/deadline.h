/*
 * The end of a wait.
 */
#ifndef HOSTED_DEADLINE_H
#define HOSTED_DEADLINE_H

#include <time.h>
#include <cstdint>

namespace hosted {

inline constexpr int64_t kNsPerMs = 1'000'000;

/** Nanoseconds of the monotonic clock. */
inline int64_t MonotonicNs() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 * kNsPerMs + now.tv_nsec;
}

/** The end of a wait that begins when this is made. */
class Deadline {
  public:
    // A negative time limit never passes.
    explicit Deadline(int32_t timeoutMs) : endless_(timeoutMs < 0), end_(MonotonicNs() + timeoutMs * kNsPerMs) {}

    // Milliseconds left, rounded up, as poll(2) wants them.
    int LeftMs() const {
        if (endless_) {
            return -1;
        }
        const int64_t left = end_ - MonotonicNs();
        return left > 0 ? static_cast<int>((left + kNsPerMs - 1) / kNsPerMs) : 0;
    }
    bool HasPassed() const { return LeftMs() == 0; }

  private:
    bool endless_;
    int64_t end_;  // in nanoseconds of the monotonic clock
};

}  // namespace hosted

#endif
