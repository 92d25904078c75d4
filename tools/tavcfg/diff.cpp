#include "diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <unordered_map>

#include "store.h"
#include "value.h"

namespace tavcfg {

namespace {

/** The fields of a record for one line: "14=5 15=1". */
std::string FieldsText(const Record &record) {
    std::string text;
    for (const auto &[fid, value] : record.fields) {
        text += fmt::format("{}{}={}", text.empty() ? "" : " ", fid, FormatValue(fid, value));
    }
    return text;
}

void PrintRecord(char sign, uint32_t vsId, const Record &record) {
    fmt::print("{} VS {} class {}: {}\n", sign, vsId, record.cid, FieldsText(record));
}

/** The values of a field in a record, in order. */
std::vector<std::string> ValuesOf(const Record &record, uint32_t fid) {
    std::vector<std::string> values;
    for (const Field &field : record.fields) {
        if (field.fid == fid) {
            values.push_back(FormatValue(fid, field.value));
        }
    }
    return values;
}

/** Prints how a record changed, field by field. */
void PrintChange(uint32_t vsId, const Record &before, const Record &after) {
    std::vector<uint32_t> fids;
    for (const Record *record : {&before, &after}) {
        for (const Field &field : record->fields) {
            if (std::find(fids.begin(), fids.end(), field.fid) == fids.end()) {
                fids.push_back(field.fid);
            }
        }
    }
    const std::string name = Describe(vsId, after);
    const auto text = [](const std::vector<std::string> &values, size_t i) {
        return i < values.size() ? (values[i].empty() ? "\"\"" : values[i]) : "(none)";
    };
    bool isPrinted = false;
    for (const uint32_t fid : fids) {
        const std::vector<std::string> from = ValuesOf(before, fid);
        const std::vector<std::string> to = ValuesOf(after, fid);
        for (size_t i = 0; i < std::max(from.size(), to.size()); ++i) {
            if (i >= from.size() || i >= to.size() || from[i] != to[i]) {
                fmt::print("~ {}: {}: {} -> {}\n", name, fid, text(from, i), text(to, i));
                isPrinted = true;
            }
        }
    }
    if (!isPrinted) {
        fmt::print("~ {}: the order of the fields\n", name);
    }
}

using Index = std::unordered_map<Bytes, const Record *>;

Index IndexOf(const Vs &vs) {
    Index index;
    for (const Record &record : vs.records) {
        index.emplace(KeyOf(record), &record);
    }
    return index;
}

/** Prints what tells two states of a VS apart. Returns whether anything does. */
bool DiffVs(const Vs &before, const Vs &after) {
    const Index indexBefore = IndexOf(before);
    const Index indexAfter = IndexOf(after);
    bool differs = false;
    for (const Record &record : before.records) {
        const auto match = indexAfter.find(KeyOf(record));
        if (match == indexAfter.end()) {
            PrintRecord('-', before.id, record);
        } else if (match->second->fields != record.fields) {
            PrintChange(before.id, record, *match->second);
        } else {
            continue;
        }
        differs = true;
    }
    for (const Record &record : after.records) {
        if (!indexBefore.contains(KeyOf(record))) {
            PrintRecord('+', after.id, record);
            differs = true;
        }
    }
    return differs;
}

/** Prints what tells two contents apart. Returns whether anything does. */
bool DiffModels(const Model &before, const Model &after) {
    bool differs = false;
    for (const Vs &vs : before) {
        const Vs *match = FindVs(after, vs.id);
        if (match == nullptr) {
            fmt::print("- VS {}\n", vs.id);
            differs = true;
        }
        differs |= DiffVs(vs, match == nullptr ? Vs{vs.id, {}} : *match);
    }
    for (const Vs &vs : after) {
        if (FindVs(before, vs.id) == nullptr) {
            fmt::print("+ VS {}\n", vs.id);
            differs = true;
            DiffVs({vs.id, {}}, vs);
        }
    }
    return differs;
}

}  // namespace

int RunDiff(const DiffOptions &options) {
    const LoadedFile before = LoadWithReferIfAny(options.before.file, options.before.refer);
    const LoadedFile after = LoadWithReferIfAny(options.after, options.before.refer);
    if (BodyChecksum(before.image, before.frame) == BodyChecksum(after.image, after.frame)) {
        return 0;
    }
    if (!DiffModels(before.Content(), after.Content())) {
        fmt::print("~ the order of records, or what is no record\n");
    }
    return 1;
}

}  // namespace tavcfg
