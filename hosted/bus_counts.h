/*
 * What this process has done on the bus, for TAV_Posix_BusAccount.
 */
#ifndef HOSTED_BUS_COUNTS_H
#define HOSTED_BUS_COUNTS_H

#include <cstdint>

#include <atomic>

namespace hosted {

/** A sum that any thread may add to. */
class Counter {
  public:
    void Increment() { count_.fetch_add(1, std::memory_order_relaxed); }
    uint32_t Get() const { return count_.load(std::memory_order_relaxed); }

  private:
    std::atomic<uint32_t> count_{0};
};

struct BusCounters {
    Counter sent;
    Counter sendFailures;
    Counter received;
    Counter refused;
};

extern constinit BusCounters busCounters;

}  // namespace hosted

#endif
