/*
 * show, count, get: the records of a file.
 */
#ifndef TAVCFG_SHOW_H
#define TAVCFG_SHOW_H

#include <cstdint>
#include <optional>

#include "open.h"
#include "records.h"

namespace tavcfg {

/** How records are printed. */
enum class Format { kTable, kCsv, kJson, kJsonLines };

struct ShowOptions {
    FileOptions file;
    Selection selection;
    std::vector<std::string> fields;  // to show, in this order; all without any
    Format format;
};

/** Prints records. Throws Failure, UsageError and tav::Error. */
int RunShow(const ShowOptions &options);

struct CountOptions {
    FileOptions file;
    Selection selection;
};

/** Prints the number of records. Throws as RunShow. */
int RunCount(const CountOptions &options);

struct GetOptions {
    FileOptions file;
    tav::Change key;              // VS, class and key fields
    std::optional<uint32_t> fid;  // of the only field to print
    bool asJson;
    bool isRaw;  // print the value's bytes as they stand in the file
};

/** Prints one record, or one field of it. Throws Failure when it is not there, and tav::Error. */
int RunGet(const GetOptions &options);

}  // namespace tavcfg

#endif
