/*
 * Measures event detection: what subscribing costs, and what an event costs beside the calls of match that it cannot do
 * without.
 */
#include <iterator>

#include "detect_subscriptions.h"
#include "peer_subscriptions.h"
#include "platform/dms_message.h"
#include "report.h"

namespace tav::bench {
namespace {

constexpr uint32_t kEvents = 1000;   // events of one measurement
constexpr uint32_t kBuilt = 100000;  // subscriptions that are to be there
constexpr double kMostMs = 1000;     // within this time

/** What a match function is likely to do: look a field of the event up, and compare its value. */
uint32_t MatchField(const void *data, uint32_t, uintptr_t arg1, uintptr_t arg2, uintptr_t) {
    Condition condition;
    memcpy(&condition, data, sizeof(condition));
    const auto *record = reinterpret_cast<const Record *>(arg2);
    for (size_t i = 0; i < std::size(record->fields); ++i) {
        if (record->fields[i] == condition.field) {
            return record->values[i] + arg1 == condition.value ? 1 : 0;
        }
    }
    return 0;
}

/** How many conditions differ among kBuilt. */
struct Sharing {
    const char *name;
    uint32_t distinct;
};
constexpr Sharing kSharings[] = {{"shared", kDistinct}, {"distinct", kBuilt}};

void RegisterSubscribing() {
    for (const auto &[name, distinct] : kSharings) {
        Register(std::string("build/") + name, benchmark::kMillisecond, [=](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) {
                Instance instance;
                state.SetIterationTime(Seconds([&] { instance = MakeInstance(kBuilt, distinct, MatchWord); }));
            }
        });
    }
}

/** Measures one of kEvents events that are all alike. */
template <typename Event>
void RegisterEvent(const std::string &name, Event event) {
    Register("event/" + name, benchmark::kNanosecond, [=](benchmark::State &state) {
        for ([[maybe_unused]] auto _ : state) {
            const double seconds = Seconds([&] {
                for (uint32_t i = 0; i < kEvents; ++i) {
                    event();
                }
            });
            state.SetIterationTime(seconds / kEvents);
        }
    });
}

/** Measures events that satisfy no condition, and such that satisfy one. */
void RegisterEvents(const std::string &what, uint32_t count, ARU_Detect_MatchFunc function) {
    static const Record record;
    const std::shared_ptr<ARU_Detect_Instance> instance = MakeInstance(count, kDistinct, function);
    const auto plain = std::make_shared<PlainSubscriptions>(count);
    ARU_Detect_MatchFunc volatile match = function;  // volatile: the peers do not know it better than the library does
    for (const auto &[name, argument] : {std::pair("none", kDistinct), std::pair("one", 7u)}) {
        const std::string path = what + " " + name;
        RegisterEvent(path + "/filter", [=, number = argument] {
            const auto record1 = reinterpret_cast<uintptr_t>(&record);
            Require(ARU_Detect_FilterEx(instance.get(), number, record1) == ARU_DETECT_OK, "filter");
        });
        RegisterEvent(path + "/floor", [=, number = argument] { plain->ReportByCondition(match, number, record); });
        RegisterEvent(path + "/loop", [=, number = argument] { plain->ReportOneByOne(match, number, record); });
    }
}

void PrintEvents(CollectingReporter &times) {
    PrintHeading("library");
    for (const std::string event : {"word none", "word one", "field none", "field one"}) {
        const double target = event == "word one" ? 2.0 : event == "field one" ? 0 : 1.3;
        PrintMedians(times, "event/" + event, "ns", "filter", "floor", target);
        PrintMedians(times, "event/" + event, "ns", "filter", "loop", 0);
    }
    printf(
        "\nnone, one  an event with 10,000 subscriptions on 100 distinct conditions; it satisfies none of them, or "
        "the\n"
        "           100 that share one. word: match compares a word. field: match looks a field of the event up.\n"
        "           floor: the 100 calls of match, and the notification of the 100 keys. loop: a call of match for\n"
        "           every subscription, and the notification.\n");
}

/** Prints what subscribing costs. Returns whether it stays within its limits. */
bool PrintSubscribing(CollectingReporter &times) {
    bool isWithin = true;
    for (const Sharing &sharing : kSharings) {
        const double ms = times.Median(std::string("build/") + sharing.name);
        const bool isKept = ms <= kMostMs;
        isWithin = isWithin && isKept;
        printf("\n%u subscriptions, %s: %.0f ms   <= %.0f  %s\n", kBuilt, sharing.name, ms, kMostMs,
               isKept ? "ok" : "MISSED");
    }
    printf("\nshared: subscriptions on 100 distinct conditions; distinct: conditions that all differ.\n");
    return isWithin;
}

void RunAll(int argc, char **argv) {
    ReadOptions(argc, argv);
    RegisterEvents("word", 10000, MatchWord);
    RegisterEvents("field", 10000, MatchField);
    RegisterSubscribing();
    CollectingReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    PrintEvents(reporter);
    Require(PrintSubscribing(reporter), "subscribing takes too long");
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    return tav::bench::RunGuarded("detect_bench", [=] { tav::bench::RunAll(argc, argv); });
}
