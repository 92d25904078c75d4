#include "faults.h"

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

// The function that this program's own stands in front of.
template <typename Function>
static Function *Next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// Counts a call. Tells whether it fails: interrupted, or with the code given when `fail` is set.
static bool Fails(int &calls, bool fail, int code) {
    const bool interrupted = ++calls % 2 == 1 && faults.interrupt;
    errno = interrupted ? EINTR : fail ? code : errno;
    return interrupted || fail;
}

extern "C" ssize_t write(int fd, const void *buffer, size_t length) {
    if (Fails(faults.writes, faults.room == 0, ENOSPC)) {
        return -1;
    }
    const size_t part = std::min({length, faults.maxWrite, faults.room});
    faults.room -= part;
    return Next<ssize_t(int, const void *, size_t)>("write")(fd, buffer, part);
}

extern "C" int fsync(int fd) {
    return Fails(faults.directorySyncs, faults.failDirectorySync, EIO) ? -1 : Next<int(int)>("fsync")(fd);
}

extern "C" int fdatasync(int fd) {
    return Fails(faults.dataSyncs, faults.failDataSync, EIO) ? -1 : Next<int(int)>("fdatasync")(fd);
}

#ifndef __SANITIZE_THREAD__  // its runtime calls this before a thread may run our code
extern "C" int pthread_setspecific(pthread_key_t key, const void *value) {
    return failThreadKeys ? ENOMEM : Next<int(pthread_key_t, const void *)>("pthread_setspecific")(key, value);
}
#endif
