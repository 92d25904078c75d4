/*
 * diff: what tells two files apart.
 */
#ifndef TAVCFG_DIFF_H
#define TAVCFG_DIFF_H

#include "file.h"

namespace tavcfg {

struct DiffOptions {
    Target before;  // its refer file serves both, where they have one
    File after;
};

/** Prints what tells two files apart. Returns 0 when nothing does, else 1. Throws Failure. */
int RunDiff(const DiffOptions &options);

}  // namespace tavcfg

#endif
