/*
 * Directories: making them, deleting them with what they hold, and searching them.
 *
 * Codes are errno values. Nothing here waits for stable storage: what must outlive a loss of power are files.
 */
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "durable.h"
#include "interfaces.h"
#include "paths.h"

using hosted::HostPath;
using hosted::LastError;

struct BEX_VFS_Find {
    DIR *directory;
    char pattern[NAME_MAX + 1];  // that names have to match
};

namespace {

/**
 * Copies a caller's path as the system knows it, without slashes at its end: behind one, the system would follow a
 * symbolic link. Returns 0, else a code.
 */
uint32_t CopyPath(const char *path, char (&copy)[PATH_MAX]) {
    const HostPath host(path);
    if (host.Get() == nullptr || strcpy_s(copy, sizeof(copy), host.Get()) != 0 || copy[0] == '\0') {
        return EINVAL;
    }
    for (size_t length = strlen(copy); length > 1 && copy[length - 1] == '/'; --length) {
        copy[length - 1] = '\0';
    }
    return 0;
}

/**
 * Makes the directories above the last component of a path, as far as they are missing. The path is changed meanwhile.
 */
uint32_t MakeParents(char *path, mode_t mode) {
    for (char *slash = strchr(path + 1, '/'); slash != nullptr; slash = strchr(slash + 1, '/')) {
        *slash = '\0';
        const bool there = mkdir(path, mode) == 0 || errno == EEXIST;  // another process may be making it too
        *slash = '/';
        if (!there) {
            return LastError();
        }
    }
    return 0;
}

bool IsDotEntry(const char *name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

uint32_t DeleteContent(int fd);

/**
 * Deletes an entry of an open folder. Everything goes by descriptors, so that nobody who exchanges a directory for a
 * link meanwhile can lead this elsewhere.
 */
uint32_t DeleteTree(int folder, const char *name) {
    const int fd = openat(folder, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        return LastError();
    }
    const uint32_t code = DeleteContent(fd);
    if (code != 0) {
        return code;
    }
    return unlinkat(folder, name, AT_REMOVEDIR) == 0 ? 0 : LastError();
}

/** Deletes what a directory holds, and closes its descriptor. */
uint32_t DeleteContent(int fd) {
    DIR *const directory = fdopendir(fd);
    if (directory == nullptr) {
        const uint32_t code = LastError();
        close(fd);
        return code;
    }
    uint32_t code = 0;
    // Should reading end early, the directory is not empty and its own deletion says so.
    for (const dirent *entry = readdir(directory); code == 0 && entry != nullptr; entry = readdir(directory)) {
        if (IsDotEntry(entry->d_name) || unlinkat(fd, entry->d_name, 0) == 0) {
            continue;
        }
        const bool isDirectory = errno == EISDIR || errno == EPERM;  // what Linux says, and what POSIX has it say
        code = isDirectory ? DeleteTree(fd, entry->d_name) : LastError();
    }
    closedir(directory);
    return code;
}

/** Splits a search path into its folder, which goes to `folder`, and the pattern behind it. Null when it gets too long.
 */
const char *SplitSearch(const char *path, char (&folder)[PATH_MAX]) {
    const char *const slash = strrchr(path, '/');
    const size_t length = slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0;
    if (strncpy_s(folder, sizeof(folder), length != 0 ? path : ".", length != 0 ? length : 1) != 0) {
        return nullptr;
    }
    return path + length;
}

/** Opens a search of a folder. Returns 0, else a code. */
uint32_t OpenSearch(const char *folder, const char *pattern, BEX_VFS_Find **search) {
    DIR *const directory = opendir(folder);
    if (directory == nullptr) {
        return LastError();
    }
    auto *const opened = static_cast<BEX_VFS_Find *>(malloc(sizeof(BEX_VFS_Find)));
    if (opened == nullptr || strcpy_s(opened->pattern, sizeof(opened->pattern), pattern) != 0) {
        const uint32_t code = opened == nullptr ? ENOMEM : ENAMETOOLONG;
        free(opened);
        closedir(directory);
        return code;
    }
    opened->directory = directory;
    *search = opened;
    return 0;
}

}  // namespace

uint32_t BEX_VFS_IsDirExist(const char *path) {
    const HostPath host(path);
    struct stat status = {};
    return host.Get() != nullptr && stat(host.Get(), &status) == 0 && S_ISDIR(status.st_mode) ? 1 : 0;
}

uint32_t P_MEL_Mkdir(const char *path, uint32_t mode) {
    char copy[PATH_MAX];
    uint32_t code = CopyPath(path, copy);
    if (code != 0) {
        return code;
    }
    const auto bits = static_cast<mode_t>(mode);
    if (mkdir(copy, bits) == 0) {
        return 0;
    }
    if (errno != ENOENT) {
        return LastError();
    }
    code = MakeParents(copy, bits);
    if (code != 0) {
        return code;
    }
    return mkdir(copy, bits) == 0 ? 0 : LastError();
}

uint32_t BEX_DeleteDir(const char *path) {
    char copy[PATH_MAX];
    const uint32_t code = CopyPath(path, copy);
    return code == 0 ? DeleteTree(AT_FDCWD, copy) : code;
}

uint32_t BEX_VFS_FindFirst(const char *pattern, BEX_VFS_Find **search, BEX_VFS_FindEntry *entry) {
    if (search == nullptr) {
        return EINVAL;
    }
    *search = nullptr;
    const HostPath host(pattern);
    if (host.Get() == nullptr || entry == nullptr) {
        return EINVAL;
    }
    char folder[PATH_MAX];
    const char *const names = SplitSearch(host.Get(), folder);
    if (names == nullptr) {
        return ENAMETOOLONG;
    }
    BEX_VFS_Find *opened = nullptr;
    uint32_t code = OpenSearch(folder, names, &opened);
    if (code == 0) {
        code = BEX_VFS_FindNext(opened, entry);
    }
    if (code != 0) {
        BEX_VFS_FindClose(opened);
        return code;
    }
    *search = opened;
    return 0;
}

uint32_t BEX_VFS_FindNext(BEX_VFS_Find *search, BEX_VFS_FindEntry *entry) {
    if (search == nullptr || entry == nullptr) {
        return EINVAL;
    }
    errno = 0;  // the end of a directory leaves it so
    for (const dirent *found = readdir(search->directory); found != nullptr; found = readdir(search->directory)) {
        if (fnmatch(search->pattern, found->d_name, 0) == 0) {
            return strcpy_s(entry->name, sizeof(entry->name), found->d_name) == 0 ? 0 : ENAMETOOLONG;
        }
        errno = 0;
    }
    return errno != 0 ? LastError() : ENOENT;
}

void BEX_VFS_FindClose(BEX_VFS_Find *search) {
    if (search != nullptr) {
        closedir(search->directory);
        free(search);
    }
}
