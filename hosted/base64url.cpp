#include "base64url.h"

#include <cstring>

namespace hosted {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
constexpr unsigned kByteBits = 8;
constexpr unsigned kDigitBits = 6;

/** The lowest `count` bits of a number. */
constexpr uint32_t LowBits(uint32_t value, unsigned count) {
    return value & ((1u << count) - 1);
}

}  // namespace

void EncodeBase64(const uint8_t *bytes, size_t byteCount, char *text) {
    uint32_t bits = 0;   // the lowest `count` bits wait for their digit
    unsigned count = 0;  // never a whole digit between two bytes
    for (size_t i = 0; i < byteCount; ++i) {
        bits = bits << kByteBits | bytes[i];
        for (count += kByteBits; count >= kDigitBits;) {
            count -= kDigitBits;
            *text++ = kAlphabet[LowBits(bits >> count, kDigitBits)];
        }
    }
    if (count > 0) {
        *text++ = kAlphabet[LowBits(bits << (kDigitBits - count), kDigitBits)];
    }
    *text = '\0';
}

bool DecodeBase64(const char *text, size_t length, uint8_t *bytes, size_t *byteCount) {
    const size_t capacity = *byteCount;
    size_t done = 0;
    uint32_t bits = 0;   // the lowest `count` bits wait for their byte
    unsigned count = 0;  // never a whole byte between two digits
    for (size_t i = 0; i < length; ++i) {
        const auto *const digit = static_cast<const char *>(memchr(kAlphabet, text[i], sizeof(kAlphabet) - 1));
        if (digit == nullptr) {
            return false;
        }
        bits = bits << kDigitBits | static_cast<uint32_t>(digit - kAlphabet);
        count += kDigitBits;
        if (count >= kByteBits) {
            if (done == capacity) {
                return false;
            }
            count -= kByteBits;
            bytes[done++] = static_cast<uint8_t>(bits >> count);
        }
    }
    *byteCount = done;
    // No digit too many, and the last one's spare bits are 0.
    return count < kDigitBits && LowBits(bits, count) == 0;
}

}  // namespace hosted
