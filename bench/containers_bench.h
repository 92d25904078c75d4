/*
 * The subjects of the containers' benchmark: each adds its measurements, and prints its rows of the table.
 */
#ifndef TAV_BENCH_CONTAINERS_BENCH_H
#define TAV_BENCH_CONTAINERS_BENCH_H

#include "report.h"

namespace tav::bench {

void RegisterTrees();
void PrintTrees(CollectingReporter &times);

void RegisterQueues();
void PrintQueues(CollectingReporter &times);

void RegisterVectors();
void PrintVectors(CollectingReporter &times);

/** The files that are written lie in `folder`. */
void RegisterStreams(const std::string &folder);
void PrintStreams(CollectingReporter &times);

}  // namespace tav::bench

#endif
