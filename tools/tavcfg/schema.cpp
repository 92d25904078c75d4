#include "schema.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "table.h"
#include "tav/values.h"

using nlohmann::ordered_json;

namespace tavcfg {

namespace {

const char *KindText(tav::Kind kind) {
    switch (kind) {
        case tav::Kind::kInteger:
            return "integer";
        case tav::Kind::kText:
            return "text";
        case tav::Kind::kBytes:
            return "bytes";
        case tav::Kind::kAddress:
            return "address";
        case tav::Kind::kTime:
            return "time";
        case tav::Kind::kOpaque:
            break;
    }
    return "unknown";
}

/** The types of the table that are classes of records, or those that are fields. */
std::vector<uint32_t> Types(bool areClasses) {
    std::vector<uint32_t> types;
    for (const TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
        if (tav::IsRecordClass(row->type) == areClasses) {
            types.push_back(row->type);
        }
    }
    return types;
}

std::string KeysText(uint32_t cid) {
    std::string text;
    for (const uint32_t fid : tav::KeyFields(cid)) {
        text += fmt::format("{}{}", text.empty() ? "" : " ", fid);
    }
    return text;
}

/** The names of a field in all classes: "route.id". */
std::vector<std::string> NamesOf(uint32_t fid, const tav::Names &names) {
    std::vector<std::string> all;
    for (const uint32_t cid : Types(true)) {
        if (names.FindField(cid, names.FieldText(cid, fid))) {
            all.push_back(fmt::format("{}.{}", names.ClassText(cid), names.FieldText(cid, fid)));
        }
    }
    return all;
}

void PrintTables(const tav::Names &names) {
    Table classes;
    classes.AddColumn("class", true);
    classes.AddColumn("key fields", false);
    classes.AddColumn("name", false);
    for (const uint32_t cid : Types(true)) {
        classes.AddRow();
        classes.Set(0, std::to_string(cid));
        classes.Set(1, KeysText(cid));
        classes.Set(2, names.FindClass(names.ClassText(cid)) ? names.ClassText(cid) : "");
    }
    Table fields;
    fields.AddColumn("field", true);
    fields.AddColumn("type", false);
    fields.AddColumn("bytes at most", true);
    fields.AddColumn("names", false);
    for (const uint32_t fid : Types(false)) {
        fields.AddRow();
        fields.Set(0, std::to_string(fid));
        fields.Set(1, KindText(tav::KindOf(fid)));
        fields.Set(2, std::to_string(TAV_GetExtTlvDataLen(fid)));
        fields.Set(3, fmt::format("{}", fmt::join(NamesOf(fid, names), " ")));
    }
    classes.Print();
    fmt::print("\n");
    fields.Print();
}

void PrintJson(const tav::Names &names) {
    ordered_json form = {{"classes", ordered_json::array()}, {"fields", ordered_json::array()}};
    for (const uint32_t cid : Types(true)) {
        ordered_json entry = {{"class", cid}, {"keys", tav::KeyFields(cid)}};
        if (names.FindClass(names.ClassText(cid))) {
            entry["name"] = names.ClassText(cid);
        }
        form["classes"].push_back(entry);
    }
    for (const uint32_t fid : Types(false)) {
        form["fields"].push_back({{"field", fid},
                                  {"type", KindText(tav::KindOf(fid))},
                                  {"limit", TAV_GetExtTlvDataLen(fid)},
                                  {"names", NamesOf(fid, names)}});
    }
    fmt::print("{}\n", form.dump(2));
}

}  // namespace

int RunSchema(const SchemaOptions &options) {
    (options.asJson ? PrintJson : PrintTables)(options.names);
    return 0;
}

}  // namespace tavcfg
