/*
 * The message bus: a datagram socket for every component, in one folder.
 *
 * A datagram is an envelope and a message. Neither what comes in nor who takes what goes out is trusted: a component
 * belongs to the user who owns its lock file. As that user the kernel must name the sender of a datagram, and to that
 * user the socket must belong that one is sent to.
 */
#include "bus.h"

#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <time.h>

#include <atomic>
#include <memory>
#include <new>

#include "durable.h"
#include "interfaces.h"
#include "message.h"
#include "paths.h"

namespace {

constexpr const char *kModule = "tav_posix_bus";  // to which received messages are accounted
constexpr const char *kDefaultBusPath = "/run/tav/";
constexpr mode_t kFolderMode = 0750;
constexpr mode_t kSocketMode = 0660;  // who may write to a socket may send to it
constexpr mode_t kLockMode = 0600;    // who may open a lock file may take the lock

// Zero bytes behind a received message. Readers walk a message by 16-bit lengths and do not compare these with what has
// come in: from any place in it, the farthest step leads 65535 bytes and a few words on.
constexpr uint32_t kZeroTail = 0x10000;

// What the kernel shows for every user that has no id in this process's user namespace: /proc/sys/kernel/overflowuid,
// as systems come.
constexpr uid_t kOverflowUser = 65534;

// Readers look at the header of a message before anything else, its length included, so less than that is no message.
constexpr uint32_t kMinMessage = TAV_POSIX_BUS_MIN_MESSAGE;
constexpr uint32_t kMaxMessage = TAV_POSIX_BUS_MAX_MESSAGE;

struct Counters {
    std::atomic<uint32_t> sent{0};
    std::atomic<uint32_t> sendFailures{0};
    std::atomic<uint32_t> received{0};
    std::atomic<uint32_t> refused{0};
};
constinit Counters counters;

void Count(std::atomic<uint32_t> *counter) {
    counter->fetch_add(1, std::memory_order_relaxed);
}

sockaddr_un AddressOf(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy_s(address.sun_path, sizeof address.sun_path, path);
    return address;
}

// Tells whether a component is a user's: whether he owns its lock file, which stays when the component is unbound.
// Nobody has bound one without; it is this process's own user's, and root's.
bool BelongsTo(const BusFolder &folder, uint32_t componentId, uid_t user) {
    if (!IsSomebody(user)) {
        return false;
    }
    struct stat status = {};
    if (lstat(SidePath(folder, componentId, "lock").text, &status) == 0) {
        return S_ISREG(status.st_mode) && status.st_uid == user;
    }
    return errno == ENOENT && (user == geteuid() || user == 0);
}

// A datagram in its pieces, as sendmsg(2) and recvmsg(2) want them. It refers to itself, so it stays where it is.
struct Datagram {
    iovec pieces[2];
    // Room for the sender's credentials, and none for descriptors: nobody can press those on a receiver.
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))] = {};
    msghdr header = {};

    Datagram(MessageHeader *message, uint32_t length)
        : pieces{{&message->envelope, sizeof(Envelope)}, {message->Content(), length}} {
        header.msg_iov = pieces;
        header.msg_iovlen = 2;
        header.msg_control = control;
        header.msg_controllen = sizeof control;
    }
    Datagram(const Datagram &) = delete;
    Datagram &operator=(const Datagram &) = delete;
};

// ---- Sending

// Says who sends. The kernel would by itself tell the real user; files, and so sockets, belong to the effective one.
void SetCredentials(Datagram *datagram) {
    const ucred credentials = {getpid(), geteuid(), getegid()};
    cmsghdr *const control = CMSG_FIRSTHDR(&datagram->header);
    control->cmsg_level = SOL_SOCKET;
    control->cmsg_type = SCM_CREDENTIALS;
    control->cmsg_len = CMSG_LEN(sizeof credentials);
    memcpy(CMSG_DATA(control), &credentials, sizeof credentials);
}

