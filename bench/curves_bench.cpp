/*
 * Measures the store, event detection and their peers from 1,000 to 1,000,000 elements, for the pictures of
 * docs/performance.md.
 *
 *     curves_bench FOLDER    writes FOLDER/<measure>.<who>.tsv: a line for each number of elements, with the
 *                            nanoseconds for one of them, or for one event
 *
 * Each figure is the median of a few repetitions. Records are those of data set B: a million of them fit in a file.
 */
#include <mimalloc.h>

#include <fstream>

#include "detect_subscriptions.h"
#include "peer_floor.h"
#include "peer_lmdb.h"
#include "peer_protobuf.h"
#include "peer_sqlite.h"
#include "peer_store.h"
#include "peer_subscriptions.h"
#include "report.h"
#include "tav_posix.h"

namespace tav::bench {
namespace {

constexpr size_t kCounts[] = {1000, 3000, 10000, 30000, 100000, 300000, 1000000};
constexpr size_t kRounds = 5;

using Records = std::vector<Record7>;

/** Where the figures go. */
class Curves {
  public:
    explicit Curves(std::string folder) : folder_(std::move(folder)) {}

    /** Adds the median of some rounds of a measurement, which returns seconds, to a curve. */
    template <typename Measurement>
    void Add(const std::string &curve, size_t elements, size_t divisor, Measurement measurement) {
        std::vector<double> seconds;
        for (size_t round = 0; round < kRounds; ++round) {
            seconds.push_back(measurement());
        }
        std::nth_element(seconds.begin(), seconds.begin() + kRounds / 2, seconds.end());
        std::ofstream file(folder_ + "/" + curve + ".tsv", std::ios::app);
        file << elements << '\t' << seconds[kRounds / 2] * 1e9 / static_cast<double>(divisor) << '\n';
        Require(static_cast<bool>(file), "write");
    }

  private:
    std::string folder_;
};

template <typename Opener>
void AddOpen(Curves &curves, const std::string &who, const std::string &path, const Records &records) {
    Opener opener(path);
    opener.Write(records);
    curves.Add("open." + who, records.size(), records.size(), [&] {
        mi_collect(true);  // hands free memory back to the system
        const double seconds = Seconds([&] { opener.Open(); });
        opener.Close();
        return seconds;
    });
}

template <typename Getter>
void AddGet(Curves &curves, const std::string &who, const std::string &path, const Records &shuffled) {
    Getter getter(path, shuffled);
    size_t found = getter.GetAll();  // warms the caches
    Require(found == shuffled.size(), "not every record was found");
    curves.Add("get." + who, shuffled.size(), shuffled.size(),
               [&] { return Seconds([&] { found += getter.GetAll(); }); });
}

template <typename Flusher>
void AddFlush(Curves &curves, const std::string &who, const std::string &path, const Records &records) {
    Flusher flusher(path, records.front());
    curves.Add("flush." + who, records.size(), records.size(), [&] {
        flusher.Change();
        return Seconds([&] { flusher.Flush(); });
    });
}

void AddStore(Curves &curves, size_t count) {
    const TempFolder folder("curves");
    const std::string path = folder.Path() + "/a";
    Records records = Record7::Make(count);
    AddOpen<StoreOpener<Record7>>(curves, "store", path, records);
    AddOpen<ProtobufOpener<Record7>>(curves, "protobuf", path, records);
    AddOpen<SqliteOpener<Record7>>(curves, "sqlite", path, records);
    AddOpen<FloorOpener<Record7>>(curves, "floor", path, records);
    std::shuffle(records.begin(), records.end(), Random().engine);
    AddGet<StoreGetter<Record7>>(curves, "store", path, records);
    AddGet<LmdbGetter<Record7>>(curves, "lmdb", path, records);
    AddFlush<StoreFlusher<Record7>>(curves, "store", path, records);
    AddFlush<FloorFlusher<Record7>>(curves, "floor", path, records);
}

void AddDetection(Curves &curves, uint32_t count) {
    for (const auto &[who, distinct] : {std::pair("shared", kDistinct), std::pair("distinct", count)}) {
        curves.Add(std::string("subscribe.") + who, count, count, [&, distinct = distinct] {
            Instance instance;
            return Seconds([&] { instance = MakeInstance(count, distinct, MatchWord); });
        });
    }
    constexpr uint32_t kEvents = 10;
    const Instance instance = MakeInstance(count, kDistinct, MatchWord);
    PlainSubscriptions plain(count);
    const Record record;
    ARU_Detect_MatchFunc volatile match = MatchWord;  // volatile: the peers do not know it better than the library does
    const auto addEvents = [&](const char *who, auto event) {
        curves.Add(std::string("event.") + who, count, kEvents, [&] {
            return Seconds([&] {
                for (uint32_t at = 0; at < kEvents; ++at) {
                    event();
                }
            });
        });
    };
    addEvents("detect", [&] { Require(ARU_Detect_FilterEx(instance.get(), kDistinct, 0) == ARU_DETECT_OK, "filter"); });
    addEvents("floor", [&] { plain.ReportByCondition(match, kDistinct, record); });
    addEvents("loop", [&] { plain.ReportOneByOne(match, kDistinct, record); });
}

void Run(const std::string &folder) {
    Curves curves(folder);
    for (const size_t count : kCounts) {
        AddStore(curves, count);
        AddDetection(curves, static_cast<uint32_t>(count));
        printf("%zu elements measured\n", count);
        fflush(stdout);
    }
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    TAV_InitExtTlvDataTypeTable(TAV_Posix_FindDataType);
    return tav::bench::RunGuarded("curves_bench", [=] {
        tav::bench::Require(argc == 2, "usage: curves_bench FOLDER");
        tav::bench::Run(argv[1]);
    });
}
