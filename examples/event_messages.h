/*
 * The messages between the subscriber and the watcher of a store: the frame that every subscriber speaks
 * (docs/event-detection.md), and what these two programs agree on beyond it: condition types and payload.
 *
 * A message is in host byte order, for the bus does not leave the machine. The payload of a notification is in file
 * byte order, big-endian, because the store's own TLV functions write and read it.
 */
#ifndef EXAMPLES_EVENT_MESSAGES_H
#define EXAMPLES_EVENT_MESSAGES_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "bytes.h"

/** What a message begins with. */
struct MessageHeader {
    uint16_t length;       // bytes of the whole message, header included
    uint8_t flags;         // kResponseFlag, or 0
    uint8_t messageClass;  // kEventClass
    uint32_t sequence;     // number of a notification; an acknowledgement repeats that of its request
    uint16_t operation;    // one of Operation
    uint16_t spare;        // not ours
    uint32_t result;       // in an acknowledgement 0 accepted, 1 failed
};
static_assert(sizeof(MessageHeader) == 16);

constexpr uint8_t kResponseFlag = 0x80;
constexpr uint8_t kEventClass = 14;

enum Operation : uint16_t { kSubscribe = 18, kUnsubscribe = 19, kNotification = 20 };

/** TLVs of the frame. */
enum FrameTlv : uint16_t {
    kLrVrTlv = 2,        // LR id and VR id, 32 bits each
    kEventTypeTlv = 17,  // event type, 32 bits; ARU_DETECT_EVENT_COMMAND_LINE makes all conditions count
    kBookKeyTlv = 18     // keys of subscriptions, 32 bits each
};

/** TLVs of a subscription that are conditions to the watcher. Its own choice, clear of the frame's. */
enum ConditionTlv : uint16_t {
    kClassCondition = 32,  // class id: a record of this class has changed
    kFieldCondition = 33,  // class id, field id, value in host order: ... whose field has this value
    kKeyCondition = 34     // class id, value in host order: ... whose key has this value
};

/**
 * First TLV of a notification's payload: what happened, kSetText or kDeletedText. EXT_TLV_VS_ID and the record's own
 * TLV follow. A number that the store's type table does not know, so its value is copied as it is.
 */
constexpr uint32_t kChangeTlv = 0x10001;
constexpr const char *kSetText = "set";
constexpr const char *kDeletedText = "deleted";

/** The kind of component that a subscriber of events announces itself as. */
constexpr uint32_t kSubscriberKind = 180;

/** The setting that holds the virtual router. */
constexpr uint32_t kVirtualRouterSetting = 5;

/** Starts a message that has no TLVs yet. */
std::vector<uint8_t> NewMessage(Operation operation);

/** Makes one TLV: words, and the bytes behind them. Throws std::length_error when 16 bits do not hold its length. */
std::vector<uint8_t> MakeTlv(uint16_t type, std::initializer_list<uint32_t> words, Bytes tail = {});

/** Appends a TLV and keeps the header's length up to date. Throws std::length_error when 16 bits do not hold it. */
void AppendTlv(std::vector<uint8_t> &message, Bytes tlv);

/** Makes the answer to a notification: its header alone, marked as a response. */
std::vector<uint8_t> NotificationAnswer(const MessageHeader &notification);

/** What a message says; the TLVs point into it. */
struct ParsedMessage {
    MessageHeader header;
    std::vector<uint32_t> keys;  // keys of the subscriptions that it is about
    Bytes payload;               // what stands behind the keys
};

/** Takes a message apart; nothing when it is not one of these, or when its lengths do not add up. */
std::optional<ParsedMessage> ParseMessage(Bytes message);

#endif
