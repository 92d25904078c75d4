/*
 * Instances of event detection with subscriptions, for the programs that measure it.
 *
 * The bus ends in such a program: TAV_AdjustSendMsg is defined there, before the platform's, and only returns the
 * message. So both sides of a ratio build their notifications, and neither waits for the kernel.
 */
#ifndef TAV_BENCH_DETECT_SUBSCRIPTIONS_H
#define TAV_BENCH_DETECT_SUBSCRIPTIONS_H

#include <cstring>
#include <memory>

#include "aru_detect.h"

namespace tav::bench {

inline constexpr uint32_t kOwnId = 1, kSubscriberId = 2;
inline constexpr uint32_t kType = 100;
inline constexpr uint32_t kDistinct = 100;  // distinct conditions where they are shared

/** A condition as its TLV holds it: the value of a field, or 0 for the field to compare the argument alone. */
struct Condition {
    uint16_t type, length;
    uint32_t field, value;
};

/** The least that a match function can do: compare a word. */
inline uint32_t MatchWord(const void *data, uint32_t, uintptr_t arg1, uintptr_t, uintptr_t) {
    Condition condition;
    memcpy(&condition, data, sizeof(condition));
    return arg1 == condition.value ? 1 : 0;
}

inline Condition ConditionOf(uint32_t number) {
    return {kType, 8, 5, number};  // field 5 is the last that a search finds
}

struct CloseInstance {
    void operator()(ARU_Detect_Instance *instance) const { ARU_Detect_UnInit_Ex(instance); }
};
using Instance = std::unique_ptr<ARU_Detect_Instance, CloseInstance>;

/** An instance with that many subscriptions, of which `distinct` have conditions that differ. */
Instance MakeInstance(uint32_t count, uint32_t distinct, ARU_Detect_MatchFunc match);

}  // namespace tav::bench

#endif
