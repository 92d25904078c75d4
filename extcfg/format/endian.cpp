/*
 * Byte order converters, and the choice of the one that suits a platform data type. Values stand at any alignment.
 */
#include <algorithm>

#include "common/log.h"
#include "common/words.h"
#include "tav_extcfg.h"

namespace {

// The platform's ids of the data types that hold integers among other bytes.
constexpr uint16_t kIpAddressType = 38;
constexpr uint16_t kSysTimeType = 61;

// Layout of the two, in bytes.
constexpr uint16_t kIpAddressSize = 21;  // family, IPv4 word, IPv6 bytes
constexpr uint32_t kIpv4Offset = 1;
constexpr uint16_t kSysTimeSize = 12;
constexpr uint32_t kYearOffset = 0;
constexpr uint32_t kMillisecondOffset = 8;

/** The integers that a storage kind of the platform can stand for. */
enum class Integer { kNone, k16Bit, k32Bit, k64Bit };

/** Returns the integer that a storage kind stands for; none for single bytes, strings and compound types. */
Integer IntegerOf(uint16_t storageKind) {
    switch (storageKind) {
        case 3:
        case 4:
        case 15:
        case 17:
            return Integer::k16Bit;
        case 5:
        case 6:
        case 9:
        case 11:
        case 13:
        case 14:
        case 19:
        case 21:
        case 23:
        case 29:
        case 30:
        case 31:
        case 32:
            return Integer::k32Bit;
        case 7:
        case 8:
        case 10:
        case 12:
            return Integer::k64Bit;
        default:
            return Integer::kNone;
    }
}

/** Returns the converter of a data type that is no integer, or null. */
TAV_ExtTlvEndianFunc CompoundConverter(uint16_t dataType) {
    switch (dataType) {
        case kIpAddressType:
            return TAV_SYS_IPV4IPV6_Endian;
        case kSysTimeType:
            return TAV_SYS_SYSTIME_Endian;
        default:
            return nullptr;
    }
}

/** Converts one integer of `width` bytes between big-endian and host order. */
void ConvertInteger(void *value, uint32_t offset, uint32_t width) {
    if constexpr (!common::kHostIsBigEndian) {
        uint8_t *first = static_cast<uint8_t *>(value) + offset;
        std::reverse(first, first + width);
    }
}

}  // namespace

TAV_ExtTlvEndianFunc TAV_GetEndianFunc(const PLATFORM_DataType *descriptor) {
    FAIL_IF_NULL(nullptr, descriptor);
    switch (IntegerOf(descriptor->storageKind)) {
        case Integer::k16Bit:
            return TAV_USHORT_Endian;
        case Integer::k32Bit:
            return TAV_UINT32_Endian;
        case Integer::k64Bit:
            return TAV_UINT64_Endian;
        case Integer::kNone:
            break;
    }
    return CompoundConverter(descriptor->id);
}

uint32_t TAV_USHORT_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    FAIL_UNLESS(TAV_ERR_INVALID, length >= sizeof(uint16_t), "Len %d", length);
    ConvertInteger(value, 0, sizeof(uint16_t));
    return TAV_OK;
}

uint32_t TAV_UINT32_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    FAIL_UNLESS(TAV_ERR_INVALID, length >= sizeof(uint32_t), "Len %d", length);
    ConvertInteger(value, 0, sizeof(uint32_t));
    return TAV_OK;
}

uint32_t TAV_UINT64_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    FAIL_UNLESS(TAV_ERR_INVALID, length >= sizeof(uint64_t), "Len %d", length);
    ConvertInteger(value, 0, sizeof(uint64_t));
    return TAV_OK;
}

uint32_t TAV_SYS_IPV4IPV6_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    FAIL_UNLESS(TAV_ERR_INVALID, length >= kIpAddressSize, "Len %d", length);
    ConvertInteger(value, kIpv4Offset, sizeof(uint32_t));
    return TAV_OK;
}

uint32_t TAV_SYS_SYSTIME_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    FAIL_UNLESS(TAV_ERR_INVALID, length >= kSysTimeSize, "Len %d", length);
    ConvertInteger(value, kYearOffset, sizeof(uint16_t));
    ConvertInteger(value, kMillisecondOffset, sizeof(uint32_t));
    return TAV_OK;
}
