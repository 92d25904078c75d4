/*
 * Faults in the system below the platform: the program's own write, fsync, fdatasync and pthread_setspecific, which
 * count, fail as they are told, and else call on.
 */
#ifndef TESTS_PLATFORM_FAULTS_H
#define TESTS_PLATFORM_FAULTS_H

#include <cstddef>
#include <cstdint>

struct Faults {
    // What to do.
    size_t maxWrite = SIZE_MAX;  // a write moves at most so many bytes
    size_t room = SIZE_MAX;      // then the disk is full
    bool interrupt = false;      // every other call is interrupted by a signal
    bool failFsync = false;      // directories cannot be synced
    bool failDataSync = false;   // files cannot be synced
    // What happened.
    int writes = 0;
    int fsyncs = 0;
    int dataSyncs = 0;
};

/** The faults in force; a test sets them and puts them back with ScopedFaults. */
extern Faults faults;

/** Lets pthread_setspecific fail on the calling thread. */
extern thread_local bool failThreadKeys;

/** Ends all faults, and forgets what was counted, at the beginning and at the end of its life. */
struct ScopedFaults {
    ScopedFaults() { faults = {}; }
    ~ScopedFaults() { faults = {}; }
};

#endif
