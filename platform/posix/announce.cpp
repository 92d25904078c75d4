/*
 * Who serves a virtual system: symbolic links in the folder of the bus that read a component id.
 *
 * Lookups take no lock: a link is replaced in one step. Writers lock the folder, so that none withdraws what another
 * has just put in place.
 */
#include <dirent.h>
#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>

#include <memory>

#include "bus.h"
#include "durable.h"
#include "interfaces.h"
#include "number.h"

namespace {

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};
using LockedFolder = std::unique_ptr<DIR, CloseDirectory>;

// Opens and locks the folder. Returns null, with errno set, when that fails.
LockedFolder LockFolder(const BusFolder &folder) {
    LockedFolder directory(opendir(folder.path));
    if (directory && RetryInterrupted([&] { return flock(dirfd(directory.get()), LOCK_EX); }) != 0) {
        directory.reset();
    }
    return directory;
}

// Tells whether a file of the folder is a link that reads this text.
bool Reads(int folderFd, const char *name, const char *text) {
    char target[kIdTextSize];
    const ssize_t length = readlinkat(folderFd, name, target, sizeof target);
    return length >= 0 && static_cast<size_t>(length) == strlen(text) &&
           memcmp(target, text, static_cast<size_t>(length)) == 0;
}

// Tells whether a user's announcements count: this process's own user, root, and whoever owns the folder and thereby
// rules over the names in it. Other users who may bind components here may not draw a VS's messages to themselves.
bool IsTrusted(const BusFolder &folder, uid_t user) {
    struct stat status = {};
    return user == geteuid() || user == 0 || (stat(folder.path, &status) == 0 && status.st_uid == user);
}

}  // namespace

uint32_t Announce(const TAV_Posix_BusPort &port, uint32_t component, uint32_t vr, uint32_t vsId) {
    const LockedFolder locked = LockFolder(port.folder);
    if (!locked) {
        return LastError();
    }
    const BusPath draft = SidePath(port.folder, port.componentId, "new");
    unlink(draft.text);  // a process that was killed may have left it
    if (symlink(IdText(port.componentId).text, draft.text) != 0) {
        return LastError();
    }
    if (rename(draft.text, AnnouncementPath(port.folder, component, vr, vsId).text) == 0) {
        return 0;
    }
    const uint32_t code = LastError();
    unlink(draft.text);
    return code;
}

void WithdrawAnnouncements(const TAV_Posix_BusPort &port) {
    const LockedFolder locked = LockFolder(port.folder);
    if (!locked) {
        return;
    }
    const BusIdText id = IdText(port.componentId);
    const int fd = dirfd(locked.get());
    while (const dirent *const entry = readdir(locked.get())) {
        if (Reads(fd, entry->d_name, id.text)) {
            unlinkat(fd, entry->d_name, 0);
        }
    }
}

uint32_t CMF_GetPIDByVR(uint32_t component, uint32_t /*reserved*/, uint32_t vr, uint32_t vsId, uint32_t *componentId) {
    BusFolder folder;
    const uint32_t code = componentId != nullptr ? FindBusFolder(&folder) : EINVAL;
    if (code != 0) {
        return code;
    }
    // The link itself is opened, so that its owner and its text are those of one and the same link.
    const Descriptor link(open(AnnouncementPath(folder, component, vr, vsId).text, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat status = {};
    if (!link.IsOpen() || fstat(link.Get(), &status) != 0) {
        return LastError();
    }
    if (!IsTrusted(folder, status.st_uid)) {
        return EACCES;
    }
    char text[kIdTextSize];
    const ssize_t length = readlinkat(link.Get(), "", text, sizeof text);
    if (length < 0) {
        return LastError();
    }
    return ParseNumber({text, static_cast<size_t>(length)}, componentId) ? 0 : EINVAL;
}
