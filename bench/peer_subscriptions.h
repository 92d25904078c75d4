/*
 * Subscriptions as a program without the library may keep them: what an event costs without any of its promises.
 */
#ifndef TAV_BENCH_PEER_SUBSCRIPTIONS_H
#define TAV_BENCH_PEER_SUBSCRIPTIONS_H

#include <memory>
#include <vector>

#include "detect_subscriptions.h"
#include "platform/dms_message.h"
#include "platform/mel_memory.h"
#include "report.h"

namespace tav::bench {

/** What events carry: some fields, of which conditions look one up. */
struct Record {
    uint32_t fields[8] = {3, 1, 4, 15, 9, 2, 6, 5};
    uint32_t values[8] = {0, 0, 0, 0, 0, 0, 0, 0};
};

/** One of them: a block, chained by what it waits for. */
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

}  // namespace tav::bench

#endif
