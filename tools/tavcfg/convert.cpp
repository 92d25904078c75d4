#include "convert.h"

#include <fmt/format.h>

#include <cstdio>
#include <utility>

#include "errors.h"
#include "salvage.h"
#include "tav/copy.h"

namespace tavcfg {

namespace {

int SayUnchanged(const File &out) {
    fmt::print("nothing to write: {} holds the same already\n", out.given);
    return 0;
}

/** Throws Failure when OUT holds something else and may not lose it. */
void RequireConsent(bool holdsElse, const ConvertOptions &options) {
    if (holdsElse && !options.replaces) {
        throw Failure(fmt::format("{} is there and holds something else: --force replaces it", options.out.given));
    }
}

/** Writes a store to OUT as a session does. */
int WriteAnew(tav::Store store, const std::string &done, const ConvertOptions &options) {
    WriteOptions write;
    write.file = options.in;
    write.file.target.file = options.out;
    write.comment = options.comment;
    tav::Session session = OpenToWrite(write, true);
    RequireConsent(!session.IsNew() && Differ(session.Store(), store), options);
    session.Store() = std::move(store);
    return Commit(&session, write, done);
}

int CopyBytes(const ConvertOptions &options) {
    const FileOptions &in = options.in;
    try {
        const tav::CopyOptions copy{.read = {.refer = ReferOf(in), .ignoreRefer = in.ignoresRefer, .wait = in.wait},
                                    .replaces = options.replaces,
                                    .comment = options.comment,
                                    .anyMember = options.anyMember};
        if (!tav::Copy(in.target.file.given, options.out.given, copy)) {
            return SayUnchanged(options.out);
        }
    } catch (const tav::Error &error) {
        if (error.Code() == TAV_ERR_REFUSED) {
            RequireConsent(true, options);
        }
        if (error.Code() == TAV_ERR_INVALID && error.Place() == in.target.file.given) {
            Read(in);  // says precisely what is wrong
        }
        if (error.Code() == TAV_ERR_BACKUP) {
            throw Failure(fmt::format("{}: tavcfg recover {}", error.what(), error.Place()));
        }
        throw;
    }
    PrintDone(options.out, fmt::format("converted {} to {}", in.target.file.given, options.out.given));
    return 0;
}

int Salvage(const ConvertOptions &options) {
    const File &in = options.in.target.file;
    Salvaged salvaged = SalvageFrom(in);
    for (const std::string &loss : salvaged.losses) {
        fmt::print("lost: {}\n", loss);
    }
    return WriteAnew(std::move(salvaged.store),
                     fmt::format("salvaged {} record{} of {} to {}, {} loss{}", salvaged.recordCount,
                                 salvaged.recordCount == 1 ? "" : "s", in.given, options.out.given,
                                 salvaged.losses.size(), salvaged.losses.size() == 1 ? "" : "es"),
                     options);
}

}  // namespace

int RunConvert(const ConvertOptions &options) {
    if (SameFile(options.in.target.file, options.out)) {
        throw Failure(fmt::format("cannot convert {} to {}: they are the same file", options.in.target.file.given,
                                  options.out.given));
    }
    if (options.salvages) {
        return Salvage(options);
    }
    if (!options.rewrites) {
        return CopyBytes(options);
    }
    tav::Snapshot snapshot = Read(options.in);
    return WriteAnew(std::move(snapshot.Store()),
                     fmt::format("converted {} to {}", options.in.target.file.given, options.out.given), options);
}

}  // namespace tavcfg
