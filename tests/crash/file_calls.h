/*
 * Stands between a process and the C library: each call that changes files is a turn, at which the process can be
 * killed or watched. Part of the test program.
 */
#ifndef TAV_TESTS_FILE_CALLS_H
#define TAV_TESTS_FILE_CALLS_H

#include <sys/stat.h>

#include <functional>
#include <optional>

/** Called after each turn that has succeeded, with the number of the file or folder that it has synced, else 0. */
extern std::function<void(ino_t synced)> g_watch;

/** Makes a turn fail with EIO, counted from 1; 0 when none, or when it is over. */
extern unsigned g_failingTurn;

/** The bytes that fit on the disk still; nothing for any number. What does not fit is not written: ENOSPC. */
extern std::optional<size_t> g_room;

/** Environment: the turn, from 1, at which to be killed; behind it the path of a symbolic link, to make to its name. */
inline constexpr char kTurn[] = "TAV_TEST_TURN";

#endif
