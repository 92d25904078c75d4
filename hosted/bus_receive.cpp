/*
 * Receiving from the bus: datagrams are taken from the kernel, judged, and handed out in their order.
 */
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <cerrno>
#include <cstring>

#include <algorithm>
#include <mutex>

#include "bus_counts.h"
#include "bus_port.h"
#include "common/words.h"
#include "datagram.h"
#include "deadline.h"
#include "durable.h"
#include "message.h"

using hosted::busCounters;
using hosted::BusInbox;
using hosted::Deadline;
using hosted::Envelope;
using hosted::LastError;
using hosted::MessageHeader;
using hosted::WaitingMessage;

namespace {

constexpr const char *kModule = "tav_posix_bus";  // to which received messages are accounted

// Zero bytes behind a received message. Readers walk a message by 16-bit lengths and do not compare these with what has
// come in: from any place in it, the farthest step leads 65535 bytes and a few words on.
constexpr uint32_t kZeroTail = 0x10000;

uint32_t WaitForMessage(const TAV_Posix_BusPort *port, int timeoutMs) {
    pollfd wanted = {port->ready.Get(), POLLIN, 0};
    const int ready = poll(&wanted, 1, timeoutMs);
    if (ready < 0) {
        return LastError();
    }
    return ready > 0 ? 0 : ETIMEDOUT;
}

/** Returns who has sent a datagram, as the kernel says; nobody when it does not. */
ucred SenderOf(const msghdr &header) {
    const cmsghdr *const control = CMSG_FIRSTHDR(&header);
    const bool isTold =
        control != nullptr && control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_CREDENTIALS;
    return isTold ? common::LoadWord<ucred>(CMSG_DATA(control)) : ucred{0, TAV_POSIX_BUS_SEVERAL_USERS, 0};
}

/** Returns whether a datagram has come whole, is a message for the port, and from whom it says. */
bool IsAcceptable(const TAV_Posix_BusPort *port, const mmsghdr &datagram, const Envelope &envelope,
                  const ucred &sender) {
    return (datagram.msg_hdr.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0 &&
           datagram.msg_len >= sizeof(Envelope) + hosted::kMinMessage && envelope.magic == hosted::kEnvelopeMagic &&
           envelope.version == hosted::kEnvelopeVersion && envelope.receiver == port->componentId &&
           envelope.sender != hosted::kNoComponent && hosted::IsOwner(port->folder, envelope.sender, sender.uid);
}

/** Judges a datagram, and keeps it if it is a message. Returns false, with nothing done, when memory is short. */
bool Judge(TAV_Posix_BusPort *port, const mmsghdr &datagram, const uint8_t *bytes) {
    Envelope envelope = {};
    memcpy(&envelope, bytes, std::min<size_t>(datagram.msg_len, sizeof(envelope)));
    const ucred sender = SenderOf(datagram.msg_hdr);
    if (IsAcceptable(port, datagram, envelope, sender)) {
        const uint32_t length = datagram.msg_len - uint32_t{sizeof(Envelope)};
        return port->waiting.Add(envelope, bytes + sizeof(Envelope), length);
    }
    busCounters.refused.Increment();
    port->refusals.Count(sender, envelope.sender);
    return true;
}

/** Takes all datagrams that the kernel has, as far as there is room for them. Returns 0, else an errno code. */
uint32_t Drain(TAV_Posix_BusPort *port) {
    BusInbox &inbox = *port->inbox;
    while (!port->waiting.IsFull()) {
        for (; inbox.next < inbox.count; ++inbox.next) {
            if (!Judge(port, inbox.headers[inbox.next], inbox.bytes[inbox.next])) {
                return ENOMEM;
            }
        }
        const bool mayBeMore = inbox.count == 0 || inbox.count == BusInbox::kSize;
        inbox.Clear();
        if (!mayBeMore) {
            return 0;
        }
        const int got =
            recvmmsg(port->socket.Get(), inbox.headers, BusInbox::kSize, MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
        if (got < 0) {
            return errno == EAGAIN ? 0 : LastError();
        }
        inbox.count = static_cast<uint32_t>(got);
    }
    return 0;
}

/** Makes a message of the first one that waits. Returns 0, else an errno code: EAGAIN when none does. */
uint32_t HandOut(TAV_Posix_BusPort *port, MessageHeader **message) {
    WaitingMessage *const first = port->waiting.First();
    if (first == nullptr) {
        return EAGAIN;
    }
    *message = hosted::TakeMessage(first->length, kZeroTail, kModule, __LINE__);
    if (*message == nullptr) {
        return ENOMEM;
    }
    (*message)->envelope = first->envelope;
    auto *const content = static_cast<uint8_t *>((*message)->Content());
    memcpy(content, first->Content(), first->length);
    memset(content + first->length, 0, kZeroTail);
    port->waiting.DropFirst();
    busCounters.received.Increment();
    return 0;
}

/** Keeps the port's descriptor readable as long as messages wait that the kernel no longer knows of. */
void TellWhatWaits(TAV_Posix_BusPort *port) {
    const bool isWaiting = port->waiting.First() != nullptr || port->inbox->next < port->inbox->count;
    if (isWaiting == port->isTold) {
        return;
    }
    eventfd_t told = 1;
    const int fd = port->event.Get();
    port->isTold = (isWaiting ? eventfd_write(fd, told) : eventfd_read(fd, &told)) == 0 ? isWaiting : port->isTold;
}

/** Takes the next message, if there is one. Returns 0, else an errno code: EAGAIN when there is none. */
uint32_t TakeNext(TAV_Posix_BusPort *port, MessageHeader **message) {
    const std::lock_guard lock(port->taking);
    const uint32_t drained = Drain(port);
    uint32_t code = HandOut(port, message);
    TellWhatWaits(port);
    return code == EAGAIN && drained != 0 ? drained : code;
}

}  // namespace

uint32_t TAV_Posix_BusReceive(TAV_Posix_BusPort *port, int32_t timeoutMs, void **message, uint32_t *length) {
    if (port == nullptr || message == nullptr || length == nullptr) {
        return EINVAL;
    }
    const Deadline deadline(timeoutMs);
    MessageHeader *taken = nullptr;
    uint32_t code = TakeNext(port, &taken);
    while (code == EAGAIN && !deadline.HasPassed()) {
        code = WaitForMessage(port, deadline.LeftMs());
        if (code == 0) {
            code = TakeNext(port, &taken);
        }
    }
    if (code != 0) {
        return code == EAGAIN ? ETIMEDOUT : code;
    }
    *message = taken->Content();
    *length = taken->size;
    return 0;
}

void TAV_Posix_BusVisitRefusals(TAV_Posix_BusPort *port, TAV_Posix_BusRefusalVisitor visitor, void *context) {
    std::unique_lock lock(port->taking);
    const hosted::Refusals refusals = port->refusals;
    lock.unlock();
    for (const TAV_Posix_BusRefusal &refusal : refusals) {
        visitor(&refusal, context);
    }
}
