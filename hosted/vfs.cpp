/*
 * The virtual file system: plain files over descriptors, without a buffer in between.
 *
 * Codes are errno values.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "durable.h"
#include "interfaces.h"
#include "paths.h"

using hosted::HostPath;
using hosted::LastError;
using hosted::RetryInterrupted;
using hosted::SyncDirectoryOf;

struct BEX_VFS_File {
    int fd;
    bool append;   // writes go to the end of the file, and so does the position
    bool durable;  // a write counts only once it is on stable storage
};

namespace {

/** What a mode text means. */
struct OpenMode {
    const char *text;
    int flags;     // of open(2)
    bool creates;  // a file that is not there is created
    bool append;
    bool durable;
};

constexpr OpenMode kOpenModes[] = {
    {"rb", O_RDONLY, false, false, false},
    {"rb+", O_RDWR, false, false, true},
    {"wb+", O_RDWR | O_TRUNC, true, false, true},
    {"ab", O_WRONLY | O_APPEND, true, true, false},
};

const OpenMode *FindOpenMode(const char *text) {
    for (const OpenMode &mode : kOpenModes) {
        if (strcmp(mode.text, text) == 0) {
            return &mode;
        }
    }
    return nullptr;
}

/**
 * Opens a descriptor. Never waits for the other end of a pipe. `created` receives whether the file was not there
 * before.
 */
int OpenDescriptor(const char *path, const OpenMode &mode, bool *created) {
    const int flags = mode.flags | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const auto openWith = [=](int more) {
        return RetryInterrupted([=] { return open(path, flags | more, static_cast<mode_t>(hosted::kFileMode)); });
    };
    *created = false;
    const int fd = openWith(0);
    if (fd >= 0 || errno != ENOENT || !mode.creates) {
        return fd;
    }
    *created = true;
    return openWith(O_CREAT);
}

/** Accepts files and devices, and lets devices wait again; directories, pipes and sockets are no files. */
bool SettleDescriptor(int fd) {
    struct stat status = {};
    if (fstat(fd, &status) != 0) {
        return false;
    }
    if (S_ISREG(status.st_mode)) {
        return true;
    }
    if (!S_ISCHR(status.st_mode) && !S_ISBLK(status.st_mode)) {
        return false;
    }
    const int flags = fcntl(fd, F_GETFL);
    return flags >= 0 && fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

/** Makes the handle of an open descriptor. Returns null when memory is short. */
BEX_VFS_File *NewFile(int fd, const OpenMode &mode) {
    auto *const file = static_cast<BEX_VFS_File *>(malloc(sizeof(BEX_VFS_File)));
    if (file != nullptr) {
        *file = {fd, mode.append, mode.durable};
    }
    return file;
}

/** Bytes that a read or write is asked for; 0 when they are more than the result can tell. */
uint32_t Amount(uint32_t size, uint32_t count) {
    const uint64_t amount = uint64_t{size} * count;
    return amount <= UINT32_MAX ? static_cast<uint32_t>(amount) : 0;
}

/** Syncs a durable file. Returns whether what was written may be reported as written. */
bool SyncIfDurable(const BEX_VFS_File *file) {
    return !file->durable || hosted::SyncData(file->fd) == 0;
}

/**
 * Writes text with a single call, so that the lines of several writers stay whole. Returns the bytes written, or -1.
 */
int32_t WriteOnce(const BEX_VFS_File *file, const char *text, size_t length) {
    const ssize_t written = RetryInterrupted([=] { return write(file->fd, text, length); });
    return written >= 0 && SyncIfDurable(file) ? static_cast<int32_t>(written) : -1;
}

/** Writes a text that is too long for the stack. Returns the bytes written, or -1. */
int32_t WriteLongText(const BEX_VFS_File *file, const char *format, va_list arguments) {
    char *text = nullptr;
    const int length = vasprintf(&text, format, arguments);
    if (length < 0) {
        return -1;
    }
    const int32_t result = WriteOnce(file, text, static_cast<size_t>(length));
    free(text);
    return result;
}

/** Writes a formatted text. Returns the bytes written, or -1. */
int32_t WriteFormatted(const BEX_VFS_File *file, const char *format, va_list arguments) {
    char line[2048];
    va_list again;
    va_copy(again, arguments);
    const int length = vsnprintf(line, sizeof(line), format, arguments);
    int32_t result = -1;
    if (length >= 0) {
        const auto size = static_cast<size_t>(length);
        result = size < sizeof(line) ? WriteOnce(file, line, size) : WriteLongText(file, format, again);
    }
    va_end(again);
    return result;
}

}  // namespace

