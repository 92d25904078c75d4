#include "assignments.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "errors.h"
#include "tav/values.h"

namespace tavcfg {

namespace {

/** Runs what throws tav::Error, and throws UsageError instead. */
template <typename Parse>
auto AsUsage(const std::string &what, Parse parse) {
    try {
        return parse();
    } catch (const tav::Error &error) {
        throw UsageError(fmt::format("{}{}{}", what, what.empty() ? "" : ": ", error.what()));
    }
}

/** Takes one argument into a change. */
void TakeArgument(const std::string &argument, const tav::Names &names, tav::Change *change) {
    const size_t equals = argument.find('=');
    const uint32_t fid = ParseFieldId(argument.substr(0, equals), *change->cid, names, "the field of FIELD=VALUE");
    if (equals != std::string::npos) {
        change->fields.push_back({fid, AsUsage(fmt::format("field {}", names.FieldText(*change->cid, fid)),
                                               [&] { return tav::ParseValue(fid, argument.substr(equals + 1)); })});
    } else if (change->verb == tav::Verb::kUnset) {
        change->unset.push_back(fid);
    } else {
        throw UsageError(fmt::format("'{}' is not of the form FIELD=VALUE", argument));
    }
}

tav::Change Parse(tav::Verb verb, const Place &place, const std::vector<std::string> &arguments,
                  const tav::Names &names) {
    tav::Change change{verb, place.vsId, place.cid, {}, {}};
    for (const std::string &argument : arguments) {
        TakeArgument(argument, names, &change);
    }
    return change;
}

void RequireKey(const tav::Change &change, const tav::Names &names) {
    for (const uint32_t fid : tav::KeyFields(*change.cid)) {
        const auto count = std::ranges::count(change.fields, fid, &tav::ChangeField::fid);
        if (count != 1) {
            throw UsageError(fmt::format("key field {} of class {} is {}", names.FieldText(*change.cid, fid),
                                         names.ClassText(*change.cid), count == 0 ? "missing" : "given twice"));
        }
    }
}

void RefuseRepeats(const tav::Change &change, const tav::Names &names) {
    std::set<uint32_t> seen;
    for (const tav::ChangeField &field : change.fields) {
        if (!seen.insert(field.fid).second) {
            throw UsageError(fmt::format("field {} is given twice, and only one can be set",
                                         names.FieldText(*change.cid, field.fid)));
        }
    }
}

/** Throws UsageError unless all fields with a value are key fields, or none is. */
void RequireKeysOnly(const tav::Change &change, bool areKeys, const tav::Names &names) {
    for (const tav::ChangeField &field : change.fields) {
        if (tav::IsKeyField(*change.cid, field.fid) != areKeys) {
            throw UsageError(fmt::format("field {} is {} key field of class {}",
                                         names.FieldText(*change.cid, field.fid), areKeys ? "no" : "a",
                                         names.ClassText(*change.cid)));
        }
    }
}

void RequireUnset(const tav::Change &change) {
    if (change.verb == tav::Verb::kUnset && change.unset.empty()) {
        throw UsageError("no field to take out is given");
    }
}

}  // namespace

uint32_t ParseId(const std::string &text, const char *what) {
    return AsUsage(what, [&] { return tav::ParseId(text); });
}

uint32_t ParseClass(const std::string &text, const tav::Names &names) {
    const uint32_t cid = AsUsage("--class", [&] { return names.ParseClass(text); });
    if (!tav::IsRecordClass(cid)) {
        throw UsageError(fmt::format("--class: {} is no class of records", cid));
    }
    return cid;
}

uint32_t ParseFieldId(const std::string &text, uint32_t cid, const tav::Names &names, const char *what) {
    return AsUsage(what, [&] { return names.ParseField(cid, text); });
}

std::optional<uint32_t> FindField(uint32_t cid, const std::string &text, const tav::Names &names) {
    if (text.empty() || text[0] < '0' || text[0] > '9') {
        return names.FindField(cid, text);
    }
    try {
        return tav::ParseId(text);
    } catch (const tav::Error &) {
        return {};
    }
}

void RequireFields(const std::vector<std::string> &texts, const tav::Names &names, const char *what) {
    for (const std::string &text : texts) {
        bool isKnown = false;
        for (const TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
            isKnown = isKnown || FindField(row->type, text, names);
        }
        if (!isKnown) {
            throw UsageError(fmt::format("{}: '{}' is no known field", what, text));
        }
    }
}

tav::Change ParseChange(tav::Verb verb, const Place &place, const std::vector<std::string> &arguments,
                        const tav::Names &names) {
    tav::Change change = Parse(verb, place, arguments, names);
    RequireKey(change, names);
    if (verb != tav::Verb::kAdd) {
        RefuseRepeats(change, names);
    }
    if (verb == tav::Verb::kUnset || verb == tav::Verb::kDelete) {
        RequireKeysOnly(change, true, names);
    }
    RequireUnset(change);
    return change;
}

tav::Change ParseKeyless(tav::Verb verb, const Place &place, const std::vector<std::string> &arguments,
                         const tav::Names &names) {
    tav::Change change = Parse(verb, place, arguments, names);
    RefuseRepeats(change, names);
    RequireKeysOnly(change, false, names);
    if (verb != tav::Verb::kSet && !change.fields.empty()) {
        throw UsageError("fields with a value cannot stand beside --where and --all here");
    }
    if (verb == tav::Verb::kSet && change.fields.empty()) {
        throw UsageError("no field to set is given");
    }
    RequireUnset(change);
    return change;
}

tav::Record RecordOf(const tav::Change &change) {
    tav::Record record(*change.cid);
    for (const auto &[fid, value] : change.fields) {
        record.Add(fid, tav::Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
    }
    return record;
}

}  // namespace tavcfg
