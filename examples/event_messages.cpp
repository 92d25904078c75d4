#include "event_messages.h"

#include <cstring>
#include <stdexcept>

namespace {

/** What stands before a TLV's value. */
struct TlvHeader {
    uint16_t type;
    uint16_t length;  // bytes of the value alone
};
static_assert(sizeof(TlvHeader) == 4);

void Append(std::vector<uint8_t> &bytes, const void *data, size_t size) {
    const auto *first = static_cast<const uint8_t *>(data);
    bytes.insert(bytes.end(), first, first + size);
}

uint16_t To16Bits(size_t length) {
    if (length > UINT16_MAX) {
        throw std::length_error("a subscription has at most 65535 bytes");
    }
    return static_cast<uint16_t>(length);
}

std::vector<uint32_t> Words(Bytes bytes) {
    std::vector<uint32_t> words(bytes.size() / sizeof(uint32_t));
    memcpy(words.data(), bytes.data(), words.size() * sizeof(uint32_t));
    return words;
}

}  // namespace

std::vector<uint8_t> NewMessage(Operation operation) {
    const MessageHeader header = {.length = sizeof(header),
                                  .flags = 0,
                                  .messageClass = kEventClass,
                                  .sequence = 0,
                                  .operation = operation,
                                  .spare = 0,
                                  .result = 0};
    std::vector<uint8_t> message;
    Append(message, &header, sizeof(header));
    return message;
}

std::vector<uint8_t> MakeTlv(uint16_t type, std::initializer_list<uint32_t> words, Bytes tail) {
    const TlvHeader header = {type, To16Bits(words.size() * sizeof(uint32_t) + tail.size())};
    std::vector<uint8_t> tlv;
    Append(tlv, &header, sizeof(header));
    Append(tlv, words.begin(), words.size() * sizeof(uint32_t));
    Append(tlv, tail.data(), tail.size());
    return tlv;
}

void AppendTlv(std::vector<uint8_t> &message, Bytes tlv) {
    const uint16_t length = To16Bits(message.size() + tlv.size());
    Append(message, tlv.data(), tlv.size());
    memcpy(message.data(), &length, sizeof(length));  // the header begins with it
}

std::vector<uint8_t> NotificationAnswer(const MessageHeader &notification) {
    MessageHeader header = notification;
    header.length = sizeof(header);
    header.flags |= kResponseFlag;
    std::vector<uint8_t> message;
    Append(message, &header, sizeof(header));
    return message;
}

std::optional<ParsedMessage> ParseMessage(Bytes message) {
    if (message.size() < sizeof(MessageHeader)) {
        return std::nullopt;
    }
    ParsedMessage parsed = {Load<MessageHeader>(message.data()), {}, {}};
    const size_t length = parsed.header.length;
    if (parsed.header.messageClass != kEventClass || length < sizeof(MessageHeader) || length > message.size()) {
        return std::nullopt;
    }
    // The keys are the last TLV. What follows them is the payload, which has a form of its own.
    for (Bytes rest = message.subspan(sizeof(MessageHeader), length - sizeof(MessageHeader)); !rest.empty();) {
        if (rest.size() < sizeof(TlvHeader)) {
            return std::nullopt;
        }
        const auto tlv = Load<TlvHeader>(rest.data());
        rest = rest.subspan(sizeof(TlvHeader));
        if (tlv.length > rest.size()) {
            return std::nullopt;
        }
        if (tlv.type == kBookKeyTlv) {
            parsed.keys = Words(rest.first(tlv.length));
            parsed.payload = rest.subspan(tlv.length);
            return parsed;
        }
        rest = rest.subspan(tlv.length);
    }
    return parsed;
}
