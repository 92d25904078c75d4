/*
 * Keys: where records and virtual systems stand among each other, and what a bucket calls them.
 */
#ifndef FLEET_STORE_KEY_H
#define FLEET_STORE_KEY_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fleet {

/** One TLV of a sequence, in file order. */
struct Tlv {
    uint32_t type;
    std::string_view value;
    std::string_view whole;
};

/** Takes the first TLV from a sequence. Nothing at its end, and when what is left is no whole TLV. */
std::optional<Tlv> TakeTlv(std::string_view *sequence);

/**
 * The place of a record or of a virtual system, as bytes whose order is the order of a content: the VS id and the class
 * as 32-bit numbers, then each key field's length (32 bits) and value in file order, all big-endian. So a shorter value
 * stands before a longer one, as in a store. Class 0 is the virtual system itself, which stands before its records.
 */
using Key = std::string;

Key KeyOfVs(uint32_t vsId);
uint32_t VsOf(const Key &key);
uint32_t ClassOf(const Key &key);

/** Finds the key of a record, given as its TLV. Returns false when the record lacks a key field. */
bool FindKey(uint32_t vsId, const Tlv &record, Key *key);

/** What the names of virtual systems and of records begin with in a bucket. */
inline constexpr std::string_view kVsPrefix = "vs.";

/**
 * What a bucket calls a key: "vs.0" a virtual system, "vs.0.13.5" a record, by VS, class and key fields. A number of
 * its field's size is decimal; of other values, letters, digits, '-', '_' and '/' stand for themselves, other bytes are
 * written as '=' and two hexadecimal digits, and no bytes at all as '='.
 */
std::string NameOf(const Key &key);

/** The key that a bucket calls so; nothing for what NameOf never gives. */
std::optional<Key> ParseName(std::string_view name);

}  // namespace fleet

#endif
