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

/** Tells the uncompressed size in bytes of a member. Returns 0, else a code (no such member, unreadable archive). */
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

#ifdef __cplusplus
}
#endif

#endif
