/*
 * show, get: the records of a file.
 */
#ifndef TAVCFG_SHOW_H
#define TAVCFG_SHOW_H

#include <cstdint>
#include <optional>

#include "file.h"
#include "model.h"

namespace tavcfg {

struct ShowOptions {
    Target target;
    std::optional<uint32_t> vsId;  // of the records to show; all without it, likewise below
    std::optional<uint32_t> cid;
    bool asJson;
};

/** Prints records, as tables or as JSON. Throws Failure. */
int RunShow(const ShowOptions &options);

struct GetOptions {
    Target target;
    uint32_t vsId;
    Record key;                   // class and key fields
    std::optional<uint32_t> fid;  // of the only field to print
};

/** Prints one record, or one field of it. Throws Failure when it is not there. */
int RunGet(const GetOptions &options);

}  // namespace tavcfg

#endif
