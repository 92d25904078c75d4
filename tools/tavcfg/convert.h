/*
 * convert: plain to archive and back, and what can be read of a damaged file.
 */
#ifndef TAVCFG_CONVERT_H
#define TAVCFG_CONVERT_H

#include <string>

#include "open.h"

namespace tavcfg {

struct ConvertOptions {
    FileOptions in;
    File out;
    bool rewrites;   // writes the records anew instead of copying every byte
    bool salvages;   // takes what can be read of a damaged file
    bool anyMember;  // of an archive, whatever its member is called
    bool replaces;   // what OUT holds already
    std::string comment;
};

/** Copies a file. Throws Failure and tav::Error. */
int RunConvert(const ConvertOptions &options);

}  // namespace tavcfg

#endif
