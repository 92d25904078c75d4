#include "open.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "diagnose.h"
#include "errors.h"
#include "progress.h"
#include "tav/diff.h"
#include "tav/script.h"
#include "terminal.h"

namespace tavcfg {

void Diagnose(const tav::Error &error, const FileOptions &options) {
    const File &file = options.target.file;
    if (std::error_code ignored; !std::filesystem::exists(file.path, ignored)) {
        return;  // it is its name that will not do
    }
    if (error.Code() == TAV_ERR_INVALID && (options.ignoresRefer || options.anyMember)) {
        RequireReadable(file);
    } else if (error.Code() == TAV_ERR_INVALID) {
        RequireLoads(options.target);
    }
}

std::string ReferOf(const FileOptions &options) {
    return options.target.refer ? options.target.refer->path : "";
}

tav::ReadOptions ReadingOf(const FileOptions &options) {
    return {.refer = ReferOf(options),
            .ignoreRefer = options.ignoresRefer,
            .wait = options.wait,
            .anyMember = options.anyMember};
}

tav::Names FindNames(const std::string &given, const std::string &file) {
    if (given == "-") {
        return tav::Names::Parse(ReadText(given), "standard input");
    }
    if (!given.empty()) {
        return tav::Names::Load(given);
    }
    const char *byUser = getenv("TAV_NAMES");
    if (byUser != nullptr && *byUser != '\0') {
        return tav::Names::Load(byUser);
    }
    const std::string beside = file + ".names.json";
    std::error_code error;
    return !file.empty() && std::filesystem::exists(beside, error) ? tav::Names::Load(beside) : tav::Names();
}

tav::Snapshot Read(const FileOptions &options) {
    const Progress progress("reading " + options.target.file.given);
    try {
        return tav::Snapshot(options.target.file.given, ReadingOf(options));
    } catch (const tav::Error &error) {
        Diagnose(error, options);
        throw;
    }
}

tav::Session OpenToWrite(const WriteOptions &options, bool create) {
    RequireRefer(options.file.target);
    const Progress progress("opening " + options.file.target.file.given);
    try {
        return tav::Session(options.file.target.file.given, {.refer = ReferOf(options.file),
                                                             .ignoreRefer = options.file.ignoresRefer,
                                                             .wait = options.file.wait,
                                                             .create = create});
    } catch (const tav::Error &error) {
        Diagnose(error, options.file);
        throw;
    }
}

tav::Session OpenToReplace(const WriteOptions &options, bool mayReplace) {
    try {
        return OpenToWrite(options, true);
    } catch (const Damage &damage) {
        if (!mayReplace) {
            throw;
        }
        throw Failure(std::string(damage.what()) + "; what does not load is not replaced: move it aside first");
    }
}

void PrintPiece(std::string_view text) {
    if (fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
    }
}

void PrintDone(const File &file, const std::string &line) {
    if (fputs((Printable(line) + '\n').c_str(), stdout) == EOF || fflush(stdout) != 0) {
        throw Failure(fmt::format("{} was written, but standard output cannot be: {}", file.given,
                                  std::generic_category().message(errno)));
    }
}

void SayDone(const WriteOptions &options, const std::string &line) {
    if (options.isDryRun) {
        fmt::print("dry run: {}\n", Printable(line));
    } else {
        PrintDone(options.file.target.file, line);
    }
}

void SayUnchanged(const File &file) {
    fmt::print("nothing to write: {} holds the same already\n", Printable(file.given));
}

bool Differ(const tav::Store &a, const tav::Store &b) {
    bool differ = false;
    const auto note = [&](auto...) { differ = true; };
    tav::Compare(a, b, {}, {note, note, note, note, note});
    return differ;
}

int Commit(tav::Session *session, const WriteOptions &options, const std::string &done) {
    const File &file = options.file.target.file;
    const bool isGone = session->Store().begin() == session->Store().end();
    if (WithProgress("writing " + file.given, [&] { return session->Commit(options.comment); })) {
        PrintDone(file, isGone ? done + "; no virtual system is left, so the file is gone" : done);
    } else if (session->IsNew()) {
        fmt::print("nothing to write: there is no {}, and nothing to put into it\n", Printable(file.given));
    } else {
        SayUnchanged(file);
    }
    return 0;
}

int ApplyAndCommit(tav::Session *session, const tav::Changes &changes, const WriteOptions &options,
                   const DoneText &done) {
    const tav::Changes inverse = WithProgress("changing " + options.file.target.file.given,
                                              [&] { return tav::Apply(changes, &session->Store()); });
    if (options.isDryRun) {
        // The inverse of the inverse is what the changes come to.
        PrintScript(tav::Apply(inverse, &session->Store()), options.file.shown);
        return 0;
    }
    const tav::ChangeCounts back = tav::CountChanges(inverse);
    return Commit(session, options, done({back.deleted, back.changed, back.added}));
}

std::string CountsText(const tav::ChangeCounts &counts) {
    return fmt::format("records added {}, changed {}, deleted {}", counts.added, counts.changed, counts.deleted);
}

void PrintScript(const tav::Changes &changes, const tav::Names &names) {
    for (const tav::Change &change : changes) {
        fmt::print("{}\n", tav::WriteChange(change, names));
    }
}

}  // namespace tavcfg
