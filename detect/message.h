/*
 * The messages between subscriber and detecting process: a header of 16 bytes and TLVs without padding, all in host
 * byte order.
 */
#ifndef DETECT_MESSAGE_H
#define DETECT_MESSAGE_H

#include <cstdint>

#include "common/words.h"

namespace detect {

struct Header {
    uint16_t length;       // of the whole message, header included
    uint8_t flags;         // kResponse, and bits that acknowledgements copy
    uint8_t messageClass;  // kMessageClass
    uint32_t sequence;     // number of a notification; acknowledgements copy it
    uint16_t operation;    // one of Operation
    uint16_t spare;        // not interpreted; acknowledgements copy it
    uint32_t result;       // of a subscription: 0 accepted, 1 failed
};
static_assert(sizeof(Header) == 16);

inline constexpr uint8_t kResponse = 0x80;
inline constexpr uint8_t kMessageClass = 14;

enum Operation : uint16_t { kSubscribe = 18, kUnsubscribe = 19, kNotify = 20 };

/** Types of the TLVs that are no conditions. */
enum TlvType : uint16_t { kLrVr = 2, kEventType = 17, kBookKey = 18 };

/** What stands before a TLV's value. */
struct TlvHeader {
    uint16_t type;    // a TlvType, or the id of a condition type
    uint16_t length;  // bytes of the value alone
};
static_assert(sizeof(TlvHeader) == 4);

struct LrVrTlv {
    TlvHeader header;
    uint32_t lrId;
    uint32_t vrId;
};

struct WordTlv {
    TlvHeader header;
    uint32_t value;
};

/** The acknowledgement of a subscription or unsubscription. */
struct Acknowledgement {
    Header header;
    LrVrTlv lrVr;
    WordTlv bookKey;
};
static_assert(sizeof(Acknowledgement) == 36);

/** What a notification begins with. The keys follow, and then the payload. */
struct NotificationHead {
    Header header;
    LrVrTlv lrVr;
    WordTlv eventType;
    TlvHeader bookKeys;
};
static_assert(sizeof(NotificationHead) == 40);

/**
 * Visits the TLVs of a message in order: all that begin within the stated length, wherever they end.
 *
 * @param message  the message
 * @param visit    called with the TLV's header and its address; true ends the walk
 */
template <typename Visit>
void ForEachTlv(const void *message, Visit visit) {
    const uint32_t total = common::LoadWord<Header>(message).length;
    for (uint32_t offset = sizeof(Header); offset < total;) {
        const uint8_t *const tlv = static_cast<const uint8_t *>(message) + offset;
        const auto header = common::LoadWord<TlvHeader>(tlv);
        if (visit(header, tlv)) {
            return;
        }
        offset += static_cast<uint32_t>(sizeof(TlvHeader)) + header.length;
    }
}

}  // namespace detect

#endif
