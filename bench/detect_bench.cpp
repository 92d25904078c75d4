/*
 * Measures event detection: what subscribing costs as subscriptions grow, and what an event costs beside the calls of
 * match that it cannot do without.
 *
 * The bus ends in this program: TAV_AdjustSendMsg is defined here, before the platform's, and only returns the message.
 * So both sides of a ratio build their notifications, and neither waits for the kernel.
 */
#include <cstring>
#include <iterator>
#include <memory>

#include "aru_detect.h"
#include "growth_rows.h"
#include "platform/dms_message.h"
#include "report.h"

uint32_t TAV_AdjustSendMsg(uint32_t, uint32_t, uint32_t, void *message, uint32_t) {
    DMS_MsgFree(DMS_MsgSendCidGet(message), message);
    return 0;
}

namespace tav::bench {
namespace {

constexpr uint32_t kOwnId = 1, kSubscriberId = 2;
constexpr uint32_t kType = 100;
constexpr uint32_t kDistinct = 100;  // distinct conditions where they are shared
constexpr uint32_t kEvents = 1000;   // events of one measurement
constexpr uint32_t kBuilt = 100000;  // subscriptions that are to be there
constexpr double kMostMs = 1000;     // within this time

/** A condition as its TLV holds it: the value of a field, or 0 for the field to compare the argument alone. */
struct Condition {
    uint16_t type, length;
    uint32_t field, value;
};

/** What events carry: some fields, of which conditions look one up. */
struct Record {
    uint32_t fields[8] = {3, 1, 4, 15, 9, 2, 6, 5};
    uint32_t values[8] = {0, 0, 0, 0, 0, 0, 0, 0};
};

/** The least that a match function can do: compare a word. */
uint32_t MatchWord(const void *data, uint32_t, uintptr_t arg1, uintptr_t, uintptr_t) {
    Condition condition;
    memcpy(&condition, data, sizeof(condition));
    return arg1 == condition.value ? 1 : 0;
}

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

/** A subscription message with one condition. */
struct Message {
    uint16_t total;
    uint8_t flags, messageClass;
    uint32_t sequence;
    uint16_t operation, spare;
    uint32_t result;
    uint16_t keyType, keyLength;
    uint32_t key;
    uint16_t idsType, idsLength;
    uint32_t lrId, vrId;
    uint16_t eventType, eventLength;
    uint32_t event;
    Condition condition;
};

Condition ConditionOf(uint32_t number) {
    return {kType, 8, 5, number};  // field 5 is the last that a search finds
}

struct CloseInstance {
    void operator()(ARU_Detect_Instance *instance) const { ARU_Detect_UnInit_Ex(instance); }
};
using Instance = std::unique_ptr<ARU_Detect_Instance, CloseInstance>;

void Subscribe(const Instance &instance, void *block, uint32_t key, uint32_t distinct) {
    const Message message = {
        sizeof(Message), 0, 14, 0, 18, 0, 0, 18, 4, key, 2, 8, 0, 0, 17, 4, 1, ConditionOf(key % distinct)};
    memcpy(block, &message, sizeof(message));
    Require(ARU_Detect_ProcMsg_Ex(0, instance.get(), block) == ARU_DETECT_OK, "subscribe");
}

/** An instance with that many subscriptions, of which `distinct` have conditions that differ. */
Instance MakeInstance(uint32_t count, uint32_t distinct, ARU_Detect_MatchFunc match) {
    Instance instance(ARU_Detect_Init_Ex(1, kOwnId, kSubscriberId, nullptr, 0));
    Require(instance != nullptr, "instance");
    Require(ARU_Detect_RegisterCond_Ex(instance.get(), kType, nullptr, match, nullptr, nullptr, nullptr) == 0, "type");
    void *block = MEL_MsgAlloc_F(kSubscriberId, sizeof(Message), "bench", __LINE__);
    for (uint32_t key = 0; key < count; ++key) {
        Subscribe(instance, block, key, distinct);
    }
    DMS_MsgFree(kSubscriberId, block);
    return instance;
}

/** The sets of conditions of which growth is shown: how many differ of that many. */
struct Sharing {
    const char *name;
    uint32_t (*countDistinct)(uint32_t count);
};
constexpr Sharing kSharings[] = {{"shared", [](uint32_t) { return kDistinct; }},
                                 {"distinct", [](uint32_t count) { return count; }}};

void RegisterSubscribing() {
    for (const auto &[name, countDistinct] : kSharings) {
        const auto subscribe = [=](uint32_t count) {
            Instance instance;
            return Seconds([&] { instance = MakeInstance(count, countDistinct(count), MatchWord); });
        };
        const auto unsubscribe = [=](uint32_t count) {
            const Instance instance = MakeInstance(count, countDistinct(count), MatchWord);
            return Seconds([&] {
                for (uint32_t key = 0; key < count; ++key) {
                    Require(ARU_Detect_ProcUnBookMsg(instance.get(), key, nullptr) == ARU_DETECT_OK, "unsubscribe");
                }
            });
        };
        RegisterGrowth(std::string("subscribe ") + name, subscribe);
        RegisterGrowth(std::string("unsubscribe ") + name, unsubscribe);
        Register(std::string("build/") + name, benchmark::kMillisecond, [=](benchmark::State &state) {
            for ([[maybe_unused]] auto _ : state) {
                state.SetIterationTime(subscribe(kBuilt));
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

/** Subscriptions as a program without the library may keep them: one block each, chained by what they wait for. */
struct Plain {
    Condition condition;
    uint32_t key;
    Plain *sameNext;    // next one with the same condition
    Plain *next;        // next one of all
    uint8_t more[128];  // about the size of what the library keeps of a subscription
};

class PlainSubscriptions {
  public:
    explicit PlainSubscriptions(uint32_t count) {
        for (uint32_t key = 0; key < count; ++key) {
            blocks_.push_back(std::make_unique<Plain>(Plain{ConditionOf(key % kDistinct), key, nullptr, nullptr, {}}));
            if (key > 0) {
                blocks_[key - 1]->next = blocks_[key].get();
            }
            if (key >= kDistinct) {
                blocks_[key - kDistinct]->sameNext = blocks_[key].get();
            }
        }
    }

    /** What an event cannot do without: a call of match a condition, and the keys of those that match. */
    void ReportByCondition(ARU_Detect_MatchFunc match, uintptr_t argument, const Record &record) {
        keys_.clear();
        for (uint32_t i = 0; i < kDistinct; ++i) {
            const Condition &condition = blocks_[i]->condition;
            if (match(&condition, sizeof(condition), argument, reinterpret_cast<uintptr_t>(&record), 0) == 1) {
                for (const Plain *each = blocks_[i].get(); each != nullptr; each = each->sameNext) {
                    keys_.push_back(each->key);
                }
            }
        }
        Notify();
    }

    /** The plain way: a call of match a subscription. */
    void ReportOneByOne(ARU_Detect_MatchFunc match, uintptr_t argument, const Record &record) {
        keys_.clear();
        for (const Plain *each = blocks_[0].get(); each != nullptr; each = each->next) {
            const Condition &condition = each->condition;
            if (match(&condition, sizeof(condition), argument, reinterpret_cast<uintptr_t>(&record), 0) == 1) {
                keys_.push_back(each->key);
            }
        }
        Notify();
    }

  private:
    /** Sends the keys, if there are any, as the library does. */
    void Notify() const {
        if (keys_.empty()) {
            return;
        }
        constexpr uint32_t kHead = 40;
        const auto size = static_cast<uint32_t>(kHead + keys_.size() * sizeof(uint32_t));
        auto *const message =
            static_cast<uint8_t *>(MEL_MsgAlloc_F(kOwnId, size + ARU_DETECT_MAX_PAYLOAD, "bench", __LINE__));
        memset(message, 0, size);
        memcpy(message + kHead, keys_.data(), keys_.size() * sizeof(uint32_t));
        Require(TAV_AdjustSendMsg(kSubscriberId, 0, 0, message, size) == 0, "send");
    }

    std::vector<std::unique_ptr<Plain>> blocks_;
    std::vector<uint32_t> keys_;
};

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
    bool isWithin =
        PrintGrowth(times, {"subscribe shared", "subscribe distinct", "unsubscribe shared", "unsubscribe distinct"});
    for (const Sharing &sharing : kSharings) {
        const double ms = times.Median(std::string("build/") + sharing.name);
        const bool isKept = ms <= kMostMs;
        isWithin = isWithin && isKept;
        printf("%u %s: %.0f ms   <= %.0f  %s\n", kBuilt, sharing.name, ms, kMostMs, isKept ? "ok" : "MISSED");
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
    Require(PrintSubscribing(reporter), "a limit of growth is missed");
}

}  // namespace
}  // namespace tav::bench

int main(int argc, char **argv) {
    return tav::bench::RunGuarded("detect_bench", [=] { tav::bench::RunAll(argc, argv); });
}
