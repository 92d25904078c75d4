/*
 * convert: plain to archive and back.
 */
#ifndef TAVCFG_CONVERT_H
#define TAVCFG_CONVERT_H

#include "file.h"

namespace tavcfg {

struct ConvertOptions {
    Target in;
    File out;
    bool rewrites;  // writes the records anew instead of copying every byte
};

/** Copies a file. Throws Failure. */
int RunConvert(const ConvertOptions &options);

}  // namespace tavcfg

#endif
