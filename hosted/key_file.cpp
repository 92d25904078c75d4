#include "key_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "durable.h"
#include "interfaces.h"
#include "paths.h"

namespace hosted {

namespace {

// At the beginning of every key file; the digit is the version. The secret follows, and nothing else.
constexpr char kMagic[] = {'t', 'a', 'v', 'k', 'e', 'y', '1', '\n'};

// A whole key file.
using Content = Secret<sizeof(kMagic) + Key::size()>;

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

/** Reads a key file that is there. Neither follows a link nor waits for the other end of a pipe. */
uint32_t ReadExisting(const char *path, Key *secret) {
    const int flags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    const int fd = RetryInterrupted([=] { return open(path, flags); });
    if (fd < 0) {
        return errno != ELOOP ? LastError() : EACCES;
    }
    const uint32_t code = ReadContent(fd, secret);
    close(fd);
    return code;
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
 * Creates the key file. It gets its name when it is complete, and only if no other process was faster: then the other
 * one's key stays.
 */
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
    if (code == 0 && link(draft, path) != 0 && errno != EEXIST) {
        code = LastError();
    }
    unlink(draft);
    return code == 0 ? SyncDirectoryOf(path) : code;
}

}  // namespace

uint32_t ReadKeyFile(MissingKeyFile missing, Key *secret) {
    char path[PATH_MAX];
    uint32_t code = TAV_Posix_KeyFilePath(path, sizeof(path));
    if (code != 0) {
        return code;
    }
    code = ReadExisting(path, secret);
    if (code != ENOENT || missing == MissingKeyFile::kFail) {
        return code;
    }
    code = Create(path);
    return code == 0 ? ReadExisting(path, secret) : code;
}

}  // namespace hosted

uint32_t TAV_Posix_KeyFilePath(char *path, uint32_t size) {
    const char *const setting = hosted::TrustedSetting("TAV_KEY_FILE");
    if (setting != nullptr) {
        return strcpy_s(path, size, setting) == 0 ? 0 : ENAMETOOLONG;
    }
    char workPath[PATH_MAX];
    MEL_GetSysWorkPath(workPath, sizeof(workPath));
    return sprintf_s(path, size, "%setc/tav.key", workPath) >= 0 ? 0 : ENAMETOOLONG;
}
