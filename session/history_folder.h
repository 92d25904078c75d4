/*
 * The folder of a history: the index, and one compressed copy of the file's image for each commit and each checkpoint.
 *
 * A commit's copy and the index that names it stand in the folder before the file is replaced, the index under a name
 * of its own. Which of the two indexes is right is told by the file itself: the one whose last commit brought the
 * content that the file has. So a crash at any point leaves file and history consistent.
 */
#ifndef SESSION_HISTORY_FOLDER_H
#define SESSION_HISTORY_FOLDER_H

#include "session/history_index.h"
#include "session/image.h"
#include "session/place.h"

namespace session {

/** The folder of a file's history. */
class HistoryFolder {
  public:
    explicit HistoryFolder(const Place &place) : place_(place) {}

    /** The index as the file says; one that is off and empty when there is no folder. No lock is needed. */
    Index Read() const;

    /**
     * Settles what a crash has left and removes what no index names. The lock must be held.
     *
     * @param checksum  of the file's body, in hexadecimal digits; empty when there is no file
     * @return the index
     */
    Index Settle(const std::string &checksum) const;

    /** Makes the folder and an empty index, what of them is not there, for those who may use the file. */
    void Create(const struct stat &like) const;

    /** Makes an index the history's. */
    void Write(const Index &index, const struct stat &like) const;

    /** Stores an index that becomes the history's when the file is replaced; and makes it that, or takes it back. */
    void WriteNext(const Index &index, const struct stat &like) const;
    void TakeNext() const;
    void DropNext() const;

    /** Keeps an image under a name, and drops it. */
    void Keep(const std::string &copy, const Block &image, const struct stat &like) const;
    void Drop(const std::string &copy) const;

    /** Loads a copy. Throws Error (TAV_ERR_INVALID) when its checksum is another one; an empty one is not compared. */
    tav::Store Load(const std::string &copy, const std::string &checksum) const;

    /** Loads the copy of what was there before a commit. Throws as Load. */
    tav::Store LoadFormer(const tav::HistoryCommit &commit) const;

    /** The names of copies. */
    static std::string CopyOf(const tav::HistoryCommit &commit) { return std::to_string(commit.number) + ".zst"; }
    static std::string CopyOf(const tav::Checkpoint &checkpoint) { return "checkpoint-" + checkpoint.name + ".zst"; }

  private:
    std::string Path(const std::string &name) const { return place_.History() + "/" + name; }
    void WriteAs(const std::string &name, const Index &index, const struct stat &like) const;
    void MakeFolder(const struct stat &like) const;
    void RemoveUnnamed(const Index &index) const;

    /** The index; an empty one when there is none, and no copy. Throws Error when there are copies without one. */
    Index ReadSettled() const;

    const Place &place_;
};

}  // namespace session

#endif
