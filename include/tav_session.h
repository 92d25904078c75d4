/*
 * Sessions: how several processes and people change one configuration file and lose nothing. The C interface of
 * libtav_session.so; docs/sessions.md says what it promises and how, tav/session.h is the same for C++.
 *
 *     TAV_Session *session;
 *     if (TAV_SessionOpen("routes.dat", NULL, 5000, TAV_SESSION_CREATE, &session) != TAV_OK) {
 *         fprintf(stderr, "%s\n", TAV_SessionErrorText());
 *         return;
 *     }
 *     ... TAV_ExtCfgSetRecord(0, record, TAV_SessionStore(session)) ...
 *     code = TAV_SessionCommit(session, "new metric");
 *     TAV_SessionClose(session);
 *
 * Threads: a session is used by one thread at a time; different sessions are independent. No exception leaves these
 * functions. They complete the product's type table if nobody has (TAV_InitExtTlvDataTypeTable).
 *
 * Processes: a child made by fork shares its parent's locks until either of them closes; a program that is executed
 * does not.
 */
#ifndef TAV_SESSION_H
#define TAV_SESSION_H

#include "tav_extcfg.h"

/*
 * Result codes of sessions, beside those of tav_base.h.
 */
#define TAV_ERR_LOCKED    0x801701u /**< another session holds the lock; the text names its process */
#define TAV_ERR_BACKUP    0x801702u /**< the file is missing or broken, and a ".bak" lies beside it: recover */
#define TAV_ERR_CHANGED   0x801703u /**< a program without a session has changed the file meanwhile */
#define TAV_ERR_NOT_SAVED 0x801704u /**< the file could not be written, and is as it was */
#define TAV_ERR_MISSING   0x801705u /**< there is no such file */

/** What TAV_SessionOpen may do. */
enum {
    TAV_SESSION_CREATE = 1, /**< a file that is not there is made by the first commit */
    TAV_SESSION_REPLACE = 2 /**< start empty, also where the file does not load; but keep what it is */
};

/** An open session. */
typedef struct TAV_Session TAV_Session;

/** A lock that is held. */
typedef struct TAV_SessionLockHolder TAV_SessionLockHolder;

/**
 * Takes a file's lock and loads the file. Links are resolved first: the session is on the real file.
 *
 * @param path     the file; an archive when its real name ends in ".zip"
 * @param refer    the refer file, or null; must be given exactly when the file carries a refer checksum
 * @param waitMs   how long to wait, in milliseconds, for the lock and for a program that writes without a session
 * @param flags    TAV_SESSION_CREATE, TAV_SESSION_REPLACE, both, or 0
 * @param session  receives the session, the caller's (TAV_SessionClose); null on failure
 * @return TAV_OK; TAV_ERR_NULL for a null path or session; TAV_ERR_LOCKED; TAV_ERR_BACKUP; TAV_ERR_MISSING for a file
 *         that is not there and may not be created; TAV_ERR_INVALID when the file does not load, or is no regular file;
 *         TAV_ERR_OPEN when the folder, the lock file or the file cannot be opened or may not be written;
 *         TAV_ERR_NOT_SAVED when what a session that died has left cannot be removed; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_SessionOpen(const char *path, const char *refer, uint32_t waitMs, uint32_t flags,
                                 TAV_Session **session);

/**
 * Returns the session's store, to be queried and edited. It lives as long as the session, which alone writes and closes
 * it: neither TAV_ExtCfgFlush nor TAV_ExtCfgClose may be called for it. Null for a null session.
 */
TAV_API CfgLocal *TAV_SessionStore(TAV_Session *session);

/**
 * Puts another store in the place of the session's, which is closed.
 *
 * @param session  the session
 * @param store    the store; the session's from then on. It must be no other session's, no watch's, and not read-only
 * @return TAV_OK; TAV_ERR_NULL, and then the store stays the caller's
 */
TAV_API uint32_t TAV_SessionReplace(TAV_Session *session, CfgLocal *store);

