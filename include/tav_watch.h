/*
 * Watching a file, in C: waiting until its content changes, whoever changes it, and seeing it before and after. Part of
 * libtav_session.so; docs/sessions.md says how, tav/watch.h is the same for C++.
 *
 *     while (TAV_WatchWait(watch, -1) == TAV_OK) {
 *         TAV_ChangesDiff(TAV_WatchBefore(watch), TAV_WatchAfter(watch), NULL, &changes);
 *         ...
 *     }
 *
 * Threads: a watch is used by one thread at a time. Failures are reported as tav_session.h says.
 */
#ifndef TAV_WATCH_C_H
#define TAV_WATCH_C_H

#include "tav_extcfg.h"

/** A watch of one file. */
typedef struct TAV_Watch TAV_Watch;

/**
 * Loads a file and begins to watch it. One that is not there counts as an empty store.
 *
 * @param path    the file
 * @param refer   the refer file, or null
 * @param waitMs  how long to wait at most, in milliseconds, whenever a program is writing it without a session
 * @param watch   receives the watch, the caller's (TAV_WatchClose); null on failure
 * @return TAV_OK; TAV_ERR_NULL for a null path or watch; TAV_ERR_OPEN when the system cannot watch the folder; else as
 *         TAV_SessionRead, but for a file that is not there
 */
TAV_API uint32_t TAV_WatchOpen(const char *path, const char *refer, uint32_t waitMs, TAV_Watch **watch);

/** Ends a watch, with the stores that it has given. Null is ignored. */
TAV_API void TAV_WatchClose(TAV_Watch *watch);

/**
 * Waits until the file has another content than the last time.
 *
 * @param watch      the watch
 * @param timeoutMs  how long to wait at most, in milliseconds; negative for ever
 * @return TAV_OK when it has; TAV_ERR_UNCHANGED when the time is over or a signal has been handled; TAV_ERR_BACKUP or
 *         TAV_ERR_INVALID when the file has changed and does not load, and the watch may go on; TAV_ERR_OPEN when its
 *         folder is gone or it cannot be read; TAV_ERR_NULL; TAV_ERR_NO_MEMORY. When it could not be read, or memory
 * was short, the next call tries again before it waits
 */
TAV_API uint32_t TAV_WatchWait(TAV_Watch *watch, int64_t timeoutMs);

/**
 * Returns the content before the last change; an empty store until there was one. The watch's: it holds until the next
 * TAV_WatchWait, and may neither be edited, flushed nor closed. Null for a null watch.
 */
TAV_API CfgLocal *TAV_WatchBefore(const TAV_Watch *watch);

/** Returns the content that was seen last. As TAV_WatchBefore. */
TAV_API CfgLocal *TAV_WatchAfter(const TAV_Watch *watch);

/**
 * Returns a descriptor that becomes readable when TAV_WatchWait may have something to do: for programs that wait for
 * many things (poll(2)), and then call TAV_WatchWait(watch, 0) once. The watch's. -1 for a null watch.
 */
TAV_API int TAV_WatchDescriptor(const TAV_Watch *watch);

#endif
