/*
 * patch: values of one record overwritten by others of the same length; all other bytes of the file stay but the head.
 *
 * In place means field by field and the head last: a crash in between leaves a file that does not load. A safe patch
 * changes a copy instead, which takes the file's place in one step.
 */
#ifndef TAVCFG_PATCH_H
#define TAVCFG_PATCH_H

#include "open.h"
#include "tav/changes.h"

namespace tavcfg {

struct PatchOptions {
    WriteOptions write;
    tav::Change change;  // sets fields of one record
    bool isSafe;
};

/** Writes values of a record. Throws Failure and tav::Error, with nothing written when one does not fit. */
int RunPatch(const PatchOptions &options);

}  // namespace tavcfg

#endif
