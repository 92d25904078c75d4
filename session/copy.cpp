/*
 * Copies of a file's image.
 */
#include "tav/copy.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "session/archive.h"
#include "session/draft.h"
#include "session/image.h"
#include "session/load.h"
#include "session/lock.h"
#include "session/place.h"
#include "session/recorder.h"
#include "session/start.h"

namespace tav {

namespace {

using session::Block;
using session::Clock;
using session::Place;
using session::Refer;

/** Reads a file as it is. Nothing when there is none. */
std::optional<Block> ReadOnce(const Place &place, bool anyMember) {
    if (place.IsArchive() && anyMember) {
        std::optional<session::ReadImage> archive = session::ReadImageOf(place.Path(), "", place.given);
        return archive ? std::optional(session::Unpack(archive->image, "", place.given)) : std::nullopt;
    }
    std::optional<session::ReadImage> read =
        session::ReadImageOf(place.Path(), place.IsArchive() ? place.Member() : "", place.given);
    return read ? std::optional(std::move(read->image)) : std::nullopt;
}

/** A file that loads: its bytes and what they hold. */
struct Source {
    Block image;
    session::Content content;
};

Source ReadSource(const Place &place, const CopyOptions &options, Clock::time_point until) {
    const Refer refer = session::ReferOf(options.read.refer, options.read.ignoreRefer);
    for (;;) {
        try {
            if (std::optional<Block> image = ReadOnce(place, options.anyMember)) {
                session::Content content = session::ParseImage(*image, place.Path(), refer, place.given);
                return {std::move(*image), std::move(content)};
            }
        } catch (const Error &error) {
            if (error.Code() != TAV_ERR_INVALID || options.anyMember) {
                throw;
            }
        }
        if (!session::Load(place, refer, until)) {  // which waits for who is writing it, and says what is wrong
            throw Error(TAV_ERR_MISSING, place.given, "there is no such file");
        }
    }
}

/** Reads the target as it is. Nothing when there is none. Throws Error when it is no configuration file. */
std::optional<Source> ReadTarget(const Place &target) {
    try {
        std::optional<Block> image = ReadOnce(target, true);
        if (!image && session::Exists(target.Backup())) {
            throw Error(TAV_ERR_BACKUP, target.given,
                        "it is missing, but a backup lies beside it, " + target.Backup() + ": recover the file");
        }
        if (!image) {
            return {};
        }
        session::Content content = session::ParseImage(*image, target.Path(), {"", true}, target.given);
        return Source{std::move(*image), std::move(content)};
    } catch (const Error &error) {
        if (error.Code() != TAV_ERR_INVALID) {
            throw;
        }
        throw Error(
            error.Code(), target.given,
            std::string("it is there and no configuration file that loads, and is not replaced: ") + error.what());
    }
}

/** Brings an image to the target and into its history. The lock must be held. */
void Replace(const Place &target, const Source &source, const std::optional<Source> &old, const std::string &comment) {
    const session::Identity identity = session::IdentityOf(session::StatusOf(target.Path()));
    session::Index index =
        session::HistoryFolder(target).Settle(old ? session::ToHex(old->content.checksums.body) : "");
    session::Draft draft(target, source.image.View());
    session::Recorder recorder(target, &index);
    recorder.Prepare(source.content.store, session::ToHex(source.content.checksums.body), comment, draft.Status());
    if (session::IdentityOf(session::StatusOf(target.Path())) != identity) {
        throw Error(TAV_ERR_CHANGED, target.given, "a program that writes without a session has changed it meanwhile");
    }
    draft.TakePlace();
    recorder.ComeTrue();
    session::SyncFolder(target.folder);
    recorder.Confirm();
}

}  // namespace

bool Copy(const std::string &from, const std::string &to, const CopyOptions &options) {
    session::CompleteTypeTable();
    const Clock::time_point until = Clock::now() + options.read.wait;
    const Place source = session::Resolve(from), target = session::Resolve(to);
    if (session::Exists(target.Path()) && session::IdentityOf(session::StatusOf(source.Path())) ==
                                              session::IdentityOf(session::StatusOf(target.Path()))) {
        throw Error(TAV_ERR_INVALID, to, "it is the same file as " + from);
    }
    const Source read = ReadSource(source, options, until);
    const session::HeldLock lock(target, until);
    session::Draft::RemoveLeftover(target);
    const std::optional<Source> old = ReadTarget(target);
    if (old && std::ranges::equal(old->image.View(), read.image.View())) {
        return false;
    }
    if (old && !options.replaces) {
        throw Error(TAV_ERR_REFUSED, target.given, "it is there and holds something else");
    }
    Replace(target, read, old, options.comment);
    return true;
}

}  // namespace tav
