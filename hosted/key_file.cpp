#include "key_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <atomic>

#include "descriptor.h"
#include "durable.h"
#include "interfaces.h"
#include "paths.h"

namespace hosted {

namespace {

// At the beginning of every key file; the digit is the version. The secret follows, and nothing else.
constexpr char kMagic[] = {'t', 'a', 'v', 'k', 'e', 'y', '1', '\n'};

// A whole key file.
using Content = Secret<sizeof(kMagic) + Key::size()>;

constinit std::atomic<uint32_t> keyFilesMade{0};  // by this process

/** Returns what stands behind the last slash of an absolute path. */
const char *NameIn(const char *path) {
    return strrchr(path, '/') + 1;
}

/**
 * Returns whether an open file can be a key file: a regular file of its size that only its owner, this user or root,
 * may touch.
 */
bool IsPrivateKeyFile(int fd) {
    struct stat status = {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == off_t{Content::size()} &&
           (status.st_mode & (S_IRWXG | S_IRWXO)) == 0 && (status.st_uid == geteuid() || status.st_uid == 0);
}

uint32_t ReadContent(int fd, Key *secret) {
    if (!IsPrivateKeyFile(fd)) {
        return EACCES;
    }
    Content content;
    const ssize_t got = RetryInterrupted([&] { return read(fd, content.data(), Content::size()); });
    if (got < 0) {
        return LastError();
    }
    if (static_cast<size_t>(got) < Content::size() || memcmp(content.data(), kMagic, sizeof(kMagic)) != 0) {
        return EACCES;
    }
    memcpy(secret->data(), content.data() + sizeof(kMagic), Key::size());
    return 0;
}

/**
 * Opens the folder that a key file lies in. Whoever else may write there could take the key away or put another one in
 * its place, so such a folder is refused.
 */
uint32_t OpenFolderOf(const char *path, Descriptor *folder) {
    char folderPath[PATH_MAX];
    const auto length = static_cast<uint32_t>(NameIn(path) - path);
    if (strncpy_s(folderPath, sizeof(folderPath), path, length) != 0) {
        return ENAMETOOLONG;
    }
    *folder = Descriptor(open(folderPath, O_PATH | O_DIRECTORY | O_CLOEXEC));
    struct stat status = {};
    if (!folder->IsOpen() || fstat(folder->Get(), &status) != 0) {
        return LastError();
    }
    const bool isOurs = status.st_uid == geteuid() || status.st_uid == 0;
    return isOurs && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0 ? 0 : EACCES;
}

/** Makes the key file's folder if it is missing. The path is changed meanwhile. */
uint32_t MakeFolderOf(char *path) {
    char *const slash = strrchr(path, '/');
    if (slash == nullptr || slash == path) {
        return 0;
    }
    *slash = '\0';
    uint32_t code = mkdir(path, S_IRWXU) == 0 ? SyncDirectoryOf(path) : LastError();
    if (code == EEXIST) {
        code = 0;
    }
    *slash = '/';
    return code;
}

/** Writes a new random key and brings it to stable storage. */
uint32_t WriteContent(int fd) {
    Content content;
    memcpy(content.data(), kMagic, sizeof(kMagic));
    const uint32_t code = CRYPT_random(content.data() + sizeof(kMagic), Key::size());
    if (code != 0) {
        return code;
    }
    const ssize_t written = RetryInterrupted([&] { return write(fd, content.data(), Content::size()); });
    if (written < 0) {
        return LastError();
    }
    return static_cast<size_t>(written) == Content::size() ? SyncData(fd) : ENOSPC;
}

/**
 * Gives a complete key file its name, unless another process was faster: then the other one's key stays. Some file
 * systems have no hard links, others cannot rename without replacing.
 */
uint32_t NameDraft(const char *draft, const char *path) {
    const bool isNamed = link(draft, path) == 0 ||
                         (errno != EEXIST && renameat2(AT_FDCWD, draft, AT_FDCWD, path, RENAME_NOREPLACE) == 0);
    if (isNamed) {
        keyFilesMade.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }
    return errno == EEXIST ? 0 : LastError();
}

/** Creates the key file, which is complete when it gets its name. */
uint32_t Create(char *path) {
    const uint32_t folderCode = MakeFolderOf(path);
    if (folderCode != 0) {
        return folderCode;
    }
    char draft[PATH_MAX];
    if (sprintf_s(draft, sizeof(draft), "%s.XXXXXX", path) < 0) {
        return ENAMETOOLONG;
    }
    const int fd = mkostemp(draft, O_CLOEXEC);  // mode 0600
    if (fd < 0) {
        return LastError();
    }
    uint32_t code = WriteContent(fd);
    close(fd);
    if (code == 0) {
        code = NameDraft(draft, path);
    }
    unlink(draft);
    return code == 0 ? SyncDirectoryOf(path) : code;
}

}  // namespace

uint32_t ReadKeyFileAt(const char *path, Key *secret) {
    if (path[0] != '/') {
        return EACCES;
    }
    Descriptor folder;
    const uint32_t code = OpenFolderOf(path, &folder);
    if (code != 0) {
        return code;
    }
    // Neither follows a link nor waits for the other end of a pipe.
    const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const Descriptor file(RetryInterrupted([&] { return openat(folder.Get(), NameIn(path), flags); }));
    if (!file.IsOpen()) {
        return errno != ELOOP ? LastError() : EACCES;
    }
    return ReadContent(file.Get(), secret);
}

uint32_t ReadKeyFile(MissingKeyFile missing, Key *secret) {
    char path[PATH_MAX];
    uint32_t code = TAV_Posix_KeyFilePath(path, sizeof(path));
    if (code != 0) {
        return code != EINVAL ? code : EACCES;  // to the users of keys, the former says that a text is none
    }
    code = ReadKeyFileAt(path, secret);
    if (code != ENOENT || missing == MissingKeyFile::kFail) {
        return code;
    }
    code = Create(path);
    return code == 0 ? ReadKeyFileAt(path, secret) : code;
}

}  // namespace hosted

uint32_t TAV_Posix_KeyFilePath(char *path, uint32_t size) {
    const char *const setting = hosted::TrustedSetting("TAV_KEY_FILE");
    char workPath[PATH_MAX];
    MEL_GetSysWorkPath(workPath, sizeof(workPath));
    const int length =
        setting != nullptr ? sprintf_s(path, size, "%s", setting) : sprintf_s(path, size, "%setc/tav.key", workPath);
    if (length < 0) {
        return ENAMETOOLONG;
    }
    return path[0] == '/' ? 0 : EINVAL;  // else every working directory would have a key of its own
}

uint32_t TAV_Posix_KeyFilesMade() {
    return hosted::keyFilesMade.load(std::memory_order_relaxed);
}
