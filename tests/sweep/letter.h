/*
 * A subscriber's message to a detecting process, put together byte by byte.
 */
#ifndef TAV_TESTS_LETTER_H
#define TAV_TESTS_LETTER_H

#include <cstring>
#include <memory>

#include "bytes.h"
#include "platform/dms_message.h"

/** What a subscriber asks for, as in the message's header. */
enum class Request : uint16_t { kSubscribe = 18, kUnsubscribe = 19 };

/** Returns a message of the bus about event 1, with one condition, which is empty. It is freed with the last pointer.
 */
inline std::shared_ptr<void> Letter(uint32_t sender, uint32_t receiver, Request request, uint32_t bookKey,
                                    uint16_t conditionType) {
    const auto tlv = [](uint16_t type, const Bytes &value) {
        return Join({Host16(type), Host16(static_cast<uint16_t>(value.size())), value});
    };
    const Bytes ids = tlv(2, Join({Host32(1), Host32(1)})), event = tlv(17, Host32(1)), key = tlv(18, Host32(bookKey));
    const Bytes operation = Host16(static_cast<uint16_t>(request));
    const Bytes header = Join({Host16(48), {0, 14}, Host32(1), operation, Host16(0), Host32(0)});
    const Bytes bytes = Join({header, ids, event, key, tlv(conditionType, {})});
    void *const message = MEL_MsgAlloc_F(sender, static_cast<uint32_t>(bytes.size()), "tests", 0);
    DMS_MsgRecvCidSet(message, receiver);
    return {memcpy(message, bytes.data(), bytes.size()), [sender](void *taken) { DMS_MsgFree(sender, taken); }};
}

#endif
