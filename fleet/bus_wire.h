/*
 * What travels: a message behind its envelope, in the byte order of its sender, and one word back.
 */
#ifndef FLEET_BUS_WIRE_H
#define FLEET_BUS_WIRE_H

#include <cstdint>

#include <string>
#include <string_view>

#include "hosted/message.h"

namespace fleet {

/** Returns the word by which a receiver answers a message: for 0, and for each errno code that it may give. */
std::string_view WordOf(uint32_t code);

/** Returns the code that a word stands for; EPROTO for one that is none. */
uint32_t CodeOfWord(std::string_view word);

/** Puts an envelope and a message's content together, as they travel. */
std::string Pack(const hosted::Envelope &envelope, const void *content, uint32_t length);

/** What has come, judged. */
struct Unpacked {
    /**
     * 0; EBADMSG for what is no message; EACCES for one that claims another sender than its subject names;
     * EPROTONOSUPPORT for one of the other byte order that nobody here could read
     */
    uint32_t code = 0;
    hosted::Envelope envelope = {};  // in host order
    std::string content;
};

/**
 * Takes apart what has come for a component. A transfer message of the other byte order gets the mark by which its
 * reader converts it; of other messages only their users know where words stand in them.
 *
 * @param travelled  what has come
 * @param sender     the sender that the subject names
 * @param receiver   the component
 */
Unpacked Unpack(std::string_view travelled, uint32_t sender, uint32_t receiver);

}  // namespace fleet

#endif
