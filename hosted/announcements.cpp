#include "announcements.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include <memory>

#include "durable.h"
#include "interfaces.h"
#include "message.h"
#include "number.h"

namespace hosted {

namespace {

struct CloseDirectory {
    void operator()(DIR *directory) const { closedir(directory); }
};

/** A name of its own, relative to the folder. */
struct SideName {
    char text[kSideNameSize];
};

/** Makes up a name that nobody knows, so that nobody can stand in its way. Returns 0, else a code. */
uint32_t NewSideName(uint32_t componentId, SideName *name) {
    uint64_t random = 0;
    const uint32_t code = CRYPT_random(&random, sizeof(random));
    sprintf_s(name->text, sizeof(name->text), "%u.%016" PRIx64 ".tmp", componentId, random);
    return code;
}

/** Returns whether a file of the folder is a link of this process's user that reads this text. */
bool IsOwnLink(int folderFd, const char *name, const char *text) {
    struct stat status = {};
    if (fstatat(folderFd, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || status.st_uid != geteuid()) {
        return false;
    }
    char target[kIdTextSize];
    const ssize_t length = readlinkat(folderFd, name, target, sizeof(target));
    return length >= 0 && static_cast<size_t>(length) == strlen(text) &&
           memcmp(target, text, static_cast<size_t>(length)) == 0;
}

/**
 * Withdraws an announcement that reads this id. Between the look at it and its removal another component may announce
 * itself in its place: so it is moved aside, and put back if it is the other's, unless there is one yet newer by then.
 */
void Withdraw(int folderFd, const char *name, uint32_t componentId) {
    SideName aside;
    if (NewSideName(componentId, &aside) != 0 || renameat(folderFd, name, folderFd, aside.text) != 0) {
        return;
    }
    if (IsOwnLink(folderFd, aside.text, IdText(componentId).text) ||
        renameat2(folderFd, aside.text, folderFd, name, RENAME_NOREPLACE) != 0) {
        unlinkat(folderFd, aside.text, 0);
    }
}

}  // namespace

uint32_t Announce(const BusFolder &folder, uint32_t componentId, uint32_t component, uint32_t vr, uint32_t vsId) {
    SideName name;
    const uint32_t code = NewSideName(componentId, &name);
    if (code != 0) {
        return code;
    }
    BusPath draft;
    sprintf_s(draft.text, sizeof(draft.text), "%s%s", folder.path, name.text);
    if (symlink(IdText(componentId).text, draft.text) != 0) {
        return LastError();
    }
    if (rename(draft.text, AnnouncementPath(folder, component, vr, vsId).text) == 0) {
        return 0;
    }
    const uint32_t renameCode = LastError();
    unlink(draft.text);
    return renameCode;
}

void WithdrawAnnouncements(const BusFolder &folder, uint32_t componentId) {
    const std::unique_ptr<DIR, CloseDirectory> directory(opendir(folder.path));
    if (!directory) {
        return;
    }
    const BusIdText id = IdText(componentId);
    const int fd = dirfd(directory.get());
    while (const dirent *const entry = readdir(directory.get())) {
        if (IsOwnLink(fd, entry->d_name, id.text)) {
            Withdraw(fd, entry->d_name, componentId);
        }
    }
}

uint32_t FindAnnounced(uint32_t component, uint32_t vr, uint32_t vsId, uint32_t *componentId) {
    BusFolder folder;
    const uint32_t code = FindSafeBusFolder(&folder);
    if (code != 0) {
        return code;
    }
    // The link itself is opened, so that its owner and its text are those of one and the same link.
    struct stat status = {};
    const Descriptor link = OpenItself(AnnouncementPath(folder, component, vr, vsId), &status);
    if (!link.IsOpen()) {
        return LastError();
    }
    // A hard link is someone's announcement of another VS under a name that its maker has not given it.
    if (!IsTrusted(folder, status.st_uid) || status.st_nlink > 1) {
        return EACCES;
    }
    char text[kIdTextSize];
    const ssize_t length = readlinkat(link.Get(), "", text, sizeof(text));
    if (length < 0) {
        return LastError();
    }
    uint32_t announced = kNoComponent;
    if (!ParseNumber({text, static_cast<size_t>(length)}, &announced) || announced == kNoComponent) {
        return EINVAL;
    }
    *componentId = announced;
    return 0;
}

}  // namespace hosted
