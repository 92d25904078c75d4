/*
 * convert: plain to archive and back, and what can be read of a damaged file.
 */
#ifndef TAVCFG_CONVERT_H
#define TAVCFG_CONVERT_H

#include "open.h"

namespace tavcfg {

struct ConvertOptions {
    WriteOptions write;  // its file is the one to read
    File out;
    bool rewrites;  // writes the records anew instead of copying every byte
    bool salvages;  // takes what can be read of a damaged file
    bool replaces;  // what OUT holds already
};

/** Copies a file. Throws Failure and tav::Error. */
int RunConvert(const ConvertOptions &options);

}  // namespace tavcfg

#endif
