/*
 * The written forms of values, whatever field they stand in. What parses throws Problem.
 */
#ifndef TAVCFG_VALUE_FORMS_H
#define TAVCFG_VALUE_FORMS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "model.h"

namespace tavcfg {

/** Formats bytes as hexadecimal digits. */
std::string ToHex(const Bytes &bytes);

/** Parses hexadecimal digits. */
Bytes FromHex(std::string_view digits);

/** Parses a number up to `max`, decimal or with 0x in front. */
uint64_t ParseNumber(const std::string &text, uint64_t max);

/** Reads the big-endian integer that all the given bytes are. */
uint64_t LoadNumber(std::string_view bytes);

/** Writes an integer as `size` big-endian bytes. */
Bytes StoreNumber(uint64_t number, size_t size);

/** Returns whether a text holds control characters (of ASCII, or U+0080 to U+009F), which do not belong on a terminal.
 */
bool HasControls(const Bytes &text);

/** Formats an address; nothing when the bytes are none. Parsing the form need not give back the same bytes. */
std::optional<std::string> AddressText(const Bytes &value);

/** Parses 192.0.2.1 or 2001:db8::1. */
Bytes ParseAddress(const std::string &text);

/** Formats a system time; nothing when the bytes are none. Parsing the form need not give back the same bytes. */
std::optional<std::string> TimeText(const Bytes &value);

/** Parses 2024-05-06T07:08:09.123, with or without a Z. The week day follows from the date. */
Bytes ParseTime(const std::string &text);

}  // namespace tavcfg

#endif
