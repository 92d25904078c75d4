#include "show.h"

#include <fmt/format.h>

#include <cstdio>
#include <map>

#include "errors.h"
#include "json_form.h"
#include "store.h"
#include "table.h"
#include "value.h"

namespace tavcfg {

namespace {

/** Prints records of one class as a table, a column for each field; a field that repeats has a column each time. */
class ClassTable {
  public:
    explicit ClassTable(uint32_t cid) : cid_(cid) {}

    void Add(const Record &record) {
        table_.AddRow();
        ++rows_;
        std::map<uint32_t, size_t> occurrences;
        for (const auto &[fid, value] : record.fields) {
            const std::string text = FormatValue(fid, value);
            table_.Set(ColumnOf(fid, ++occurrences[fid]), text.empty() ? "\"\"" : text);
        }
    }

    void Print(uint32_t vsId) const {
        fmt::print("VS {}, class {}: {} record{}\n", vsId, cid_, rows_, rows_ == 1 ? "" : "s");
        table_.Print();
    }

  private:
    size_t ColumnOf(uint32_t fid, size_t occurrence) {
        const auto place = columns_.find({fid, occurrence});
        if (place != columns_.end()) {
            return place->second;
        }
        std::string heading = fmt::format("{}{}", fid, IsKeyFid(cid_, fid) ? "*" : "");
        if (occurrence > 1) {
            heading += fmt::format(" ({})", occurrence);
        }
        return columns_[{fid, occurrence}] = table_.AddColumn(heading, IsInteger(fid));
    }

    uint32_t cid_;
    size_t rows_ = 0;
    Table table_;
    std::map<std::pair<uint32_t, size_t>, size_t> columns_;  // by field and occurrence
};

void PrintTables(const Model &model) {
    bool isFirst = true;
    for (const Vs &vs : model) {
        std::vector<std::pair<uint32_t, ClassTable>> tables;  // in the order of the file
        for (const Record &record : vs.records) {
            if (tables.empty() || tables.back().first != record.cid) {
                tables.emplace_back(record.cid, ClassTable(record.cid));
            }
            tables.back().second.Add(record);
        }
        if (tables.empty()) {
            fmt::print("{}VS {}: no records\n", isFirst ? "" : "\n", vs.id);
            isFirst = false;
        }
        for (const auto &[cid, table] : tables) {
            fmt::print("{}", isFirst ? "" : "\n");
            isFirst = false;
            table.Print(vs.id);
        }
    }
}

/** Finds a VS. Throws Failure. */
const Vs &RequireVs(const Model &model, uint32_t vsId, const File &file) {
    const Vs *vs = FindVs(model, vsId);
    if (vs == nullptr) {
        throw Failure(fmt::format("cannot look into {}: it has no VS {}", file.given, vsId));
    }
    return *vs;
}

}  // namespace

int RunShow(const ShowOptions &options) {
    const auto &[target, vsId, cid, asJson] = options;
    Model model = Load(target).Content();
    if (vsId) {
        model = {RequireVs(model, *vsId, target.file)};
    }
    if (cid) {
        for (Vs &vs : model) {
            std::erase_if(vs.records, [wanted = *cid](const Record &record) { return record.cid != wanted; });
        }
    }
    (asJson ? PrintJson : PrintTables)(model);
    return 0;
}

int RunGet(const GetOptions &options) {
    const Model model = Load(options.target).Content();
    const auto fail = [&](const char *why) {
        throw Failure(fmt::format("cannot get {} from {}: {}", Describe(options.vsId, options.key),
                                  options.target.file.given, why));
    };
    const Vs *vs = FindVs(model, options.vsId);
    const Record *record = vs == nullptr ? nullptr : FindRecord(*vs, options.key);
    if (record == nullptr) {
        fail("there is no such record");
    } else if (!options.fid) {
        for (const Field &field : record->fields) {
            fmt::print("{}={}\n", field.fid, FormatValue(field.fid, field.value));
        }
    } else if (const Field *field = record->Find(*options.fid)) {
        fmt::print("{}\n", FormatValue(field->fid, field->value));
    } else {
        fail("the record has no such field");
    }
    return 0;
}

}  // namespace tavcfg
