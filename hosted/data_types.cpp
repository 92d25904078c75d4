/*
 * The registry of data types.
 *
 * Comparers get values in host order at any alignment. A value shorter than its type is compared bytewise.
 */
#include <cstring>

#include "common/words.h"
#include "interfaces.h"

namespace {

constexpr uint16_t kAddressType = 38;
constexpr uint16_t kTimeType = 61;

// Layout of an address: family, IPv4 address as a number, IPv6 address as bytes; packed.
constexpr uint16_t kAddressSize = 21;
constexpr size_t kIpv4Offset = 1;
constexpr size_t kIpv6Offset = 5;
constexpr size_t kIpv6Size = 16;
constexpr uint8_t kIpv4Family = 4;
constexpr uint8_t kIpv6Family = 6;

// Layout of a time: the year as a number, month to second as single bytes in a row, the day of the week, and the
// millisecond as a number.
constexpr uint16_t kTimeSize = sizeof(BEX_SysTime);
constexpr size_t kYearOffset = offsetof(BEX_SysTime, year);
constexpr size_t kMonthOffset = offsetof(BEX_SysTime, month);
constexpr size_t kMonthToSecondSize = offsetof(BEX_SysTime, weekDay) - kMonthOffset;
constexpr size_t kMillisecondOffset = offsetof(BEX_SysTime, millisecond);
static_assert(kTimeSize == 12 && kMonthToSecondSize == 5);

/** Orders two numbers of any alignment. */
template <typename Number>
int32_t CompareWords(const void *a, const void *b) {
    const Number numberA = common::LoadWord<Number>(a);
    const Number numberB = common::LoadWord<Number>(b);
    return (numberA > numberB) - (numberA < numberB);
}

int32_t CompareBytes(uint16_t /*dataType*/, uint16_t length, const void *a, const void *b) {
    return memcmp(a, b, length);
}

template <typename Number>
int32_t CompareNumber(uint16_t dataType, uint16_t length, const void *a, const void *b) {
    return length < sizeof(Number) ? CompareBytes(dataType, length, a, b) : CompareWords<Number>(a, b);
}

/** Family first, then the address of that family; of an unknown family, everything. */
int32_t CompareAddress(uint16_t dataType, uint16_t length, const void *a, const void *b) {
    const auto *const bytesA = static_cast<const uint8_t *>(a);
    const auto *const bytesB = static_cast<const uint8_t *>(b);
    if (length < kAddressSize || bytesA[0] != bytesB[0]) {
        return CompareBytes(dataType, length, a, b);
    }
    switch (bytesA[0]) {
        case kIpv4Family:
            return CompareWords<uint32_t>(bytesA + kIpv4Offset, bytesB + kIpv4Offset);
        case kIpv6Family:
            return memcmp(bytesA + kIpv6Offset, bytesB + kIpv6Offset, kIpv6Size);
        default:
            return CompareBytes(dataType, length, a, b);
    }
}

/** Chronological; the day of the week has no say. */
int32_t CompareTime(uint16_t dataType, uint16_t length, const void *a, const void *b) {
    if (length < kTimeSize) {
        return CompareBytes(dataType, length, a, b);
    }
    const auto *const bytesA = static_cast<const uint8_t *>(a);
    const auto *const bytesB = static_cast<const uint8_t *>(b);
    int32_t order = CompareWords<uint16_t>(bytesA + kYearOffset, bytesB + kYearOffset);
    if (order == 0) {
        order = memcmp(bytesA + kMonthOffset, bytesB + kMonthOffset, kMonthToSecondSize);
    }
    return order != 0 ? order : CompareWords<uint32_t>(bytesA + kMillisecondOffset, bytesB + kMillisecondOffset);
}

// id, size, storage kind, comparer
constexpr PLATFORM_DataType kDataTypes[] = {
    {4, 2, 4, CompareNumber<uint16_t>},
    {6, 4, 6, CompareNumber<uint32_t>},
    {13, 4, 13, CompareNumber<uint32_t>},
    {17, 2, 17, CompareNumber<uint16_t>},
    {25, PLATFORM_DATA_TYPE_VARIABLE, 25, CompareBytes},
    {26, PLATFORM_DATA_TYPE_VARIABLE, 26, CompareBytes},
    {kAddressType, kAddressSize, 38, CompareAddress},
    {45, 1, 2, CompareNumber<uint8_t>},
    {kTimeType, kTimeSize, 61, CompareTime},
};

}  // namespace

const PLATFORM_DataType *TAV_Posix_FindDataType(uint16_t dataType) {
    for (const PLATFORM_DataType &candidate : kDataTypes) {
        if (candidate.id == dataType) {
            return &candidate;
        }
    }
    return nullptr;
}
