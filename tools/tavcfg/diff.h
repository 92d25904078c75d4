/*
 * diff: what tells two files apart.
 */
#ifndef TAVCFG_DIFF_H
#define TAVCFG_DIFF_H

#include "open.h"
#include "tav/diff.h"

namespace tavcfg {

/** How differences are printed. */
enum class DiffFormat { kText, kScript, kJsonLines };

struct DiffOptions {
    FileOptions before;  // its refer file serves both, where they have one
    File after;
    tav::DiffScope scope;
    DiffFormat format;
};

/** Prints what tells two files apart. Returns 0 when nothing does, else 1. Throws Failure and tav::Error. */
int RunDiff(const DiffOptions &options);

}  // namespace tavcfg

#endif
