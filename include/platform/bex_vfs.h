/*
 * Platform files: the virtual file system.
 */
#ifndef PLATFORM_BEX_VFS_H
#define PLATFORM_BEX_VFS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** An open file. */
typedef struct BEX_VFS_File BEX_VFS_File;

/** What BEX_VFS_Stat tells of a file. */
typedef struct BEX_VFS_StatInfo {
    uint64_t size; /**< size in bytes */
} BEX_VFS_StatInfo;

/** Origins of BEX_VFS_FSeek. */
enum { BEX_VFS_SEEK_SET = 0, BEX_VFS_SEEK_CUR = 1, BEX_VFS_SEEK_END = 2 };

/**
 * Opens a file.
 *
 * @param path  path of the file
 * @param mode  "rb" (read an existing file), "rb+" (read and write an existing file), "wb+" (create or truncate, read
 *              and write) or "ab" (create or append)
 * @return the handle, to be closed with BEX_VFS_FClose; null on failure
 */
BEX_VFS_File *BEX_VFS_FOpen(const char *path, const char *mode);

/** Reads up to size * count bytes at the position. Returns the bytes read. */
uint32_t BEX_VFS_FRead(void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file);

/**
 * Writes size * count bytes at the position, without a buffer in between. Returns the bytes that were written; less
 * than asked for means that the file system refused the rest.
 */
uint32_t BEX_VFS_FWrite(const void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file);

/** Sets the position, `offset` bytes from `origin` (BEX_VFS_SEEK_...). Returns 0, else a code. */
int32_t BEX_VFS_FSeek(BEX_VFS_File *file, int32_t offset, int32_t origin);

/** Returns the position; on a stream just opened with "ab", the file's length. Negative on failure. */
int32_t BEX_VFS_FTell(BEX_VFS_File *file);

/** Hands everything written to the system. Returns 0, else a code. */
int32_t BEX_VFS_FFlush(BEX_VFS_File *file);

/** Closes the file and frees the handle, also on failure. Returns 0, else a code. */
int32_t BEX_VFS_FClose(BEX_VFS_File *file);

/** Writes formatted text in one piece. Returns the bytes written, negative on failure. */
#if defined(__GNUC__)
__attribute__((format(printf, 2, 3)))
#endif
int32_t
BEX_VFS_FPrintf(BEX_VFS_File *file, const char *format, ...);

/** Describes the file at path. Returns 0, else a code (and the output is left alone). */
uint32_t BEX_VFS_Stat(const char *path, BEX_VFS_StatInfo *info);

/** Renames a file, replacing what stands at the new path. Returns 0, else a code. */
uint32_t BEX_VFS_MoveFile(const char *from, const char *to);

/** Deletes a file. Returns 0, else a code. */
uint32_t BEX_VFS_DeleteFile(const char *path);

/** Returns 1 when a file (not a directory) exists at path, else 0. */
uint32_t BEX_VFS_IsFileExist(const char *path);

/** Sets the permission bits of a file (0640 is 416). Returns 0, else a code. */
uint32_t BEX_VFS_SetFileModeEx(const char *path, uint32_t mode);

/**
 * Gives a file to the platform's configuration owner; does nothing where there is no such account.
 *
 * @param path   path of the file
 * @param flags  0
 * @return 0, else a code
 */
uint32_t P_MEL_Chown2MEL(const char *path, uint32_t flags);

/**
 * Writes the process's current directory as a terminated string without a slash at its end (but for the root), cut to
 * size - 1 characters. Returns 0, else a code, and then the buffer holds an empty string.
 */
uint32_t MEL_GetProcessCurrentPath(char *buffer, uint32_t size);

/** Writes the system working directory as a terminated string that ends in a slash, cut to size - 1 characters. */
void MEL_GetSysWorkPath(char *buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
