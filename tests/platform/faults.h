/*
 * Faults in the system below the platform: the program's own write, fsync, fdatasync and pthread_setspecific, which
 * count, fail as they are told, and else call on.
 */
#ifndef TESTS_PLATFORM_FAULTS_H
#define TESTS_PLATFORM_FAULTS_H

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "bytes.h"

struct Faults {
    // What to do.
    size_t maxWrite = SIZE_MAX;      // a write moves at most so many bytes
    size_t room = SIZE_MAX;          // then the disk is full
    bool interrupt = false;          // every other call is interrupted by a signal
    bool failDataSync = false;       // fdatasync fails: files do not reach stable storage
    bool failDirectorySync = false;  // fsync fails: names do not
    // What happened.
    int writes = 0;
    int dataSyncs = 0;
    int directorySyncs = 0;
};

/** The faults in force. */
inline Faults faults;

/** Lets pthread_setspecific fail on the calling thread. */
inline thread_local bool failThreadKeys = false;

/** A test with a folder of its own, which leaves no faults behind. */
class FileTest : public testing::Test {
  protected:
    FileTest() { faults = {}; }
    ~FileTest() override { faults = {}; }

    const TempFolder folder_;
};

#endif
