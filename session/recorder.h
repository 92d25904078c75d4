/*
 * One commit's way into the history: prepared before the file is replaced, confirmed after that.
 */
#ifndef SESSION_RECORDER_H
#define SESSION_RECORDER_H

#include "session/history_folder.h"

namespace session {

/** Records one commit. Unless it has come true, nothing of it stays. */
class Recorder {
  public:
    /** For a file whose history has this index, which is brought up to date when the commit is confirmed. */
    Recorder(const Place &place, Index *index) : folder_(place), place_(place), index_(index) {}
    ~Recorder();
    Recorder(const Recorder &) = delete;
    Recorder &operator=(const Recorder &) = delete;

    /**
     * Stores all that the history needs, if it is on. Throws Error with nothing stored.
     *
     * @param after     the content that the file will have
     * @param checksum  its checksum, in hexadecimal digits; empty when the file will be deleted
     * @param newLike   the mode and owner that a new file will have
     */
    void Prepare(const tav::Store &after, const std::string &checksum, const std::string &comment,
                 const struct stat &newLike);

    /** The file has been replaced: what was prepared is right now, whatever happens. */
    void ComeTrue();

    /** And that lasts. What fails now, the next session does. */
    void Confirm() noexcept;

  private:
    HistoryFolder folder_;
    const Place &place_;
    Index *const index_;
    Index next_;  // while prepared
    bool isPrepared_ = false, isTrue_ = false;
    std::vector<std::string> dropped_;  // copies that no index names when all is done
};

}  // namespace session

#endif
