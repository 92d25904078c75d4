/*
 * Measures the store against its peers on the same records in the same run, and prints a table of ratios.
 *
 * The repetitions of all measurements are interleaved at random, so that a slow moment of the machine falls on all
 * alike; ratios are of medians. Opening starts each time without a warm heap, and is timed apart from closing. Options
 * are those of Google Benchmark.
 */
#include <mimalloc.h>

#include <cstdio>
#include <fstream>

#include "peer_floor.h"
#include "peer_lmdb.h"
#include "peer_protobuf.h"
#include "peer_sqlite.h"
#include "peer_store.h"
#include "report.h"
#include "tav_posix.h"

namespace tav::bench {
namespace {

/** Measures opening; closing is reported beside it. */
template <typename Opener, typename Record>
void RegisterOpen(const char *who, const std::string &path, std::shared_ptr<const std::vector<Record>> records) {
    const auto opener = std::make_shared<Opener>(path);
    opener->Write(*records);
    Register(std::string(Record::kSet) + "/open/" + who, benchmark::kMillisecond, [=](benchmark::State &state) {
        for ([[maybe_unused]] auto _ : state) {
            mi_collect(true);  // hands free memory back to the system
            state.SetIterationTime(Seconds([&] { opener->Open(); }));
            Require(opener->Check(*records), "what was opened are not the records");
            state.counters["close"] = Seconds([&] { opener->Close(); }) * 1e3;
        }
    });
}

/** Measures one get, as the mean over getting every record once. A first round warms the caches. */
template <typename Getter, typename Record>
void RegisterGet(const char *who, const std::string &path, std::shared_ptr<const std::vector<Record>> shuffled) {
    Register(std::string(Record::kSet) + "/" + Getter::kMeasure + "/" + who, benchmark::kNanosecond,
             [=](benchmark::State &state) {
                 Getter getter(path, *shuffled);
                 size_t found = getter.GetAll();
                 for ([[maybe_unused]] auto _ : state) {
                     const double seconds = Seconds([&] { found += getter.GetAll(); });
                     state.SetIterationTime(seconds / static_cast<double>(shuffled->size()));
                 }
                 Require(found == 2 * shuffled->size(), "not every record was found");
             });
}

/** Measures bringing a change of one field to the disk. */
template <typename Flusher, typename Record>
void RegisterFlush(const char *who, const std::string &path, const Record &record) {
    Register(std::string(Record::kSet) + "/flush/" + who, benchmark::kMillisecond, [=](benchmark::State &state) {
        Flusher flusher(path, record);
        for ([[maybe_unused]] auto _ : state) {
            flusher.Change();
            state.SetIterationTime(Seconds([&] { flusher.Flush(); }));
        }
    });
}

/** Writes a data set's files and adds its measurements. */
template <typename Record>
void RegisterSet(const std::string &folder) {
    const auto records = std::make_shared<const std::vector<Record>>(Record::Make());
    auto mixed = *records;
    std::shuffle(mixed.begin(), mixed.end(), Random().engine);
    const auto shuffled = std::make_shared<const std::vector<Record>>(std::move(mixed));
    const std::string path = folder + "/" + Record::kSet;
    RegisterOpen<StoreOpener<Record>>("store", path, records);
    RegisterOpen<ProtobufOpener<Record>>("protobuf", path, records);
    RegisterOpen<SqliteOpener<Record>>("sqlite", path, records);
    RegisterOpen<FloorOpener<Record>>("floor", path, records);
    RegisterGet<StoreGetter<Record>>("store", path, shuffled);
    RegisterGet<StoreAnewGetter<Record>>("store", path, shuffled);
    RegisterGet<LmdbGetter<Record>>("lmdb", path, shuffled);
    RegisterFlush<StoreFlusher<Record>>("store", path, shuffled->front());
    RegisterFlush<FloorFlusher<Record>>("reference", path, shuffled->front());
}

/** A line of the process's status in MB, such as its resident memory or the peak of that. */
double StatusMegabytes(const std::string &name) {
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word && word != name) {
    }
    double kilobytes = 0;
    Require(static_cast<bool>(status >> kilobytes), "/proc/self/status");
    return kilobytes * 1024 / 1e6;
}

/** Opens a file in this process, a fresh one, and prints by how many MB the resident memory rose at its peak. */
template <typename Record>
void PrintPeak(const std::string &who, const std::string &path) {
    const auto print = [](auto opener) {
        const double before = StatusMegabytes("VmRSS:");
        opener.Open();
        printf("%f\n", StatusMegabytes("VmHWM:") - before);
    };
    if (who == "store") {
        print(StoreOpener<Record>(path));
    } else if (who == "protobuf") {
        print(ProtobufOpener<Record>(path));
    } else {
        print(SqliteOpener<Record>(path));
    }
}

/** Has a child process measure the peak, and returns what it prints. */
double ChildPeak(const std::string &set, const std::string &who, const std::string &folder) {
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const std::string command = "'" + self + "' --peak " + set + " " + who + " '" + folder + "/" + set + "'";
    FILE *child = popen(command.c_str(), "re");
    double peak = 0;
    Require(child != nullptr && std::fscanf(child, "%lf", &peak) == 1 && pclose(child) == 0, "child process");
    return peak;
}

/** What a data set's ratios are to be. */
struct Targets {
    double openProtobuf, openSqlite, openFloor, get, getAnew, flush, closeProtobuf, peak;
};
constexpr Targets kTargetsA = {1.9, 0.62, 1.6, 0.8, 2.0, 2.0, 2.5, 3.8};
constexpr Targets kTargetsB = {0.95, 0.42, 2.8, 0.8, 2.0, 1.6, 1.0, 4.0};

/** Prints the rows of one data set. */
void PrintSet(CollectingReporter &times, const std::string &set, const std::string &folder, const Targets &targets) {
    const auto row = [&](const std::string &measure, const char *unit, const char *peer, double target) {
        const double ours = times.Median(set + "/" + measure + "/store");
        PrintRow(set + " " + measure, unit, ours, peer, times.Median(set + "/" + measure + "/" + peer), target);
    };
    row("open", "ms", "protobuf", targets.openProtobuf);
    row("open", "ms", "sqlite", targets.openSqlite);
    row("open", "ms", "floor", targets.openFloor);
    row("get", "ns", "lmdb", targets.get);
    PrintRow(set + " get anew", "ns", times.Median(set + "/get anew/store"), "lmdb", times.Median(set + "/get/lmdb"),
             targets.getAnew);
    row("flush", "ms", "reference", targets.flush);
    const double close = times.Median(set + "/open/store/close");
    PrintRow(set + " close", "ms", close, "protobuf", times.Median(set + "/open/protobuf/close"),
             targets.closeProtobuf);
    PrintRow(set + " close", "ms", close, "sqlite", times.Median(set + "/open/sqlite/close"), 0);
    const double fileSize = static_cast<double>(std::filesystem::file_size(folder + "/" + set + ".dat")) / 1e6;
    const double peak = ChildPeak(set, "store", folder);
    PrintRow(set + " peak memory", "MB", peak, "file size", fileSize, targets.peak);
    for (const char *peer : {"protobuf", "sqlite"}) {
        PrintRow(set + " peak memory", "MB", peak, peer, ChildPeak(set, peer, folder), 0);
    }
}

void PrintTable(CollectingReporter &times, const std::string &folder) {
    PrintHeading("store");
    PrintSet(times, Record13::kSet, folder, kTargetsA);
    PrintSet(times, Record7::kSet, folder, kTargetsB);
    printf(
        "\nA: 200,000 records of class 13 with 8 fields. B: 50,000 records of class 7 with 3 fields.\n"
        "open     store: TAV_ExtCfgOpen, read-only. protobuf: read, SHA-256, parse on an arena, ordered map.\n"
        "         sqlite: integrity_check, all rows into an ordered map. floor: read, SHA-256, one memcpy.\n"
        "get      one record by its key, in random order; lmdb within one read transaction. anew: the key record is\n"
        "         made for each get.\n"
        "flush    one field changed. reference: SHA-256 over old and new body, open, write, fsync, close.\n"
        "peak     rise of the resident memory while opening, in a process of its own.\n");
}

void RunAll(int argc, char **argv) {
    const TempFolder folder("store_bench");
    const auto registerAll = [&] {
        RegisterSet<Record13>(folder.Path());
        RegisterSet<Record7>(folder.Path());
    };
    RunMeasurements(argc, argv, registerAll, [&](CollectingReporter &times) { PrintTable(times, folder.Path()); });
}

/** What the arguments ask for: the peak of one peer, or all measurements. */
void Run(int argc, char **argv) {
    if (argc == 5 && std::string("--peak") == argv[1]) {
        const auto print = std::string(Record13::kSet) == argv[2] ? PrintPeak<Record13> : PrintPeak<Record7>;
        print(argv[3], argv[4]);
    } else {
        RunAll(argc, argv);
    }
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    return tav::bench::RunGuarded("store_bench", [=] { tav::bench::Run(argc, argv); });
}
