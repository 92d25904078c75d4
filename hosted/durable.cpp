#include "durable.h"

#include <fcntl.h>
#include <unistd.h>
#include <climits>
#include <cstdio>
#include <cstring>

#include <algorithm>

namespace hosted {

namespace {

/**
 * Repeats a transfer until all is through, the end is reached, or it fails. `transfer` moves up to so many bytes
 * (offset, bytes left) and answers as read(2) and write(2) do. Returns the bytes that went through.
 */
template <typename Transfer>
uint32_t TransferAll(uint32_t amount, Transfer transfer) {
    constexpr uint32_t kMaxStep = 1u << 30;  // fits the result of a system call on every host
    uint32_t done = 0;
    while (done < amount) {
        const uint32_t step = std::min(amount - done, kMaxStep);
        const ssize_t moved = RetryInterrupted([&] { return transfer(done, step); });
        if (moved <= 0) {
            break;
        }
        done += static_cast<uint32_t>(moved);
    }
    return done;
}

/** The result of a sync as a code. EINVAL and ENOTSUP say that there is nothing to sync or no way to. */
uint32_t SyncCode(int result) {
    const bool done = result == 0 || errno == EINVAL || errno == ENOTSUP;
    return done ? 0 : LastError();
}

/** Length of the directory part of a path, with its last slash; 0 when there is none. */
size_t DirectoryLength(const char *path) {
    const char *const slash = strrchr(path, '/');
    return slash != nullptr ? static_cast<size_t>(slash - path) + 1 : 0;
}

bool InSameDirectory(const char *pathA, const char *pathB) {
    const size_t length = DirectoryLength(pathA);
    return length == DirectoryLength(pathB) && memcmp(pathA, pathB, length) == 0;
}

}  // namespace

uint32_t ReadAll(int fd, void *buffer, uint32_t amount) {
    return TransferAll(amount, [=](uint32_t offset, uint32_t length) {
        return read(fd, static_cast<char *>(buffer) + offset, length);
    });
}

uint32_t WriteAll(int fd, const void *buffer, uint32_t amount) {
    return TransferAll(amount, [=](uint32_t offset, uint32_t length) {
        return write(fd, static_cast<const char *>(buffer) + offset, length);
    });
}

uint32_t SyncData(int fd) {
    return SyncCode(RetryInterrupted([=] { return fdatasync(fd); }));
}

uint32_t SyncDirectoryOf(const char *path) {
    char directory[PATH_MAX] = ".";
    const size_t length = DirectoryLength(path);
    if (length >= sizeof(directory)) {
        return ENAMETOOLONG;
    }
    if (length > 0) {
        memcpy(directory, path, length);
        directory[length] = '\0';
    }
    const int fd = open(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return LastError();
    }
    const uint32_t code = SyncCode(RetryInterrupted([=] { return fsync(fd); }));
    close(fd);
    return code;
}

uint32_t RenameDurably(const char *from, const char *to) {
    if (rename(from, to) != 0) {
        return LastError();
    }
    const uint32_t code = SyncDirectoryOf(to);
    if (code != 0 || InSameDirectory(from, to)) {
        return code;
    }
    return SyncDirectoryOf(from);
}

}  // namespace hosted
