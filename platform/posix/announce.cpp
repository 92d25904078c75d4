/*
 * Who serves a virtual system: symbolic links in the folder of the bus that read a component id.
 *
 * There is no lock, as anyone who may look into the folder could hold it for ever: a link is replaced in one step, and
 * taken out of its place before it is removed.
 */
#include <dirent.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <memory>

#include "bus.h"
#include "durable.h"
#include "interfaces.h"
#include "number.h"

namespace {

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};

// Tells whether a file of the folder is a link that reads this text.
bool Reads(int folderFd, const char *name, const char *text) {
    char target[kIdTextSize];
    const ssize_t length = readlinkat(folderFd, name, target, sizeof target);
    return length >= 0 && static_cast<size_t>(length) == strlen(text) &&
           memcmp(target, text, static_cast<size_t>(length)) == 0;
}

// Withdraws an announcement that reads this id. Between the look at it and its removal another component may announce
// itself in its place: so it is moved aside, and put back if it is the other's, unless there is one yet newer by then.
void Withdraw(int folderFd, const char *name, const TAV_Posix_BusPort &port) {
    const BusIdText id = IdText(port.componentId);
    const BusPath aside = SidePath(port.folder, port.componentId, "old");
    if (renameat(folderFd, name, AT_FDCWD, aside.text) != 0) {
        return;
    }
    if (Reads(AT_FDCWD, aside.text, id.text) ||
        renameat2(AT_FDCWD, aside.text, folderFd, name, RENAME_NOREPLACE) != 0) {
        unlink(aside.text);
    }
}

// Tells whether a user's announcements count: this process's own user, root, and whoever owns the folder and thereby
// rules over the names in it. Other users who may bind components here may not draw a VS's messages to themselves.
bool IsTrusted(const BusFolder &folder, uid_t user) {
    struct stat status = {};
    return user == geteuid() || user == 0 ||
           (IsSomebody(user) && stat(folder.path, &status) == 0 && status.st_uid == user);
}

}  // namespace

uint32_t Announce(const TAV_Posix_BusPort &port, uint32_t component, uint32_t vr, uint32_t vsId) {
    const std::lock_guard lock(port.announcing);
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
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(port.folder.path));
    if (!directory) {
        return;
    }
    const BusIdText id = IdText(port.componentId);
    const int fd = dirfd(directory.get());
    while (const dirent *const entry = readdir(directory.get())) {
        if (Reads(fd, entry->d_name, id.text)) {
            Withdraw(fd, entry->d_name, port);
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
    struct stat status = {};
    const Descriptor link = OpenItself(AnnouncementPath(folder, component, vr, vsId), &status);
    if (!link.IsOpen()) {
        return LastError();
    }
    // A hard link is someone's announcement of another VS under a name that he has not given it.
    if (!IsTrusted(folder, status.st_uid) || status.st_nlink > 1) {
        return EACCES;
    }
    char text[kIdTextSize];
    const ssize_t length = readlinkat(link.Get(), "", text, sizeof text);
    if (length < 0) {
        return LastError();
    }
    return ParseNumber({text, static_cast<size_t>(length)}, componentId) ? 0 : EINVAL;
}
