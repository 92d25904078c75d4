/*
 * The C interface of sessions: the C++ one, with codes for exceptions.
 */
#include <utility>

#include "session/c_call.h"
#include "tav/session.h"

struct TAV_Session {
    tav::Session session;
};

struct TAV_SessionLockHolder {
    tav::Lock lock;
};

using session::Guard;
using session::RefuseNull;
using session::TextOf;

uint32_t TAV_SessionOpen(const char *path, const char *refer, uint32_t waitMs, uint32_t flags, TAV_Session **session) {
    if (session != nullptr) {
        *session = nullptr;
    }
    if (path == nullptr || session == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        *session = new TAV_Session{tav::Session(path, {.refer = TextOf(refer),
                                                       .wait = std::chrono::milliseconds(waitMs),
                                                       .create = (flags & TAV_SESSION_CREATE) != 0,
                                                       .replace = (flags & TAV_SESSION_REPLACE) != 0})};
        return TAV_OK;
    });
}

CfgLocal *TAV_SessionStore(TAV_Session *session) {
    return session != nullptr ? session->session.Store().Get() : nullptr;
}

uint32_t TAV_SessionReplace(TAV_Session *session, CfgLocal *store) {
    if (session == nullptr || store == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        session->session.Store() = tav::Store(store);
        return TAV_OK;
    });
}

uint32_t TAV_SessionCommit(TAV_Session *session, const char *comment) {
    if (session == nullptr) {
        return RefuseNull();
    }
    return Guard([&] { return session->session.Commit(TextOf(comment)) ? TAV_OK : TAV_ERR_UNCHANGED; });
}

void TAV_SessionClose(TAV_Session *session) {
    delete session;
}

uint32_t TAV_SessionRead(const char *path, const char *refer, uint32_t waitMs, CfgLocal **local) {
    if (local != nullptr) {
        *local = nullptr;
    }
    if (path == nullptr || local == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        tav::Snapshot snapshot(path, {.refer = TextOf(refer), .wait = std::chrono::milliseconds(waitMs)});
        *local = snapshot.Store().Release();
        return TAV_OK;
    });
}

uint32_t TAV_SessionLock(const char *path, uint32_t waitMs, TAV_SessionLockHolder **holder) {
    if (holder != nullptr) {
        *holder = nullptr;
    }
    if (path == nullptr || holder == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        *holder = new TAV_SessionLockHolder{tav::Lock(path, std::chrono::milliseconds(waitMs))};
        return TAV_OK;
    });
}

void TAV_SessionUnlock(TAV_SessionLockHolder *holder) {
    delete holder;
}

uint32_t TAV_SessionRecover(const char *path, const char *refer, uint32_t waitMs) {
    if (path == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        const tav::Recovery recovery =
            tav::Recover(path, {.refer = TextOf(refer), .wait = std::chrono::milliseconds(waitMs)});
        session::KeepText(recovery.text.c_str());
        return recovery.moves.empty() ? TAV_ERR_UNCHANGED : TAV_OK;
    });
}
