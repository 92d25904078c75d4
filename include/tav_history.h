/*
 * The history of a file, in C: what it held before each of its last commits, and named checkpoints. Part of
 * libtav_session.so; docs/sessions.md says how it is kept, tav/history.h is the same for C++.
 *
 *     TAV_History *history;
 *     CfgLocal *former;
 *     if (TAV_HistoryOpen("routes.dat", &history) == TAV_OK) {
 *         if (TAV_HistoryBefore(history, 2, &former) == TAV_OK) {
 *             code = TAV_SessionReplace(session, former);
 *         }
 *         TAV_HistoryClose(history);
 *     }
 *
 * Threads: a history is used by one thread at a time. Failures are reported as tav_session.h says; what a failed
 * function was to fill is null.
 */
#ifndef TAV_HISTORY_C_H
#define TAV_HISTORY_C_H

#include <stddef.h>

#include "tav_extcfg.h"

/** The history of a file as it was when it was opened. */
typedef struct TAV_History TAV_History;

/** What a history is. */
typedef struct TAV_HistoryState {
    uint32_t isOn;      /**< 1 while commits are recorded, else 0 */
    uint32_t keep;      /**< how many commits are kept */
    size_t commits;     /**< number of commits that there are */
    size_t checkpoints; /**< number of checkpoints */
} TAV_HistoryState;

/** One commit, or one checkpoint. The texts are UTF-8 and the history's; they hold until it is closed. */
typedef struct TAV_HistoryEntry {
    uint64_t number;      /**< of a commit: counted from 1, since the history was first started */
    int64_t timeMs;       /**< when, in milliseconds since 1970, UTC */
    const char *name;     /**< of a checkpoint; null for a commit */
    const char *user;     /**< name of the user, or the number where there is no name */
    const char *program;  /**< name of the program */
    const char *comment;  /**< as given; may be empty */
    const char *checksum; /**< of the content, hexadecimal; empty for a commit that deleted the file */
    uint64_t added;       /**< of a commit: how many records it added */
    uint64_t changed;     /**< of a commit: how many records it changed */
    uint64_t deleted;     /**< of a commit: how many records it deleted */
} TAV_HistoryEntry;

/**
 * Reads the history of a file, without a lock. A file without one has one that is off and empty.
 *
 * @param path     the file
 * @param history  receives the history, the caller's (TAV_HistoryClose)
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_INVALID when its index is damaged; TAV_ERR_OPEN when it cannot be read;
 *         TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_HistoryOpen(const char *path, TAV_History **history);

/** Closes a history. Null is ignored. */
TAV_API void TAV_HistoryClose(TAV_History *history);

/** Tells what a history is. TAV_OK, or TAV_ERR_NULL. */
TAV_API uint32_t TAV_HistoryGetState(const TAV_History *history, TAV_HistoryState *state);

/**
 * Gives one of the commits, the oldest first.
 *
 * @param history  the history
 * @param index    counted from 0
 * @param entry    receives the commit
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NOT_FOUND when there are not so many
 */
TAV_API uint32_t TAV_HistoryCommit(const TAV_History *history, size_t index, TAV_HistoryEntry *entry);

/** Gives one of the checkpoints, in the order of their names. As TAV_HistoryCommit. */
TAV_API uint32_t TAV_HistoryCheckpoint(const TAV_History *history, size_t index, TAV_HistoryEntry *entry);

/**
 * Loads what the file held before its last commits.
 *
 * @param history  the history
 * @param count    how many commits back, from 1
 * @param local    receives the store, to be closed by the caller with TAV_ExtCfgClose and never flushed; empty where
 *                 there was no file
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NOT_FOUND when the history does not go back so far; TAV_ERR_INVALID when the
 *         copy is damaged; TAV_ERR_OPEN when it cannot be read, also because it has been dropped meanwhile;
 *         TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_HistoryBefore(const TAV_History *history, size_t count, CfgLocal **local);

/** Loads the checkpoint of a name. As TAV_HistoryBefore. */
TAV_API uint32_t TAV_HistoryAt(const TAV_History *history, const char *name, CfgLocal **local);

/**
 * Switches the recording of commits on, or changes how many are kept. What was recorded before stays.
 *
 * @param path    the file, which must be there
 * @param keep    the newest so many commits stay, at least 1
 * @param waitMs  how long to wait for the lock, in milliseconds
 * @return TAV_OK; TAV_ERR_UNCHANGED when it is so already; TAV_ERR_NULL; TAV_ERR_INVALID when `keep` is 0;
 *         TAV_ERR_NOT_SAVED; else as TAV_SessionOpen
 */
TAV_API uint32_t TAV_HistoryStart(const char *path, uint32_t keep, uint32_t waitMs);

/** Switches the recording off. What was recorded stays, and so do checkpoints. As TAV_HistoryStart. */
TAV_API uint32_t TAV_HistoryStop(const char *path, uint32_t waitMs);

/**
 * Keeps the file's content under a name until it is removed, whether or not commits are recorded.
 *
 * @param path     the file
 * @param name     1 to 64 letters, digits, '-', '_' and '.', with at least one that is no digit
 * @param comment  UTF-8; null or empty for nothing
 * @param waitMs   how long to wait for the lock, in milliseconds
 * @return TAV_OK; TAV_ERR_NULL for a null path or name; TAV_ERR_INVALID for another name, and for one that is taken;
 *         TAV_ERR_NOT_SAVED; else as TAV_SessionOpen
 */
TAV_API uint32_t TAV_HistoryAddCheckpoint(const char *path, const char *name, const char *comment, uint32_t waitMs);

/** Removes a checkpoint. TAV_ERR_NOT_FOUND when there is none of this name; else as TAV_HistoryAddCheckpoint. */
TAV_API uint32_t TAV_HistoryRemoveCheckpoint(const char *path, const char *name, uint32_t waitMs);

#endif
