/*
 * What a port has taken from the kernel: messages that wait to be received, and whose datagrams were refused.
 *
 * The kernel keeps few datagrams for a socket, and keeps them for everybody alike: whoever sends without pause takes
 * all the room. So they are taken out as soon as possible, and it is here that each sender has room of its own.
 */
#ifndef HOSTED_BUS_QUEUE_H
#define HOSTED_BUS_QUEUE_H

#include <sys/socket.h>
#include <cstddef>
#include <cstdint>

#include "interfaces.h"
#include "message.h"

namespace hosted {

inline constexpr uint32_t kMaxWaitingOfSender = TAV_POSIX_BUS_MAX_WAITING;
inline constexpr uint32_t kMaxWaiting = 4 * kMaxWaitingOfSender;  // of all senders together

/** A message that waits. */
struct WaitingMessage {
    WaitingMessage *next;
    uint32_t length;  // of the content, which lies behind this
    Envelope envelope;

    void *Content() { return this + 1; }
};

/** Messages that wait, in the order in which they came. */
class MessageQueue {
  public:
    MessageQueue() = default;
    ~MessageQueue();
    MessageQueue(const MessageQueue &) = delete;
    MessageQueue &operator=(const MessageQueue &) = delete;

    /** The message that came first; null when none waits. */
    WaitingMessage *First() { return first_; }
    bool IsFull() const { return count_ >= kMaxWaiting; }

    /** Returns whether a sender has as many messages waiting as it may. */
    bool HasAllOf(uint32_t sender) const;

    /** Adds a message. Returns false when memory is short. */
    bool Add(const Envelope &envelope, const void *content, uint32_t length);

    /** Drops the first message, which must be there. */
    void DropFirst();

  private:
    /** How many messages of a sender wait; in the table as long as there is one. */
    struct Sender {
        Sender *next;
        uint32_t id;
        uint32_t waiting;
    };
    static constexpr uint32_t kBuckets = 64;

    static uint32_t BucketOf(uint32_t id) { return (id * 2654435761u) >> 26; }  // Fibonacci hashing, to 6 bits
    Sender *Find(uint32_t id) const;
    bool CountIn(uint32_t id);
    void CountOut(uint32_t id);

    WaitingMessage *first_ = nullptr;
    WaitingMessage **end_ = &first_;
    uint32_t count_ = 0;
    Sender *senders_[kBuckets] = {};
};

/** Datagrams that were refused, by the user who sent them. */
class Refusals {
  public:
    /** Counts one. `component` is what it claims to come from. */
    void Count(const ucred &sender, uint32_t component);

    const TAV_Posix_BusRefusal *begin() const { return users_; }
    const TAV_Posix_BusRefusal *end() const { return users_ + count_; }

  private:
    static constexpr size_t kMaxUsers = 32;  // the last one stands for all others, too

    TAV_Posix_BusRefusal users_[kMaxUsers] = {};
    size_t count_ = 0;
};

}  // namespace hosted

#endif
