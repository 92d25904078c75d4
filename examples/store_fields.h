/*
 * Fields of a store's records: which one is the key, and values as bytes.
 */
#ifndef EXAMPLES_STORE_FIELDS_H
#define EXAMPLES_STORE_FIELDS_H

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "bytes.h"
#include "tav/store.h"

/** Returns the key field of a class; none for a class that is not known, or that has not just one. */
inline std::optional<uint32_t> KeyFieldOf(uint32_t cid) {
    const std::vector<uint32_t> fids = tav::KeyFields(cid);
    return cid != EXT_TLV_VS && fids.size() == 1 ? std::optional(fids[0]) : std::nullopt;  // a VS is no class
}

/** A value's bytes, as long as it lives. */
inline Bytes BytesOf(std::string_view value) {
    return {reinterpret_cast<const uint8_t *>(value.data()), value.size()};
}

#endif
