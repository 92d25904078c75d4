/*
 * Bytes of a message or a value, and the numbers in them.
 */
#ifndef EXAMPLES_BYTES_H
#define EXAMPLES_BYTES_H

#include <cstdint>
#include <cstring>
#include <span>

using Bytes = std::span<const uint8_t>;

/** Reads a number or a structure of numbers at any alignment; the bytes must be there. */
template <typename Value>
Value Load(const void *bytes) {
    Value value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

#endif
