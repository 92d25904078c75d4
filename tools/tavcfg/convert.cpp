#include "convert.h"

#include <fmt/format.h>

#include <cstdio>
#include <utility>

#include "errors.h"
#include "progress.h"
#include "salvage.h"
#include "tav/copy.h"
#include "tav/diff.h"
#include "terminal.h"

namespace tavcfg {

namespace {

/** Throws Failure when OUT holds something else and may not lose it. */
void RequireConsent(bool holdsElse, const ConvertOptions &options) {
    if (holdsElse && !options.replaces) {
        throw Failure(fmt::format("{} is there and holds something else: --force replaces it", options.out.given));
    }
}

/** OUT as a file to write, whatever refer file it has been bound to. */
WriteOptions WriteOut(const ConvertOptions &options) {
    WriteOptions write = options.write;
    write.file.target.file = options.out;
    write.file.ignoresRefer = true;
    return write;
}

/** Writes a store to OUT as a session does, or shows what that would change. */
int WriteAnew(tav::Store store, const std::string &done, const ConvertOptions &options) {
    const WriteOptions write = WriteOut(options);
    tav::Session session = OpenToReplace(write, options.replaces);
    RequireConsent(!session.IsNew() && Differ(session.Store(), store), options);
    if (write.isDryRun) {
        PrintScript(tav::Diff(session.Store(), store), write.file.shown);
        return 0;
    }
    session.Store() = std::move(store);
    return Commit(&session, write, done);
}

tav::Store ReadIn(const ConvertOptions &options) {
    return std::move(Read(options.write.file).Store());
}

std::string Done(const ConvertOptions &options) {
    return fmt::format("converted {} to {}", options.write.file.target.file.given, options.out.given);
}

bool Copy(const ConvertOptions &options) {
    const FileOptions &in = options.write.file;
    const Progress progress("converting " + in.target.file.given);
    try {
        return tav::Copy(in.target.file.given, options.out.given,
                         {.read = ReadingOf(in), .replaces = options.replaces, .comment = options.write.comment});
    } catch (const tav::Error &error) {
        if (error.Code() == TAV_ERR_REFUSED) {
            RequireConsent(true, options);
        }
        if (error.Place() == in.target.file.given) {
            Diagnose(error, in);
        }
        throw;
    }
}

int CopyBytes(const ConvertOptions &options) {
    if (Copy(options)) {
        PrintDone(options.out, Done(options));
    } else {
        SayUnchanged(options.out);
    }
    return 0;
}

int Salvage(const ConvertOptions &options) {
    const File &in = options.write.file.target.file;
    Salvaged salvaged = SalvageFrom(in);
    const int code = WriteAnew(std::move(salvaged.store),
                               fmt::format("salvaged {} record{} of {} to {}, {} loss{}", salvaged.recordCount,
                                           salvaged.recordCount == 1 ? "" : "s", in.given, options.out.given,
                                           salvaged.losses.size(), salvaged.losses.size() == 1 ? "" : "es"),
                               options);
    for (const std::string &loss : salvaged.losses) {  // when it is written, as printing may fail
        fmt::print("{}lost: {}\n", options.write.isDryRun ? "# " : "", Printable(loss));
    }
    return code;
}

}  // namespace

int RunConvert(const ConvertOptions &options) {
    const File &in = options.write.file.target.file;
    if (SameFile(in, options.out)) {
        throw Failure(fmt::format("cannot convert {} to {}: they are the same file", in.given, options.out.given));
    }
    if (options.salvages) {
        return Salvage(options);
    }
    if (options.rewrites || options.write.isDryRun) {
        return WriteAnew(ReadIn(options), Done(options), options);
    }
    return CopyBytes(options);
}

}  // namespace tavcfg
