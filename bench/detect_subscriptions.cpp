#include "detect_subscriptions.h"

#include "platform/dms_message.h"
#include "platform/mel_memory.h"
#include "report.h"

uint32_t TAV_AdjustSendMsg(uint32_t, uint32_t, uint32_t, void *message, uint32_t) {
    DMS_MsgFree(DMS_MsgSendCidGet(message), message);
    return 0;
}

namespace tav::bench {
namespace {

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

void Subscribe(const Instance &instance, void *block, uint32_t key, uint32_t distinct) {
    const Message message = {
        sizeof(Message), 0, 14, 0, 18, 0, 0, 18, 4, key, 2, 8, 0, 0, 17, 4, 1, ConditionOf(key % distinct)};
    memcpy(block, &message, sizeof(message));
    Require(ARU_Detect_ProcMsg_Ex(0, instance.get(), block) == ARU_DETECT_OK, "subscribe");
}

}  // namespace

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

}  // namespace tav::bench
