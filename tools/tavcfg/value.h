/*
 * Values: from bytes to what people and JSON read, and back, by the data type of the field.
 *
 * A form is used only when it gives back the very same bytes; else the bytes are written in hexadecimal.
 */
#ifndef TAVCFG_VALUE_H
#define TAVCFG_VALUE_H

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "model.h"

namespace tavcfg {

/** Throws Problem when a value of this length is too long for the field. */
void CheckLength(uint32_t fid, size_t length);

/** Returns whether the field's values are numbers. */
bool IsInteger(uint32_t fid);

/** Formats a value as ParseValue reads it, on one line and without control characters. */
std::string FormatValue(uint32_t fid, const Bytes &value);

/** Formats a system time as far as that is possible, else in hexadecimal. */
std::string FormatTime(const Bytes &value);

/**
 * Parses a value: "hex:..." for any field; else a number, a text, hexadecimal digits, an address, or a time, as the
 * field's type demands. Throws Problem.
 */
Bytes ParseValue(uint32_t fid, const std::string &text);

/** The JSON form of a value. */
nlohmann::json ValueToJson(uint32_t fid, const Bytes &value);

/** Reads the JSON form of a value. Throws Problem. */
Bytes ValueFromJson(uint32_t fid, const nlohmann::json &form);

}  // namespace tavcfg

#endif
