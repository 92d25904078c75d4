#include "diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "diagnose.h"
#include "errors.h"
#include "history.h"
#include "progress.h"
#include "tav/json.h"
#include "tav/script.h"
#include "tav/values.h"
#include "terminal.h"

namespace tavcfg {

namespace {

constexpr const char *kNone = "(none)";

/** A value so that no two read alike, nor like none. */
std::string ValueText(tav::FieldView field) {
    const std::string text = tav::FormatValue(field);
    return text == kNone ? fmt::format("\"{}\"", text) : tav::Quoted(text);
}

/** Prints what tells two files apart, a line each: removed (-), changed (~) and added (+). */
class TextDiff {
  public:
    TextDiff(const tav::DiffScope &scope, const tav::Names &names) : scope_(scope), names_(names) {}

    /** Returns whether anything was printed. */
    bool Print(const tav::Store &before, const tav::Store &after) {
        after_ = &after;
        tav::DiffVisitor visitor;
        visitor.vsGone = [this](uint32_t vsId) { Enter(vsId); };
        visitor.vsNew = [this](uint32_t vsId) {
            PrintNow(vsId, Paint(Look::kAdded, fmt::format("+ VS {}", vsId)) + '\n');
        };
        visitor.gone = [this](uint32_t vsId, tav::RecordView record) {
            PrintNow(vsId, RecordLine(Look::kRemoved, vsId, record));
        };
        visitor.added = [this](uint32_t vsId, tav::RecordView record) {
            Enter(vsId);
            added_ += RecordLine(Look::kAdded, vsId, record);
        };
        visitor.changed = [this](uint32_t vsId, tav::RecordView from, tav::RecordView to) {
            PrintChange(vsId, from, to);
        };
        tav::Compare(before, after, scope_, visitor);
        Flush();
        return isPrinted_;
    }

  private:
    std::string RecordLine(Look look, uint32_t vsId, tav::RecordView record) const {
        std::string line =
            fmt::format("{} VS {} class {}:", look == Look::kAdded ? '+' : '-', vsId, names_.ClassText(record.Cid()));
        for (const tav::FieldView field : record) {
            line += fmt::format(" {}={}", names_.FieldText(record.Cid(), field.Id()), ValueText(field));
        }
        return Paint(look, line) + '\n';
    }

    std::string NameOf(uint32_t vsId, tav::RecordView record) const {
        std::string name = fmt::format("VS {} class {}", vsId, names_.ClassText(record.Cid()));
        for (const uint32_t fid : tav::KeyFields(record.Cid())) {
            name += fmt::format(" {}={}", names_.FieldText(record.Cid(), fid), ValueText(*record.Find(fid)));
        }
        return name;
    }

    /** The values of a field in a record, in order. */
    static std::vector<std::string> ValuesOf(tav::RecordView record, uint32_t fid) {
        std::vector<std::string> values;
        for (const tav::FieldView field : record) {
            if (field.Id() == fid) {
                values.push_back(ValueText(field));
            }
        }
        return values;
    }

    std::string OrderOf(tav::RecordView record) const {
        std::string order;
        for (const tav::FieldView field : record) {
            order += ' ' + names_.FieldText(record.Cid(), field.Id());
        }
        return order;
    }

    static std::string ChangeLine(const std::string &what) { return Paint(Look::kChanged, "~ " + what) + '\n'; }

    /** Prints how a record changed, field by field. */
    void PrintChange(uint32_t vsId, tav::RecordView before, tav::RecordView after) {
        std::vector<uint32_t> fids;
        for (const tav::RecordView record : {before, after}) {
            for (const tav::FieldView field : record) {
                if (!scope_.ignored.contains(field.Id()) && std::ranges::find(fids, field.Id()) == fids.end()) {
                    fids.push_back(field.Id());
                }
            }
        }
        const std::string name = NameOf(vsId, after);
        std::string lines;
        for (const uint32_t fid : fids) {
            const std::vector<std::string> from = ValuesOf(before, fid), to = ValuesOf(after, fid);
            for (size_t i = 0; i < std::max(from.size(), to.size()); ++i) {
                if (i >= from.size() || i >= to.size() || from[i] != to[i]) {
                    lines += ChangeLine(fmt::format("{}: {}: {} -> {}", name, names_.FieldText(after.Cid(), fid),
                                                    i < from.size() ? from[i] : kNone, i < to.size() ? to[i] : kNone));
                }
            }
        }
        const std::string orderBefore = OrderOf(before), orderAfter = OrderOf(after);
        PrintNow(vsId, !lines.empty() ? lines
                                      : ChangeLine(fmt::format("{}: the order of the fields:{} ->{}", name, orderBefore,
                                                               orderAfter)));
    }

