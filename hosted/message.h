/*
 * Messages of the bus: a block with a header, of which the envelope travels, in front of what the user sees.
 */
#ifndef HOSTED_MESSAGE_H
#define HOSTED_MESSAGE_H

#include <cstdint>

#include "interfaces.h"

namespace hosted {

/** Readers look at the header of a message before anything else, its length included: less than that is no message. */
inline constexpr uint32_t kMinMessage = TAV_POSIX_BUS_MIN_MESSAGE;
inline constexpr uint32_t kMaxMessage = TAV_POSIX_BUS_MAX_MESSAGE;

inline constexpr uint32_t kEnvelopeMagic = 0x54415642;
inline constexpr uint16_t kEnvelopeVersion = 1;
inline constexpr uint32_t kNoComponent = 0;  // what callers have who do not know the component yet

/** What travels in front of a message, in the sender's byte order, which the magic number tells. */
struct Envelope {
    uint32_t magic;              // kEnvelopeMagic
    uint16_t version;            // kEnvelopeVersion
    uint8_t interfaceNumber;     // the interface
    uint8_t subInterfaceNumber;  // and its part
    uint32_t sender;             // component ids
    uint32_t receiver;
    uint32_t code;  // the receiver's instance id, or a message code
};
static_assert(sizeof(Envelope) == 20, "nothing undefined travels between the fields");

/** Stands in front of every message. */
struct alignas(8) MessageHeader {
    uint32_t mark;  // says that the message is alive
    uint32_t size;  // bytes that may travel
    Envelope envelope;

    void *Content() { return this + 1; }
};

/**
 * Takes a message with an envelope that is zero but for magic and version. The content is undefined.
 *
 * @param size    bytes of the message
 * @param tail    bytes behind it, which never travel
 * @param source  name of the source module to account the block to
 * @param line    source line to account it to
 * @return the message, to be sent or returned with ReturnMessage; null when memory is short
 */
MessageHeader *TakeMessage(uint32_t size, uint32_t tail, const char *source, uint32_t line);

/** Returns a message to the allocator. */
void ReturnMessage(MessageHeader *message);

/**
 * Finds the header of a message. Prints a line that names the caller, and aborts, when the message has been sent or
 * returned, or never was one.
 *
 * @param content  the message as its user knows it
 * @param caller   name of the function that was given it
 */
MessageHeader *HeaderOfMessage(const void *content, const char *caller);

/** Returns how many messages are alive. */
uint32_t LiveMessages();

}  // namespace hosted

#endif
