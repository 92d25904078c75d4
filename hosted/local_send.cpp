/*
 * Sending on this machine's bus: to the socket of the receiving component, if its owner listens there.
 */
#include "local_send.h"

#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>

#include <atomic>

#include "bus_folder.h"
#include "common/words.h"
#include "datagram.h"
#include "deadline.h"
#include "durable.h"
#include "interfaces.h"

namespace hosted {

namespace {

// A sender waits so long for a full receiver, and after it has done so in vain does not for ten times as long.
constexpr int32_t kPatienceMs = 50;
constexpr int64_t kPauseMs = 500;

/** When receivers that have been waited for in vain may be waited for again, in nanoseconds of the monotonic clock. */
constinit std::atomic<int64_t> noWaitBefore[64] = {};

/** The place of a bound socket in that table, which some may share. One that is bound anew has another place. */
std::atomic<int64_t> &NoWaitBefore(const struct stat &socket) {
    const uint64_t identity = (uint64_t{socket.st_ino} << 32) ^ static_cast<uint64_t>(socket.st_ctim.tv_nsec);
    return noWaitBefore[identity * 0x9E3779B97F4A7C15u >> 58];
}

/**
 * Says who sends. The kernel would by itself tell the real user; files, and so sockets, belong to the effective one.
 */
void SetCredentials(Datagram *datagram) {
    const ucred credentials = {getpid(), geteuid(), getegid()};
    cmsghdr *const control = CMSG_FIRSTHDR(&datagram->header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_CREDENTIALS;
    control->cmsg_len = CMSG_LEN(sizeof(credentials));
    common::StoreWord(credentials, CMSG_DATA(control));
}

/**
 * Opens the socket of a component as a place to send to, and looks whether it is the component's owner who listens
 * there: otherwise others could have given a socket that name. Returns 0 and its status, else an errno code.
 */
uint32_t OpenReceiver(const BusFolder &folder, uint32_t componentId, Descriptor *receiver, struct stat *status) {
    *receiver = OpenItself(SocketPath(folder, componentId), status);
    if (!receiver->IsOpen()) {
        return LastError();
    }
    if (!S_ISSOCK(status->st_mode)) {
        return ENOTSOCK;
    }
    return IsOwner(folder, componentId, status->st_uid) ? 0 : EACCES;
}

/**
 * The address of an open socket file, so that a datagram goes to what has been looked at, whatever has its name by now.
 * Threads may have descriptors of their own, hence not /proc/self.
 */
sockaddr_un AddressOfOpen(const Descriptor &file) {
    char path[sizeof("/proc/thread-self/fd/-2147483648")];
    sprintf_s(path, sizeof(path), "/proc/thread-self/fd/%d", file.Get());
    return AddressOf(path);
}

/**
 * Sends a datagram to a receiver whose queue is full. It may be full of what others send without pause, and then the
 * receiver makes room again and again, for a moment each time: the kernel wakes who waits for that. A receiver that has
 * not made room in time may be stuck, and is not to hold up this process: so for a while it is not waited for.
 */
uint32_t SendPatiently(const Descriptor &sender, const Datagram &datagram, std::atomic<int64_t> &notBefore) {
    if (MonotonicNs() < notBefore.load(std::memory_order_relaxed)) {
        return EAGAIN;
    }
    const Deadline deadline(kPatienceMs);
    do {
        const timeval limit = {0, deadline.LeftMs() * 1000 + 1};  // 0 would be no limit
        if (setsockopt(sender.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit)) != 0) {
            return LastError();
        }
        if (sendmsg(sender.Get(), &datagram.header, MSG_NOSIGNAL) >= 0) {
            return 0;
        }
    } while (errno == EINTR && !deadline.HasPassed());
    if (errno != EAGAIN && errno != EINTR) {
        return LastError();
    }
    notBefore.store(MonotonicNs() + kPauseMs * kNsPerMs, std::memory_order_relaxed);
    return EAGAIN;
}

}  // namespace

// Every message goes through a socket of its own: the kernel charges what waits to the socket that sent it, so with a
// common one a receiver that does not read would soon keep all others from getting anything.
uint32_t SendLocally(MessageHeader *message, uint32_t length) {
    BusFolder folder;
    Descriptor receiver;
    struct stat status = {};
    uint32_t code = FindSafeBusFolder(&folder);
    if (code == 0) {
        code = OpenReceiver(folder, message->envelope.receiver, &receiver, &status);
    }
    if (code != 0) {
        return code;
    }
    const Descriptor sender(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!sender.IsOpen()) {
        return LastError();
    }
    sockaddr_un address = AddressOfOpen(receiver);
    Datagram datagram(message, length);
    datagram.header.msg_name = &address;
    datagram.header.msg_namelen = sizeof(address);
    SetCredentials(&datagram);
    if (sendmsg(sender.Get(), &datagram.header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
        return 0;
    }
    if (errno == EAGAIN) {
        return SendPatiently(sender, datagram, NoWaitBefore(status));
    }
    return errno == ENOENT ? ENOSYS : LastError();  // the receiver is there, so it is /proc that is missing
}

}  // namespace hosted
