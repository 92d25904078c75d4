// Bounded copies, plain strings, the digest and the clocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "platform/mel_clock.h"

namespace {

constexpr char kGuard = '#';

// A destination of a given capacity between guards, filled with old text.
struct Destination {
    explicit Destination(size_t capacity) : memory(capacity + 16, kGuard), size(capacity) {
        std::fill_n(memory.begin() + 8, capacity, 'o');
    }
    char *Start() { return memory.data() + 8; }
    std::string Text() { return {Start(), size}; }
    bool GuardsStand() const {
        const std::string guard(8, kGuard);
        return memory.compare(0, 8, guard) == 0 && memory.compare(memory.size() - 8, 8, guard) == 0;
    }

    std::string memory;
    size_t size;
};

TEST(Bounded, MemoryIsCopiedAndFilledWithinTheCapacity) {
    std::string source(80, '\0');
    for (size_t i = 0; i < source.size(); ++i) {
        source[i] = static_cast<char>('A' + i);
    }
    for (size_t capacity = 0; capacity <= 70; ++capacity) {
        for (size_t count = 0; count <= 72; ++count) {
            const bool fits = count <= capacity;
            const std::string zeroed(capacity, '\0');
            const std::string rest(fits ? capacity - count : 0, 'o');
            Destination copy(capacity);
            Destination fill(capacity);
            ASSERT_EQ(memcpy_s(copy.Start(), capacity, source.data(), count) == 0, fits);
            ASSERT_EQ(memset_s(fill.Start(), capacity, 'f', count) == 0, fits);
            ASSERT_EQ(copy.Text(), fits ? source.substr(0, count) + rest : zeroed) << count << " in " << capacity;
            ASSERT_EQ(fill.Text(), fits ? std::string(count, 'f') + rest : zeroed);
            ASSERT_TRUE(copy.GuardsStand() && fill.GuardsStand());
        }
    }
}

TEST(Bounded, StringsAreCopiedWithinTheCapacity) {
    for (size_t capacity = 0; capacity <= 40; ++capacity) {
        for (size_t length = 0; length <= 42; ++length) {
            const std::string source(length, 's');
            std::string refused(capacity, 'o');
            if (capacity > 0) {
                refused[0] = '\0';
            }
            Destination whole(capacity);
            ASSERT_EQ(strcpy_s(whole.Start(), capacity, source.c_str()) == 0, length < capacity);
            ASSERT_EQ(length < capacity ? std::string(whole.Start()) : whole.Text(),
                      length < capacity ? source : refused);
            ASSERT_TRUE(whole.GuardsStand());
            for (size_t count = 0; count <= 42; ++count) {
                const size_t part = std::min(length, count);
                const bool fits = part < capacity || (count == 0 && capacity == 0);
                Destination cut(capacity);
                ASSERT_EQ(strncpy_s(cut.Start(), capacity, source.c_str(), count) == 0, fits);
                ASSERT_EQ(fits && capacity > 0 ? std::string(cut.Start()) : cut.Text(),
                          fits && capacity > 0 ? source.substr(0, part) : refused);
                ASSERT_TRUE(cut.GuardsStand());
            }
        }
    }
}

TEST(Bounded, OverlapIsRefused) {
    for (ptrdiff_t distance = -12; distance <= 12; ++distance) {
        for (size_t count = 0; count <= 12; ++count) {
            const auto apart = static_cast<size_t>(std::abs(distance));
            char memory[64];
            std::fill_n(memory, sizeof memory, 'm');
            EXPECT_EQ(memcpy_s(memory + 20 + distance, 12, memory + 20, count) == 0, apart >= count);

            std::fill_n(memory, sizeof memory, 'm');
            memory[20 + count] = '\0';
            EXPECT_EQ(strcpy_s(memory + 20 + distance, 13, memory + 20) == 0, apart > count);

            // Here the source has no end: of it, `count` characters are read, and one more is written.
            std::fill_n(memory, sizeof memory, 'm');
            EXPECT_EQ(strncpy_s(memory + 20 + distance, 13, memory + 20, count) == 0,
                      count == 0 || (distance >= 0 ? apart >= count : apart > count))
                << distance << ' ' << count;
        }
    }
}

TEST(Bounded, BadArgumentsAreRefused) {
    char dest[4] = "abc";
    EXPECT_NE(memcpy_s(nullptr, 4, dest, 1), 0);
    EXPECT_NE(memcpy_s(dest, 4, nullptr, 1), 0);
    EXPECT_EQ(dest[2], '\0');
    EXPECT_NE(memcpy_s(dest, SIZE_MAX, "a", 1), 0);
    EXPECT_NE(memset_s(nullptr, 4, 0, 1), 0);
    EXPECT_NE(memset_s(dest, SIZE_MAX, 0, 1), 0);
    for (char *const target : {static_cast<char *>(nullptr), dest}) {
        const char *const source = target == nullptr ? "a" : nullptr;
        std::strcpy(dest, "abc");
        EXPECT_NE(strcpy_s(target, 4, source), 0);
        EXPECT_STREQ(dest, target == nullptr ? "abc" : "");
        EXPECT_NE(strncpy_s(target, 4, source, 1), 0);
        EXPECT_EQ(snprintf_truncated_s(target, target == nullptr ? 4 : 0, "a"), -1);
        EXPECT_EQ(sprintf_s(target, target == nullptr ? 4 : 0, "a"), -1);
    }
    EXPECT_NE(strncpy_s(dest, 4, "a", SIZE_MAX), 0);
}

TEST(Bounded, TextIsFormattedWhole) {
    char dest[8];
    EXPECT_EQ(sprintf_s(dest, sizeof dest, "%s%d", "abcd", 123), 7);
    EXPECT_STREQ(dest, "abcd123");
    EXPECT_EQ(sprintf_s(dest, sizeof dest, "%s%d", "abcd", 1234), -1);
    EXPECT_STREQ(dest, "");
    EXPECT_EQ(snprintf_truncated_s(dest, sizeof dest, "%s%d", "abc", 12), 5);
    EXPECT_EQ(snprintf_truncated_s(dest, sizeof dest, "%s%d", "abcd", 1234567), 7);
    EXPECT_STREQ(dest, "abcd123");
}

TEST(Strings, AreOrderedAndSearched) {
    const char *const ordered[] = {nullptr, "", "A", "AB", "B", "a", "\x80", "\xFF"};
    for (size_t i = 0; i < std::size(ordered); ++i) {
        for (size_t j = 0; j < std::size(ordered); ++j) {
            const int32_t order = BEX_StrCmp(ordered[i], ordered[j]);
            EXPECT_TRUE(i < j ? order < 0 : i > j ? order > 0 : order == 0) << i << ' ' << j;
        }
    }
    EXPECT_EQ(BEX_StrICmp("MiXed-[1]", "mIxED-[1]"), 0);
    EXPECT_LT(BEX_StrICmp("Abc", "abCd"), 0);
    EXPECT_GT(BEX_StrICmp("b", "A"), 0);
    EXPECT_NE(BEX_StrICmp("[", "{"), 0);        // only letters have a case
    EXPECT_NE(BEX_StrICmp("\xC4", "\xE4"), 0);  // and only those of ASCII
    EXPECT_LT(BEX_StrICmp(nullptr, ""), 0);
    EXPECT_EQ(BEX_StrLen("four"), 4u);
    EXPECT_EQ(BEX_StrLen(nullptr), 0u);
    EXPECT_STREQ(BEX_StrRChr("a/b/c", '/'), "/c");
    EXPECT_EQ(BEX_StrRChr("abc", '/'), nullptr);
    EXPECT_LT(BEX_MemCmp("a\0b", "a\0c", 3), 0);
    EXPECT_EQ(BEX_MemCmp(nullptr, nullptr, 0), 0);
}

TEST(Digest, IsSha256AndKeepsWithinTheCapacity) {
    const uint8_t ofAbc[] = {0xba, 0x78, 0x16, 0xbf, 0x8f, 0x01, 0xcf, 0xea, 0x41, 0x41, 0x40,
                             0xde, 0x5d, 0xae, 0x22, 0x23, 0xb0, 0x03, 0x61, 0xa3, 0x96, 0x17,
                             0x7a, 0x9c, 0xb4, 0x10, 0xff, 0x61, 0xf2, 0x00, 0x15, 0xad};
    const uint8_t ofNothing[] = {0xe3, 0xb0, 0xc4, 0x42, 0x98, 0xfc, 0x1c, 0x14};
    uint8_t digest[33] = {};
    uint32_t length = 0;
    EXPECT_EQ(BEX_Crypt_Digest("abc", 3, digest, &length, 33), 0u);
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(std::memcmp(digest, ofAbc, 32), 0);
    EXPECT_EQ(BEX_Crypt_Digest(nullptr, 0, digest, &length, 32), 0u);
    EXPECT_EQ(std::memcmp(digest, ofNothing, sizeof ofNothing), 0);
    std::memset(digest, 7, sizeof digest);
    EXPECT_NE(BEX_Crypt_Digest("abc", 3, digest, &length, 31), 0u);
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(std::count(digest, digest + 33, 7), 33);
    EXPECT_NE(BEX_Crypt_Digest(nullptr, 3, digest, &length, 33), 0u);
}

TEST(Clocks, TellGmt) {
    setenv("TZ", "XYZ-5", 1);
    tzset();
    for (const auto get : {BEX_SystimeGet, MEL_GMT_SystimeGet}) {
        BEX_SysTime now;
        std::memset(&now, 0xFF, sizeof now);
        const time_t before = time(nullptr);
        get(&now);
        const time_t after = time(nullptr);
        tm calendar = {};
        calendar.tm_year = now.year - 1900;
        calendar.tm_mon = now.month - 1;
        calendar.tm_mday = now.day;
        calendar.tm_hour = now.hour;
        calendar.tm_min = now.minute;
        calendar.tm_sec = now.second;
        const time_t told = timegm(&calendar);
        EXPECT_GE(told, before - 1);  // time() may lag behind the finer clock, never by a second
        EXPECT_LE(told, after + 1);
        EXPECT_EQ(now.weekDay, calendar.tm_wday);
        EXPECT_LT(now.millisecond, 1000u);
    }
    unsetenv("TZ");
    tzset();
}

}  // namespace
