/*
 * Rows that show whether what an element costs grows with the number of elements.
 */
#ifndef TAV_BENCH_GROWTH_ROWS_H
#define TAV_BENCH_GROWTH_ROWS_H

#include <vector>

#include "report.h"

namespace tav::bench {

inline constexpr uint32_t kFewElements = 2000, kManyElements = 8 * kFewElements;
inline constexpr double kMostGrowth = 2.5;  // a tree and the processor's caches explain that much

/** Adds measurements of what it takes to do something to all of few and of many elements; `build(count)` does it. */
template <typename Build>
void RegisterGrowth(const std::string &what, Build build) {
    for (const uint32_t count : {kFewElements, kManyElements}) {
        Register("growth/" + what + "/" + std::to_string(count), benchmark::kMicrosecond, [=](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) {
                state.SetIterationTime(build(count));
            }
        });
    }
}

/** Prints the rows of what was measured. Returns whether nothing grows more than it may. */
inline bool PrintGrowth(CollectingReporter &times, const std::vector<std::string> &measures) {
    bool isWithin = true;
    printf("\n%-24s %9u %9u     %7s   %s\n", "an element among", kFewElements, kManyElements, "growth", "limit");
    for (const std::string &what : measures) {
        const std::string name = "growth/" + what + "/";
        const double few = times.Median(name + std::to_string(kFewElements)) * 1000 / kFewElements;
        const double many = times.Median(name + std::to_string(kManyElements)) * 1000 / kManyElements;
        if (few == 0 || many == 0) {
            continue;
        }
        const bool isKept = many <= kMostGrowth * few;
        isWithin = isWithin && isKept;
        printf("%-24s %9.0f %9.0f ns  %7.2f   <= %.1f  %s\n", what.c_str(), few, many, many / few, kMostGrowth,
               isKept ? "ok" : "MISSED");
    }
    return isWithin;
}

}  // namespace tav::bench

#endif
