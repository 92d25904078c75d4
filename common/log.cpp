/*
 * The debug log. Each line is a complete open, append, close: no handle and no heap block lives between calls, so other
 * processes may rotate, read or delete the file at any time.
 */
#include "common/log.h"

#include <cstdarg>

#include "platform/bex_string.h"
#include "platform/mel_clock.h"

uint8_t g_ucTavDebugFlag = 0;

namespace {

constexpr uint32_t kMessageSize = 1000;         // bytes of a message with its terminator
constexpr uint32_t kPathSize = 256;             // bytes of a path with its terminator
constexpr uint32_t kTimestampSize = 64;         // bytes of a timestamp with its terminator
constexpr int32_t kLargestInPlace = 0x1FFFFFF;  // a file longer than this (in bytes) is moved away first

/** Forms the path of a log: the working directory, which ends in a slash, and the log's place below it. */
void FormLogPath(const char *logName, char (&path)[kPathSize]) {
    MEL_GetSysWorkPath(path, kPathSize);
    const uint32_t length = BEX_StrLen(path);
    snprintf_truncated_s(path + length, kPathSize - length, "var/log/%s.log", logName);
}

/** Formats the current GMT time. */
void FormTimestamp(char (&timestamp)[kTimestampSize]) {
    BEX_SysTime now = {};
    MEL_GMT_SystimeGet(&now);
    snprintf_truncated_s(timestamp, kTimestampSize, "%04u-%02u-%02u %02u:%02u:%02u.%03u", now.year, now.month, now.day,
                         now.hour, now.minute, now.second, now.millisecond);
}

/** Moves a closed log to its one older generation. A failed move is ignored: the log then goes on growing. */
void Rotate(const char *path) {
    char oldPath[kPathSize] = {};
    snprintf_truncated_s(oldPath, kPathSize, "%s.old", path);
    BEX_VFS_MoveFile(path, oldPath);
}

}  // namespace

uint32_t TAV_GetDebugFlag(void) {
    return g_ucTavDebugFlag;
}

void TAV_SetDebugFlag(void) {
    g_ucTavDebugFlag = 1;
}

void TAV_DEBUG_Log(const char *logName, const char *function, uint32_t line, const char *format, ...) {
    char message[kMessageSize] = {};
    if (logName == nullptr || function == nullptr || format == nullptr) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    vsnprintf_truncated_s(message, kMessageSize, format, arguments);
    va_end(arguments);
    TAV_DEBUG_WriteLogFile(logName, function, line, message);
}

int32_t TAV_DEBUG_WriteLogFile(const char *logName, const char *function, uint32_t line, const char *message) {
    char path[kPathSize] = {};
    FormLogPath(logName, path);
    BEX_VFS_File *file = TAV_DEBUG_OpenLogFile(path);
    if (file == nullptr) {
        return 0;
    }
    char timestamp[kTimestampSize] = {};
    FormTimestamp(timestamp);
    // The line break leads, as the log's readers know it: a file begins with an empty line and ends without a line end.
    BEX_VFS_FPrintf(file, "\r\n[%s]: [%s: %u] %s", timestamp, function, line, message);
    return BEX_VFS_FClose(file);
}

BEX_VFS_File *TAV_DEBUG_OpenLogFile(const char *path) {
    if (path == nullptr) {
        return nullptr;
    }
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "ab");
    if (file == nullptr) {
        return nullptr;
    }
    // A negative position is a failed tell; it counts as small.
    if (BEX_VFS_FTell(file) > kLargestInPlace) {
        BEX_VFS_FClose(file);
        Rotate(path);
        file = BEX_VFS_FOpen(path, "ab");
    }
    return file;
}
