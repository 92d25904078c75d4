#include "bus_folder.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include <utility>

#include "durable.h"
#include "interfaces.h"
#include "paths.h"

namespace hosted {

namespace {

constexpr const char *kDefaultBusPath = "/run/tav/";

// What the kernel shows for every user that has no id in this process's user namespace: /proc/sys/kernel/overflowuid,
// as systems come.
constexpr uid_t kOverflowUser = 65534;

/**
 * Returns whether a user id stands for one user. That of this process does, whichever it is; the one that the kernel
 * shows for all that it cannot tell does not.
 */
bool IsSomebody(uid_t user) {
    return user != kOverflowUser || user == geteuid();
}

bool IsSelfOrRoot(uid_t user) {
    return user == geteuid() || user == 0;
}

/** Returns whether nobody but this process's user and root can make or rename what lies in a folder. */
bool IsClosed(const struct stat &status) {
    return IsSelfOrRoot(status.st_uid) && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace

uint32_t FindBusFolder(BusFolder *folder) {
    const char *const path = PathSetting("TAV_BUS_PATH", kDefaultBusPath);
    if (path[0] != '/') {
        return EINVAL;  // processes with other current folders would be on other buses
    }
    const bool slashMissing = path[strlen(path) - 1] != '/';
    return sprintf_s(folder->path, sizeof(folder->path), "%s%s", path, slashMissing ? "/" : "") >= 0 ? 0 : ENAMETOOLONG;
}

uint32_t CheckBusFolder(const BusFolder &folder) {
    struct stat status = {};
    if (stat(folder.path, &status) != 0) {
        return LastError();
    }
    const bool isShared = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (isShared && (status.st_mode & S_ISVTX) == 0) {
        return EACCES;  // each could take away the names of all others
    }
    if (IsSelfOrRoot(status.st_uid)) {
        return 0;
    }
    // Another user's: only where it cannot be that user who has put it there.
    BusPath parent;
    struct stat parentStatus = {};
    sprintf_s(parent.text, sizeof(parent.text), "%s..", folder.path);
    return stat(parent.text, &parentStatus) == 0 && IsClosed(parentStatus) ? 0 : EACCES;
}

uint32_t FindSafeBusFolder(BusFolder *folder) {
    const uint32_t code = FindBusFolder(folder);
    return code == 0 ? CheckBusFolder(*folder) : code;
}

BusIdText IdText(uint32_t componentId) {
    BusIdText id;
    sprintf_s(id.text, sizeof(id.text), "%u", componentId);
    return id;
}

BusPath SocketPath(const BusFolder &folder, uint32_t componentId) {
    BusPath path;
    sprintf_s(path.text, sizeof(path.text), "%s%u", folder.path, componentId);
    return path;
}

BusPath LockPath(const BusFolder &folder, uint32_t componentId) {
    BusPath path;
    sprintf_s(path.text, sizeof(path.text), "%s%u.lock", folder.path, componentId);
    return path;
}

BusPath AnnouncementPath(const BusFolder &folder, uint32_t component, uint32_t vr, uint32_t vsId) {
    BusPath path;
    sprintf_s(path.text, sizeof(path.text), "%s%u.%u.%u", folder.path, component, vr, vsId);
    return path;
}

sockaddr_un AddressOf(const char *path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strcpy_s(address.sun_path, sizeof(address.sun_path), path);
    return address;
}

Descriptor OpenItself(const BusPath &path, struct stat *status) {
    Descriptor file(open(path.text, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    return file.IsOpen() && fstat(file.Get(), status) == 0 ? std::move(file) : Descriptor();
}

bool IsOwner(const BusFolder &folder, uint32_t componentId, uid_t user) {
    if (!IsSomebody(user)) {
        return false;
    }
    struct stat status = {};
    if (lstat(LockPath(folder, componentId).text, &status) == 0) {
        return S_ISREG(status.st_mode) && status.st_uid == user;
    }
    return errno == ENOENT && IsSelfOrRoot(user);
}

bool IsTrusted(const BusFolder &folder, uid_t user) {
    struct stat status = {};
    return IsSelfOrRoot(user) || (IsSomebody(user) && stat(folder.path, &status) == 0 && status.st_uid == user);
}

}  // namespace hosted
