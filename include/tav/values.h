/*
 * Values of fields as people write them, by the data type of the field:
 *
 *   integer    decimal, or hexadecimal with 0x in front
 *   text       as it is
 *   bytes      pairs of hexadecimal digits
 *   address    192.0.2.1 or 2001:db8::1
 *   time       2024-05-06T07:08:09.123
 *   any type   hex: and pairs of hexadecimal digits, in the byte order of the file
 *
 * Values are in host order, as a store holds them. The type table must be complete (TAV_InitExtTlvDataTypeTable).
 */
#ifndef TAV_VALUES_H
#define TAV_VALUES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "tav/error.h"
#include "tav/store.h"

namespace tav {

/** Returns whether a type is a class of records: what stands in a VS under another type is no record. */
TAV_VISIBLE bool IsRecordClass(uint32_t cid);

/** Returns whether a field is one of its class's key fields. */
TAV_VISIBLE bool IsKeyField(uint32_t cid, uint32_t fid);

/**
 * Formats a value on one line, without control characters, so that ParseValue gives back the same bytes: in the form of
 * the field's type where that is possible, else in hexadecimal.
 */
TAV_VISIBLE std::string FormatValue(uint32_t fid, std::string_view value);

/** Formats a field's value. */
inline std::string FormatValue(FieldView field) {
    return FormatValue(field.Id(), field.Text());
}

/** Names a record for people, by its key: "VS 0 class 13 14=5". */
TAV_VISIBLE std::string DescribeRecord(uint32_t vsId, RecordView record);

/**
 * Parses a value.
 *
 * @param fid   the field
 * @param text  the value as people write it
 * @return the value in host order. Throws Error, without a place, when the text does not suit the field's type, and
 *         when the value is longer than the field may be
 */
TAV_VISIBLE std::string ParseValue(uint32_t fid, std::string_view text);

/** Parses a number of 32 bits, decimal or with 0x in front. Throws Error, without a place. */
TAV_VISIBLE uint32_t ParseId(std::string_view text);

/**
 * Orders two values of a field: numbers by their size, addresses by family and address, times by the calendar, texts
 * and bytes byte by byte. A value that does not have the length of its type sorts behind those that have.
 *
 * @return negative, 0 or positive; 0 only for equal bytes
 */
TAV_VISIBLE int CompareValues(uint32_t fid, std::string_view a, std::string_view b);

}  // namespace tav

#endif
