/*
 * The draft of a file: a new file under the same name in a hidden folder beside it, which takes its place when it is
 * complete. The folder exists only while its session commits; what a crash leaves of it the next session removes.
 */
#ifndef SESSION_DRAFT_H
#define SESSION_DRAFT_H

#include <span>

#include "session/files.h"
#include "session/place.h"

namespace session {

/** A draft. Unless it takes the file's place it goes with this object, and so does its folder. */
class Draft {
  public:
    /**
     * Writes an image as the file would be, an archive for an archive, with mode and owner of the file that is there,
     * and brings it to stable storage. Throws Error (TAV_ERR_NOT_SAVED), with nothing left.
     */
    Draft(const Place &place, std::span<const uint8_t> image);
    ~Draft();
    Draft(const Draft &) = delete;
    Draft &operator=(const Draft &) = delete;

    /** The draft's own state, which will be the file's. */
    struct stat Status() const;

    /** Becomes the file. Throws Error (TAV_ERR_NOT_SAVED) with the file as it was. */
    void TakePlace();

    /** Removes what a crash has left. The lock must be held. Throws Error (TAV_ERR_NOT_SAVED). */
    static void RemoveLeftover(const Place &place);

  private:
    const Place &place_;
};

}  // namespace session

#endif
