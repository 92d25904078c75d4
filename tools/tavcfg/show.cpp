#include "show.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <map>
#include <utility>

#include "assignments.h"
#include "errors.h"
#include "progress.h"
#include "table.h"
#include "tav/json.h"
#include "tav/values.h"

namespace tavcfg {

namespace {

/** One value of a record for a table, and the heading of its column. */
struct Cell {
    std::string heading;
    uint32_t fid;
    std::string text;
};

/** The fields that are asked for, of which a record may lack some. */
std::vector<tav::FieldView> FieldsAskedFor(tav::RecordView record, const std::string &name,
                                           const ShowOptions &options) {
    std::vector<tav::FieldView> fields;
    const std::optional<uint32_t> fid = FindField(record.Cid(), name, options.file.names);
    std::ranges::copy_if(record, std::back_inserter(fields), [&](tav::FieldView field) { return field.Id() == fid; });
    return fields;
}

/** The cells of a record. A field that repeats has a heading of its own each time; one that is asked for, as it was. */
std::vector<Cell> CellsOf(tav::RecordView record, const ShowOptions &options) {
    std::vector<Cell> cells;
    std::map<uint32_t, size_t> occurrences;
    const auto append = [&](tav::FieldView field, std::string heading) {
        if (const size_t occurrence = ++occurrences[field.Id()]; occurrence > 1) {
            heading += fmt::format(" ({})", occurrence);
        }
        cells.push_back({std::move(heading), field.Id(), tav::FormatValue(field)});
    };
    for (const std::string &name : options.fields) {
        for (const tav::FieldView field : FieldsAskedFor(record, name, options)) {
            append(field, name);
        }
    }
    if (options.fields.empty()) {
        for (const tav::FieldView field : record) {
            const bool isMarked = options.format == Format::kTable && tav::IsKeyField(record.Cid(), field.Id());
            append(field, options.file.shown.FieldText(record.Cid(), field.Id()) + (isMarked ? "*" : ""));
        }
    }
    return cells;
}

/** Columns by their headings, in the order in which they come up. */
class Columns {
  public:
    /** Returns the number of a column; calls `add` when it is a new one. */
    template <typename Add>
    size_t Of(const std::string &heading, Add add) {
        const auto [place, isNew] = byHeading_.try_emplace(heading, byHeading_.size());
        if (isNew) {
            add();
        }
        return place->second;
    }

