/*
 * Base64 in the alphabet for URLs and without padding: letters, digits, '-' and '_'. libcrypto's own knows the other
 * alphabet alone, pads, and reads several spellings as the same bytes.
 */
#ifndef HOSTED_BASE64URL_H
#define HOSTED_BASE64URL_H

#include <cstddef>
#include <cstdint>

namespace hosted {

/** Characters that stand for a number of bytes. */
constexpr size_t Base64Length(size_t byteCount) {
    return (byteCount * 8 + 5) / 6;
}

/**
 * Writes bytes as a terminated string.
 *
 * @param text  room for Base64Length(byteCount) characters and the terminator
 */
void EncodeBase64(const uint8_t *bytes, size_t byteCount, char *text);

/**
 * Reads what EncodeBase64 writes and nothing else: of the texts that could be taken for the same bytes, only one is
 * accepted.
 *
 * @param byteCount  in: room at `bytes`; out: how many bytes were read, if the text is accepted
 * @return true when the text is accepted
 */
bool DecodeBase64(const char *text, size_t length, uint8_t *bytes, size_t *byteCount);

}  // namespace hosted

#endif
