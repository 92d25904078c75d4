/*
 * Calls of the system made to the end, and stable storage: what files and archives need to outlive a loss of power.
 */
#ifndef HOSTED_DURABLE_H
#define HOSTED_DURABLE_H

#include <sys/types.h>
#include <cerrno>
#include <cstdint>

namespace hosted {

/** Permission bits of the files that the platform creates: configuration and logs are no one else's. */
inline constexpr uint32_t kFileMode = 0640;

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

/** Reads up to `amount` bytes: until all are there, the end is reached, or it fails. Returns the bytes read. */
uint32_t ReadAll(int fd, void *buffer, uint32_t amount);

/** Writes `amount` bytes, or as many as go before it fails. Returns the bytes written. */
uint32_t WriteAll(int fd, const void *buffer, uint32_t amount);

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

}  // namespace hosted

#endif
