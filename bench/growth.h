/*
 * What one element costs when there are N of them, and when there are eight times as many.
 */
#ifndef TAV_BENCH_GROWTH_H
#define TAV_BENCH_GROWTH_H

#include <cstddef>
#include <functional>
#include <vector>

namespace tav::bench {

/** One operation. */
struct Growth {
    const char *name;
    size_t count;                        // N
    double limit;                        // how many times as much an element may cost at 8 N
    std::function<double(size_t)> cost;  // does the work with that many elements; returns the seconds for one
};

/** The operations of the store. */
std::vector<Growth> StoreGrowth();

}  // namespace tav::bench

#endif
