// Bounded copies and the comparers of the data types.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "bytes.h"
#include "platform/bex_string.h"
#include "tav_posix.h"

namespace {

TEST(Bounded, CopiesKeepToTheCapacity) {
    const std::string source = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    for (size_t capacity = 1; capacity <= 40; ++capacity) {
        for (size_t count = 0; count <= 42; ++count) {
            const std::string part = source.substr(0, count);
            std::vector<std::string> dest(5, std::string(64, '#'));
            const struct {
                int code;
                std::string whole;  // what stands there if it fits
                size_t zeros;       // what stands there else
            } rows[] = {
                {memcpy_s(dest[0].data(), capacity, source.data(), count), part, capacity},
                {memset_s(dest[1].data(), capacity, 'f', count), std::string(count, 'f'), capacity},
                {strcpy_s(dest[2].data(), capacity, part.c_str()), part + '\0', 1},
                {strncpy_s(dest[3].data(), capacity, source.c_str(), count), part + '\0', 1},
                {strncpy_s(dest[4].data(), capacity, part.c_str(), 20), part.substr(0, 20) + '\0', 1},
            };
            for (size_t i = 0; i < std::size(rows); ++i) {
                const bool fits = rows[i].whole.size() <= capacity;
                const std::string start = fits ? rows[i].whole : std::string(rows[i].zeros, '\0');
                EXPECT_EQ(rows[i].code, fits ? 0 : ERANGE) << i << ": " << count << " in " << capacity;
                EXPECT_EQ(dest[i], start + std::string(64 - start.size(), '#')) << i;
            }
        }
    }
}

TEST(Bounded, OverlapIsRefused) {
    for (ptrdiff_t distance = -12; distance <= 12; ++distance) {
        for (size_t count = 0; count <= 12; ++count) {
            const auto apart = static_cast<size_t>(std::abs(distance));
            std::string memory(64, 'm');
            EXPECT_EQ(memcpy_s(&memory[20] + distance, 12, &memory[20], count), apart >= count ? 0 : EINVAL);
            EXPECT_EQ(std::ranges::count(memory, '\0'), apart >= count ? 0 : 12) << "the room of a refused copy";
            memory = std::string(20 + count, 'm') + std::string(32, '\0');
            EXPECT_EQ(strcpy_s(&memory[20] + distance, 13, &memory[20]), apart > count ? 0 : EINVAL);
        }
    }
}

/** Without a source the destination is emptied; one without room, or of a size gone astray, is left alone. */
TEST(Bounded, NullsAndSizesGoneAstray) {
    const char *const null = nullptr;
    for (const size_t room : {size_t{0}, size_t{4}, SIZE_MAX / 2 + 1}) {
        const auto expect = [&](int refusal, size_t zeros, const auto &copy) {
            std::string dest = "####";
            EXPECT_EQ(copy(dest.data()), refusal);
            EXPECT_EQ(std::ranges::count(dest, '\0'), room == 4 ? zeros : 0);
            EXPECT_EQ(copy(static_cast<char *>(nullptr)), refusal);
        };
        expect(EINVAL, 4, [=](char *dest) { return memcpy_s(dest, room, nullptr, 1); });
        expect(EINVAL, 1, [=](char *dest) { return strcpy_s(dest, room, nullptr); });
        expect(EINVAL, 1, [=](char *dest) { return strncpy_s(dest, room, nullptr, 1); });
        expect(EINVAL, 1, [=](char *dest) { return strncpy_s(dest, room, "x", SIZE_MAX / 2 + 1); });
        expect(-1, 1, [=](char *dest) { return sprintf_s(dest, room, null); });
        expect(-1, 1, [=](char *dest) { return snprintf_truncated_s(dest, room, null); });
    }
    EXPECT_EQ(memset_s(nullptr, 4, 0, 1), EINVAL);
}

TEST(Bounded, TextIsFormattedWholeOrCut) {
    for (size_t capacity = 1; capacity <= 12; ++capacity) {
        char dest[12];
        EXPECT_EQ(sprintf_s(dest, capacity, "%s-%d", "abcd", 123), capacity > 8 ? 8 : -1);
        EXPECT_STREQ(dest, capacity > 8 ? "abcd-123" : "");
        EXPECT_EQ(snprintf_truncated_s(dest, capacity, "%s-%d", "abcd", 123), std::min<size_t>(capacity, 9) - 1);
        EXPECT_EQ(dest, std::string("abcd-123").substr(0, capacity - 1));
    }
}

/** Compares two values at odd addresses, at the end of blocks of just their size. Returns -1, 0 or 1. */
int Compare(uint16_t type, const Bytes &a, const Bytes &b) {
    const Bytes blockA = Join({{0}, a});
    const Bytes blockB = Join({{0}, b});
    const auto length = static_cast<uint16_t>(a.size());
    const int order = TAV_Posix_FindDataType(type)->compare(type, length, blockA.data() + 1, blockB.data() + 1);
    return (order > 0) - (order < 0);
}

TEST(DataTypes, AreOrdered) {
    const auto address = [](uint8_t family, uint32_t ipv4, uint8_t ipv6) {
        return Join({{family}, Host32(ipv4), Filled(16, ipv6)});
    };
    const auto time = [](uint16_t year, const Bytes &monthToWeekDay, uint32_t millisecond) {
        return Join({Host16(year), monthToWeekDay, Host32(millisecond)});
    };
    const std::vector<Bytes> numbers16 = {Host16(0), Host16(0xFF), Host16(0x100), Host16(0x7FFF), Host16(0x8000)};
    const std::vector<Bytes> numbers32 = {Host32(0), Host32(0xFF), Host32(0x10000), Host32(1u << 30), Host32(1u << 31)};
    const std::vector<Bytes> texts = {{'a', 0, 'b'}, {'a', 0, 'c'}, {0x7F, 9, 9}, {0x80, 0, 0}};
    std::vector<Bytes> addresses = {address(4, 0xFFFFFF, 2), address(4, 0x1000000, 1), address(6, 1, 0)};
    for (size_t i = 20; i >= 5; --i) {  // each byte of an IPv6 address weighs more than those behind it
        addresses.push_back(address(6, 0, 0));
        addresses.back()[i] = 1;
    }
    const std::vector<Bytes> times = {
        // each later by one field
        time(0x102, {3, 4, 5, 6, 7, 6}, 0x10000), time(0x102, {3, 4, 5, 6, 7, 0}, 0x1000000),
        time(0x102, {3, 4, 5, 6, 8, 0}, 0),       time(0x102, {3, 4, 5, 7, 0, 0}, 0),
        time(0x102, {3, 5, 0, 0, 0, 0}, 0),       time(0x200, {0, 0, 0, 0, 0, 0}, 0)};
    const std::pair<uint16_t, std::vector<Bytes>> rows[] = {
        {4, numbers16}, {17, numbers16}, {6, numbers32},  {13, numbers32}, {45, {{0}, {1}, {0x7F}, {0x80}}},
        {25, texts},    {26, texts},     {38, addresses}, {61, times}};
    for (const auto &[type, rising] : rows) {
        for (size_t i = 0; i < rising.size(); ++i) {
            for (size_t j = 0; j < rising.size(); ++j) {
                EXPECT_EQ(Compare(type, rising[i], rising[j]), (i > j) - (i < j)) << type << ": " << i << ", " << j;
            }
        }
        for (size_t length = 1; length < rising[0].size(); ++length) {  // too short for the type: bytewise
            EXPECT_EQ(Compare(type, Filled(length, 9), Join({Filled(length - 1, 9), {0x80}})), -1);
        }
    }
    // What has no say: the address of the other family, the day of the week.
    EXPECT_EQ(Compare(38, address(4, 5, 1), address(4, 5, 2)), 0);
    EXPECT_EQ(Compare(38, address(6, 1, 3), address(6, 2, 3)), 0);
    EXPECT_EQ(Compare(61, time(1, {1, 1, 1, 1, 1, 0}, 1), time(1, {1, 1, 1, 1, 1, 6}, 1)), 0);
}

}  // namespace
