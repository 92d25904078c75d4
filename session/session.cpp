/*
 * Sessions, snapshots and locks.
 */
#include "tav/session.h"

#include <fcntl.h>

#include <optional>

#include "session/draft.h"
#include "session/errors.h"
#include "session/load.h"
#include "session/recorder.h"
#include "session/start.h"

namespace tav {

namespace {

[[noreturn]] void RefuseMissing(const session::Place &place) {
    throw Error(TAV_ERR_MISSING, place.given, "there is no such file");
}

/**
 * Throws, before anything is done, when there is no file and none may be created, when the file is no regular one, and
 * when the user may not write it.
 */
void RequireUsable(const session::Place &place, bool create) {
    if (!create && session::IsMissing(place)) {
        RefuseMissing(place);  // without a lock file, which would be left beside nothing
    }
    const std::optional<struct stat> status = session::StatusOf(place.Path());
    if (!status) {
        return;
    }
    if (!S_ISREG(status->st_mode)) {
        throw Error(TAV_ERR_INVALID, place.given,
                    S_ISDIR(status->st_mode) ? "it is a folder" : "it is no regular file");
    }
    if (faccessat(AT_FDCWD, place.Path().c_str(), W_OK, AT_EACCESS) != 0) {
        session::FailOfSystem(TAV_ERR_OPEN, place.given, "it may not be changed");
    }
}

}  // namespace

struct Lock::State {
    session::HeldLock lock;
};

Lock::Lock(const std::string &path, std::chrono::milliseconds wait)
    : state_(new State{session::HeldLock(session::Resolve(path), session::Clock::now() + wait)}) {}
Lock::~Lock() = default;
Lock::Lock(Lock &&) noexcept = default;
Lock &Lock::operator=(Lock &&) noexcept = default;

Snapshot::Snapshot(const std::string &path, const ReadOptions &options) : store_(tav::Store::New("")) {
    session::CompleteTypeTable();
    const session::Place place = session::Resolve(path);
    std::optional<session::Loaded> loaded = session::Load(place, session::ReferOf(options.refer, options.ignoreRefer),
                                                          session::Clock::now() + options.wait);
    if (!loaded) {
        RefuseMissing(place);
    }
    store_ = std::move(loaded->content.store);
    checksum_ = session::ToHex(loaded->content.checksums.body);
}

struct Session::State {
    State(const std::string &given, const SessionOptions &options)
        : place(session::Resolve(given)),
          path(place.Path()),
          refer(session::ReferOf(options.refer, options.ignoreRefer)),
          until(session::Clock::now() + options.wait),
          lock((RequireUsable(place, options.create), place), until),
          store(tav::Store::New(place.Path(), refer.path)) {
        session::Draft::RemoveLeftover(place);
        Load(options);
        index = session::HistoryFolder(place).Settle(checksums ? session::ToHex(checksums->body) : "");
    }

    void Load(const SessionOptions &options) {
        try {
            std::optional<session::Loaded> loaded = session::Load(place, refer, until);
            if (!loaded && !options.create) {
                RefuseMissing(place);
            }
            if (loaded) {
                checksums = loaded->content.checksums;
                identity = loaded->identity;
            }
            if (loaded && !options.replace) {
                store = std::move(loaded->content.store);
            }
        } catch (const Error &error) {
            if (!options.replace || error.Code() != TAV_ERR_INVALID) {
                throw;
            }
            identity = session::IdentityOf(session::StatusOf(path));
        }
    }

    /** Throws when the file is no longer the one that was loaded. */
    void RequireUnchanged() const {
        if (session::IdentityOf(session::StatusOf(path)) != identity) {
            throw Error(
                TAV_ERR_CHANGED, place.given,
                "a program that writes without a session has changed it meanwhile; nothing was written, try again");
        }
    }

    /** Removes the file of a store that has become empty. */
    void RemoveFile(const std::string &comment) {
        session::Recorder recorder(place, &index);
        recorder.Prepare(store, "", comment, {});
        RequireUnchanged();
        session::Remove(place.Path());
        Settle({}, {}, &recorder);
    }

    void ReplaceFile(const session::BuiltImage &next, const std::string &comment) {
        session::Draft draft(place, next.image.View());
        session::Recorder recorder(place, &index);
        recorder.Prepare(store, session::ToHex(next.checksums.body), comment, draft.Status());
        const session::Identity draftIdentity(draft.Status());
        RequireUnchanged();
        draft.TakePlace();
        Settle(next.checksums, draftIdentity, &recorder);
    }

    /** The file is another one now; makes that last. */
    void Settle(std::optional<session::Checksums> newChecksums, session::Identity newIdentity,
                session::Recorder *recorder) {
        recorder->ComeTrue();
        checksums = newChecksums;
        identity = newIdentity;
        try {
            session::SyncFolder(place.folder);
        } catch (const Error &error) {
            throw Error(error.Code(), place.given,
                        std::string("it has been changed, but that may not outlive a loss of power: ") + error.what());
        }
        recorder->Confirm();
    }

    const session::Place place;
    const std::string path;
    const session::Refer refer;
    const session::Clock::time_point until;
    session::HeldLock lock;
    tav::Store store;
    std::optional<session::Checksums> checksums;  // of the file as it is; nothing when there is none that loads
    session::Index index;                         // of its history
    session::Identity identity;                   // of the file as it is
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
    return state_->identity == session::Identity();
}

const std::string &Session::Path() const {
    return state_->path;
}

bool Session::Commit(const std::string &comment) {
    const session::BuiltImage next = session::BuildImage(state_->store, state_->refer, state_->place.given);
    const bool isEmpty = next.image.size == 0;
    const bool isSame = isEmpty ? IsNew() : state_->checksums == next.checksums;
    if (isSame) {
        return false;
    }
    if (isEmpty) {
        state_->RemoveFile(comment);
    } else {
        state_->ReplaceFile(next, comment);
    }
    return true;
}

}  // namespace tav
