/*
 * Sessions, snapshots and locks.
 */
#include "tav/session.h"

#include <optional>

#include "session/commit.h"
#include "session/draft.h"
#include "session/start.h"

namespace tav {

struct Lock::State {
    session::HeldLock lock;
};

Lock::Lock(const std::string &path, std::chrono::milliseconds wait)
    : state_(new State{session::HeldLock(session::Resolve(path), session::EndOf(wait))}) {}
Lock::~Lock() = default;
Lock::Lock(Lock &&) noexcept = default;
Lock &Lock::operator=(Lock &&) noexcept = default;

Snapshot::Snapshot(const std::string &path, const ReadOptions &options) : store_(tav::Store::New("")) {
    session::CompleteTypeTable();
    session::Place place = session::Resolve(path);
    place.anyMember = options.anyMember;
    std::optional<session::Loaded> loaded =
        session::Load(place, session::ReferOf(options.refer, options.ignoreRefer), session::EndOf(options.wait));
    if (!loaded) {
        session::RefuseMissing(place);
    }
    store_ = std::move(loaded->content.store);
    checksum_ = session::ToHex(loaded->content.checksums.body);
}

struct Session::State {
    State(const std::string &given, const SessionOptions &options)
        : place(session::Resolve(given)),
          path(place.Path()),
          refer(session::ReferOf(options.refer, options.ignoreRefer)),
          until(session::EndOf(options.wait)),
          lock((session::RequireUsable(place, options.create), place), until),
          store(tav::Store::New(place.Path(), refer.path)) {
        session::Draft::RemoveLeftover(place);
        std::optional<session::Loaded> loaded = Load(options);
        file = session::StateOf(place, loaded);
        if (loaded && !options.replace) {
            store = std::move(loaded->content.store);
        } else if (!loaded) {
            file.identity = session::IdentityOf(session::StatusOf(path));  // of what does not load and is replaced
        }
    }

    /** Loads the file. Nothing when there is none, or it does not load and is to be replaced. */
    std::optional<session::Loaded> Load(const SessionOptions &options) const {
        try {
            std::optional<session::Loaded> loaded = session::Load(place, refer, until);
            if (!loaded && !options.create) {
                session::RefuseMissing(place);
            }
            return loaded;
        } catch (const Error &error) {
            if (!options.replace || error.Code() != TAV_ERR_INVALID) {
                throw;
            }
            return {};
        }
    }

    const session::Place place;
    const std::string path;
    const session::Refer refer;
    const session::Clock::time_point until;
    session::HeldLock lock;
    tav::Store store;
    session::FileState file;
};

Session::Session(const std::string &path, const SessionOptions &options) {
    session::CompleteTypeTable();
    state_ = std::make_unique<State>(path, options);
}
Session::~Session() = default;
Session::Session(Session &&) noexcept = default;
Session &Session::operator=(Session &&) noexcept = default;

Store &Session::Store() {
    return state_->store;
}

bool Session::IsNew() const {
    return state_->file.identity == session::Identity();
}

const std::string &Session::Path() const {
    return state_->path;
}

bool Session::Commit(const std::string &comment) {
    const session::BuiltImage next = session::BuildImage(state_->store, state_->refer, state_->place.given);
    const bool isEmpty = next.image.size == 0;
    if (isEmpty ? IsNew() : state_->file.checksums == next.checksums) {
        return false;
    }
    session::Commit(state_->place, {next.image.View(), next.checksums, state_->store}, comment, &state_->file);
    return true;
}

}  // namespace tav
