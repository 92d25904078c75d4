/*
 * Copies of a file's image.
 */
#include "tav/copy.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "session/commit.h"
#include "session/draft.h"
#include "session/start.h"

namespace tav {

namespace {

using session::Clock;
using session::Loaded;
using session::Place;

/** Loads the file to be copied. */
Loaded LoadSource(const Place &place, const ReadOptions &options, Clock::time_point until) {
    std::optional<Loaded> loaded = session::Load(place, session::ReferOf(options.refer, options.ignoreRefer), until);
    if (!loaded) {
        session::RefuseMissing(place);
    }
    return std::move(*loaded);
}

/** Loads the target as it is. Nothing when there is none. Throws Error when it is no configuration file. */
std::optional<Loaded> LoadTarget(const Place &target, Clock::time_point until) {
    try {
        return session::Load(target, session::ReferOf("", true), until);
    } catch (const Error &error) {
        if (error.Code() != TAV_ERR_INVALID) {
            throw;
        }
        throw Error(
            error.Code(), target.given,
            std::string("it is there and no configuration file that loads, and is not replaced: ") + error.what());
    }
}

}  // namespace

bool Copy(const std::string &from, const std::string &to, const CopyOptions &options) {
    session::CompleteTypeTable();
    const Clock::time_point until = session::EndOf(options.read.wait);
    Place source = session::Resolve(from);
    source.anyMember = options.read.anyMember;
    const Place target = session::Resolve(to);
    if (session::Exists(target.Path()) && session::IdentityOf(session::StatusOf(source.Path())) ==
                                              session::IdentityOf(session::StatusOf(target.Path()))) {
        throw Error(TAV_ERR_INVALID, to, "it is the same file as " + from);
    }
    const Loaded read = LoadSource(source, options.read, until);
    session::RequireUsable(target, true);
    const session::HeldLock lock(target, until);
    session::Draft::RemoveLeftover(target);
    const std::optional<Loaded> old = LoadTarget(target, until);
    if (old && std::ranges::equal(old->image.View(), read.image.View())) {
        return false;
    }
    if (old && !options.replaces) {
        throw Error(TAV_ERR_REFUSED, target.given, "it is there and holds something else");
    }
    session::FileState file = session::StateOf(target, old);
    session::Commit(target, {read.image.View(), read.content.checksums, read.content.store}, options.comment, &file);
    return true;
}

}  // namespace tav
