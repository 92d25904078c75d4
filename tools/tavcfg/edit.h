/*
 * add, set, unset, del, apply: changes of a file's records.
 */
#ifndef TAVCFG_EDIT_H
#define TAVCFG_EDIT_H

#include <string>

#include "open.h"
#include "records.h"

namespace tavcfg {

struct EditOptions {
    WriteOptions write;
    tav::Change change;  // of one record
};

/** Makes one change. Throws Failure and tav::Error. */
int RunEdit(const EditOptions &options);

struct EditManyOptions {
    WriteOptions write;
    Selection selection;  // of one class in one VS
    tav::Change change;   // without a key
};

/** Makes one change of many records. Throws as RunEdit. */
int RunEditMany(const EditManyOptions &options);

struct ApplyOptions {
    WriteOptions write;
    std::string script;  // a text file, or "-" for standard input
};

/** Makes the changes of a script, all or none. Throws Failure that names the script and the line. */
int RunApply(const ApplyOptions &options);

}  // namespace tavcfg

#endif
