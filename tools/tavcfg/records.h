/*
 * The records that a command is about.
 */
#ifndef TAVCFG_RECORDS_H
#define TAVCFG_RECORDS_H

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "open.h"
#include "tav/store.h"

namespace tavcfg {

/** Which records of a file, and in which order. */
struct Selection {
    std::optional<uint32_t> vsId;  // all without it, likewise below
    std::optional<uint32_t> cid;
    std::vector<std::string> where = {};  // terms
    std::vector<std::string> sort = {};   // fields
    bool isReversed = false;
    size_t limit = std::numeric_limits<size_t>::max();
};

/** Records of one class. */
struct ClassRecords {
    uint32_t cid;
    std::vector<tav::RecordView> records;
};

/** Records of one virtual system, class by class; no class is empty. Without any it is a VS that holds none at all. */
struct VsRecords {
    uint32_t vsId;
    std::vector<ClassRecords> classes;
};

/**
 * Selects records of a store, in the order of the file or as it is asked for; and virtual systems without records, when
 * all records are asked for. Throws Failure when there is no such VS,
 * UsageError when a term is malformed.
 */
std::vector<VsRecords> Select(const tav::Store &store, const Selection &selection, const FileOptions &options);

}  // namespace tavcfg

#endif
