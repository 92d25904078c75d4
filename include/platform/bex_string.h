/*
 * Platform strings: plain string functions and the bounds-checked copy, fill and format functions.
 */
#ifndef PLATFORM_BEX_STRING_H
#define PLATFORM_BEX_STRING_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Length of a string in bytes, without the terminator. */
uint32_t BEX_StrLen(const char *text);

/** Compares two strings bytewise: negative, 0 or positive. */
int32_t BEX_StrCmp(const char *a, const char *b);

/** Compares the first `count` bytes of two strings, up to a terminator: negative, 0 or positive. */
int32_t BEX_StrNCmp(const char *a, const char *b, uint32_t count);

/** Compares two strings without regard to the case of ASCII letters: negative, 0 or positive. */
int32_t BEX_StrICmp(const char *a, const char *b);

/** Returns the first occurrence of a string in another, or null. An empty string is found at the beginning. */
char *BEX_StrStr(const char *text, const char *part);

/** Turns the ASCII letters of a string into lower case, in place. */
void BEX_StrToLower(char *text);

/** Returns the last occurrence of a character, or null. */
char *BEX_StrRChr(const char *text, int32_t character);

/** Compares two pieces of memory bytewise: negative, 0 or positive. */
int32_t BEX_MemCmp(const void *a, const void *b, uint32_t length);

/*
 * The functions below take the capacity of their destination and refuse what does not fit: they return non-zero, and
 * leave the destination zeroed (memory) or holding an empty string (text) when there is a destination with room for
 * that. A count of 0 succeeds, also with a capacity of 0, but not with a null pointer.
 */

/** Copies `count` bytes between pieces of memory that do not overlap. Returns 0, else a code. */
int memcpy_s(void *dest, size_t destMax, const void *src, size_t count);

/** Fills `count` bytes. Returns 0, else a code. */
int memset_s(void *dest, size_t destMax, int value, size_t count);

/** Copies a string with its terminator. Returns 0, else a code. */
int strcpy_s(char *dest, size_t destMax, const char *src);

/** Copies at most `count` characters of a string and terminates the copy. Returns 0, else a code. */
int strncpy_s(char *dest, size_t destMax, const char *src, size_t count);

/** Formats text. Returns the length written, or -1 when it does not fit. */
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
int sprintf_s(char *dest, size_t destMax, const char *format, ...);

/** Formats text, cut to the capacity. Returns the length that stands in the destination, or -1 on a bad argument. */
#if defined(__GNUC__)
__attribute__((format(printf, 3, 4)))
#endif
int snprintf_truncated_s(char *dest, size_t destMax, const char *format, ...);

/** As snprintf_truncated_s, with the arguments in a list. */
#if defined(__GNUC__)
__attribute__((format(printf, 3, 0)))
#endif
int vsnprintf_truncated_s(char *dest, size_t destMax, const char *format, va_list arguments);

#ifdef __cplusplus
}
#endif

#endif
