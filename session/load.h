/*
 * Loading a file that others may be writing: sessions by a rename, so that it is whole at every moment; programs
 * without a session by moving it to its backup name and writing it anew, which is waited for.
 */
#ifndef SESSION_LOAD_H
#define SESSION_LOAD_H

#include "session/image.h"
#include "session/lock.h"
#include "session/place.h"

namespace session {

/** A file's image, what it holds, and the state of the file that it comes from. */
struct Loaded {
    Block image;
    Content content;
    Identity identity;
};

/**
 * Loads a file. Nothing when there is none, and no backup of one.
 *
 * Throws Error: TAV_ERR_BACKUP when it is missing or does not load by `until`, and a backup lies beside it;
 * TAV_ERR_INVALID when it does not load and stands still; TAV_ERR_OPEN when it cannot be read.
 */
std::optional<Loaded> Load(const Place &place, const Refer &refer, Clock::time_point until);

/** Throws Error (TAV_ERR_MISSING) that says that there is no file. */
[[noreturn]] void RefuseMissing(const Place &place);

/**
 * Throws Error, before anything is done, when there is no file and none may be created (TAV_ERR_MISSING), when the file
 * is no regular one (TAV_ERR_INVALID), and when the user may not write it (TAV_ERR_OPEN).
 */
void RequireUsable(const Place &place, bool create);

/** Returns whether there is neither a file nor a backup of one. Throws Error when that cannot be told. */
bool IsMissing(const Place &place);

/** The time since a moment of a file; none when that lies ahead, as after the clock was set back. */
std::chrono::milliseconds Age(const struct timespec &moment);

/** The refer file as a session asks for it: an absolute name. */
Refer ReferOf(const std::string &path, bool ignore);

}  // namespace session

#endif
