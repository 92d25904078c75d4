/*
 * Receiving from the bus: what is whole, a message for the port, and from whom it says.
 */
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <cerrno>
#include <cstring>

#include <mutex>

#include "bus_counts.h"
#include "bus_port.h"
#include "common/words.h"
#include "datagram.h"
#include "durable.h"
#include "message.h"

using hosted::busCounters;
using hosted::Datagram;
using hosted::Envelope;
using hosted::LastError;
using hosted::MessageHeader;

namespace {

constexpr const char *kModule = "tav_posix_bus";  // to which received messages are accounted

// Zero bytes behind a received message. Readers walk a message by 16-bit lengths and do not compare these with what has
// come in: from any place in it, the farthest step leads 65535 bytes and a few words on.
constexpr uint32_t kZeroTail = 0x10000;

/** The end of a wait. */
class Deadline {
  public:
    // A negative time limit never passes.
    explicit Deadline(int32_t timeoutMs) : endless_(timeoutMs < 0), end_(Now() + int64_t{timeoutMs} * kNsPerMs) {}

    // Milliseconds left, rounded up, as poll(2) wants them.
    int LeftMs() const {
        if (endless_) {
            return -1;
        }
        const int64_t left = end_ - Now();
        return left > 0 ? static_cast<int>((left + kNsPerMs - 1) / kNsPerMs) : 0;
    }
    bool HasPassed() const { return LeftMs() == 0; }

  private:
    static constexpr int64_t kNsPerMs = 1'000'000;
    static constexpr int64_t kNsPerSecond = 1'000'000'000;

    static int64_t Now() {
        timespec now = {};
        clock_gettime(CLOCK_MONOTONIC, &now);
        return int64_t{now.tv_sec} * kNsPerSecond + now.tv_nsec;
    }

    bool endless_;
    int64_t end_;  // in nanoseconds of the monotonic clock
};

uint32_t WaitForDatagram(int fd, int timeoutMs) {
    pollfd wanted = {fd, POLLIN, 0};
    const int ready = poll(&wanted, 1, timeoutMs);
    if (ready < 0) {
        return LastError();
    }
    return ready > 0 ? 0 : ETIMEDOUT;
}

/** Returns whether a datagram has come whole, is a message for the port, and from whom it says. */
bool IsAcceptable(const TAV_Posix_BusPort *port, const MessageHeader *message, const msghdr &header, size_t got) {
    const Envelope &envelope = message->envelope;
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || got < sizeof(Envelope) + hosted::kMinMessage ||
        envelope.magic != hosted::kEnvelopeMagic || envelope.version != hosted::kEnvelopeVersion ||
        envelope.receiver != port->componentId || envelope.sender == hosted::kNoComponent) {
        return false;
    }
    const cmsghdr *const control = CMSG_FIRSTHDR(&header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_CREDENTIALS) {
        return false;
    }
    const auto credentials = common::LoadWord<ucred>(CMSG_DATA(control));
    return hosted::IsOwner(port->folder, envelope.sender, credentials.uid);
}

/**
 * Takes a message with room for the next datagram, as far as that may be long. Returns 0, else an errno code: EAGAIN
 * when there is none.
 */
uint32_t TakeRoom(int fd, MessageHeader **room) {
    const ssize_t waiting = recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (waiting < 0) {
        return LastError();
    }
    const auto whole = static_cast<size_t>(waiting);
    const size_t length = whole > sizeof(Envelope) ? whole - sizeof(Envelope) : 0;
    const uint32_t size = length < hosted::kMaxMessage ? static_cast<uint32_t>(length) : hosted::kMaxMessage;
    *room = hosted::TakeMessage(size, kZeroTail, kModule, __LINE__);
    return *room != nullptr ? 0 : ENOMEM;
}

/** Reads the next datagram. Returns 0, else an errno code: EBADMSG for one that is not to be received. */
uint32_t ReadDatagram(const TAV_Posix_BusPort *port, MessageHeader *room) {
    Datagram datagram(room, room->size);
    const ssize_t got = recvmsg(port->socket.Get(), &datagram.header, MSG_CMSG_CLOEXEC);
    if (got < 0) {
        return LastError();
    }
    if (!IsAcceptable(port, room, datagram.header, static_cast<size_t>(got))) {
        return EBADMSG;
    }
    room->size = static_cast<uint32_t>(static_cast<size_t>(got) - sizeof(Envelope));
    memset(static_cast<char *>(room->Content()) + room->size, 0, kZeroTail);
    return 0;
}

/**
 * Takes the next message, if there is one. Returns 0, else an errno code: EAGAIN when there is none, or
 * when it was dropped.
 */
uint32_t TakeNext(TAV_Posix_BusPort *port, MessageHeader **message) {
    const std::lock_guard lock(port->taking);
    uint32_t code = TakeRoom(port->socket.Get(), message);
    if (code != 0) {
        return code;
    }
    code = ReadDatagram(port, *message);
    if (code == 0) {
        busCounters.received.Increment();
        return 0;
    }
    hosted::ReturnMessage(*message);
    if (code != EBADMSG) {
        return code;
    }
    busCounters.refused.Increment();
    return EAGAIN;
}

}  // namespace

uint32_t TAV_Posix_BusReceive(TAV_Posix_BusPort *port, int32_t timeoutMs, void **message, uint32_t *length) {
    if (port == nullptr || message == nullptr || length == nullptr) {
        return EINVAL;
    }
    const Deadline deadline(timeoutMs);
    MessageHeader *taken = nullptr;
    uint32_t code = 0;
    do {
        code = WaitForDatagram(port->socket.Get(), deadline.LeftMs());
        if (code == 0) {
            code = TakeNext(port, &taken);
        }
    } while (code == EAGAIN && !deadline.HasPassed());
    if (code != 0) {
        return code == EAGAIN ? ETIMEDOUT : code;
    }
    *message = taken->Content();
    *length = taken->size;
    return 0;
}
