/*
 * TLV codec. Lengths come from files, so nothing is added to one before it has been compared with what remains.
 */
#include "extcfg/format/tlv.h"

#include <algorithm>

#include "common/log.h"
#include "extcfg/format/types.h"
#include "platform/bex_string.h"

using extcfg::TlvLength;
using extcfg::TlvSize;
using extcfg::TlvType;
using extcfg::TlvValue;

namespace {

/** Returns whether a value of `length` bytes and its header fit in `maxLen` bytes. */
bool Fits(uint32_t length, uint32_t maxLen) {
    return maxLen >= TAV_EXT_TLV_HEAD_SIZE && length <= maxLen - TAV_EXT_TLV_HEAD_SIZE;
}

/** Returns the TLV that follows; null when there is none that fits. */
inline uint8_t *NextThatFits(uint8_t *tlv, uint32_t maxLen) {
    if (!Fits(TlvLength(tlv), maxLen)) {
        return nullptr;
    }
    uint8_t *next = tlv + TlvSize(tlv);
    const uint32_t left = maxLen - TlvSize(tlv);
    return left >= TAV_EXT_TLV_HEAD_SIZE && Fits(TlvLength(next), left) ? next : nullptr;
}

}  // namespace

uint32_t TAV_ExtTlvVerify(const uint8_t *tlv, uint32_t maxLen) {
    FAIL_UNLESS(1, maxLen >= TAV_EXT_TLV_HEAD_SIZE, "Invalid TLV head, maxLen=%d", maxLen);
    FAIL_UNLESS(1, Fits(TlvLength(tlv), maxLen), "Invalid TLV body, curTlvLen=%d, maxLen=%d", TlvSize(tlv), maxLen);
    return 0;
}

uint8_t *TAV_ExtTlvGetNext(uint8_t *tlv, uint32_t maxLen) {
    if (maxLen < TAV_EXT_TLV_HEAD_SIZE) {
        return nullptr;  // not even a header to step over
    }
    const uint32_t size = TlvSize(tlv);
    if (Fits(TlvLength(tlv), maxLen) && size <= maxLen - TAV_EXT_TLV_HEAD_SIZE) {
        uint8_t *next = tlv + size;
        if (Fits(TlvLength(next), maxLen - size)) {
            return next;
        }
        FAIL(nullptr, "No next TLV body, curTlvLen=%d, nextTlvLen=%d, maxLen=%d", size, TlvLength(next), maxLen);
    }
    if (size != maxLen) {
        LOG("No next TLV head, curTlvType=%d, curTlvLen=%d, maxLen=%d", TlvType(tlv), size, maxLen);
    }
    return nullptr;
}

uint8_t *TAV_ExtTlvFind(uint8_t *first, uint32_t maxLen, uint32_t type) {
    FAIL_UNLESS(nullptr, TAV_ExtTlvVerify(first, maxLen) == 0, "First TLV is invalid");
    uint32_t left = maxLen;
    for (uint8_t *tlv = first; tlv != nullptr;) {
        if (TlvType(tlv) == type) {
            return tlv;
        }
        uint8_t *next = TAV_ExtTlvGetNext(tlv, left);
        left -= TlvSize(tlv);
        tlv = next;
    }
    FAIL(nullptr, "TLV %d not found", type);
}

uint32_t TAV_ExtTlvGetValue_UINT32(uint8_t *first, uint32_t maxLen, uint32_t type, uint32_t *value) {
    FAIL_IF_NULL(TAV_ERR_NULL, value);
    uint8_t *tlv = TAV_ExtTlvFind(first, maxLen, type);
    FAIL_IF_NULL(TAV_ERR_NOT_FOUND, tlv);
    if (TlvLength(tlv) != sizeof(*value)) {
        return TAV_ERR_INVALID;
    }
    *value = common::LoadBigEndian<uint32_t>(TlvValue(tlv));
    return TAV_OK;
}

