/*
 * Receiving on this machine's bus: datagrams are taken from the kernel, and judged.
 */
#include "local_receive.h"

#include <sys/socket.h>
#include <cerrno>
#include <cstring>

#include <algorithm>

#include "common/words.h"
#include "durable.h"
#include "local_port.h"

namespace hosted {

namespace {

/** Returns who has sent a datagram, as the kernel says; nobody when it does not. */
ucred SenderOf(const msghdr &header) {
    const cmsghdr *const control = CMSG_FIRSTHDR(&header);
    const bool isTold =
        control != nullptr && control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_CREDENTIALS;
    return isTold ? common::LoadWord<ucred>(CMSG_DATA(control)) : ucred{0, TAV_POSIX_BUS_SEVERAL_USERS, 0};
}

/** Returns whether a datagram has come whole, is a message for the port, and from whom it says. */
bool IsAcceptable(const LocalPort *port, const mmsghdr &datagram, const Envelope &envelope, const ucred &sender) {
    return (datagram.msg_hdr.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0 &&
           datagram.msg_len >= sizeof(Envelope) + kMinMessage && envelope.magic == kEnvelopeMagic &&
           envelope.version == kEnvelopeVersion && envelope.receiver == port->componentId &&
           envelope.sender != kNoComponent && IsOwner(port->folder, envelope.sender, sender.uid);
}

/** Judges a datagram, and keeps it if it is a message. Returns false, with nothing done, when memory is short. */
bool Judge(LocalPort *port, const mmsghdr &datagram, const uint8_t *bytes) {
    Envelope envelope = {};
    memcpy(&envelope, bytes, std::min<size_t>(datagram.msg_len, sizeof(envelope)));
    const ucred sender = SenderOf(datagram.msg_hdr);
    if (IsAcceptable(port, datagram, envelope, sender)) {
        const uint32_t length = datagram.msg_len - uint32_t{sizeof(Envelope)};
        return port->port->waiting.Add(envelope, bytes + sizeof(Envelope), length);
    }
    Refuse(port->port, sender, envelope.sender);
    return true;
}

}  // namespace

uint32_t FetchLocally(BusBinding *binding) {
    auto *const port = static_cast<LocalPort *>(binding);
    BusInbox &inbox = *port->inbox;
    while (!port->port->waiting.IsFull()) {
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

}  // namespace hosted
