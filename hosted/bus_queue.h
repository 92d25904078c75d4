/*
 * What a port has taken from the kernel: messages that wait to be received, and whose datagrams were refused.
 *
 * The kernel keeps few datagrams for a socket, also such as will be refused: whoever sends without pause takes all the
 * room. So they are taken out as soon as possible, and those that are refused are dropped before anything waits behind
 * them. A message that has been sent is never dropped: when as many wait as may, the rest stays with the kernel, and
 * further senders are told.
 */
#ifndef HOSTED_BUS_QUEUE_H
#define HOSTED_BUS_QUEUE_H

#include <sys/socket.h>
#include <cstddef>
#include <cstdint>

#include "interfaces.h"
#include "message.h"

namespace hosted {

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
    bool IsFull() const { return count_ >= TAV_POSIX_BUS_MAX_WAITING; }

    /** Adds a message. Returns false when memory is short. */
    bool Add(const Envelope &envelope, const void *content, uint32_t length);

    /** Drops the first message, which must be there. */
    void DropFirst();

  private:
    WaitingMessage *first_ = nullptr;
    WaitingMessage **end_ = &first_;
    uint32_t count_ = 0;
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
