/*
 * Stores and records with an owner, and fields of records as text.
 */
#ifndef EXAMPLES_STORE_RECORDS_H
#define EXAMPLES_STORE_RECORDS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bytes.h"
#include "tav_extcfg.h"

/** A record of ours, freed with its holder. One that a store has taken must be released to it first. */
struct FreeRecord {
    void operator()(TAV_ExtCfgRecordNode *record) const { TAV_ExtCfgRecordNodeFree(record); }
};
using Record = std::unique_ptr<TAV_ExtCfgRecordNode, FreeRecord>;

/** An open store, closed with its holder. What was not flushed is lost then. */
struct CloseStore {
    void operator()(CfgLocal *local) const { TAV_ExtCfgClose(local); }
};
using Store = std::unique_ptr<CfgLocal, CloseStore>;

/**
 * Opens a file for editing, or starts an empty store when there is no such file.
 *
 * TAV_ExtCfgOpen would take a damaged file for an empty store in read-write mode, and the next flush would replace it;
 * and a flush replaces a backup, which after a crash may be the only good copy. Both are refused here: throws
 * std::runtime_error.
 */
Store OpenForEditing(const std::string &path);

/** Appends a field to a record. Returns false when the library has refused it: too long, or no memory. */
bool AddField(const Record &record, uint32_t fid, Bytes value);

/** Returns the key field of a class; none for a class that is not known, or that has not just one. */
std::optional<uint32_t> KeyFieldOf(uint32_t cid);

/**
 * Parses a field's value as its type says: decimal numbers, and texts as they are.
 *
 * @return the value in host order. Throws std::invalid_argument for a bad value, an unknown field, and for the types
 *         that these examples leave to the tool (addresses, times)
 */
std::vector<uint8_t> ParseValue(uint32_t fid, const std::string &text);

/** Shows a value (in host order) as ParseValue reads it; in hexadecimal digits what that does not read. */
std::string ValueText(uint32_t fid, Bytes value);

#endif
