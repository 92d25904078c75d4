/*
 * Sending on the bus: to the socket of the receiving component, if its owner listens there.
 */
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>

#include "bus_counts.h"
#include "bus_folder.h"
#include "common/words.h"
#include "datagram.h"
#include "durable.h"
#include "interfaces.h"
#include "message.h"

using hosted::busCounters;
using hosted::BusFolder;
using hosted::Datagram;
using hosted::Descriptor;
using hosted::LastError;
using hosted::MessageHeader;

namespace {

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
 * there: otherwise others could have given a socket that name. Returns 0, else an errno code.
 */
uint32_t OpenReceiver(const BusFolder &folder, uint32_t componentId, Descriptor *receiver) {
    struct stat status = {};
    *receiver = hosted::OpenItself(hosted::SocketPath(folder, componentId), &status);
    if (!receiver->IsOpen()) {
        return LastError();
    }
    if (!S_ISSOCK(status.st_mode)) {
        return ENOTSOCK;
    }
    return hosted::IsOwner(folder, componentId, status.st_uid) ? 0 : EACCES;
}

/**
 * The address of an open socket file, so that a datagram goes to what has been looked at, whatever has its name by now.
 * Threads may have descriptors of their own, hence not /proc/self.
 */
sockaddr_un AddressOfOpen(const Descriptor &file) {
    char path[sizeof("/proc/thread-self/fd/-2147483648")];
    sprintf_s(path, sizeof(path), "/proc/thread-self/fd/%d", file.Get());
    return hosted::AddressOf(path);
}

/**
 * Sends a message. Every one goes through a socket of its own: the kernel charges what waits to the socket that sent
 * it, so with a common one a receiver that does not read would soon keep all others from getting anything.
 */
uint32_t Send(MessageHeader *message, uint32_t length) {
    BusFolder folder;
    Descriptor receiver;
    uint32_t code = hosted::FindSafeBusFolder(&folder);
    if (code == 0) {
        code = OpenReceiver(folder, message->envelope.receiver, &receiver);
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
    return errno == ENOENT ? ENOSYS : LastError();  // the receiver is there, so it is /proc that is missing
}

/** Checks that a message names its ends, and can be sent and received at this length. Returns 0, else an errno code. */
uint32_t CheckMessage(const MessageHeader *message, uint32_t length) {
    if (message->envelope.sender == hosted::kNoComponent || message->envelope.receiver == hosted::kNoComponent) {
        return EINVAL;
    }
    if (length > message->size || length > hosted::kMaxMessage) {
        return EMSGSIZE;
    }
    return length >= hosted::kMinMessage ? 0 : EINVAL;
}

}  // namespace

uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t /*reserved*/, uint32_t code, void *message, uint32_t length) {
    MessageHeader *const header = hosted::HeaderOfMessage(message, __func__);
    header->envelope.receiver = receiver;
    header->envelope.code = code;
    uint32_t result = CheckMessage(header, length);
    if (result == 0) {
        result = Send(header, length);
    }
    (result == 0 ? busCounters.sent : busCounters.sendFailures).Increment();
    hosted::ReturnMessage(header);
    return result;
}
