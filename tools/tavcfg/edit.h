/*
 * add, set, del: edits through a store.
 */
#ifndef TAVCFG_EDIT_H
#define TAVCFG_EDIT_H

#include <cstdint>

#include "file.h"
#include "model.h"

namespace tavcfg {

struct EditOptions {
    Target target;
    uint32_t vsId;
    Record record;  // the record to add; class, key fields and new values; or class and key fields
};

/** Each edits a record and flushes the file. Throws Failure. */
int RunAdd(const EditOptions &options);
int RunSet(const EditOptions &options);
int RunDel(const EditOptions &options);

}  // namespace tavcfg

#endif
