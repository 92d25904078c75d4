// Bounded copies, plain strings, the digest and the clocks.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "bytes.h"
#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "platform/mel_clock.h"

namespace {

// Lets a function work on `capacity` bytes amid others. Expects success or not, `expected` at the beginning, and all
// other bytes as they were.
template <typename Function>
void Check(size_t capacity, bool succeeds, const std::string &expected, Function function) {
    std::string memory(capacity + 16, '#');
    std::string after = memory;
    after.replace(8, expected.size(), expected);
    EXPECT_EQ(function(memory.data() + 8, capacity) == 0, succeeds) << capacity << ' ' << expected;
    EXPECT_EQ(memory, after);
}

TEST(Bounded, WritesStayWithinTheCapacity) {
    std::string source;
    for (size_t count = 0; count <= 42; source += static_cast<char>('A' + count++)) {
        for (size_t capacity = 0; capacity <= 40; ++capacity) {
            const char *const from = source.c_str();
            const auto terminated = [&](bool fits, size_t length) {
                return capacity == 0 ? "" : (fits ? source.substr(0, length) : "") + '\0';
            };
            const bool fits = count <= capacity;
            const std::string zeroed(capacity, '\0');
            Check(capacity, fits, fits ? source : zeroed,
                  [=](char *dest, size_t size) { return memcpy_s(dest, size, from, count); });
            Check(capacity, fits, fits ? std::string(count, 'f') : zeroed,
                  [=](char *dest, size_t size) { return memset_s(dest, size, 'f', count); });
            Check(capacity, count < capacity, terminated(count < capacity, count),
                  [=](char *dest, size_t size) { return strcpy_s(dest, size, from); });
            for (size_t limit = 0; limit <= 42; ++limit) {
                const size_t length = std::min(count, limit);
                const bool cutFits = length < capacity || limit == 0;
                Check(capacity, cutFits, terminated(cutFits, length),
                      [=](char *dest, size_t size) { return strncpy_s(dest, size, from, limit); });
            }
        }
    }
}

TEST(Bounded, OverlapIsRefused) {
    for (ptrdiff_t distance = -12; distance <= 12; ++distance) {
        for (size_t count = 0; count <= 12; ++count) {
            const auto apart = static_cast<size_t>(std::abs(distance));
            std::string memory(64, 'm');
            char *const source = memory.data() + 20;
            EXPECT_EQ(memcpy_s(source + distance, 12, source, count) == 0, apart >= count);
            // Of a source without an end, `count` characters are read, and one more is written.
            memory.assign(64, 'm');
            EXPECT_EQ(strncpy_s(source + distance, 13, source, count) == 0,
                      count == 0 || (distance >= 0 ? apart >= count : apart > count));
            memory.assign(64, 'm');
            source[count] = '\0';
            EXPECT_EQ(strcpy_s(source + distance, 13, source) == 0, apart > count);
        }
    }
}

TEST(Bounded, BadArgumentsAreRefused) {
    char *const none = std::getenv("TAV_NO_SUCH_VARIABLE");  // null, without the compiler's knowledge
    for (const size_t capacity : {size_t{4}, SIZE_MAX}) {
        EXPECT_NE(memcpy_s(none, capacity, "a", 1), 0);
        EXPECT_NE(memset_s(none, capacity, 0, 1), 0);
        EXPECT_NE(strcpy_s(none, capacity, "a"), 0);
        EXPECT_NE(strncpy_s(none, capacity, "a", 1), 0);
        EXPECT_EQ(sprintf_s(none, capacity, "a"), -1);
        EXPECT_EQ(snprintf_truncated_s(none, capacity, "a"), -1);
    }
    Check(4, false, std::string(4, '\0'), [=](char *dest, size_t size) { return memcpy_s(dest, size, none, 1); });
    Check(4, false, std::string(1, '\0'), [=](char *dest, size_t size) { return strcpy_s(dest, size, none); });
    Check(4, false, std::string(1, '\0'), [=](char *dest, size_t size) { return strncpy_s(dest, size, none, 1); });
    Check(4, false, std::string(1, '\0'), [](char *dest, size_t size) { return strncpy_s(dest, size, "a", SIZE_MAX); });
    Check(4, false, "", [](char *dest, size_t) { return memset_s(dest, SIZE_MAX, 0, 1); });
}

TEST(Bounded, TextIsFormattedWholeOrCut) {
    for (size_t capacity = 0; capacity <= 12; ++capacity) {
        const std::string whole = "abcd-123";
        char dest[12] = "";
        const bool fits = whole.size() < capacity;
        EXPECT_EQ(sprintf_s(dest, capacity, "%s-%d", "abcd", 123), fits ? 8 : -1);
        EXPECT_EQ(dest, fits ? whole : "");
        const int kept = static_cast<int>(std::min(whole.size() + 1, capacity)) - 1;
        EXPECT_EQ(snprintf_truncated_s(dest, capacity, "%s-%d", "abcd", 123), kept);
        EXPECT_EQ(dest, whole.substr(0, capacity > 0 ? capacity - 1 : 0));
    }
}

TEST(Strings, AreOrderedAndSearched) {
    const char *const ordered[] = {nullptr, "", "A", "AB", "B", "[", "a", "{", "\x80", "\xC4", "\xE4", "\xFF"};
    for (size_t i = 0; i < std::size(ordered); ++i) {
        for (size_t j = 0; j < std::size(ordered); ++j) {
            const int32_t order = BEX_StrCmp(ordered[i], ordered[j]);
            EXPECT_EQ((order > 0) - (order < 0), (i > j) - (i < j)) << i << ' ' << j;
            const bool caseOnly =
                i + j == 8 && (i == 2 || j == 2);  // "A" and "a"; nothing but ASCII letters has a case
            EXPECT_EQ(BEX_StrICmp(ordered[i], ordered[j]) == 0, i == j || caseOnly) << i << ' ' << j;
        }
    }
    EXPECT_LT(BEX_StrICmp("Abc", "abCd"), 0);
    EXPECT_GT(BEX_StrICmp("b", "A"), 0);
    EXPECT_EQ(BEX_StrLen("four"), 4u);
    EXPECT_EQ(BEX_StrLen(nullptr), 0u);
    EXPECT_STREQ(BEX_StrRChr("a/b/c", '/'), "/c");
    EXPECT_EQ(BEX_StrRChr("abc", '/'), nullptr);
    EXPECT_LT(BEX_MemCmp("a\0b", "a\0c", 3), 0);
    EXPECT_EQ(BEX_MemCmp(nullptr, nullptr, 0), 0);
}

TEST(Digest, IsSha256AndKeepsWithinTheCapacity) {
    const Bytes ofAbc = Hex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    const Bytes ofNothing = Hex("e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    Bytes digest(32);
    uint32_t length = 0;
    EXPECT_EQ(BEX_Crypt_Digest("abc", 3, digest.data(), &length, 32), 0u);
    EXPECT_EQ(length, 32u);
    EXPECT_EQ(digest, ofAbc);
    EXPECT_NE(BEX_Crypt_Digest("abcd", 4, digest.data(), &length, 31), 0u);
    EXPECT_EQ(length, 0u);
    EXPECT_NE(BEX_Crypt_Digest(nullptr, 3, digest.data(), &length, 32), 0u);
    EXPECT_EQ(digest, ofAbc);
    EXPECT_EQ(BEX_Crypt_Digest(nullptr, 0, digest.data(), &length, 33), 0u);
    EXPECT_EQ(digest, ofNothing);
}

TEST(Clocks, TellGmt) {
    using namespace std::chrono;
    setenv("TZ", "XYZ-5", 1);  // nothing else here looks at the local time
    tzset();
    for (const auto get : {BEX_SystimeGet, MEL_GMT_SystimeGet}) {
        BEX_SysTime now;
        const auto before = floor<milliseconds>(system_clock::now());
        get(&now);
        const sys_days day = year{now.year} / now.month / now.day;
        const auto told = day + hours{now.hour} + minutes{now.minute} + seconds{now.second};
        EXPECT_LE(before, told + milliseconds{now.millisecond});
        EXPECT_GE(system_clock::now(), told + milliseconds{now.millisecond});
        EXPECT_EQ(now.weekDay, weekday{day}.c_encoding());
        EXPECT_LT(now.millisecond, 1000u);
    }
}

}  // namespace
