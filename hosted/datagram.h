/*
 * A datagram: the envelope and the message, as sendmsg(2) wants them.
 *
 * Neither what comes in nor who takes what goes out is trusted: a component belongs to the user who owns its lock file.
 * As that user the kernel must name the sender of a datagram, and to that user the socket must belong that one is sent
 * to.
 */
#ifndef HOSTED_DATAGRAM_H
#define HOSTED_DATAGRAM_H

#include <sys/socket.h>
#include <sys/uio.h>

#include "message.h"

namespace hosted {

/** A datagram to be sent, in its pieces. It refers to itself, so it stays where it is. */
struct Datagram {
    iovec pieces[2];
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    msghdr header = {};

    /** A message and how many bytes of it travel. */
    Datagram(MessageHeader *message, uint32_t length)
        : pieces{{&message->envelope, sizeof(Envelope)}, {message->Content(), length}} {
        header.msg_iov = pieces;
        header.msg_iovlen = 2;
        header.msg_control = control;
        header.msg_controllen = sizeof(control);
    }
    Datagram(const Datagram &) = delete;
    Datagram &operator=(const Datagram &) = delete;
};

}  // namespace hosted

#endif
