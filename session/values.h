/*
 * Values of fields between the bytes of a store and their written forms.
 */
#ifndef SESSION_VALUES_H
#define SESSION_VALUES_H

#include <cstdint>
#include <string>
#include <string_view>

#include "session/value_forms.h"

namespace session {

/** Size of the field's values, or the most that they may have, in bytes. */
size_t LimitOf(uint32_t fid);

/** Largest number of a field of integers. */
uint64_t MaxNumber(uint32_t fid);

/** Brings a value from host order to file order, or back. */
Bytes SwapOrder(uint32_t fid, std::string_view value);

/** Throws Problem when a value of this length is too long for the field. */
void CheckLength(uint32_t fid, size_t length);

/** tav::ParseValue that throws Problem. */
Bytes ParseValue(uint32_t fid, std::string_view text);

/** Parses a value in the form of the field's type, without hex:. The result is in file order. Throws Problem. */
Bytes ParseFriendly(uint32_t fid, std::string_view text);

}  // namespace session

#endif
