/*
 * What a file's name says of its form.
 */
#ifndef EXTCFG_FILE_NAMES_H
#define EXTCFG_FILE_NAMES_H

#include <cstdint>

namespace extcfg {

/** Returns whether a file is an archive: its name ends in ".zip". */
bool IsArchive(const char *path);

/**
 * Forms the name of an archive's only member.
 *
 * @param path    the archive
 * @param member  receives the name; TAV_EXT_PATH_SIZE bytes
 * @return as TAV_ReplaceFileSuffix
 */
uint32_t MemberName(const char *path, char *member);

}  // namespace extcfg

#endif
