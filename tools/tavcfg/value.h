/*
 * Values as they stand in a file, in its byte order, for people.
 */
#ifndef TAVCFG_VALUE_H
#define TAVCFG_VALUE_H

#include <cstdint>
#include <string>

namespace tavcfg {

/** A value's bytes in file order, so that they mean the same on every host. */
using Bytes = std::string;

/** Formats bytes as hexadecimal digits. */
std::string ToHex(const Bytes &bytes);

/** Throws Problem when a value of this length is too long for the field. */
void CheckLength(uint32_t fid, size_t length);

/** Formats a value on one line and without control characters; in hexadecimal one that is too long. */
std::string FormatValue(uint32_t fid, const Bytes &value);

/** Formats a system time as far as that is possible, else in hexadecimal. */
std::string FormatTime(const Bytes &value);

}  // namespace tavcfg

#endif
