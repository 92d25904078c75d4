/*
 * Byte order converters, and the choice of the one that suits a platform data type. Values stand at any alignment.
 */
#include <algorithm>

#include "common/log.h"
#include "extcfg/byte_order.h"
#include "tav_extcfg.h"

namespace {

constexpr uint16_t kIpAddressType = 38; /* the platform's data type of an address */
constexpr uint16_t kSysTimeType = 61;   /* the platform's data type of a system time */

/* Storage kinds, counted from 3, that are integers of a width: bit n stands for kind n + 3. */
constexpr uint32_t kFirstKind = 3;
constexpr uint32_t kKindCount = 30;
constexpr uint32_t kKinds32 = 0x3C150D4C;
constexpr uint32_t kKinds16 = 0x5003;
constexpr uint32_t kKinds64 = 0x2B0;

/* Layout of the two compound types, in bytes. */
constexpr uint16_t kIpAddressSize = 21; /* family, IPv4 word, IPv6 bytes */
constexpr uint32_t kIpv4Offset = 1;
constexpr uint16_t kSysTimeSize = 12;
constexpr uint32_t kYearOffset = 0;
constexpr uint32_t kMillisecondOffset = 8;

/** Converts one integer of `width` bytes between big-endian and host order. */
void ConvertInteger(void *value, uint32_t offset, uint32_t width) {
    if constexpr (!extcfg::kHostIsBigEndian) {
        uint8_t *first = static_cast<uint8_t *>(value) + offset;
        std::reverse(first, first + width);
    }
}

}  // namespace

/** Refuses a null value and one shorter than its type. A macro, because the log names the converter. */
#define TAV_CHECK_VALUE(value, length, minLength)        \
    do {                                                 \
        TAV_RETURN_IF_NULL(value, TAV_ERR_NULL);         \
        if ((length) < (minLength)) {                    \
            TAV_FAIL(TAV_ERR_INVALID, "Len %d", length); \
        }                                                \
    } while (false)

TAV_ExtTlvEndianFunc TAV_GetEndianFunc(const PLATFORM_DataType *descriptor) {
    TAV_NONE_IF_NULL(descriptor);
    /* A kind below 3 wraps to a large number, and so is none of them. */
    const auto kind = static_cast<uint16_t>(descriptor->storageKind - kFirstKind);
    const uint32_t bit = kind < kKindCount ? 1u << kind : 0;
    if ((kKinds32 & bit) != 0) {
        return TAV_UINT32_Endian;
    }
    if ((kKinds16 & bit) != 0) {
        return TAV_USHORT_Endian;
    }
    if ((kKinds64 & bit) != 0) {
        return TAV_UINT64_Endian;
    }
    if (descriptor->id == kIpAddressType) {
        return TAV_SYS_IPV4IPV6_Endian;
    }
    if (descriptor->id == kSysTimeType) {
        return TAV_SYS_SYSTIME_Endian;
    }
    return nullptr;
}

uint32_t TAV_USHORT_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    TAV_CHECK_VALUE(value, length, sizeof(uint16_t));
    ConvertInteger(value, 0, sizeof(uint16_t));
    return TAV_OK;
}

uint32_t TAV_UINT32_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    TAV_CHECK_VALUE(value, length, sizeof(uint32_t));
    ConvertInteger(value, 0, sizeof(uint32_t));
    return TAV_OK;
}

uint32_t TAV_UINT64_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    TAV_CHECK_VALUE(value, length, sizeof(uint64_t));
    ConvertInteger(value, 0, sizeof(uint64_t));
    return TAV_OK;
}

uint32_t TAV_SYS_IPV4IPV6_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    TAV_CHECK_VALUE(value, length, kIpAddressSize);
    ConvertInteger(value, kIpv4Offset, sizeof(uint32_t));
    return TAV_OK;
}

uint32_t TAV_SYS_SYSTIME_Endian(uint32_t, uint16_t, uint16_t length, void *value) {
    TAV_CHECK_VALUE(value, length, kSysTimeSize);
    ConvertInteger(value, kYearOffset, sizeof(uint16_t));
    ConvertInteger(value, kMillisecondOffset, sizeof(uint32_t));
    return TAV_OK;
}
