/*
 * info, verify: what a file is, and whether it loads.
 */
#ifndef TAVCFG_INFO_H
#define TAVCFG_INFO_H

#include "open.h"

namespace tavcfg {

struct InfoOptions {
    Target target;
    bool asJson;
};

/** Prints what can be told of a file, be it damaged. Throws Failure when its structure cannot be walked. */
int RunInfo(const InfoOptions &options);

/** Throws Denial that says why a file does not load; Failure and tav::Error when that cannot be told. */
int RunVerify(const FileOptions &options);

}  // namespace tavcfg

#endif
