/*
 * The operations of event detection, for growth_bench.
 */
#include "detect_subscriptions.h"
#include "growth.h"
#include "report.h"

namespace tav::bench {
namespace {

/** How many conditions differ of that many. */
using DistinctOf = uint32_t (*)(size_t count);
uint32_t AllDistinct(size_t count) {
    return static_cast<uint32_t>(count);
}
uint32_t FewDistinct(size_t) {
    return kDistinct;
}

/** An operation on an instance with subscriptions, measured for one of them. */
template <typename Operation>
std::function<double(size_t)> On(DistinctOf distinctOf, Operation operation) {
    return [=](size_t count) {
        const Instance instance = MakeInstance(static_cast<uint32_t>(count), distinctOf(count), MatchWord);
        const auto run = [&] { operation(instance.get(), static_cast<uint32_t>(count)); };
        return Seconds(run) / static_cast<double>(count);
    };
}

std::function<double(size_t)> Subscribing(DistinctOf distinctOf) {
    return [=](size_t count) {
        Instance instance;
        const auto run = [&] { instance = MakeInstance(static_cast<uint32_t>(count), distinctOf(count), MatchWord); };
        return Seconds(run) / static_cast<double>(count);
    };
}

void Unsubscribe(ARU_Detect_Instance *instance, uint32_t count) {
    for (uint32_t key = 0; key < count; ++key) {
        Require(ARU_Detect_ProcUnBookMsg(instance, key, nullptr) == ARU_DETECT_OK, "unsubscribe");
    }
}

void UnsubscribeBackwards(ARU_Detect_Instance *instance, uint32_t count) {
    while (count-- > 0) {
        Require(ARU_Detect_ProcUnBookMsg(instance, count, nullptr) == ARU_DETECT_OK, "unsubscribe");
    }
}

void FindEach(ARU_Detect_Instance *instance, uint32_t count) {
    for (uint32_t key = 0; key < count; ++key) {
        Require(ARU_Detect_FindBookInfo(instance, key) != nullptr, "subscription");
    }
}

/** An event that satisfies nobody: each distinct condition is asked once. */
void FilterNothing(ARU_Detect_Instance *instance, uint32_t) {
    Require(ARU_Detect_FilterEx(instance, UINT32_MAX, 0) == ARU_DETECT_OK, "event");
}

/** Registers condition types and looks each up. */
double SecondsOfATypes(size_t count) {
    const Instance instance(ARU_Detect_Init_Ex(1, kOwnId, kSubscriberId, nullptr, 0));
    return Seconds([&] {
               for (uint32_t type = 1; type <= count; ++type) {
                   Require(ARU_Detect_RegisterCond_Ex(instance.get(), type, nullptr, MatchWord, nullptr, nullptr,
                                                      nullptr) == ARU_DETECT_OK,
                           "type");
               }
           }) /
           static_cast<double>(count);
}

}  // namespace

std::vector<Growth> DetectGrowth() {
    return {
        {"detect: subscribe, distinct", 2000, kGrowth, Subscribing(AllDistinct)},
        {"detect: subscribe, shared", 2000, kGrowth, Subscribing(FewDistinct)},
        {"detect: unsubscribe, distinct", 2000, kGrowth, On(AllDistinct, Unsubscribe)},
        {"detect: unsubscribe, shared", 2000, kGrowth, On(FewDistinct, Unsubscribe)},
        {"detect: unsubscribe, last first", 2000, kGrowth, On(FewDistinct, UnsubscribeBackwards)},
        {"detect: find a subscription", 2000, kGrowth, On(AllDistinct, FindEach)},
        {"detect: event, distinct conditions", 2000, kGrowth, On(AllDistinct, FilterNothing)},
        {"detect: register a condition type", 2000, kGrowth, SecondsOfATypes},
    };
}

}  // namespace tav::bench
