/*
 * Numbers, names and FIELD=VALUE arguments of the command line. Whatever is malformed throws UsageError.
 */
#ifndef TAVCFG_ASSIGNMENTS_H
#define TAVCFG_ASSIGNMENTS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tav/changes.h"
#include "tav/names.h"

namespace tavcfg {

/** Parses a 32-bit number; `what` names it in the message. */
uint32_t ParseId(const std::string &text, const char *what);

/** Parses a class of records, or a field of a class. */
uint32_t ParseClass(const std::string &text, const tav::Names &names);
uint32_t ParseFieldId(const std::string &text, uint32_t cid, const tav::Names &names, const char *what);

/** The field of a class that a number or a name stands for; nothing for what the class does not know as either. */
std::optional<uint32_t> FindField(uint32_t cid, const std::string &text, const tav::Names &names);

/** Requires that each text is a number, or a name that some class has for a field; `what` names them in the message. */
void RequireFields(const std::vector<std::string> &texts, const tav::Names &names, const char *what);

/** Where the record of a command stands. */
struct Place {
    uint32_t vsId;
    uint32_t cid;
};

/**
 * Makes a change of one record from arguments.
 *
 * @param verb       what to do: add takes all fields, the key fields once each among them; set takes the key fields and
 *                   new values, no field twice; unset takes key fields, and other fields without a value; delete takes
 *                   the key fields alone
 * @param place      VS and class
 * @param arguments  FIELD=VALUE, and for unset FIELD
 * @param names      what names may stand in them
 */
tav::Change ParseChange(tav::Verb verb, const Place &place, const std::vector<std::string> &arguments,
                        const tav::Names &names);

/** Makes a change without a key, for records that are selected otherwise: it names no key field. */
tav::Change ParseKeyless(tav::Verb verb, const Place &place, const std::vector<std::string> &arguments,
                         const tav::Names &names);

/** The record that the fields of a change are. Throws tav::Error. */
tav::Record RecordOf(const tav::Change &change);

}  // namespace tavcfg

#endif
