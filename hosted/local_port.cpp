/*
 * Binding a component on this machine's bus: its lock file and its socket.
 */
#include "local_port.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>

#include "announcements.h"
#include "durable.h"
#include "made.h"

namespace hosted {

namespace {

constexpr mode_t kFolderMode = 0750;
constexpr mode_t kSocketMode = 0660;  // who may write to a socket may send to it
constexpr mode_t kLockMode = 0600;    // who may open a lock file may take the lock

/** Makes the folder, but not what lies above it. Returns 0 also when it is there. */
uint32_t MakeFolder(const BusFolder &folder) {
    return mkdir(folder.path, kFolderMode) == 0 || errno == EEXIST ? 0 : LastError();
}

/**
 * Opens the lock file of the port's component, which this user makes or has made: also root leaves those of others, as
 * the component would not be root's.
 */
uint32_t OpenLock(LocalPort *port) {
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
uint32_t LockComponent(LocalPort *port) {
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
uint32_t MakeSocket(LocalPort *port) {
    const int yes = 1;
    port->socket = Descriptor(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool made = port->socket.IsOpen() &&
                      setsockopt(port->socket.Get(), SOL_SOCKET, SO_PASSCRED, &yes, sizeof(yes)) == 0 &&
                      fchmod(port->socket.Get(), kSocketMode) == 0;  // which the file takes over, less the umask
    return made ? 0 : LastError();
}

/** Makes what is needed to take datagrams from the socket, and lets the port tell when one waits there. */
uint32_t MakeInbox(LocalPort *port) {
    port->inbox.reset(static_cast<BusInbox *>(malloc(sizeof(BusInbox))));
    if (!port->inbox) {
        return ENOMEM;
    }
    port->inbox->Clear();
    return Watch(port->port, port->socket);
}

/**
 * Gives the socket its name, in place of what a process that was killed has left. Called with the component locked.
 */
uint32_t NameSocket(const LocalPort *port) {
    const sockaddr_un address = AddressOf(SocketPath(port->folder, port->componentId).text);
    struct stat status = {};
    if (lstat(address.sun_path, &status) == 0 && S_ISSOCK(status.st_mode)) {
        unlink(address.sun_path);  // when this fails, so does bind
    }
    const auto *const anyAddress = reinterpret_cast<const sockaddr *>(&address);
    return bind(port->socket.Get(), anyAddress, sizeof(address)) == 0 ? 0 : LastError();
}

/** Brings a port to life, without what a process that was killed has left of it; the socket's name comes last. */
uint32_t Open(LocalPort *port) {
    uint32_t code = FindBusFolder(&port->folder);
    if (code == 0) {
        code = MakeFolder(port->folder);
    }
    if (code == 0) {
        code = CheckBusFolder(port->folder);
    }
    if (code == 0) {
        code = LockComponent(port);
    }
    if (code == 0) {
        WithdrawAnnouncements(port->folder, port->componentId);
        code = MakeSocket(port);
    }
    if (code == 0) {
        code = MakeInbox(port);
    }
    return code == 0 ? NameSocket(port) : code;
}

}  // namespace

uint32_t BindLocalPort(uint32_t componentId, TAV_Posix_BusPort *port, BusBinding **binding) {
    Made<LocalPort> made = Make<LocalPort>();
    if (!made) {
        return ENOMEM;
    }
    made->componentId = componentId;
    made->port = port;
    const uint32_t code = Open(made.get());
    if (code == 0) {
        *binding = made.release();
    }
    return code;
}

void UnbindLocalPort(BusBinding *binding) {
    const Made<LocalPort> port(static_cast<LocalPort *>(binding));
    WithdrawAnnouncements(port->folder, port->componentId);
    unlink(SocketPath(port->folder, port->componentId).text);
    flock(port->lock.Get(), LOCK_UN);  // closing alone leaves it with a child that was forked meanwhile
}

}  // namespace hosted
