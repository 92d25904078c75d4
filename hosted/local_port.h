/*
 * A component that is bound on this machine's bus.
 */
#ifndef HOSTED_LOCAL_PORT_H
#define HOSTED_LOCAL_PORT_H

#include <sys/socket.h>
#include <sys/uio.h>

#include <memory>

#include "bus_folder.h"
#include "bus_port.h"
#include "descriptor.h"

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

struct LocalPort : BusBinding {
    BusFolder folder;         // where it is bound, whatever the environment says later
    uint32_t componentId;     // its id
    TAV_Posix_BusPort *port;  // where its messages wait
    Descriptor lock;          // the lock file, held as long as this lives
    Descriptor socket;        // where its datagrams come in
    std::unique_ptr<BusInbox, decltype(&free)> inbox{nullptr, &free};  // in use while the port is locked
};

/** As the transport's bind and unbind. */
uint32_t BindLocalPort(uint32_t componentId, TAV_Posix_BusPort *port, BusBinding **binding);
void UnbindLocalPort(BusBinding *binding);

}  // namespace hosted

#endif
