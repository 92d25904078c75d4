/*
 * How a file that is locked becomes another one, in one step.
 */
#ifndef SESSION_COMMIT_H
#define SESSION_COMMIT_H

#include <optional>
#include <span>
#include <string>

#include "session/history_index.h"
#include "session/image.h"
#include "session/load.h"
#include "session/place.h"

namespace session {

/** A file as it was last seen under its lock. */
struct FileState {
    std::optional<Checksums> checksums;  // nothing when there is no file that loads
    Identity identity;
    Index index;  // of its history
};

/** What a file becomes: an image, and what it holds. */
struct NextState {
    std::span<const uint8_t> image;  // empty when the file is to be deleted
    Checksums checksums;
    const tav::Store &store;
};

/** The state of a file that was loaded under its lock, or is not there. Settles its history. Throws Error. */
FileState StateOf(const Place &place, const std::optional<Loaded> &loaded);

/**
 * Brings a new state to the file and its history. Throws Error: TAV_ERR_CHANGED when the file is no longer the one of
 * the old state; TAV_ERR_NOT_SAVED; TAV_ERR_OPEN. The file is as it was then, unless the text says otherwise.
 *
 * @param file     the old state, which becomes the new one
 * @param comment  what the history keeps about it
 */
void Commit(const Place &place, const NextState &next, const std::string &comment, FileState *file);

}  // namespace session

#endif