  private:
    std::map<std::string, size_t> byHeading_;
};

void PrintClass(uint32_t vsId, const ClassRecords &chosen, const ShowOptions &options) {
    Table table;
    Columns columns;
    const auto columnOf = [&](const std::string &heading, uint32_t fid) {
        return columns.Of(heading, [&] { table.AddColumn(heading, tav::KindOf(fid) == tav::Kind::kInteger); });
    };
    for (const std::string &name : options.fields) {
        columnOf(name, FindField(chosen.cid, name, options.file.names).value_or(0));
    }
    for (const tav::RecordView record : chosen.records) {
        table.AddRow();
        for (const Cell &cell : CellsOf(record, options)) {
            table.Set(columnOf(cell.heading, cell.fid), cell.text.empty() ? "\"\"" : cell.text);
        }
    }
    fmt::print("VS {}, class {}: {} record{}\n", vsId, options.file.shown.ClassText(chosen.cid), chosen.records.size(),
               chosen.records.size() == 1 ? "" : "s");
    table.Print();
}

void PrintTables(const std::vector<VsRecords> &selected, const ShowOptions &options) {
    const char *gap = "";
    for (const VsRecords &vs : selected) {
        if (vs.classes.empty()) {
            fmt::print("{}VS {}: no records\n", std::exchange(gap, "\n"), vs.vsId);
        }
        for (const ClassRecords &chosen : vs.classes) {
            fmt::print("{}", std::exchange(gap, "\n"));
            PrintClass(vs.vsId, chosen, options);
        }
    }
}

/** A text as a cell of CSV; an empty one in quotes, to tell it from none. */
std::string CsvCell(const std::string &text) {
    if (!text.empty() && text.find_first_of(",\"") == std::string::npos) {
        return text;
    }
    std::string cell = "\"";
    for (const char c : text) {
        cell += c == '"' ? "\"\"" : std::string(1, c);
    }
    return cell + '"';
}

void PrintCsvLine(const std::vector<std::string> &cells) {
    fmt::print("{}\n", fmt::join(cells, ","));
}

/** Prints all records as one table, whose columns are those of all classes. */
void PrintCsv(const std::vector<VsRecords> &selected, const ShowOptions &options) {
    std::vector<std::string> headings = {"vs", "class"};
    Columns columns;
    const auto columnOf = [&](const std::string &heading) {
        return 2 + columns.Of(heading, [&] { headings.push_back(CsvCell(heading)); });
    };
    std::ranges::for_each(options.fields, columnOf);
    std::vector<std::vector<std::string>> lines;
    for (const VsRecords &vs : selected) {
        for (const ClassRecords &chosen : vs.classes) {
            for (const tav::RecordView record : chosen.records) {
                lines.push_back({std::to_string(vs.vsId), options.file.shown.ClassText(chosen.cid)});
                for (const Cell &cell : CellsOf(record, options)) {
                    const size_t column = columnOf(cell.heading);
                    lines.back().resize(std::max(lines.back().size(), column + 1));
                    lines.back()[column] = CsvCell(cell.text);
                }
            }
        }
    }
    PrintCsvLine(headings);
    for (std::vector<std::string> &line : lines) {
        line.resize(headings.size());
        PrintCsvLine(line);
    }
}

/** A record with the fields that are asked for alone. */
tav::Record PartOf(tav::RecordView record, const ShowOptions &options) {
    tav::Record part(record.Cid());
    for (const std::string &name : options.fields) {
        for (const tav::FieldView field : FieldsAskedFor(record, name, options)) {
            part.Add(field.Id(), field.Value());
        }
    }
    return part;
}

void PrintJson(const std::vector<VsRecords> &selected, const ShowOptions &options) {
    tav::JsonWriter writer(options.format == Format::kJson ? tav::JsonForm::kTree : tav::JsonForm::kLines, PrintPiece,
                           options.file.shown);
    for (const VsRecords &vs : selected) {
        writer.BeginVs(vs.vsId);
        for (const ClassRecords &chosen : vs.classes) {
            for (const tav::RecordView record : chosen.records) {
                if (options.fields.empty()) {
                    writer.Add(record);
                } else {
                    writer.Add(PartOf(record, options).View());
                }
            }
        }
    }
    writer.End();
}

/** Prints a field's value as its bytes stand in the file. */
void PrintRaw(tav::FieldView field) {
    std::vector<uint8_t> bytes(field.Value().size());
    if (TAV_ExtTlvConvertEndian(field.Id(), static_cast<uint32_t>(bytes.size()), field.Value().data(), bytes.data()) !=
        TAV_OK) {
        throw Failure(fmt::format("field {} cannot be converted", field.Id()));
    }
    PrintPiece({reinterpret_cast<const char *>(bytes.data()), bytes.size()});
}

void PrintField(tav::FieldView field, const GetOptions &options) {
    if (options.isRaw) {
        PrintRaw(field);
    } else if (options.asJson) {
        fmt::print("{}\n", tav::ValueToJson(field));
    } else {
        fmt::print("{}\n", tav::FormatValue(field));
    }
}

void PrintRecord(tav::RecordView record, const GetOptions &options) {
    if (options.asJson) {
        fmt::print("{}\n", tav::RecordToJson(options.key.vsId, record, options.file.shown));
        return;
    }
    for (const tav::FieldView field : record) {
        fmt::print("{}={}\n", options.file.shown.FieldText(record.Cid(), field.Id()), tav::FormatValue(field));
    }
}

}  // namespace

int RunShow(const ShowOptions &options) {
    const tav::Snapshot snapshot = Read(options.file);
    const std::vector<VsRecords> selected = Select(snapshot.Store(), options.selection, options.file);
    const Progress progress("showing " + options.file.target.file.given, true);
    switch (options.format) {
        case Format::kTable:
            PrintTables(selected, options);
            break;
        case Format::kCsv:
            PrintCsv(selected, options);
            break;
        case Format::kJson:
        case Format::kJsonLines:
            PrintJson(selected, options);
            break;
    }
    return 0;
}

int RunCount(const CountOptions &options) {
    const tav::Snapshot snapshot = Read(options.file);
    size_t count = 0;
    for (const VsRecords &vs : Select(snapshot.Store(), options.selection, options.file)) {
        for (const ClassRecords &chosen : vs.classes) {
            count += chosen.records.size();
        }
    }
    fmt::print("{}\n", count);
    return 0;
}

int RunGet(const GetOptions &options) {
    const tav::Snapshot snapshot = Read(options.file);
    const tav::Record key = RecordOf(options.key);
    const auto fail = [&](const char *why) {
        throw Failure(fmt::format("cannot get {} from {}: {}", tav::DescribeRecord(options.key.vsId, key.View()),
                                  options.file.target.file.given, why));
    };
    const std::optional<tav::RecordView> record = snapshot.Store().Find(options.key.vsId, key);
    if (!record) {
        fail("there is no such record");
    } else if (!options.fid) {
        PrintRecord(*record, options);
    } else if (const std::optional<tav::FieldView> field = record->Find(*options.fid)) {
        PrintField(*field, options);
    } else {
        fail("the record has no such field");
    }
    return 0;
}

}  // namespace tavcfg
