#include "history.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <utility>

#include "errors.h"
#include "image.h"
#include "progress.h"
#include "table.h"
#include "tav/diff.h"
#include "tav/history.h"
#include "tav/values.h"
#include "terminal.h"

using nlohmann::ordered_json;

namespace tavcfg {

namespace {

std::string TimeText(const tav::Note &note) {
    const auto seconds = std::chrono::time_point_cast<std::chrono::seconds>(note.time);
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}Z", fmt::gmtime(std::chrono::system_clock::to_time_t(seconds)));
}

ordered_json NoteJson(const tav::Note &note) {
    return {{"time", TimeText(note)}, {"user", note.user}, {"program", note.program}, {"comment", note.comment}};
}

void PrintJson(const tav::History &history) {
    ordered_json form = {{"on", history.IsOn()},
                         {"keep", history.Keep()},
                         {"commits", ordered_json::array()},
                         {"checkpoints", ordered_json::array()}};
    size_t back = history.Commits().size();
    for (const tav::HistoryCommit &commit : history.Commits()) {
        ordered_json entry = {{"number", commit.number}, {"back", back--}};
        entry.update(NoteJson(commit.note));
        entry.update({{"checksum", commit.checksum},
                      {"added", commit.counts.added},
                      {"changed", commit.counts.changed},
                      {"deleted", commit.counts.deleted}});
        form["commits"].push_back(std::move(entry));
    }
    for (const tav::Checkpoint &checkpoint : history.Checkpoints()) {
        ordered_json entry = {{"name", checkpoint.name}};
        entry.update(NoteJson(checkpoint.note));
        entry.update({{"checksum", checkpoint.checksum}});
        form["checkpoints"].push_back(std::move(entry));
    }
    fmt::print("{}\n", form.dump(2, ' ', true, ordered_json::error_handler_t::replace));
}

void PrintCommits(const tav::History &history) {
    Table table;
    for (const char *heading : {"back", "commit"}) {
        table.AddColumn(heading, true);
    }
    for (const char *heading : {"time", "user", "program"}) {
        table.AddColumn(heading, false);
    }
    for (const char *heading : {"added", "changed", "deleted"}) {
        table.AddColumn(heading, true);
    }
    table.AddColumn("comment", false);
    for (size_t i = 0; i < history.Commits().size(); ++i) {
        const tav::HistoryCommit &commit = history.Commits()[i];
        size_t column = 0;
        table.AddRow();
        for (const std::string &text :
             {std::to_string(history.Commits().size() - i), std::to_string(commit.number), TimeText(commit.note),
              commit.note.user, commit.note.program, std::to_string(commit.counts.added),
              std::to_string(commit.counts.changed), std::to_string(commit.counts.deleted), commit.note.comment}) {
            table.Set(column++, text);
        }
    }
    table.Print();
}

void PrintCheckpoints(const tav::History &history) {
    Table table;
    for (const char *heading : {"checkpoint", "time", "user", "comment"}) {
        table.AddColumn(heading, false);
    }
    for (const tav::Checkpoint &checkpoint : history.Checkpoints()) {
        size_t column = 0;
        table.AddRow();
        for (const std::string &text :
             {checkpoint.name, TimeText(checkpoint.note), checkpoint.note.user, checkpoint.note.comment}) {
            table.Set(column++, text);
        }
    }
    table.Print();
}

/** Returns whether a state is so many commits back, not the name of a checkpoint. */
bool IsCount(const std::string &state) {
    return std::all_of(state.begin(), state.end(), [](char c) { return c >= '0' && c <= '9'; });
}

tav::HistoryOptions ChangingOf(const WriteOptions &options) {
    return {.wait = options.file.wait, .dryRun = options.isDryRun};
}

}  // namespace

int RunHistoryStart(const HistoryOptions &options) {
    const std::string &name = options.write.file.target.file.given;
    if (tav::History::Start(name, options.keep, ChangingOf(options.write))) {
        SayDone(options.write, fmt::format("the last {} commits of {} are kept from now on", options.keep, name));
    } else {
        fmt::print("nothing to write: the last {} commits of {} are kept already\n", options.keep, Printable(name));
    }
    return 0;
}

int RunHistoryStop(const HistoryOptions &options) {
    const std::string &name = options.write.file.target.file.given;
    if (tav::History::Stop(name, ChangingOf(options.write))) {
        SayDone(options.write, fmt::format("commits of {} are no longer kept", name));
    } else {
        fmt::print("nothing to write: commits of {} are not kept\n", Printable(name));
    }
    return 0;
}

int RunHistoryShow(const HistoryOptions &options) {
    const File &file = options.write.file.target.file;
    const tav::History history(file.given);
    if (!history.IsOn() && history.Commits().empty() && history.Checkpoints().empty() && !Exists(file)) {
        RequireReadable(file);
    }
    if (options.asJson) {
        PrintJson(history);
        return 0;
    }
    fmt::print("history of {}: {}\n", Printable(file.given),
               history.IsOn() ? fmt::format("on, the last {} commits are kept", history.Keep()) : "off");
    if (!history.Commits().empty()) {
        PrintCommits(history);
    }
    if (!history.Checkpoints().empty()) {
        PrintCheckpoints(history);
    }
    return 0;
}

int RunCheckpoint(const CheckpointOptions &options) {
    const std::string &path = options.write.file.target.file.given;
    if (options.removes) {
        tav::History::RemoveCheckpoint(path, options.name, ChangingOf(options.write));
    } else {
        tav::History::AddCheckpoint(path, options.name, options.write.comment, ChangingOf(options.write));
    }
    SayDone(options.write,
            fmt::format("{} {} of {}", options.removes ? "removed checkpoint" : "made checkpoint", options.name, path));
    return 0;
}

int RunRollback(const RollbackOptions &options) {
    const File &file = options.write.file.target.file;
    if (!Exists(file)) {
        FormerStore(file.given, options.state);  // leaves no lock file beside nothing when there is none
    }
    tav::Session session = OpenToWrite(options.write, true);
    tav::Store former = FormerStore(file.given, options.state);
    if (options.write.isDryRun) {
        PrintScript(tav::Diff(session.Store(), former), options.write.file.shown);
        return 0;
    }
    const tav::ChangeCounts counts =
        WithProgress("comparing with " + file.given, [&] { return tav::CountDifferences(session.Store(), former); });
    session.Store() = std::move(former);
    WriteOptions write = options.write;
    if (write.comment.empty()) {
        write.comment = "rollback " + options.state;
    }
    const std::string where = !IsCount(options.state)            ? "to " + options.state
                              : tav::ParseId(options.state) == 1 ? "by 1 commit"
                                                                 : fmt::format("by {} commits", options.state);
    return Commit(&session, write, fmt::format("rolled {} back {}: {}", file.given, where, CountsText(counts)));
}

tav::Store FormerStore(const std::string &path, const std::string &state) {
    const tav::History history(path);
    const Progress progress("reading the history of " + path);
    return IsCount(state) ? history.Before(tav::ParseId(state)) : history.At(state);
}

}  // namespace tavcfg
