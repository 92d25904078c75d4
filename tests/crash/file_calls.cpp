#include "file_calls.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>
#include <cstdarg>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <string>
#include <utility>

std::function<void(ino_t synced)> g_watch;
unsigned g_failingTurn = 0;
std::optional<size_t> g_room;

namespace {

/** Tells whether the process is to end at this turn. Turns count once the environment names the last one. */
bool IsLastTurn(const std::string &name) {
    static unsigned long turn = 0;
    const char *const last = getenv(kTurn);
    char *link = nullptr;
    return last != nullptr && ++turn == strtoul(last, &link, 10) && symlink(name.c_str(), link) == 0;
}

/** Makes a call, which is a turn. */
template <typename Call>
auto TakeTurn(const std::string &name, Call call, ino_t synced = 0) {
    if (IsLastTurn(name)) {
        raise(SIGKILL);
    }
    if (g_failingTurn != 0 && --g_failingTurn == 0) {
        errno = EIO;
        return decltype(call()){-1};
    }
    const auto result = call();
    if (g_watch && result >= 0) {
        const auto watch = std::exchange(g_watch, nullptr);  // whose own calls are not watched
        watch(synced);
        g_watch = watch;
    }
    return result;
}

struct stat StatusOf(int fd) {
    struct stat status {};
    fstat(fd, &status);
    return status;
}

int Sync(int fd, int (*sync)(int)) {
    return TakeTurn(
        "sync", [=] { return sync(fd); }, StatusOf(fd).st_ino);
}

}  // namespace

// The function of this name that stands behind the one of this program.
#define NEXT(function) reinterpret_cast<decltype(&(function))>(dlsym(RTLD_NEXT, #function))

extern "C" {

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    const auto call = [=] { return NEXT(open)(path, flags, mode); };
    return (flags & (O_CREAT | O_TRUNC)) != 0 ? TakeTurn("create", call) : call();
}

int mkostemps(char *path, int suffixLength, int flags) {
    return TakeTurn("create draft", [=] { return NEXT(mkostemps)(path, suffixLength, flags); });
}

int mkostemp(char *path, int flags) {
    return mkostemps(path, 0, flags);
}

/** A write has two turns: before it, and half done. */
ssize_t write(int fd, const void *data, size_t length) {
    struct stat status {};
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        return NEXT(write)(fd, data, length);
    }
    if (g_room) {
        length = std::min(length, *g_room);
        *g_room -= length;
        if (length == 0) {
            errno = ENOSPC;
            return -1;
        }
    }
    const std::string name = "write " + std::to_string(length);
    return TakeTurn(name, [=] {
        if (IsLastTurn("half of " + name) && NEXT(write)(fd, data, length / 2) >= 0) {
            raise(SIGKILL);
        }
        return NEXT(write)(fd, data, length);
    });
}

int fsync(int fd) {
    return Sync(fd, NEXT(fsync));
}

int fdatasync(int fd) {
    return Sync(fd, NEXT(fdatasync));
}

int rename(const char *from, const char *to) noexcept {
    return TakeTurn("rename", [=] { return NEXT(rename)(from, to); });
}

int unlink(const char *path) noexcept {
    return TakeTurn("unlink", [=] { return NEXT(unlink)(path); });
}

int unlinkat(int folder, const char *path, int flags) noexcept {
    return TakeTurn("unlinkat", [=] { return NEXT(unlinkat)(folder, path, flags); });
}

int mkdir(const char *path, mode_t mode) noexcept {
    return TakeTurn("mkdir", [=] { return NEXT(mkdir)(path, mode); });
}

}  // extern "C"
