/*
 * The C interface: the C++ one, with codes for exceptions.
 */
#include <new>
#include <optional>
#include <string>

#include "tav/session.h"

struct TAV_Session {
    tav::Session session;
};

struct TAV_SessionLockHolder {
    tav::Lock lock;
};

namespace {

/** The text of the thread's last call; a fixed one when there was no memory for it. */
struct LastText {
    std::string text;
    bool isShort = false;
};
thread_local LastText t_last;

void Keep(const char *text) noexcept {
    try {
        t_last.text = text;
        t_last.isShort = false;
    } catch (...) {
        t_last.isShort = true;
    }
}

/** Makes a call whose exceptions become codes. */
template <typename Call>
uint32_t Guard(Call call) noexcept {
    try {
        t_last = {};
        return call();
    } catch (const tav::Error &error) {
        Keep(error.what());
        return error.Code();
    } catch (const std::bad_alloc &) {
        Keep("memory is short");
        return TAV_ERR_NO_MEMORY;
    } catch (const std::exception &error) {
        Keep(error.what());
        return TAV_ERR_COPY;
    }
}

uint32_t RefuseNull() noexcept {
    Keep("a pointer is null");
    return TAV_ERR_NULL;
}

std::string TextOf(const char *text) {
    return text != nullptr ? text : "";
}

}  // namespace

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
                                                       .create = (flags & TAV_SESSION_CREATE) != 0})};
        return TAV_OK;
    });
}

CfgLocal *TAV_SessionStore(TAV_Session *session) {
    return session != nullptr ? session->session.Store().Get() : nullptr;
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
        Keep(recovery.text.c_str());
        return recovery.moves.empty() ? TAV_ERR_UNCHANGED : TAV_OK;
    });
}

const char *TAV_SessionErrorText(void) {
    return t_last.isShort ? "memory is short" : t_last.text.c_str();
}