    void PrintNow(uint32_t vsId, const std::string &lines) {
        Enter(vsId);
        fmt::print("{}", lines);
    }

    /** Comes to a VS, which may be gone as a whole. */
    void Enter(uint32_t vsId) {
        isPrinted_ = true;
        if (vsId_ != vsId) {
            Flush();
            vsId_ = vsId;
            if (!after_->FindVs(vsId)) {
                fmt::print("{}\n", Paint(Look::kRemoved, fmt::format("- VS {}", vsId)));
            }
        }
    }

    void Flush() {
        fmt::print("{}", added_);
        added_.clear();
    }

    const tav::DiffScope &scope_;
    const tav::Names &names_;
    const tav::Store *after_ = nullptr;
    std::optional<uint32_t> vsId_;  // where the walk is
    std::string added_;             // lines of the VS, to be printed behind what is gone and changed
    bool isPrinted_ = false;
};

/** One side of a comparison. */
struct Side {
    tav::Store store;
    std::string checksum;  // of the body; empty for a former content
};

/**
 * Reads a file that may refer to another or not, and uses the refer file only if it does; or, for a name like FILE@2 or
 * FILE@NAME that is no file's, what the file held two commits back, or at the checkpoint.
 */
Side ReadSide(FileOptions options, const File &file) {
    const size_t at = file.given.rfind('@');
    if (at != std::string::npos && at > 0 && at + 1 < file.given.size() && !Exists(file)) {
        return {FormerStore(file.given.substr(0, at), file.given.substr(at + 1)), ""};
    }
    options.target.file = file;
    if (options.target.refer && !CarriesReferChecksum(file)) {
        options.target.refer.reset();
    }
    tav::Snapshot snapshot = Read(options);
    return {std::move(snapshot.Store()), snapshot.Checksum()};
}

/** Returns whether two files differ in what no record shows. */
bool DiffersBeyond(const DiffOptions &options, const Side &before, const Side &after) {
    const bool isWhole = !options.scope.vsId && !options.scope.cid && options.scope.ignored.empty();
    return isWhole && !before.checksum.empty() && !after.checksum.empty() && before.checksum != after.checksum;
}

}  // namespace

int RunDiff(const DiffOptions &options) {
    const Side before = ReadSide(options.before, options.before.target.file);
    const Side after = ReadSide(options.before, options.after);
    if (options.scope.vsId && !before.store.FindVs(*options.scope.vsId) && !after.store.FindVs(*options.scope.vsId)) {
        throw Failure(fmt::format("neither {} nor {} has a VS {}", options.before.target.file.given,
                                  options.after.given, *options.scope.vsId));
    }
    const tav::Names &names = options.before.shown;
    const Progress progress(fmt::format("comparing {} and {}", options.before.target.file.given, options.after.given),
                            true);
    bool differs = false;
    if (options.format == DiffFormat::kText) {
        differs = TextDiff(options.scope, names).Print(before.store, after.store);
    } else {
        const tav::Changes changes = tav::Diff(before.store, after.store, options.scope);
        for (const tav::Change &change : changes) {
            fmt::print("{}\n", options.format == DiffFormat::kScript ? tav::WriteChange(change, names)
                                                                     : tav::ChangeToJson(change, names));
        }
        differs = !changes.empty();
    }
    if (differs || !DiffersBeyond(options, before, after)) {
        return differs ? 1 : 0;
    }
    if (options.format == DiffFormat::kJsonLines) {
        fmt::print("{{\"checksum\":[\"{}\",\"{}\"]}}\n", before.checksum, after.checksum);
    } else {
        const std::string what = fmt::format("the order of records, or what is no record: checksum {} -> {}",
                                             before.checksum, after.checksum);
        fmt::print("{}\n", options.format == DiffFormat::kText ? Paint(Look::kChanged, "~ " + what) : "# " + what);
    }
    return 1;
}

}  // namespace tavcfg
