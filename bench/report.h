/*
 * What the benchmarks share: how measurements are registered and timed, and how ratios are printed.
 *
 * The repetitions of all measurements of a program are interleaved at random, so that a slow moment of the machine
 * falls on all alike; ratios are of medians, unless two measurements are taken together in each repetition.
 */
#ifndef TAV_BENCH_REPORT_H
#define TAV_BENCH_REPORT_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace tav::bench {

inline constexpr int kRepetitions = 15;

/** Throws unless a step of the benchmark worked. */
inline void Require(bool worked, const char *what) {
    if (!worked) {
        throw std::runtime_error(what);
    }
}

/** Runs a function and returns the seconds that it took. */
template <typename Function>
double Seconds(Function function) {
    const auto start = std::chrono::steady_clock::now();
    function();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/** Adds a measurement; a name is "<data set>/<measure>/<who>". The body sets the time of each iteration. */
template <typename Body>
benchmark::internal::Benchmark *Register(const std::string &name, benchmark::TimeUnit unit, Body body) {
    auto *added = benchmark::RegisterBenchmark(name.c_str(), body);
    return added->Iterations(1)->Repetitions(kRepetitions)->UseManualTime()->Unit(unit);
}

/** Prints median and variation of what has ended, and keeps the times by name. */
class CollectingReporter : public benchmark::ConsoleReporter {
  public:
    CollectingReporter() : ConsoleReporter(OO_None) {}

    void ReportRuns(const std::vector<Run> &runs) override {
        std::vector<Run> shown;
        for (const Run &run : runs) {
            if (run.run_type == Run::RT_Iteration) {
                Keep(run);
            } else if (run.aggregate_name == "median" || run.aggregate_name == "cv") {
                shown.push_back(run);
            }
        }
        ConsoleReporter::ReportRuns(shown);
    }

    /** The median of a measurement, or 0 when it did not run. */
    double Median(const std::string &name) { return MedianOf(times_[name]); }

    /**
     * The median ratio of two measurements that are taken together in each repetition, or 0 when they did not run.
     * A slow or a fast moment of the machine has less power over it than over the ratio of the medians.
     */
    double PairedRatio(const std::string &ours, const std::string &theirs) {
        std::vector<double> ratios = times_[ours];
        std::transform(ratios.begin(), ratios.end(), times_[theirs].begin(), ratios.begin(), std::divides<>());
        return MedianOf(std::move(ratios));
    }

  private:
    void Keep(const Run &run) {
        const std::string name = run.run_name.function_name;
        times_[name].push_back(run.GetAdjustedRealTime());
        for (const auto &[part, time] : run.counters) {
            times_[name + "/" + part].push_back(time);
        }
    }

    static double MedianOf(std::vector<double> values) {
        std::sort(values.begin(), values.end());
        return values.empty() ? 0 : values[values.size() / 2];
    }

    std::map<std::string, std::vector<double>> times_;
};

/** Prints what stands above the rows of a table; `subject` is who is measured beside the peers. */
inline void PrintHeading(const char *subject) {
    printf("\n%-16s %10s %10s     %-10s %7s   %s\n", "measure", subject, "peer", "peer", "ratio", "target");
}

/** Prints a row of the table; without a target it is for information. A measurement that did not run has no row. */
inline void PrintRow(const std::string &what, const char *unit, double ours, const char *peer, double theirs,
                     double ratio, double target) {
    if (ours == 0 || theirs == 0) {
        return;
    }
    printf("%-16s %10.1f %10.1f %-3s %-10s %7.2f", what.c_str(), ours, theirs, unit, peer, ratio);
    if (target > 0) {
        printf("   <= %.2f  %s", target, ratio <= target ? "ok" : "MISSED");
    }
    printf("\n");
}

/** The same, for measurements that are not taken together: the ratio is that of their medians. */
inline void PrintRow(const std::string &what, const char *unit, double ours, const char *peer, double theirs,
                     double target) {
    PrintRow(what, unit, ours, peer, theirs, ours / theirs, target);
}

/** Prints the row of two measurements of the same thing: "<measure>/<us>" and "<measure>/<peer>". */
inline void PrintMedians(CollectingReporter &times, const std::string &measure, const char *unit, const char *us,
                         const char *peer, double target) {
    PrintRow(measure, unit, times.Median(measure + "/" + us), peer, times.Median(measure + "/" + peer), target);
}

/** The same, for measurements that are taken together in each repetition. */
inline void PrintPaired(CollectingReporter &times, const std::string &measure, const char *unit, const char *us,
                        const char *peer, double target) {
    const std::string ours = measure + "/" + us, theirs = measure + "/" + peer;
    PrintRow(measure, unit, times.Median(ours), peer, times.Median(theirs), times.PairedRatio(ours, theirs), target);
}

/** A folder below TMPDIR that goes with its content when the object does. */
class TempFolder {
  public:
    explicit TempFolder(const std::string &program)
        : path_(std::filesystem::temp_directory_path() / (program + ".XXXXXX")) {
        Require(mkdtemp(path_.data()) != nullptr, "temporary folder");
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    const std::string &Path() const { return path_; }

  private:
    std::string path_;
};

/** Runs a program: an exception ends it with its text. Returns the exit status. */
template <typename Function>
int RunGuarded(const char *program, Function function) {
    try {
        function();
        return 0;
    } catch (const std::exception &error) {
        fprintf(stderr, "%s: %s\n", program, error.what());
        return 1;
    }
}

/** Reads the options of Google Benchmark, and refuses others. */
inline void ReadOptions(int argc, char **argv) {
    std::vector<char *> options(argv, argv + argc);
    options.push_back(const_cast<char *>("--benchmark_enable_random_interleaving=true"));
    int count = static_cast<int>(options.size());
    benchmark::Initialize(&count, options.data());
    Require(!benchmark::ReportUnrecognizedArguments(count, options.data()), "unknown option");
}

/** Adds the measurements, runs those that the options choose, and prints the table. */
template <typename RegisterAll, typename PrintTable>
void RunMeasurements(int argc, char **argv, RegisterAll registerAll, PrintTable printTable) {
    ReadOptions(argc, argv);
    registerAll();
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    printTable(reporter);
}

}  // namespace tav::bench

#endif
