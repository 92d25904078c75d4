/*
 * The history of a file: what it held before each of its last commits, and named checkpoints. Kept beside the file, in
 * the hidden folder ".<name>.history", for files where it was switched on. docs/sessions.md says how.
 *
 *     tav::History::Start("routes.dat");
 *     ...
 *     tav::Session session("routes.dat");
 *     session.Store() = tav::History("routes.dat").Before(2);   // as it was two commits ago
 *     session.Commit("rollback");                               // a commit like any other: it can be undone as well
 *
 * Only commits of sessions are recorded. All failures are thrown as tav::Error, but for lack of memory.
 */
#ifndef TAV_HISTORY_H
#define TAV_HISTORY_H

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "tav/error.h"
#include "tav/history_entries.h"
#include "tav/store.h"
#include "tav_session.h"

namespace tav {

/** How a history is changed. */
struct HistoryOptions {
    std::chrono::milliseconds wait{5000}; /**< how long to wait for the file's lock */
    bool dryRun = false;                  /**< write nothing, only look whether it could be done */
};

/** The history of a file as it is when this object is made; no lock is taken. */
class TAV_VISIBLE History {
  public:
    static constexpr uint32_t kKeep = 20; /**< commits that are kept unless another number is given */

    /**
     * Reads the history. A file without one has one that is off and empty. Throws Error: TAV_ERR_INVALID when its index
     * is damaged, or lost where copies are; TAV_ERR_OPEN when it cannot be read.
     */
    explicit History(const std::string &path);

    /** Whether commits are being recorded. */
    bool IsOn() const { return isOn_; }

    /** How many commits are kept. */
    uint32_t Keep() const { return keep_; }

    /** The commits that are kept, the oldest first. */
    const std::vector<HistoryCommit> &Commits() const { return commits_; }

    /** The checkpoints, in the order of their names. */
    const std::vector<Checkpoint> &Checkpoints() const { return checkpoints_; }

    /**
     * Loads what the file held before its last `count` commits; an empty store where there was no file. The store's
     * edits reach no file. Throws Error: TAV_ERR_NOT_FOUND when the history does not go so far back; TAV_ERR_INVALID
     * when the copy is damaged; TAV_ERR_OPEN when it cannot be read, also because it has been dropped meanwhile.
     */
    Store Before(size_t count) const;

    /** Loads a checkpoint. Throws as Before. */
    Store At(const std::string &checkpoint) const;

    /**
     * Switches the recording of commits on, or changes how many are kept. What was recorded before stays.
     *
     * @param path     the file
     * @param keep     the newest so many commits stay
     * @param options  how it is done
     * @return false when nothing had to be changed. Throws Error as opening a session does (the file must be there),
     *         and TAV_ERR_INVALID when `keep` is 0
     */
    static bool Start(const std::string &path, uint32_t keep = kKeep, const HistoryOptions &options = {});

    /** Switches the recording off. What was recorded stays, and so do checkpoints. Returns and throws as Start. */
    static bool Stop(const std::string &path, const HistoryOptions &options = {});

    /**
     * Keeps the file's content under a name until it is removed, whether or not commits are recorded. Throws Error:
     * TAV_ERR_INVALID for a name that is not 1 to 64 letters, digits, '-', '_' and '.', with at least one that is no
     * digit, and for one that is taken; TAV_ERR_NOT_SAVED; else as opening a session does.
     */
    static void AddCheckpoint(const std::string &path, const std::string &name, const std::string &comment = {},
                              const HistoryOptions &options = {});

    /** Removes a checkpoint. Throws Error: TAV_ERR_NOT_FOUND when there is none of this name; else as AddCheckpoint. */
    static void RemoveCheckpoint(const std::string &path, const std::string &name, const HistoryOptions &options = {});

  private:
    std::string path_;
    bool isOn_ = false;
    uint32_t keep_ = 0;
    std::vector<HistoryCommit> commits_;
    std::vector<Checkpoint> checkpoints_;
};

}  // namespace tav

#endif
