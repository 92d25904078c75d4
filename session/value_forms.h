/*
 * The written forms of values, whatever field they stand in. All bytes are in file order. What parses throws Problem.
 */
#ifndef SESSION_VALUE_FORMS_H
#define SESSION_VALUE_FORMS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace session {

/** A value's bytes. */
using Bytes = std::string;

/** Appends bytes as hexadecimal digits. */
void AppendHex(std::string *out, std::string_view bytes);

/** Parses hexadecimal digits. */
Bytes FromHex(std::string_view digits);

/** Parses a number up to `max`, decimal or with 0x in front. */
uint64_t ParseNumber(std::string_view text, uint64_t max);

/** Reads the big-endian integer that all the given bytes are. */
uint64_t LoadNumber(std::string_view bytes);

/** Writes an integer as `size` big-endian bytes. */
Bytes StoreNumber(uint64_t number, size_t size);

/** Returns whether a text is UTF-8, which JSON can carry. */
bool IsUtf8(std::string_view text);

/** Returns whether a text holds control characters (of ASCII, or U+0080 to U+009F), which do not belong on a terminal.
 */
bool HasControls(std::string_view text);

/** Formats an address; nothing when the bytes are none, or when parsing would not give back the same ones. */
std::optional<std::string> AddressText(std::string_view value);

/** Parses 192.0.2.1 or 2001:db8::1. */
Bytes ParseAddress(std::string_view text);

/** Formats a system time; nothing when the bytes are none, or when parsing would not give back the same ones. */
std::optional<std::string> TimeText(std::string_view value);

/** Parses 2024-05-06T07:08:09.123, with or without a Z. The week day follows from the date. */
Bytes ParseTime(std::string_view text);

}  // namespace session

#endif
