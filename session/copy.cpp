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

/** Reads the image of a file that loads. */
Block ReadSound(const Place &place, const CopyOptions &options, Clock::time_point until) {
    const Refer refer = session::ReferOf(options.read.refer, options.read.ignoreRefer);
    for (;;) {
        try {
            if (std::optional<Block> image = ReadOnce(place, options.anyMember)) {
                session::ParseImage(*image, place.Path(), refer, place.given);
                return std::move(*image);
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

/** Throws Error when the target may not be replaced. Returns whether it holds an image already. */
bool HoldsAlready(const Place &target, const Block &image, const CopyOptions &options) {
    std::optional<Block> old;
    try {
        old = ReadOnce(target, true);
        if (old) {
            session::ParseImage(*old, target.Path(), {"", true}, target.given);
        }
    } catch (const Error &error) {
        throw Error(
            error.Code(), target.given,
            std::string("it is there and no configuration file that loads, and is not replaced: ") + error.what());
    }
    if (!old || std::ranges::equal(old->View(), image.View())) {
        return old.has_value();
    }
    if (!options.replaces) {
        throw Error(TAV_ERR_REFUSED, target.given, "it is there and holds something else");
    }
    return false;
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
    const Block image = ReadSound(source, options, until);
    const session::HeldLock lock(target, until);
    session::Draft::RemoveLeftover(target);
    if (HoldsAlready(target, image, options)) {
        return false;
    }
    if (!session::Exists(target.Path()) && session::Exists(target.Backup())) {
        throw Error(TAV_ERR_BACKUP, target.given,
                    "it is missing, but a backup lies beside it, " + target.Backup() + ": recover the file");
    }
    session::Draft draft(target, image.View());
    draft.TakePlace();
    session::SyncFolder(target.folder);
    return true;
}

}  // namespace tav
