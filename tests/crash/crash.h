/*
 * Crashes of a process at each call that changes files, and a disk that loses power after each.
 */
#ifndef TAV_TESTS_CRASH_H
#define TAV_TESTS_CRASH_H

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bytes.h"
#include "file_calls.h"

using Files = std::map<std::string, Bytes>;  // the content of a folder and of those in it

/** Reads a folder; lock files are left out, which hold nothing that lasts. */
Files ReadFolder(const std::string &folder);
void WriteFolder(const TempFolder &folder, const Files &files);

// How a child process ends that is not killed at a turn.
inline constexpr char kDone[] = "done", kFailed[] = "failed";

/** Runs something in a child process. Returns the name of the turn at which it was killed, else kDone or kFailed. */
std::string RunChild(unsigned lastTurn, const std::function<int()> &run);

/** Tries something that is killed at each turn, and once more to its end, which must be kDone. */
void Sweep(const std::function<std::string(unsigned lastTurn)> &tryOnce);

/**
 * A model of a folder on a disk that loses power. Until a file is synced, any content that it has had since the last
 * time may be found, whole, in part, or as zeros; until a folder is synced in which names were changed, each change of
 * names or not, a rename as a whole. What becomes of one says nothing about the others.
 */
class Disk {
  public:
    /** Begins with what is in a folder, all of it on stable storage. */
    explicit Disk(const std::string &folder);

    /** Looks at the folder after a change, or after a sync of the file or folder with this number. */
    void Look(ino_t synced);

    /** Shows what may be found after a loss of power. */
    void VisitStates(const std::function<void(const Files &)> &visit) const;

  private:
    using Names = std::map<std::string, unsigned>;  // of files by numbers of our own; 0 for a name that is gone

    const std::string folder_;
    unsigned files_ = 0;                               // so many have been seen
    std::map<ino_t, unsigned> present_;                // those there are: the system gives its numbers again
    Names names_, lastingNames_;                       // as they are, and on stable storage
    std::vector<Names> changes_;                       // of names, since a folder that they are in was synced
    std::map<unsigned, std::vector<Bytes>> contents_;  // of each, the first one on stable storage, the last its own
};

#endif
