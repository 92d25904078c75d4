/*
 * What every header of the library needs: the export macro and the result codes.
 */
#ifndef TAV_BASE_H
#define TAV_BASE_H

#include <stdint.h>

/** Marks a name that the shared library exports, with C linkage. */
#ifdef __cplusplus
#define TAV_API extern "C" __attribute__((visibility("default")))
#else
#define TAV_API extern __attribute__((visibility("default")))
#endif

/** Lets the compiler check a printf format and the arguments that follow it; both are positions, counted from 1. */
#define TAV_PRINTF_FORMAT(formatPos, firstPos) __attribute__((format(printf, formatPos, firstPos)))

/*
 * Result codes of the configuration store and of the tree. Each function says which of them it returns and when.
 */
#define TAV_OK            0u        /**< done */
#define TAV_ERR_COPY      1u        /**< a bounds-checked copy, a digest or a small helper failed */
#define TAV_ERR_NO_MEMORY 0x801611u /**< an allocation failed */
#define TAV_ERR_NOT_READY \
    0x801612u /**< a tree that was not initialised; a null record or buffer when reading a field */
#define TAV_ERR_DIGEST    0x801613u /**< the platform's digest failed */
#define TAV_ERR_READ      0x801614u /**< a file could not be read, is empty, too large, or of the wrong kind */
#define TAV_ERR_REFUSED   0x801615u /**< refused by the open mode or the size limit; a short write */
#define TAV_ERR_OPEN      0x801616u /**< a file could not be opened, sized or decompressed */
#define TAV_ERR_INVALID   0x801617u /**< invalid data or object; a key that is there already */
#define TAV_ERR_NOT_FOUND 0x801618u /**< no such record, field, TLV or refer checksum */
#define TAV_ERR_NULL      0x801619u /**< a null argument */
#define TAV_ERR_NO_ROOM   0x80161au /**< the destination is too small */
#define TAV_ERR_UNCHANGED 0x80161bu /**< nothing to write */

#endif
