// The registry of data types and its comparers.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "bytes.h"
#include "platform/mel_clock.h"
#include "tav_posix.h"

namespace {

// Compares two values at odd addresses, at the end of blocks of just their size. Returns -1, 0 or 1.
int Compare(uint16_t type, const Bytes &a, const Bytes &b) {
    const Bytes blockA = Join({{0}, a});
    const Bytes blockB = Join({{0}, b});
    const auto length = static_cast<uint16_t>(a.size());
    const int32_t order = TAV_Posix_FindDataType(type)->compare(type, length, blockA.data() + 1, blockB.data() + 1);
    return (order > 0) - (order < 0);
}

// An address of a family; its IPv6 part is filled with one byte.
Bytes Address(uint8_t family, uint32_t ipv4, uint8_t ipv6) {
    return Join({{family}, Host32(ipv4), Filled(16, ipv6)});
}

Bytes Time(const BEX_SysTime &time) {
    Bytes bytes(sizeof time);
    std::memcpy(bytes.data(), &time, sizeof time);
    return bytes;
}

TEST(DataTypes, AreThoseOfTheTable) {
    const struct {
        uint16_t id, size, storageKind;
    } rows[] = {{4, 2, 4},        {6, 4, 6},    {13, 4, 13}, {17, 2, 17}, {25, 0xFFFF, 25},
                {26, 0xFFFF, 26}, {38, 21, 38}, {45, 1, 2},  {61, 12, 61}};
    uint32_t known = 0;
    for (uint32_t id = 0; id <= UINT16_MAX; ++id) {
        known += TAV_Posix_FindDataType(static_cast<uint16_t>(id)) != nullptr;
    }
    EXPECT_EQ(known, std::size(rows));
    for (const auto &row : rows) {
        const PLATFORM_DataType *const found = TAV_Posix_FindDataType(row.id);
        ASSERT_NE(found, nullptr);
        EXPECT_TRUE(found->id == row.id && found->size == row.size && found->storageKind == row.storageKind);
        // A value shorter than its type, down to none at all, is ordered bytewise.
        EXPECT_EQ(Compare(row.id, {}, {}), 0);
        for (uint16_t length = 1; length < std::min<uint16_t>(row.size, 30); ++length) {
            const Bytes a = Filled(length, 0x7F);
            EXPECT_EQ(Compare(row.id, a, Join({Filled(length - 1u, 0x7F), {0x80}})), -1);
        }
    }
}

TEST(DataTypes, AreOrdered) {
    const std::vector<Bytes> numbers16 = {Host16(0), Host16(0xFF), Host16(0x100), Host16(0x7FFF), Host16(0x8000)};
    const std::vector<Bytes> numbers32 = {Host32(0), Host32(0xFF), Host32(0x10000), Host32(0x7F000000),
                                          Host32(1u << 31)};
    const std::vector<Bytes> texts = {{'a', 0, 'b'}, {'a', 0, 'c'}, {0x7F, 9, 9}, {0x80, 0, 0}};
    std::vector<Bytes> addresses = {Address(4, 0x00FFFFFF, 2), Address(4, 0x01000000, 1), Address(6, 1, 0)};
    for (size_t i = 20; i >= 5; --i) {  // each byte of an IPv6 address weighs more than those behind it
        addresses.push_back(Address(6, 0, 0));
        addresses.back()[i] = 1;
    }
    addresses.insert(addresses.end(), {Address(9, 1, 3), Address(9, 0xFFFFFFFF, 2)});  // unknown: everything counts
    const std::vector<Bytes> times = {
        // each is later by one field; what stands behind it is earlier
        Time({0x0102, 3, 4, 5, 6, 7, 6, 0x00010000}), Time({0x0102, 3, 4, 5, 6, 7, 0, 0x01000000}),
        Time({0x0102, 3, 4, 5, 6, 8, 0, 0}),          Time({0x0102, 3, 4, 5, 7, 0, 0, 0}),
        Time({0x0102, 3, 4, 6, 0, 0, 0, 0}),          Time({0x0102, 3, 5, 0, 0, 0, 0, 0}),
        Time({0x0102, 4, 0, 0, 0, 0, 0, 0}),          Time({0x0200, 0, 0, 0, 0, 0, 0, 0})};
    const struct {
        uint16_t type;
        std::vector<Bytes> rising;
    } rows[] = {{4, numbers16}, {17, numbers16}, {6, numbers32},  {13, numbers32}, {45, {{0}, {1}, {0x7F}, {0x80}}},
                {25, texts},    {26, texts},     {38, addresses}, {61, times}};
    for (const auto &[type, rising] : rows) {
        for (size_t i = 0; i < rising.size(); ++i) {
            for (size_t j = 0; j < rising.size(); ++j) {
                EXPECT_EQ(Compare(type, rising[i], rising[j]), (i > j) - (i < j)) << type << ": " << i << ", " << j;
            }
        }
    }
    // What has no say: the address of the other family, the day of the week.
    EXPECT_EQ(Compare(38, Address(4, 5, 1), Address(4, 5, 2)), 0);
    EXPECT_EQ(Compare(38, Address(6, 1, 3), Address(6, 2, 3)), 0);
    EXPECT_EQ(Compare(61, Time({1, 1, 1, 1, 1, 1, 0, 1}), Time({1, 1, 1, 1, 1, 1, 6, 1})), 0);
}

}  // namespace
