// The registry of data types and its comparers.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "platform/mel_clock.h"
#include "tav_posix.h"

namespace {

using Bytes = std::vector<uint8_t>;

int Sign(int64_t value) {
    return (value > 0) - (value < 0);
}

// Compares two values at the end of blocks of their very size, at an odd address. Checks that both ways agree.
int Compare(uint16_t type, const Bytes &a, const Bytes &b) {
    const PLATFORM_DataType *const row = TAV_Posix_FindDataType(type);
    const auto length = static_cast<uint16_t>(a.size());
    Bytes blockA(1, 0);
    Bytes blockB(1, 0);
    blockA.insert(blockA.end(), a.begin(), a.end());
    blockB.insert(blockB.end(), b.begin(), b.end());
    blockA.shrink_to_fit();
    blockB.shrink_to_fit();
    const int order = Sign(row->compare(type, length, blockA.data() + 1, blockB.data() + 1));
    EXPECT_EQ(Sign(row->compare(type, length, blockB.data() + 1, blockA.data() + 1)), -order);
    return order;
}

template <typename Number>
Bytes BytesOf(Number number) {
    Bytes bytes(sizeof number);
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

template <typename Number>
void CheckNumbers(uint16_t type) {
    std::mt19937 random(type);
    for (int i = 0; i < 500; ++i) {
        const auto a = static_cast<Number>(random());
        const auto b = i % 10 == 0 ? a : static_cast<Number>(random());
        ASSERT_EQ(Compare(type, BytesOf(a), BytesOf(b)), Sign(static_cast<int64_t>(a) - static_cast<int64_t>(b)));
    }
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
        for (uint16_t length = 0; length < std::min<uint16_t>(row.size, 30); ++length) {
            Bytes a(length, 0x7F);
            Bytes b(a);
            EXPECT_EQ(Compare(row.id, a, b), 0);
            if (length > 0) {
                b.back() = 0x80;
                EXPECT_EQ(Compare(row.id, a, b), -1);
            }
        }
    }
}

TEST(DataTypes, NumbersTextAndBytesAreOrdered) {
    CheckNumbers<uint16_t>(4);
    CheckNumbers<uint16_t>(17);
    CheckNumbers<uint32_t>(6);
    CheckNumbers<uint32_t>(13);
    CheckNumbers<uint8_t>(45);
    for (const uint16_t type : {uint16_t{25}, uint16_t{26}}) {
        EXPECT_EQ(Compare(type, {'a', 0, 'b'}, {'a', 0, 'c'}), -1);
        EXPECT_EQ(Compare(type, {0x80}, {0x7F}), 1);
    }
}

TEST(DataTypes, AddressesAreOrderedByFamilyThenAddress) {
    const auto address = [](uint8_t family, uint32_t ipv4, uint8_t ipv6) {
        Bytes bytes(21, ipv6);
        bytes[0] = family;
        std::memcpy(&bytes[1], &ipv4, sizeof ipv4);
        return bytes;
    };
    EXPECT_EQ(Compare(38, address(4, 0xFFFFFFFF, 9), address(6, 0, 0)), -1);
    EXPECT_EQ(Compare(38, address(4, 0x01000000, 0), address(4, 0x00FFFFFF, 0)), 1);
    EXPECT_EQ(Compare(38, address(4, 5, 1), address(4, 5, 2)), 0);
    EXPECT_EQ(Compare(38, address(6, 1, 3), address(6, 2, 3)), 0);
    for (size_t i = 5; i < 21; ++i) {
        Bytes changed = address(6, 1, 3);
        changed[i] = 4;
        EXPECT_EQ(Compare(38, address(6, 2, 3), changed), -1) << i;
    }
    EXPECT_NE(Compare(38, address(9, 1, 3), address(9, 2, 3)), 0);
}

TEST(DataTypes, TimesAreOrderedChronologically) {
    const BEX_SysTime base = {0x0102, 3, 4, 5, 6, 7, 6, 0x00010000};
    EXPECT_EQ(Compare(61, BytesOf(base), BytesOf(base)), 0);
    // Each step is later than the base by one field; what stands behind that field is earlier.
    const BEX_SysTime later[] = {{0x0200, 0, 0, 0, 0, 0, 0, 0},         {0x0102, 4, 0, 0, 0, 0, 0, 0},
                                 {0x0102, 3, 5, 0, 0, 0, 0, 0},         {0x0102, 3, 4, 6, 0, 0, 0, 0},
                                 {0x0102, 3, 4, 5, 7, 0, 0, 0},         {0x0102, 3, 4, 5, 6, 8, 0, 0},
                                 {0x0102, 3, 4, 5, 6, 7, 0, 0x00010001}};
    for (const BEX_SysTime &time : later) {
        EXPECT_EQ(Compare(61, BytesOf(base), BytesOf(time)), -1);
    }
    BEX_SysTime otherDay = base;
    otherDay.weekDay = 1;
    EXPECT_EQ(Compare(61, BytesOf(base), BytesOf(otherDay)), 0);
}

}  // namespace
