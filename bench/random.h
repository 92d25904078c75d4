/*
 * The random numbers of the benchmarks.
 */
#ifndef TAV_BENCH_RANDOM_H
#define TAV_BENCH_RANDOM_H

#include <algorithm>
#include <cstdint>
#include <random>
#include <string>

namespace tav::bench {

/** Random numbers from a fixed seed. The standard's distributions differ between libraries, so it has its own. */
struct Random {
    std::mt19937_64 engine{20240207};

    /** Any number of a type. */
    template <typename Integer>
    Integer Any() {
        return static_cast<Integer>(engine());
    }
    /** A number from low to high, both included. */
    uint32_t Between(uint32_t low, uint32_t high) {
        return low + static_cast<uint32_t>(engine() % (uint64_t{high} - low + 1));
    }
    /** Lower-case text. */
    std::string Text(uint32_t shortest, uint32_t longest) {
        std::string text(Between(shortest, longest), ' ');
        std::generate(text.begin(), text.end(), [this] { return static_cast<char>('a' + Between(0, 25)); });
        return text;
    }
};

}  // namespace tav::bench

#endif
