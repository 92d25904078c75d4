/*
 * Measures the containers and the stream that writes an archive, each beside what its user might have taken instead.
 */
#include "containers_bench.h"

namespace tav::bench {
namespace {

void PrintTable(CollectingReporter &times) {
    PrintHeading("library");
    PrintTrees(times);
    PrintQueues(times);
    PrintVectors(times);
    PrintStreams(times);
    printf(
        "\nrandom   1,000,000 elements in random order; asc: in ascending order. boost: Boost.Intrusive's set. The\n"
        "         trees take turns of 50,000 elements; a ratio is the median of those of the repetitions.\n"
        "queue    an insertion and a removal. called: boost::circular_buffer in a shared library, as the queue;\n"
        "         inlined: the same compiled into its user.\n"
        "vector   fill: one of 10,000 items set. churn: one of 100 unset anywhere among them, and another set; the\n"
        "         library's vector looks for the lowest hole, the peer, a list of holes, takes the latest.\n"
        "zip      20 MB of text appended line by line and written as an archive; zlib: the same text, already in one\n"
        "         piece, compressed into a gzip file and synced. Each goes once before, for nothing.\n");
}

void RunAll(int argc, char **argv) {
    const TempFolder folder("containers_bench");
    const auto registerAll = [&] {
        RegisterTrees();
        RegisterQueues();
        RegisterVectors();
        RegisterStreams(folder.Path());
    };
    RunMeasurements(argc, argv, registerAll, PrintTable);
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    return tav::bench::RunGuarded("containers_bench", [=] { tav::bench::RunAll(argc, argv); });
}
