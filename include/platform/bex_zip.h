/*
 * Platform archives: zip.
 *
 * The platform decides which part of a member's name it keeps; it stores and looks a member up under the same part.
 */
#ifndef PLATFORM_BEX_ZIP_H
#define PLATFORM_BEX_ZIP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A member of an archive that is open for reading. */
typedef struct BEX_UnzipFile BEX_UnzipFile;

/**
 * Writes a new archive with one member, replacing what stands at the path.
 *
 * @param length   bytes of data
 * @param data     the member's content
 * @param member   the member's name
 * @param archive  path of the archive
 * @param flags    0
 * @param level    compression level, 1 (fast) to 9 (small)
 * @return 0, else a code
 */
uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t flags,
                       int32_t level);

/** Counts the members of an archive. Returns 0, else a code (and the count is left alone). */
uint32_t BEX_UnzipGetNumofFiles(const char *archive, uint16_t *count);

/** Writes the uncompressed size of a member, in bytes, to `size`. Returns 0, else a code (no such member, unreadable
 * archive). */
uint32_t ZIP_GetUncompressSize(const char *member, const char *archive, uint32_t *size);

/**
 * Decompresses a member into a buffer.
 *
 * @param size     bytes of the buffer, which must be the member's uncompressed size
 * @param buffer   where the content goes
 * @param member   the member's name
 * @param archive  path of the archive
 * @return 0, else a code; the buffer's content is then undefined
 */
uint32_t BEX_UnzipToBuffer(uint32_t size, void *buffer, const char *member, const char *archive);

/**
 * Decompresses every member of an archive into a file of a folder, replacing files that stand there. Directories that
 * the archive lists are skipped. The platform sets a limit to what an archive may come to, and looks at the sizes that
 * it states before it makes a file: a few bytes can stand for very many.
 *
 * @param archive  path of the archive
 * @param folder   path of an existing folder
 * @return 0, else a code; the files written until then are the caller's to delete
 */
uint32_t BEX_Unzip(const char *archive, const char *folder);

/**
 * Opens a member for reading.
 *
 * @param member   the member's name
 * @param archive  path of the archive
 * @param flags    0
 * @return the handle, to be closed with BEX_UnzipFileClose; null on failure
 */
BEX_UnzipFile *BEX_UnzipFileOpen(const char *member, const char *archive, uint32_t flags);

/**
 * Reads the next chunk of a member.
 *
 * @param file    the open member
 * @param buffer  where the address of the chunk goes; the chunk belongs to the handle and is valid until the next read
 *                or the close
 * @param length  where its length in bytes goes, 0 at the end of the member
 * @return 0; else a code (and the outputs are left alone): the content is damaged, or not of the stated size. What was
 *         read before is to be given up then, too
 */
uint32_t BEX_UnzipFileRead(BEX_UnzipFile *file, void **buffer, uint32_t *length);

/** Closes a member. Null is ignored. */
void BEX_UnzipFileClose(BEX_UnzipFile *file);

#ifdef __cplusplus
}
#endif

#endif
