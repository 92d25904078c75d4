/*
 * Shows for each operation what one element costs among N and among 8 N, and ends with an error when that grows by more
 * than the operation's limit. A limit above 1 leaves room for a tree's depth and for the processor's caches, which the
 * larger number of elements no longer fits into.
 *
 *     growth_bench [WORD]      only operations whose name holds the word
 */
#include "growth.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "report.h"
#include "tav_extcfg.h"
#include "tav_posix.h"

namespace tav::bench {
namespace {

constexpr size_t kTimes = 8, kRounds = 5;

/** Measures and prints one operation. Returns whether it keeps its limit. */
bool KeepsLimit(const Growth &operation) {
    double few = INFINITY, many = INFINITY;             // the best rounds: other work on the machine only adds
    for (size_t round = 0; round < kRounds; ++round) {  // in turns: a slow moment of the machine falls on both
        few = std::min(few, operation.cost(operation.count) * 1e9);
        many = std::min(many, operation.cost(operation.count * kTimes) * 1e9);
    }
    const double ratio = many / few;
    const bool kept = ratio <= operation.limit;
    printf("%-44s %8zu %10.0f %10.0f ns %7.2f   <= %.1f  %s\n", operation.name, operation.count, few, many, ratio,
           operation.limit, kept ? "ok" : "MISSED");
    fflush(stdout);
    return kept;
}

/** Measures the operations whose name holds a word. Throws when one misses its limit. */
void Run(const char *word) {
    printf("%-44s %8s %10s %10s    %7s   %s\n", "one of N", "N", "of N", "of 8 N", "ratio", "limit");
    bool kept = true;
    for (const std::vector<Growth> &operations : {StoreGrowth(), DetectGrowth(), ContainersGrowth(), ToolGrowth()}) {
        for (const Growth &operation : operations) {
            if (strstr(operation.name, word) != nullptr) {
                kept = KeepsLimit(operation) && kept;
            }
        }
    }
    Require(kept, "an operation grows by more than its limit");
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    return tav::bench::RunGuarded("growth_bench", [=] { tav::bench::Run(argc > 1 ? argv[1] : ""); });
}
