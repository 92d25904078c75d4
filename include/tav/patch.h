/*
 * Values of one record overwritten in a file's image.
 */
#ifndef TAV_PATCH_H
#define TAV_PATCH_H

#include <chrono>
#include <optional>
#include <string>

#include "tav/change.h"
#include "tav/error.h"

namespace tav {

/** How values are overwritten. */
struct PatchOptions {
    std::string refer = {};               /**< the refer file, given exactly when the file carries its checksum */
    std::chrono::milliseconds wait{5000}; /**< how long to wait for the lock */
    bool inPlace = false;                 /**< in the file itself, not in a copy that takes its place */
    bool dryRun = false;                  /**< write nothing, only return what would be changed */
    std::string comment = {};             /**< what the history keeps about it, UTF-8; not in place */
};

/**
 * Overwrites values of a record by others of the same length. Unlike a session's commit, which writes the records anew
 * and in order, this keeps every other byte of the image but the head. Works under the file's lock, and replaces the
 * file in one step, as a commit does.
 *
 * In place, which needs a plain file whose name ends in ".dat", the values are written into the file itself: one after
 * the other, and the head last. That writes less, but a crash in between leaves a file that does not load, readers may
 * have to wait for the end, and the history does not know of it.
 *
 * @param path     the file
 * @param change   of the verb kSet: the key fields and the new values, no field twice
 * @param options  how it is done
 * @return the change without the values that the record has already; nothing when it has all of them, and the file is
 *         not touched then. Throws Error: as Session for the file; TAV_ERR_NOT_FOUND, with the record as its place,
 *         when there is no such record; TAV_ERR_INVALID, likewise, when it lacks a field or has it in another length,
 *         when a key field is missing, and when the file cannot be patched in place; as Session::Commit for writing.
 *         After TAV_ERR_NOT_SAVED in place the file may be broken
 */
TAV_VISIBLE std::optional<Change> Patch(const std::string &path, const Change &change,
                                        const PatchOptions &options = {});

}  // namespace tav

#endif
