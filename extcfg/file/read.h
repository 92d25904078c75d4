/*
 * Reading a file image, whatever the file's form.
 */
#ifndef EXTCFG_FILE_READ_H
#define EXTCFG_FILE_READ_H

#include <cstdint>

namespace extcfg {

/** Reads a file: an archive when its name ends in ".zip", else plainly. Arguments and result as of the two readers. */
uint32_t ReadImage(uint8_t **buffer, uint32_t *size, const char *path);

}  // namespace extcfg

#endif
