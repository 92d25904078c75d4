// Event detection: any messages, in blocks as the bus delivers them, and events, while parse and bus sometimes refuse.
#include <numeric>

#include "aru_detect.h"
#include "detect/message.h"
#include "platform/dms_message.h"
#include "support.h"

using namespace detect;
static constexpr uint32_t kDetector = 7, kSubscriber = 9, kZeros = 0x10000;
static uint32_t unparsable, payload, sendResult;  // what parse leaves, fill writes, and the bus answers

static uint32_t Match(const void *data, uint32_t length, uintptr_t mask, uintptr_t answer, uintptr_t) {
    const auto *bytes = static_cast<const uint8_t *>(data);
    return (std::accumulate(bytes, bytes + length, 0u) & mask) != 0 ? static_cast<uint32_t>(answer) : 0;
}
static void ParseTlv(const void *tlv, void **data, uint32_t *length, uintptr_t) {
    *length = common::LoadWord<TlvHeader>(tlv).length;
    if (Match(tlv, *length + 4, unparsable, 1, 0) == 0) {
        *data = std::copy_n(static_cast<const uint8_t *>(tlv) + 4, *length, new uint8_t[*length]) - *length;
    }
}
static void Free(void *data, uintptr_t) {
    delete[] static_cast<uint8_t *>(data);
}
static uint32_t Fill(void *dest, uint32_t, uintptr_t, uintptr_t, uintptr_t) {
    std::fill_n(static_cast<uint8_t *>(dest), payload, uint8_t{0xFF});
    return payload;
}

/** Delivers a message with any TLVs, mostly those of a subscription before them, and a length that may lie. */
static void Deliver(FuzzedDataProvider *input, ARU_Detect_Instance *instance) {
    const auto flags = input->ConsumeIntegral<uint8_t>(), lie = input->ConsumeIntegral<uint8_t>();
    const Bytes needed = Join({HostBytes(WordTlv{{kBookKey, 4}, flags & 7u}), HostBytes(LrVrTlv{{kLrVr, 8}, 1, 2}),
                               HostBytes(WordTlv{{kEventType, 4}, 4u + (flags >> 3 & 1)})});
    const Bytes body =
        Join({flags & 0x10 ? Bytes() : needed, input->ConsumeBytes<uint8_t>(input->ConsumeIntegral<uint8_t>())});
    const size_t length = 16 + body.size() + (lie < 240 ? 0 : lie * lie);
    const auto operation = static_cast<uint16_t>(kSubscribe + lie % 8 / 5);
    const Header header = {static_cast<uint16_t>(length), flags, kMessageClass, 0, operation, 0, 0};
    const Bytes whole = Join({HostBytes(header), body, Bytes(kZeros)});
    void *const message = MEL_MsgAlloc_F(kSubscriber, static_cast<uint32_t>(whole.size()), "fuzz", __LINE__);
    ARU_Detect_ProcMsg_Ex(3, instance,
                          std::copy(whole.begin(), whole.end(), static_cast<uint8_t *>(message)) - whole.size());
    DMS_MsgFree(kDetector, message);
}

/** The bus: an acknowledgement has 36 bytes, a notification its keys and its payload. */
uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t, uint32_t, void *message, uint32_t length) {
    const auto *bytes = static_cast<const uint8_t *>(message);
    const bool isAck = (bytes[2] & kResponse) != 0;
    const uint32_t expected = isAck ? 36 : 40 + common::LoadWord<NotificationHead>(bytes).bookKeys.length + payload;
    assert(receiver == kSubscriber && common::LoadWord<uint16_t>(bytes) == length && length == expected);
    DMS_MsgFree(kDetector, message);
    return sendResult;
}

void Fuzz(FuzzedDataProvider *input) {
    unparsable = payload = sendResult = 0;
    ARU_Detect_Instance *const instance = ARU_Detect_Init_Ex(1, kDetector, kSubscriber, Fill, 0);
    for (const uint32_t type : {1u, 2u, 3u, 4u, 5u, 18u}) {  // 2 and 18 are the message's own
        ARU_Detect_RegisterCond_Ex(instance, type, type & 1 ? ParseTlv : nullptr, type != 5 ? Match : nullptr,
                                   type & 1 ? Free : nullptr, nullptr, nullptr);
    }
    for (int i = 0; i < 100 && input->remaining_bytes() > 0; ++i) {
        const auto step = input->ConsumeIntegral<uint8_t>();
        if (step < 120) {
            Deliver(input, instance);
        } else if (step < 140) {
            unparsable = input->ConsumeIntegral<uint8_t>();
            payload = input->ConsumeIntegralInRange<uint32_t>(0, ARU_DETECT_MAX_PAYLOAD);
            sendResult = step & 1;
        } else {
            ARU_Detect_Filter_Ex(instance, input->ConsumeIntegral<uint8_t>(), step & 3);
        }
    }
    ARU_Detect_UnInit_Ex(instance);
}
