/*
 * Plain strings. A null string sorts before every other and has no length.
 *
 * The library compares secrets, too, with BEX_StrCmp, BEX_StrNCmp and BEX_MemCmp. How long these take depends on
 * lengths alone: else whoever guesses could learn how much of a guess is right.
 */
#include <cstring>

#include <algorithm>

#include "common/words.h"
#include "interfaces.h"

namespace {

uint8_t LowerAscii(char character) {
    const auto byte = static_cast<uint8_t>(character);
    return byte >= 'A' && byte <= 'Z' ? static_cast<uint8_t>(byte - 'A' + 'a') : byte;
}

/** Orders two strings of which at least one is null. */
int32_t CompareWithNull(const char *a, const char *b) {
    return (a != nullptr) - (b != nullptr);
}

// What comparing gives. Not -1: the library hands it on where that says that something failed.
constexpr int32_t kLess = -2;
constexpr int32_t kGreater = 2;

/** Orders what has been read behind all that was equal before: the first difference decides. */
template <typename Word>
int32_t DecideBy(int32_t decided, Word a, Word b) {
    const int32_t here = a < b ? kLess : (a > b ? kGreater : 0);
    int32_t result = decided | (here & -int32_t{decided == 0});
    asm volatile("" : "+r"(result));  // the compiler must not see that nothing changes any more
    return result;
}

/** Orders bytes, in a time that their number decides. */
int32_t Order(const void *a, const void *b, size_t count) {
    const auto *bytesA = static_cast<const uint8_t *>(a);
    const auto *bytesB = static_cast<const uint8_t *>(b);
    int32_t decided = 0;
    for (; count >= sizeof(uint64_t); count -= sizeof(uint64_t)) {
        decided = DecideBy(decided, common::LoadBigEndian<uint64_t>(bytesA), common::LoadBigEndian<uint64_t>(bytesB));
        bytesA += sizeof(uint64_t);
        bytesB += sizeof(uint64_t);
    }
    for (; count > 0; --count) {
        decided = DecideBy(decided, *bytesA++, *bytesB++);
    }
    return decided;
}

/** Orders two strings of which neither is null. */
int32_t OrderTexts(const char *a, size_t lengthA, const char *b, size_t lengthB) {
    const int32_t common = Order(a, b, std::min(lengthA, lengthB));
    return DecideBy(common, lengthA, lengthB);
}

}  // namespace

uint32_t BEX_StrLen(const char *text) {
    return text != nullptr ? static_cast<uint32_t>(strnlen(text, UINT32_MAX)) : 0;
}

int32_t BEX_StrCmp(const char *a, const char *b) {
    return a != nullptr && b != nullptr ? OrderTexts(a, strlen(a), b, strlen(b)) : CompareWithNull(a, b);
}

int32_t BEX_StrNCmp(const char *a, const char *b, uint32_t count) {
    if (count == 0) {
        return 0;
    }
    return a != nullptr && b != nullptr ? OrderTexts(a, strnlen(a, count), b, strnlen(b, count))
                                        : CompareWithNull(a, b);
}

int32_t BEX_StrICmp(const char *a, const char *b) {
    if (a == nullptr || b == nullptr) {
        return CompareWithNull(a, b);
    }
    while (*a != '\0' && LowerAscii(*a) == LowerAscii(*b)) {
        ++a;
        ++b;
    }
    return LowerAscii(*a) - LowerAscii(*b);
}

char *BEX_StrStr(const char *text, const char *part) {
    return text != nullptr && part != nullptr ? const_cast<char *>(strstr(text, part)) : nullptr;
}

void BEX_StrToLower(char *text) {
    for (; text != nullptr && *text != '\0'; ++text) {
        *text = static_cast<char>(LowerAscii(*text));
    }
}

char *BEX_StrRChr(const char *text, int32_t character) {
    return text != nullptr ? const_cast<char *>(strrchr(text, character)) : nullptr;
}

int32_t BEX_MemCmp(const void *a, const void *b, uint32_t length) {
    return Order(a, b, length);
}
