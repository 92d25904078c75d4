/*
 * Plain strings. A null string sorts before every other and has no length.
 */
#include <cstring>

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

}  // namespace

uint32_t BEX_StrLen(const char *text) {
    return text != nullptr ? static_cast<uint32_t>(strnlen(text, UINT32_MAX)) : 0;
}

int32_t BEX_StrCmp(const char *a, const char *b) {
    return a != nullptr && b != nullptr ? strcmp(a, b) : CompareWithNull(a, b);
}

int32_t BEX_StrNCmp(const char *a, const char *b, uint32_t count) {
    if (count == 0) {
        return 0;
    }
    return a != nullptr && b != nullptr ? strncmp(a, b, count) : CompareWithNull(a, b);
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
    return length == 0 ? 0 : memcmp(a, b, length);
}
