/*
 * The member of an archive that is in memory.
 */
#ifndef SESSION_ARCHIVE_H
#define SESSION_ARCHIVE_H

#include <string>

#include "session/files.h"

namespace session {

/** Unpacks the only member of an archive, which must have this name unless that is empty. Throws Error
 * (TAV_ERR_INVALID) that says what is wrong. */
Block Unpack(const Block &archive, const std::string &member, const std::string &place);

}  // namespace session

#endif
