/*
 * patch: values written in place. The file is searched for the record, but not loaded into a store.
 *
 * In place means field by field and the head last: a crash in between leaves a file that does not load. A safe patch
 * changes a copy instead, which takes the file's place in one step.
 */
#ifndef TAVCFG_PATCH_H
#define TAVCFG_PATCH_H

#include "file.h"
#include "model.h"

namespace tavcfg {

struct PatchOptions {
    Target target;
    uint32_t vsId;
    Record record;  // class, key fields and new values
    bool isSafe;
};

/** Writes values of a record. Throws Failure, with nothing written when one does not fit in the place of the old. */
int RunPatch(const PatchOptions &options);

}  // namespace tavcfg

#endif
