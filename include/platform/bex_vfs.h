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

/** What BEX_VFS_Stat returns about a file. */
typedef struct BEX_VFS_StatInfo {
    uint64_t size; /**< size in bytes */
} BEX_VFS_StatInfo;

/** A search of a directory. */
typedef struct BEX_VFS_Find BEX_VFS_Find;

/** What a search of a directory finds. */
typedef struct BEX_VFS_FindEntry {
    char name[256]; /**< name of a file or directory, without its folder */
} BEX_VFS_FindEntry;

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

/** Returns 1 when a directory exists at path, else 0. */
uint32_t BEX_VFS_IsDirExist(const char *path);

/**
 * Makes a directory, and those above it that are missing.
 *
 * @param path  path of the directory
 * @param mode  permission bits of all that is made, less the process's mask (0755 is 493)
 * @return 0; else a code, also when something stands at the path already; directories above it may have been made
 */
uint32_t P_MEL_Mkdir(const char *path, uint32_t mode);

/**
 * Deletes a directory with everything in it. Symbolic links are deleted themselves, what they lead to is not touched.
 *
 * @param path  path of the directory
 * @return 0; else a code, and then part of the content may be gone
 */
uint32_t BEX_DeleteDir(const char *path);

/**
 * Begins a search of a directory and finds the first entry, in no particular order.
 *
 * @param pattern  path whose last component is a pattern with the shell's wildcards: "folder/" and a star finds all
 *                 entries, "." and ".." too
 * @param search   where the search goes, to be closed with BEX_VFS_FindClose; null on failure
 * @param entry    where the entry goes
 * @return 0; else a code: no such directory, or no entry that matches
 */
uint32_t BEX_VFS_FindFirst(const char *pattern, BEX_VFS_Find **search, BEX_VFS_FindEntry *entry);

/**
 * Finds the next entry. Entries found may be deleted while the search is open.
 *
 * @return 0; else a code (and the entry is left alone): no further entry matches
 */
uint32_t BEX_VFS_FindNext(BEX_VFS_Find *search, BEX_VFS_FindEntry *entry);

/** Ends a search. Null is ignored. */
void BEX_VFS_FindClose(BEX_VFS_Find *search);

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
