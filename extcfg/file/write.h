/*
 * Writing a file image, whatever the file's form.
 */
#ifndef EXTCFG_FILE_WRITE_H
#define EXTCFG_FILE_WRITE_H

#include <cstdint>

namespace extcfg {

/** Writes a file: an archive when its name ends in ".zip", else plainly. Arguments and result as of the two writers. */
uint32_t WriteImage(const void *data, uint32_t length, const char *path);

}  // namespace extcfg

#endif