BEX_VFS_File *BEX_VFS_FOpen(const char *path, const char *mode) {
    const HostPath host(path);
    const OpenMode *const openMode = host.Get() != nullptr && mode != nullptr ? FindOpenMode(mode) : nullptr;
    if (openMode == nullptr) {
        return nullptr;
    }
    bool created = false;
    const int fd = OpenDescriptor(host.Get(), *openMode, &created);
    if (fd < 0) {
        return nullptr;
    }
    const bool usable = SettleDescriptor(fd) && (!created || !openMode->durable || SyncDirectoryOf(host.Get()) == 0);
    BEX_VFS_File *const file = usable ? NewFile(fd, *openMode) : nullptr;
    if (file == nullptr) {
        close(fd);
        if (created) {
            unlink(host.Get());
        }
    }
    return file;
}

uint32_t BEX_VFS_FRead(void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    return buffer != nullptr && file != nullptr ? hosted::ReadAll(file->fd, buffer, Amount(size, count)) : 0;
}

uint32_t BEX_VFS_FWrite(const void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    if (buffer == nullptr || file == nullptr) {
        return 0;
    }
    const uint32_t amount = Amount(size, count);
    const uint32_t written = hosted::WriteAll(file->fd, buffer, amount);
    if (amount == 0 || written < amount) {
        return written;
    }
    return SyncIfDurable(file) ? written : 0;
}

int32_t BEX_VFS_FSeek(BEX_VFS_File *file, int32_t offset, int32_t origin) {
    constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};  // by BEX_VFS_SEEK_...
    if (file == nullptr || origin < BEX_VFS_SEEK_SET || origin > BEX_VFS_SEEK_END) {
        return EINVAL;
    }
    return lseek(file->fd, offset, kOrigins[origin]) >= 0 ? 0 : errno;
}

int32_t BEX_VFS_FTell(BEX_VFS_File *file) {
    if (file == nullptr) {
        return -1;
    }
    const off_t position = lseek(file->fd, 0, file->append ? SEEK_END : SEEK_CUR);
    return position <= INT32_MAX ? static_cast<int32_t>(position) : INT32_MAX;
}

int32_t BEX_VFS_FFlush(BEX_VFS_File *file) {
    return file != nullptr ? 0 : EINVAL;  // nothing is ever held back
}

int32_t BEX_VFS_FClose(BEX_VFS_File *file) {
    if (file == nullptr) {
        return EINVAL;
    }
    const int result = close(file->fd);
    const int code = result == 0 || errno == EINTR ? 0 : errno;  // interrupted, the descriptor is closed all the same
    free(file);
    return code;
}

int32_t BEX_VFS_FPrintf(BEX_VFS_File *file, const char *format, ...) {
    if (file == nullptr || format == nullptr) {
        return -1;
    }
    va_list arguments;
    va_start(arguments, format);
    const int32_t result = WriteFormatted(file, format, arguments);
    va_end(arguments);
    return result;
}

uint32_t BEX_VFS_Stat(const char *path, BEX_VFS_StatInfo *info) {
    const HostPath host(path);
    if (host.Get() == nullptr || info == nullptr) {
        return EINVAL;
    }
    struct stat status = {};
    if (stat(host.Get(), &status) != 0) {
        return LastError();
    }
    info->size = static_cast<uint64_t>(status.st_size);
    return 0;
}

uint32_t BEX_VFS_MoveFile(const char *from, const char *to) {
    const HostPath hostFrom(from);
    const HostPath hostTo(to);
    return hostFrom.Get() != nullptr && hostTo.Get() != nullptr ? hosted::RenameDurably(hostFrom.Get(), hostTo.Get())
                                                                : EINVAL;
}

uint32_t BEX_VFS_DeleteFile(const char *path) {
    const HostPath host(path);
    if (host.Get() == nullptr) {
        return EINVAL;
    }
    return unlink(host.Get()) == 0 ? SyncDirectoryOf(host.Get()) : LastError();
}

uint32_t BEX_VFS_IsFileExist(const char *path) {
    const HostPath host(path);
    struct stat status = {};
    return host.Get() != nullptr && stat(host.Get(), &status) == 0 && S_ISREG(status.st_mode) ? 1 : 0;
}

uint32_t BEX_VFS_SetFileModeEx(const char *path, uint32_t mode) {
    constexpr uint32_t kPermissionBits = 07777;
    const HostPath host(path);
    if (host.Get() == nullptr || (mode & ~kPermissionBits) != 0) {
        return EINVAL;
    }
    return chmod(host.Get(), static_cast<mode_t>(mode)) == 0 ? 0 : LastError();
}

uint32_t P_MEL_Chown2MEL(const char * /*path*/, uint32_t /*flags*/) {
    return 0;
}
