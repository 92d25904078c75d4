/*
 * Calls of the system made to the end, and stable storage: what files and archives need to outlive a loss of power.
 */
#ifndef PLATFORM_POSIX_DURABLE_H
#define PLATFORM_POSIX_DURABLE_H

#include <errno.h>
#include <stdint.h>
#include <sys/types.h>

/** Permission bits of the files that the platform creates: configuration and logs are no one else's. */
constexpr uint32_t kFileMode = 0640;

/**
 * Repeats a system call as long as signals interrupt it.
 *
 * @param call  makes the call; negative with errno EINTR when it was interrupted
 * @return what the last call returned
 */
template <typename Call>
auto RetryInterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/**
 * Repeats a transfer until all is through, the end is reached, or it fails.
 *
 * @param amount    bytes to transfer
 * @param transfer  transfers up to so many bytes (offset, bytes left); answers as read(2) and write(2) do
 * @return the bytes that went through
 */
template <typename Transfer>
uint32_t TransferAll(uint32_t amount, Transfer transfer) {
    constexpr uint32_t kMaxStep = 1u << 30;  // fits the result of a system call on every host
    uint32_t done = 0;
    while (done < amount) {
        const uint32_t left = amount - done;
        const ssize_t moved = RetryInterrupted([&] { return transfer(done, left < kMaxStep ? left : kMaxStep); });
        if (moved <= 0) {
            break;
        }
        done += static_cast<uint32_t>(moved);
    }
    return done;
}

/** The code of the system call that has just failed. */
inline uint32_t LastError() {
    return static_cast<uint32_t>(errno);
}

/**
 * Brings a file's content, and its length if that changed, to stable storage.
 *
 * @return 0, else an errno code; 0 also for what cannot be synced, such as a device
 */
uint32_t SyncData(int fd);

/**
 * Brings the directory entry of `path` to stable storage: that it is there, or gone.
 *
 * @return 0, else an errno code; 0 also on a file system that does not sync directories
 */
uint32_t SyncDirectoryOf(const char *path);

/**
 * Renames a file, replacing what stands at `to`, and brings that to stable storage.
 *
 * @return 0, else an errno code; after a failed sync the file has its new name all the same
 */
uint32_t RenameDurably(const char *from, const char *to);

#endif
