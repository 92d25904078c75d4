#include "edit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <utility>

#include "assignments.h"
#include "errors.h"
#include "progress.h"
#include "tav/script.h"
#include "tav/values.h"
#include "terminal.h"

namespace tavcfg {

namespace {

struct Words {
    const char *infinitive, *past;
};

Words WordsFor(tav::Verb verb) {
    switch (verb) {
        case tav::Verb::kAdd:
            return {"add", "added"};
        case tav::Verb::kSet:
            return {"set", "set"};
        case tav::Verb::kUnset:
            return {"unset", "unset fields of"};
        case tav::Verb::kDelete:
            break;
    }
    return {"delete", "deleted"};
}

/** The change of a record that has been selected; nothing to be unset that it lacks. */
tav::Change ChangeFor(tav::RecordView record, const tav::Change &pattern) {
    tav::Change change{pattern.verb, pattern.vsId, pattern.cid, {}, {}};
    const tav::Record key = tav::Record::KeyOf(record);
    for (const tav::FieldView field : key.View()) {
        change.fields.push_back({field.Id(), std::string(field.Text())});
    }
    change.fields.insert(change.fields.end(), pattern.fields.begin(), pattern.fields.end());
    std::ranges::copy_if(pattern.unset, std::back_inserter(change.unset),
                         [&](uint32_t fid) { return record.Find(fid).has_value(); });
    return change;
}

}  // namespace

int RunEdit(const EditOptions &options) {
    const File &file = options.write.file.target.file;
    const Words words = WordsFor(options.change.verb);
    const std::string name = tav::DescribeRecord(options.change.vsId, RecordOf(options.change).View());
    tav::Session session = OpenToWrite(options.write, options.change.verb == tav::Verb::kAdd);
    try {
        return ApplyAndCommit(&session, {options.change}, options.write, [&](const tav::ChangeCounts &) {
            return fmt::format("{} {} in {}", words.past, name, file.given);
        });
    } catch (const tav::Error &error) {
        if (error.Place() != "change 1") {
            throw;  // the commit has failed
        }
        throw Failure(fmt::format("cannot {} in {}: {}", words.infinitive, file.given,
                                  std::string(error.what()).substr(std::string("change 1: ").size())));
    }
}

int RunEditMany(const EditManyOptions &options) {
    const File &file = options.write.file.target.file;
    tav::Session session = OpenToWrite(options.write, false);
    tav::Changes changes;
    for (const VsRecords &vs : Select(session.Store(), options.selection, options.write.file)) {
        for (const ClassRecords &chosen : vs.classes) {
            for (const tav::RecordView record : chosen.records) {
                tav::Change change = ChangeFor(record, options.change);
                if (change.verb != tav::Verb::kUnset || !change.unset.empty()) {
                    changes.push_back(std::move(change));
                }
            }
        }
    }
    if (changes.empty()) {
        fmt::print("nothing to write: no record of {} matches\n", Printable(file.given));
        return 0;
    }
    return ApplyAndCommit(&session, changes, options.write, [&](const tav::ChangeCounts &) {
        return fmt::format("{} {} record{} in {}", WordsFor(options.change.verb).past, changes.size(),
                           changes.size() == 1 ? "" : "s", file.given);
    });
}

int RunApply(const ApplyOptions &options) {
    const File &file = options.write.file.target.file;
    const std::string source = options.script == "-" ? "standard input" : options.script;
    tav::Changes changes;
    try {
        const std::string text = ReadText(options.script);  // without progress: it may be typed
        changes = WithProgress("reading " + source, [&] { return tav::ParseScript(text, options.write.file.names); });
    } catch (const tav::Error &error) {
        throw Failure(fmt::format("{}: {}", source, error.what()));
    }
    tav::Session session = OpenToWrite(options.write, true);
    try {
        return ApplyAndCommit(&session, changes, options.write, [&](const tav::ChangeCounts &counts) {
            return fmt::format("wrote {}: {}", file.given, CountsText(counts));
        });
    } catch (const tav::Error &error) {
        if (!error.Place().starts_with("line ")) {
            throw;  // the commit has failed
        }
        throw Failure(fmt::format("{}: {}", source, error.what()));
    }
}

}  // namespace tavcfg
