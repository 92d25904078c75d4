#include "faults.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

Faults faults;
thread_local bool failThreadKeys = false;

namespace {

template <typename Function>
Function Next(const char *name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

// Counts a call. Returns true when it is to be interrupted.
bool Begin(int &calls) {
    const int before = std::atomic_ref(calls).fetch_add(1);
    if (before % 2 == 0 && faults.interrupt) {
        errno = EINTR;
        return true;
    }
    return false;
}

int Sync(const char *name, int fd, int &calls, bool fail) {
    if (Begin(calls)) {
        return -1;
    }
    if (fail) {
        errno = EIO;
        return -1;
    }
    return Next<int (*)(int)>(name)(fd);
}

}  // namespace

extern "C" ssize_t write(int fd, const void *buffer, size_t length) {
    if (Begin(faults.writes)) {
        return -1;
    }
    if (faults.room == 0) {
        errno = ENOSPC;
        return -1;
    }
    const size_t part = std::min({length, faults.maxWrite, faults.room});
    if (faults.room != SIZE_MAX) {
        faults.room -= part;
    }
    return Next<ssize_t (*)(int, const void *, size_t)>("write")(fd, buffer, part);
}

extern "C" int fsync(int fd) {
    return Sync("fsync", fd, faults.fsyncs, faults.failFsync);
}

extern "C" int fdatasync(int fd) {
    return Sync("fdatasync", fd, faults.dataSyncs, faults.failDataSync);
}

#ifndef __SANITIZE_THREAD__  // its runtime calls this before a thread may run our code
extern "C" int pthread_setspecific(pthread_key_t key, const void *value) {
    return failThreadKeys ? ENOMEM : Next<int (*)(pthread_key_t, const void *)>("pthread_setspecific")(key, value);
}
#endif
