/*
 * A bound component.
 */
#ifndef HOSTED_BUS_PORT_H
#define HOSTED_BUS_PORT_H

#include <sys/socket.h>
#include <sys/uio.h>

#include <memory>
#include <mutex>

#include "bus_folder.h"
#include "bus_queue.h"
#include "datagram.h"
#include "descriptor.h"
#include "interfaces.h"

namespace hosted {

/**
 * Room for what the kernel hands over at once: more datagrams than it usually keeps for a socket, of any length. Only
 * the pages that datagrams reach are ever there.
 */
struct BusInbox {
    static constexpr uint32_t kSize = 16;

    uint32_t next = 0;   // datagrams from here on are not judged yet
    uint32_t count = 0;  // how many there are
    mmsghdr headers[kSize];
    iovec pieces[kSize];
    // Room for the sender's credentials alone, so that nobody can press descriptors on a receiver.
    alignas(cmsghdr) char control[kSize][CMSG_SPACE(sizeof(ucred))];
    uint8_t bytes[kSize][sizeof(Envelope) + kMaxMessage];

    /** Makes it ready for the next datagrams. */
    void Clear() {
        next = count = 0;
        for (uint32_t i = 0; i < kSize; ++i) {
            pieces[i] = {bytes[i], sizeof(bytes[i])};
            headers[i] = {};
            headers[i].msg_hdr.msg_iov = &pieces[i];
            headers[i].msg_hdr.msg_iovlen = 1;
            headers[i].msg_hdr.msg_control = control[i];
            headers[i].msg_hdr.msg_controllen = sizeof(control[i]);
        }
    }
};

}  // namespace hosted

struct TAV_Posix_BusPort {
    hosted::BusFolder folder;   // where it is bound, whatever the environment says later
    uint32_t componentId;       // its id
    hosted::Descriptor lock;    // the lock file, held as long as this lives
    hosted::Descriptor socket;  // where its datagrams come in
    hosted::Descriptor event;   // readable as long as messages wait here that have left the socket
    hosted::Descriptor ready;   // readable when one of these two is
    std::mutex taking;          // held while what follows is in use
    bool isTold = false;        // whether `event` is readable
    std::unique_ptr<hosted::BusInbox, decltype(&free)> inbox{nullptr, &free};
    hosted::MessageQueue waiting;
    hosted::Refusals refusals;
};

#endif