uint32_t TAV_ExtTlvProcForEach(TAV_ExtTlvProcFunc visitor, uint8_t *first, uint32_t maxLen, void *context) {
    FAIL_IF_NULL(TAV_ERR_NULL, visitor, first);
    FAIL_UNLESS(TAV_ERR_INVALID, TAV_ExtTlvVerify(first, maxLen) == 0, "First TLV is invalid");
    uint32_t left = maxLen;
    uint8_t *last = first;
    for (uint8_t *tlv = first; tlv != nullptr;) {
        const uint32_t result = visitor(TlvType(tlv), TlvValue(tlv), TlvLength(tlv), context);
        FAIL_UNLESS(result, result == 0, "ExtTlvProcFunc of type(%d) failed, return 0x%x", TlvType(tlv), result);
        last = tlv;
        // A walk over many short TLVs spends a tenth of its time in the call otherwise; the call reports.
        tlv = NextThatFits(last, left);
        if (tlv == nullptr) {
            tlv = TAV_ExtTlvGetNext(last, left);
        }
        left -= TlvSize(last);
    }
    FAIL_UNLESS(TAV_ERR_INVALID, left == 0, "Parse cfg tlv failed, left size=%d, cur type=%d, len=%d", left,
                TlvType(last), TlvLength(last));
    return TAV_OK;
}

uint32_t TAV_ExtTlvConvertEndian(uint32_t type, uint32_t length, const void *source, void *destination) {
    // Each getter searches the table anew, so the row is asked for once. A type that has none, or no length yet, is
    // left to the getters, because they report.
    const TAV_ExtTlvDataTypeRow *row = extcfg::FindCompleteRow(type);
    const uint16_t dataType = row != nullptr ? row->dataType : TAV_GetExtTlvDataType(type);
    const uint32_t limit = row != nullptr ? row->length : TAV_GetExtTlvDataLen(type);
    FAIL_UNLESS(TAV_ERR_INVALID, length <= limit, "Invalid len %d, over datatype len %d", length, limit);
    if (memcpy_s(destination, length, source, length) != 0) {
        return TAV_ERR_COPY;
    }
    const TAV_ExtTlvEndianFunc convert =
        row != nullptr && !common::kHostIsBigEndian ? row->endian : TAV_GetExtTlvEndianFunc(type);
    // A value shorter than its type is kept as it stands, so it does not matter that the converter refuses it.
    if (convert != nullptr) {
        convert(0, dataType, static_cast<uint16_t>(length), destination);
    }
    return TAV_OK;
}

uint32_t TAV_ExtTlvSet(uint32_t type, uint32_t length, const void *value, uint8_t *destination, uint32_t maxSize) {
    FAIL_UNLESS(TAV_ERR_NO_ROOM, Fits(length, maxSize), "Set TLV len over max(type=%d, len=%d), max size=%d", type,
                length, maxSize);
    common::StoreBigEndian<uint32_t>(type, destination);
    common::StoreBigEndian<uint32_t>(length, destination + sizeof(uint32_t));
    if (value == nullptr) {
        return TAV_OK;
    }
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, TlvValue(destination));
    FAIL_UNLESS(result, result == TAV_OK, "Convert endian of TLV value failed(type=%d, len=%d), return 0x%x", type,
                length, result);
    return TAV_OK;
}

uint32_t TAV_ExtTlvAppend(uint32_t type, uint32_t length, const void *value, uint8_t **cursor, const uint8_t *end) {
    FAIL_UNLESS(TAV_ERR_NO_ROOM, *cursor <= end, "pointer over end when write TLV(type=%d, len=%d)", type, length);
    const auto room = static_cast<uint32_t>(std::min<size_t>(static_cast<size_t>(end - *cursor), UINT32_MAX));
    const uint32_t result = TAV_ExtTlvSet(type, length, value, *cursor, room);
    // Advances after a failure as well, as the interface says: whoever appends stops at the first failure.
    *cursor += TAV_EXT_TLV_HEAD_SIZE + (value == nullptr ? size_t{0} : size_t{length});
    return result;
}