/**
 * Brings the store to the file, which holds the whole old or the whole new content at every moment. A store without
 * any VS deletes the file. The session stays open and may be changed and committed again.
 *
 * @param session  the session
 * @param comment  what the history keeps about it, UTF-8; null or empty for nothing
 * @return TAV_OK; TAV_ERR_UNCHANGED when the file holds the same already and was not touched; TAV_ERR_NULL for a null
 *         session; TAV_ERR_INVALID when the store holds what could not be read back; TAV_ERR_CHANGED;
 *         TAV_ERR_NOT_SAVED; TAV_ERR_OPEN when the file that is there cannot be looked at; TAV_ERR_REFUSED when it
 *         would be larger than 100 MiB; TAV_ERR_NOT_FOUND when the refer file gives no checksum; TAV_ERR_NO_MEMORY;
 *         else what building gave. After a failure the file is as it was, unless the text says otherwise
 */
TAV_API uint32_t TAV_SessionCommit(TAV_Session *session, const char *comment);

/** Closes a session and releases its lock. What was not committed is lost. Null is ignored. */
TAV_API void TAV_SessionClose(TAV_Session *session);

/**
 * Reads a file as it is at some moment, whole, without a lock. A program that writes it without a session is waited
 * for.
 *
 * @param path    the file
 * @param refer   the refer file, or null
 * @param waitMs  how long to wait at most, in milliseconds
 * @param local   receives the store, to be closed by the caller with TAV_ExtCfgClose; null on failure. Its edits reach
 *                no file: it must not be flushed
 * @return TAV_OK; TAV_ERR_NULL for a null path or store; TAV_ERR_MISSING; TAV_ERR_BACKUP; TAV_ERR_INVALID when the file
 *         does not load; TAV_ERR_OPEN when it cannot be read; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_SessionRead(const char *path, const char *refer, uint32_t waitMs, CfgLocal **local);

/**
 * Takes the lock of a file alone, for a program that loads and flushes by itself. No session opens until it is
 * released; readers are not held up.
 *
 * @param path    the file, which need not be there
 * @param waitMs  how long to wait at most, in milliseconds
 * @param holder  receives the lock, the caller's (TAV_SessionUnlock); null on failure
 * @return TAV_OK; TAV_ERR_NULL for a null path or holder; TAV_ERR_LOCKED; TAV_ERR_OPEN when the folder or the lock file
 *         cannot be opened; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_SessionLock(const char *path, uint32_t waitMs, TAV_SessionLockHolder **holder);

/** Releases a lock. Null is ignored. */
TAV_API void TAV_SessionUnlock(TAV_SessionLockHolder *holder);

/**
 * Settles what a program has left that flushed without a session and died: of file and ".bak" the right one becomes the
 * file, the other one is moved aside. Nothing is deleted. Works under the lock, and waits until nothing has changed for
 * a second.
 *
 * @param path    the file
 * @param refer   the refer file, or null
 * @param waitMs  how long to wait at most, in milliseconds
 * @return TAV_OK; TAV_ERR_UNCHANGED when the file loads and no ".bak" lies beside it; TAV_ERR_NULL for a null path;
 *         TAV_ERR_MISSING when there is neither; TAV_ERR_INVALID when neither loads; TAV_ERR_LOCKED, also when
 *         something goes on changing; TAV_ERR_OPEN; TAV_ERR_NOT_SAVED when a file cannot be moved; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_SessionRecover(const char *path, const char *refer, uint32_t waitMs);

/**
 * Returns why this thread's last call of a function that returns a code, here and in tav_store.h, tav_changes.h,
 * tav_history.h and tav_watch.h, has failed, or what it has recovered: one line, with the file, the cause and the way
 * out. Empty after any other success. Valid until the thread's next such call; never null.
 */
TAV_API const char *TAV_SessionErrorText(void);

/**
 * Returns what that text is about, with which it begins: a file, a line of a script, a record. Empty when it says no
 * such thing, and after a success. As TAV_SessionErrorText.
 */
TAV_API const char *TAV_SessionErrorPlace(void);

#endif
