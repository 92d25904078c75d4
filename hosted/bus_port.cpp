/*
 * Binding a component: its lock file, its socket, and what it announces.
 */
#include "bus_port.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>

#include <memory>
#include <new>

#include "announcements.h"
#include "durable.h"
#include "message.h"

using hosted::BusFolder;
using hosted::BusPath;
using hosted::Descriptor;
using hosted::LastError;
using hosted::LockPath;
using hosted::RetryInterrupted;
using hosted::SocketPath;

namespace {

constexpr mode_t kFolderMode = 0750;
constexpr mode_t kSocketMode = 0660;  // who may write to a socket may send to it
constexpr mode_t kLockMode = 0600;    // who may open a lock file may take the lock

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

/** Makes the folder, but not what lies above it. Returns 0 also when it is there. */
uint32_t MakeFolder(const BusFolder &folder) {
    return mkdir(folder.path, kFolderMode) == 0 || errno == EEXIST ? 0 : LastError();
}

/**
 * Opens the lock file of the port's component, which this user makes or has made: also root leaves those of others, as
 * the component would not be root's.
 */
uint32_t OpenLock(TAV_Posix_BusPort *port) {
    const BusPath path = LockPath(port->folder, port->componentId);
    const int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    port->lock = Descriptor(RetryInterrupted([&] { return open(path.text, flags, kLockMode); }));
    struct stat status = {};
    if (!port->lock.IsOpen() || fstat(port->lock.Get(), &status) != 0) {
        return LastError();
    }
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() ? 0 : EACCES;
}

/** Takes the lock of the port's component. The kernel returns it when the process ends, in whatever way. */
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

/**
 * Makes the socket that datagrams will come to. It asks for credentials before it has a name, so no datagram comes
 * without them.
 */
uint32_t MakeSocket(TAV_Posix_BusPort *port) {
    const int yes = 1;
    port->socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool made = port->socket.IsOpen() &&
                      setsockopt(port->socket.Get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof(yes)) == 0 &&
                      fchmod(port->socket.Get(), kSocketMode) == 0;  // which the file takes over, less the umask
    return made ? 0 : LastError();
}

/**
 * Makes what is needed to take datagrams from the socket, and the descriptor that is readable when one of them, or a
 * message that has been taken already, waits.
 */
uint32_t MakeInbox(TAV_Posix_BusPort *port) {
    port->inbox.reset(static_cast<hosted::BusInbox *>(malloc(sizeof(hosted::BusInbox))));
    if (!port->inbox) {
        return ENOMEM;
    }
    port->inbox->Clear();
    port->event = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    port->ready = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    const auto watch = [=](const Descriptor &source) {
        epoll_event wanted = {};
        wanted.events = EPOLLIN;
        return source.IsOpen() && epoll_ctl(port->ready.Get(), EPOLL_CTL_ADD, source.Get(), &wanted) == 0;
    };
    return port->ready.IsOpen() && watch(port->socket) && watch(port->event) ? 0 : LastError();
}

/**
 * Gives the socket its name, in place of what a process that was killed has left. Called with the component locked.
 */
uint32_t NameSocket(const TAV_Posix_BusPort *port) {
    const sockaddr_un address = hosted::AddressOf(SocketPath(port->folder, port->componentId).text);
    struct stat status = {};
    if (lstat(address.sun_path, &status) == 0 && S_ISSOCK(status.st_mode)) {
        unlink(address.sun_path);  // when this fails, so does bind
    }
    const auto *const anyAddress = reinterpret_cast<const sockaddr *>(&address);
    return bind(port->socket.Get(), anyAddress, sizeof(address)) == 0 ? 0 : LastError();
}

/** Brings a port to life, without what a process that was killed has left of it; the socket's name comes last. */
uint32_t OpenPort(TAV_Posix_BusPort *port) {
    uint32_t code = hosted::FindBusFolder(&port->folder);
    if (code == 0) {
        code = MakeFolder(port->folder);
    }
    if (code == 0) {
        code = hosted::CheckBusFolder(port->folder);
    }
    if (code == 0) {
        code = LockComponent(port);
    }
    if (code == 0) {
        hosted::WithdrawAnnouncements(port->folder, port->componentId);
        code = MakeSocket(port);
    }
    if (code == 0) {
        code = MakeInbox(port);
    }
    return code == 0 ? NameSocket(port) : code;
}

}  // namespace

uint32_t TAV_Posix_BusBind(uint32_t componentId, TAV_Posix_BusPort **port) {
    if (port == nullptr || componentId == hosted::kNoComponent) {
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
    hosted::WithdrawAnnouncements(port->folder, port->componentId);
    unlink(SocketPath(port->folder, port->componentId).text);
    flock(port->lock.Get(), LOCK_UN);  // closing alone leaves it with a child that was forked meanwhile
    DestroyPort()(port);
}

int TAV_Posix_BusFd(const TAV_Posix_BusPort *port) {
    return port->ready.Get();
}

uint32_t TAV_Posix_BusServe(const TAV_Posix_BusPort *port, uint32_t component, uint32_t vr, uint32_t vsId) {
    if (port == nullptr || component == hosted::kNoComponent) {
        return EINVAL;
    }
    return hosted::Announce(port->folder, port->componentId, component, vr, vsId);
}
