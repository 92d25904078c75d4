/*
 * Words at any alignment, in host order and in big-endian order. Bytes of files and messages are read and written here
 * and never through a wider pointer.
 */
#ifndef COMMON_WORDS_H
#define COMMON_WORDS_H

#include <bit>
#include <cstdint>
#include <cstring>

namespace common {

inline constexpr bool kHostIsBigEndian = std::endian::native == std::endian::big;

/** Reverses the bytes of a word of 16, 32 or 64 bits. */
template <typename Word>
Word SwapBytes(Word word) {
    static_assert(sizeof(Word) == 2 || sizeof(Word) == 4 || sizeof(Word) == 8);
    if constexpr (sizeof(Word) == 2) {
        return __builtin_bswap16(word);
    } else if constexpr (sizeof(Word) == 4) {
        return __builtin_bswap32(word);
    } else {
        return __builtin_bswap64(word);
    }
}

/** Reads a word, or a plain structure, in host order. */
template <typename Word>
Word LoadWord(const void *bytes) {
    Word word;
    memcpy(&word, bytes, sizeof(word));
    return word;
}

/** Writes a word, or a plain structure, in host order. */
template <typename Word>
void StoreWord(Word word, void *bytes) {
    memcpy(bytes, &word, sizeof(word));
}

/** Reads a big-endian word. */
template <typename Word>
Word LoadBigEndian(const void *bytes) {
    const Word word = LoadWord<Word>(bytes);
    return kHostIsBigEndian ? word : SwapBytes(word);
}

/** Writes a big-endian word. */
template <typename Word>
void StoreBigEndian(Word word, void *bytes) {
    StoreWord(kHostIsBigEndian ? word : SwapBytes(word), bytes);
}

}  // namespace common

#endif