// Opens the socket of a component as a place to send to, and looks whether it is the component's owner who listens
// there: while he does not, others can give a socket that name. Returns 0, else an errno code.
uint32_t OpenReceiver(const BusFolder &folder, uint32_t componentId, Descriptor *receiver) {
    struct stat status = {};
    *receiver = OpenItself(SocketPath(folder, componentId), &status);
    if (!receiver->IsOpen()) {
        return LastError();
    }
    if (!S_ISSOCK(status.st_mode)) {
        return ENOTSOCK;
    }
    return BelongsTo(folder, componentId, status.st_uid) ? 0 : EACCES;
}

// The address of an open socket file, so that a datagram goes to what has been looked at, whatever has its name by now.
// Threads may have descriptors of their own, hence not /proc/self.
sockaddr_un AddressOf(const Descriptor &file) {
    char path[sizeof "/proc/thread-self/fd/-2147483648"];
    sprintf_s(path, sizeof path, "/proc/thread-self/fd/%d", file.Get());
    return AddressOf(path);
}

// Sends a message. Every one goes through a socket of its own: the kernel charges what waits to the socket that sent
// it, so with a common one a receiver that does not read would soon keep all others from getting anything.
uint32_t Send(MessageHeader *message, uint32_t length) {
    BusFolder folder;
    Descriptor receiver;
    uint32_t code = FindBusFolder(&folder);
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
    sockaddr_un address = AddressOf(receiver);
    Datagram datagram(message, length);
    datagram.header.msg_name = &address;
    datagram.header.msg_namelen = sizeof address;
    SetCredentials(&datagram);
    if (sendmsg(sender.Get(), &datagram.header, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0) {
        return 0;
    }
    return errno == ENOENT ? ENOSYS : LastError();  // the receiver is there, so it is /proc that is missing
}

// Tells whether a message of this length can be sent and received.
uint32_t CheckLength(const MessageHeader *message, uint32_t length) {
    if (length > message->size || length > kMaxMessage) {
        return EMSGSIZE;
    }
    return length >= kMinMessage ? 0 : EINVAL;
}

// ---- Binding

struct DestroyPort {
    void operator()(TAV_Posix_BusPort *port) const {
        port->~TAV_Posix_BusPort();
        free(port);
    }
};
using OwnedPort = std::unique_ptr<TAV_Posix_BusPort, DestroyPort>;

OwnedPort NewPort() {
    void *const memory = malloc(sizeof(TAV_Posix_BusPort));
    return OwnedPort(memory != nullptr ? new (memory) TAV_Posix_BusPort() : nullptr);
}

// Makes the folder, but not what lies above it. Returns 0 also when it is there.
uint32_t MakeFolder(const BusFolder &folder) {
    return mkdir(folder.path, kFolderMode) == 0 || errno == EEXIST ? 0 : LastError();
}

// Opens the lock file of the port's component, which this user makes or has made: also root leaves those of others, as
// the component would not be his.
uint32_t OpenLock(TAV_Posix_BusPort *port) {
    const BusPath path = SidePath(port->folder, port->componentId, "lock");
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    port->lock = Descriptor(RetryInterrupted([&] { return open(path.text, flags, kLockMode); }));
    struct stat status = {};
    if (!port->lock.IsOpen() || fstat(port->lock.Get(), &status) != 0) {
        return LastError();
    }
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() ? 0 : EACCES;
}

// Takes the lock of the port's component. The kernel returns it when the process ends, in whatever way.
uint32_t LockComponent(TAV_Posix_BusPort *port) {
    const uint32_t code = OpenLock(port);
    if (code != 0) {
        return code;
    }
    if (RetryInterrupted([=] { return flock(port->lock.Get(), LOCK_EX | LOCK_NB); }) == 0) {
        return 0;
    }
    return errno == EWOULDBLOCK ? EADDRINUSE : LastError();
}

// Makes the socket that datagrams will come to. It asks for credentials before it has a name, so none comes without.
uint32_t MakeSocket(TAV_Posix_BusPort *port) {
    const int yes = 1;
    port->socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool made = port->socket.IsOpen() &&
                      setsockopt(port->socket.Get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof yes) == 0 &&
                      fchmod(port->socket.Get(), kSocketMode) == 0;  // which the file takes over, less the umask
    return made ? 0 : LastError();
}

// Gives the socket its name, in place of what a process that was killed has left. Called with the component locked.
uint32_t NameSocket(const TAV_Posix_BusPort *port) {
    const sockaddr_un address = AddressOf(SocketPath(port->folder, port->componentId).text);
    struct stat status = {};
    if (lstat(address.sun_path, &status) == 0 && S_ISSOCK(status.st_mode)) {
        unlink(address.sun_path);  // when this fails, so does bind
    }
    const auto *const anyAddress = reinterpret_cast<const sockaddr *>(&address);
    return bind(port->socket.Get(), anyAddress, sizeof address) == 0 ? 0 : LastError();
}

// Brings a port to life, without what a process that was killed has left of it; the socket's name comes last.
uint32_t OpenPort(TAV_Posix_BusPort *port) {
    uint32_t code = FindBusFolder(&port->folder);
    if (code == 0) {
        code = MakeFolder(port->folder);
    }
    if (code == 0) {
        code = LockComponent(port);
    }
    if (code == 0) {
        WithdrawAnnouncements(*port);
        code = MakeSocket(port);
    }
    return code == 0 ? NameSocket(port) : code;
}

// ---- Receiving

// The end of a wait.
class Deadline {
  public:
    // Negative: there is none.
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

// Tells whether a datagram has come whole, is a message for the port, and from whom it says.
bool IsAcceptable(const TAV_Posix_BusPort *port, const MessageHeader *message, const msghdr &header, size_t got) {
    const Envelope &envelope = message->envelope;
    if ((header.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0 || got < sizeof(Envelope) + kMinMessage ||
        envelope.magic != kEnvelopeMagic || envelope.version != kEnvelopeVersion ||
        envelope.receiver != port->componentId) {
        return false;
    }
    const cmsghdr *const control = CMSG_FIRSTHDR(&header);
    if (control == nullptr || control->cmsg_level != SOL_SOCKET || control->cmsg_type != SCM_CREDENTIALS) {
        return false;
    }
    ucred credentials = {};
    memcpy(&credentials, CMSG_DATA(control), sizeof credentials);
    return BelongsTo(port->folder, envelope.sender, credentials.uid);
}

// Takes a message with room for the next datagram, as far as that may be long. Returns 0, else an errno code: EAGAIN
// when there is none.
uint32_t TakeRoom(int fd, MessageHeader **room) {
    const ssize_t waiting = recv(fd, nullptr, 0, MSG_PEEK | MSG_TRUNC);
    if (waiting < 0) {
        return LastError();
    }
    const auto whole = static_cast<size_t>(waiting);
    const size_t length = whole > sizeof(Envelope) ? whole - sizeof(Envelope) : 0;
    const uint32_t size = length < kMaxMessage ? static_cast<uint32_t>(length) : kMaxMessage;
    *room = TakeMessage(size, kZeroTail, kModule, __LINE__);
    return *room != nullptr ? 0 : ENOMEM;
}

// Reads the next datagram. Returns 0, else an errno code: EBADMSG for one that is not to be received.
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

// Takes the next message, if there is one. Returns 0; an errno code; EAGAIN when there is none, or it was dropped.
uint32_t TakeNext(TAV_Posix_BusPort *port, MessageHeader **message) {
    const std::lock_guard lock(port->taking);
    uint32_t code = TakeRoom(port->socket.Get(), message);
    if (code != 0) {
        return code;
    }
    code = ReadDatagram(port, *message);
    if (code == 0) {
        Count(&counters.received);
        return 0;
    }
    ReturnMessage(*message);
    if (code != EBADMSG) {
        return code;
    }
    Count(&counters.refused);
    return EAGAIN;
}

}  // namespace

uint32_t FindBusFolder(BusFolder *folder) {
    const char *const path = PathSetting("TAV_BUS_PATH", kDefaultBusPath);
    if (path[0] != '/') {
        return EINVAL;  // processes with other current folders would be on other buses
    }
    const bool slashMissing = path[strlen(path) - 1] != '/';
    return sprintf_s(folder->path, sizeof folder->path, "%s%s", path, slashMissing ? "/" : "") >= 0 ? 0 : ENAMETOOLONG;
}

BusIdText IdText(uint32_t componentId) {
    BusIdText id;
    sprintf_s(id.text, sizeof id.text, "%u", componentId);
    return id;
}

BusPath SocketPath(const BusFolder &folder, uint32_t componentId) {
    BusPath path;
    sprintf_s(path.text, sizeof path.text, "%s%u", folder.path, componentId);
    return path;
}

BusPath SidePath(const BusFolder &folder, uint32_t componentId, const char *suffix) {
    BusPath path;
    sprintf_s(path.text, sizeof path.text, "%s%u.%s", folder.path, componentId, suffix);
    return path;
}

BusPath AnnouncementPath(const BusFolder &folder, uint32_t component, uint32_t vr, uint32_t vsId) {
    BusPath path;
    sprintf_s(path.text, sizeof path.text, "%s%u.%u.%u", folder.path, component, vr, vsId);
    return path;
}

bool IsSomebody(uid_t user) {
    return user != kOverflowUser || user == geteuid();
}

Descriptor OpenItself(const BusPath &path, struct stat *status) {
    Descriptor file(open(path.text, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return file.IsOpen() && fstat(file.Get(), status) == 0 ? std::move(file) : Descriptor();
}

uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t /*reserved*/, uint32_t code, void *message, uint32_t length) {
    MessageHeader *const header = HeaderOfMessage(message, __func__);
    header->envelope.receiver = receiver;
    header->envelope.code = code;
    uint32_t result = CheckLength(header, length);
    if (result == 0) {
        result = Send(header, length);
    }
    Count(result == 0 ? &counters.sent : &counters.sendFailures);
    ReturnMessage(header);
    return result;
}

uint32_t TAV_Posix_BusBind(uint32_t componentId, TAV_Posix_BusPort **port) {
    if (port == nullptr) {
        return EINVAL;
    }
    OwnedPort opened = NewPort();
    if (!opened) {
        return ENOMEM;
    }
    opened->componentId = componentId;
    const uint32_t code = OpenPort(opened.get());
    if (code == 0) {
        *port = opened.release();
    }
    return code;
}

void TAV_Posix_BusUnbind(TAV_Posix_BusPort *port) {
    if (port == nullptr) {
        return;
    }
    WithdrawAnnouncements(*port);
    unlink(SocketPath(port->folder, port->componentId).text);
    flock(port->lock.Get(), LOCK_UN);  // closing alone leaves it with a child that was forked meanwhile
    DestroyPort()(port);
}

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

int TAV_Posix_BusFd(const TAV_Posix_BusPort *port) {
    return port->socket.Get();
}

uint32_t TAV_Posix_BusServe(const TAV_Posix_BusPort *port, uint32_t component, uint32_t vr, uint32_t vsId) {
    return port != nullptr ? Announce(*port, component, vr, vsId) : EINVAL;
}

void TAV_Posix_BusAccount(TAV_Posix_BusCounts *counts) {
    const auto read = [](const std::atomic<uint32_t> &counter) { return counter.load(std::memory_order_relaxed); };
    *counts = {LiveMessages(), read(counters.sent), read(counters.sendFailures), read(counters.received),
               read(counters.refused)};
}
