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

/** The limit where a tree's depth and the processor's caches explain some growth; what walks a list grows by 8. */
inline constexpr double kGrowth = 2.5;

/** The operations of the rooms of the library, and of the tool. */
std::vector<Growth> StoreGrowth();
std::vector<Growth> DetectGrowth();
std::vector<Growth> ContainersGrowth();
std::vector<Growth> ToolGrowth();

}  // namespace tav::bench

#endif
