/*
 * Common utilities: the debug log.
 *
 * One process-wide switch, off at load, and one call that appends a time-stamped line to a text file below the
 * platform's system working directory. Nothing is cached between calls: a line has reached the file when the call
 * returns, and anyone may rotate, read or delete the file in between. A file that has grown to 32 MiB is moved to
 * "<path>.old" before the next line. Nothing here fails loudly: a line that cannot be written is dropped.
 */
#ifndef TAV_COMMON_H
#define TAV_COMMON_H

#include "platform/bex_vfs.h"
#include "tav_base.h"

/**
 * The debug switch: 0 off, anything else on. A host may write it directly, which is also the only way to switch the
 * log off again.
 */
TAV_API uint8_t g_ucTavDebugFlag;

/** Returns the debug switch: 0 off, non-zero on. */
TAV_API uint32_t TAV_GetDebugFlag(void);

/** Switches the debug log on for the rest of the process's life. There is no call that switches it off, on purpose. */
TAV_API void TAV_SetDebugFlag(void);

/**
 * Formats a message and appends it to a log. Does not look at the switch: the caller does, so that a disabled report
 * costs one byte test. Does nothing when the log name, the function name or the format is null.
 *
 * @param logName   names the file "var/log/<logName>.log" below the system working directory; the library itself
 *                  writes to "tav_debug" alone
 * @param function  the reporting function's name
 * @param line      the reporting source line
 * @param format    printf format of the message; cut to 999 characters
 */
TAV_API TAV_PRINTF_FORMAT(4, 5) void TAV_DEBUG_Log(const char *logName, const char *function, uint32_t line,
                                                   const char *format, ...);

/**
 * Appends a finished message to a log, as one entry "\r\n[<GMT time>]: [<function>: <line>] <message>". The line break
 * stands before the entry and not behind it.
 *
 * @param logName   names the file, as for TAV_DEBUG_Log; must not be null
 * @param function  the reporting function's name; must not be null
 * @param line      the reporting source line
 * @param message   the message; must not be null
 * @return what closing the file gave (0 on success); also 0 when the file could not be opened and nothing was written
 */
TAV_API int32_t TAV_DEBUG_WriteLogFile(const char *logName, const char *function, uint32_t line, const char *message);

/**
 * Opens a log file for appending, creating it, after having moved it to "<path>.old" when it holds 32 MiB or more. The
 * directory is never created.
 *
 * @param path  full path of the log file
 * @return the open file, to be closed by the caller with BEX_VFS_FClose; null for a null path and on failure
 */
TAV_API BEX_VFS_File *TAV_DEBUG_OpenLogFile(const char *path);

#endif
