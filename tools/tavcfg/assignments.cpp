#include "assignments.h"

#include <fmt/format.h>

#include <algorithm>

#include "errors.h"
#include "value.h"
#include "value_forms.h"

namespace tavcfg {

namespace {

Field ParseField(const std::string &argument) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos) {
        throw UsageError(fmt::format("'{}' is not of the form FID=VALUE", argument));
    }
    const uint32_t fid = ParseId(argument.substr(0, equals), "the field of FID=VALUE");
    try {
        return {fid, ParseValue(fid, argument.substr(equals + 1))};
    } catch (const Problem &problem) {
        throw UsageError(fmt::format("field {}: {}", fid, problem.what()));
    }
}

}  // namespace

uint32_t ParseId(const std::string &text, const char *what) {
    try {
        return static_cast<uint32_t>(ParseNumber(text, UINT32_MAX));
    } catch (const Problem &problem) {
        throw UsageError(fmt::format("{}: {}", what, problem.what()));
    }
}

Record ParseRecord(uint32_t cid, const std::vector<std::string> &assignments) {
    if (!IsRecordClass(cid)) {
        throw UsageError(fmt::format("--class: {} is no class of records", cid));
    }
    Record record{cid, {}};
    for (const std::string &argument : assignments) {
        record.fields.push_back(ParseField(argument));
    }
    for (const uint32_t fid : KeyFids(cid)) {
        if (record.Find(fid) == nullptr) {
            throw UsageError(fmt::format("key field {} of class {} is missing", fid, cid));
        }
        if (std::ranges::count(record.fields, fid, &Field::fid) > 1) {
            throw UsageError(fmt::format("key field {} of class {} is given twice", fid, cid));
        }
    }
    return record;
}

Record ParseKey(uint32_t cid, const std::vector<std::string> &assignments) {
    Record key = ParseChange(cid, assignments);
    for (const Field &field : key.fields) {
        if (!IsKeyFid(cid, field.fid)) {
            throw UsageError(fmt::format("field {} is no key field of class {}", field.fid, cid));
        }
    }
    return key;
}

Record ParseChange(uint32_t cid, const std::vector<std::string> &assignments) {
    Record record = ParseRecord(cid, assignments);
    try {
        RefuseRepeats(record);
    } catch (const Problem &problem) {
        throw UsageError(problem.what());
    }
    return record;
}

}  // namespace tavcfg
