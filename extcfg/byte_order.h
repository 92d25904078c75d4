/*
 * The file's byte order. Words of a file are big-endian on every host and stand at any alignment, so they are read and
 * written here and never through a wider pointer.
 */
#ifndef EXTCFG_BYTE_ORDER_H
#define EXTCFG_BYTE_ORDER_H

#include <bit>
#include <cstdint>

namespace extcfg {

/** Reads a big-endian 32-bit word. */
inline uint32_t LoadBigEndian32(const uint8_t *bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | uint32_t{bytes[3]};
}

/** Writes a big-endian 32-bit word. */
inline void StoreBigEndian32(uint32_t word, uint8_t *bytes) {
    bytes[0] = static_cast<uint8_t>(word >> 24);
    bytes[1] = static_cast<uint8_t>(word >> 16);
    bytes[2] = static_cast<uint8_t>(word >> 8);
    bytes[3] = static_cast<uint8_t>(word);
}

/** The host's own order is the file's. */
inline constexpr bool kHostIsBigEndian = std::endian::native == std::endian::big;

}  // namespace extcfg

#endif
