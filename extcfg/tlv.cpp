/*
 * TLV codec. Lengths come from files, so nothing is added to one before it has been compared with what remains.
 */
#include "extcfg/tlv.h"

#include <algorithm>

#include "common/log.h"
#include "extcfg/type_row.h"
#include "platform/bex_string.h"

using extcfg::TlvLength;
using extcfg::TlvSize;
using extcfg::TlvType;
using extcfg::TlvValue;

namespace {

/** Tells whether a value of `length` bytes and its header fit in `maxLen` bytes. */
bool Fits(uint32_t length, uint32_t maxLen) {
    return maxLen >= TAV_EXT_TLV_HEAD_SIZE && length <= maxLen - TAV_EXT_TLV_HEAD_SIZE;
}

}  // namespace

uint32_t TAV_ExtTlvVerify(const uint8_t *tlv, uint32_t maxLen) {
    if (maxLen < TAV_EXT_TLV_HEAD_SIZE) {
        TAV_FAIL(1, "Invalid TLV head, maxLen=%d", maxLen);
    }
    if (!Fits(TlvLength(tlv), maxLen)) {
        TAV_FAIL(1, "Invalid TLV body, curTlvLen=%d, maxLen=%d", TlvSize(tlv), maxLen);
    }
    return 0;
}

uint8_t *TAV_ExtTlvGetNext(uint8_t *tlv, uint32_t maxLen) {
    if (maxLen < TAV_EXT_TLV_HEAD_SIZE) {
        return nullptr; /* not even a header to step over */
    }
    const uint32_t size = TlvSize(tlv);
    if (Fits(TlvLength(tlv), maxLen) && size <= maxLen - TAV_EXT_TLV_HEAD_SIZE) {
        uint8_t *next = tlv + size;
        if (Fits(TlvLength(next), maxLen - size)) {
            return next;
        }
        TAV_FAIL(nullptr, "No next TLV body, curTlvLen=%d, nextTlvLen=%d, maxLen=%d", size, TlvLength(next), maxLen);
    }
    if (size != maxLen) {
        TAV_LOG("No next TLV head, curTlvType=%d, curTlvLen=%d, maxLen=%d", TlvType(tlv), size, maxLen);
    }
    return nullptr;
}

uint8_t *TAV_ExtTlvFind(uint8_t *first, uint32_t maxLen, uint32_t type) {
    if (TAV_ExtTlvVerify(first, maxLen) != 0) {
        TAV_FAIL(nullptr, "First TLV is invalid");
    }
    uint32_t left = maxLen;
    for (uint8_t *tlv = first; tlv != nullptr;) {
        if (TlvType(tlv) == type) {
            return tlv;
        }
        uint8_t *next = TAV_ExtTlvGetNext(tlv, left);
        left -= TlvSize(tlv);
        tlv = next;
    }
    TAV_FAIL(nullptr, "TLV %d not found", type);
}

uint32_t TAV_ExtTlvGetValue_UINT32(uint8_t *first, uint32_t maxLen, uint32_t type, uint32_t *value) {
    TAV_RETURN_IF_NULL(value, TAV_ERR_NULL);
    uint8_t *tlv = TAV_ExtTlvFind(first, maxLen, type);
    TAV_RETURN_IF_NULL(tlv, TAV_ERR_NOT_FOUND);
    if (TlvLength(tlv) != sizeof(*value)) {
        return TAV_ERR_INVALID;
    }
    *value = extcfg::LoadBigEndian32(TlvValue(tlv));
    return TAV_OK;
}

uint32_t TAV_ExtTlvProcForEach(TAV_ExtTlvProcFunc visitor, uint8_t *first, uint32_t maxLen, void *context) {
    if (visitor == nullptr || first == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    if (TAV_ExtTlvVerify(first, maxLen) != 0) {
        TAV_FAIL(TAV_ERR_INVALID, "First TLV is invalid");
    }
    uint32_t left = maxLen;
    uint8_t *last = first;
    for (uint8_t *tlv = first; tlv != nullptr;) {
        const uint32_t result = visitor(TlvType(tlv), TlvValue(tlv), TlvLength(tlv), context);
        if (result != 0) {
            TAV_FAIL(result, "ExtTlvProcFunc of type(%d) failed, return 0x%x", TlvType(tlv), result);
        }
        last = tlv;
        tlv = TAV_ExtTlvGetNext(last, left);
        left -= TlvSize(last);
    }
    if (left != 0) {
        TAV_FAIL(TAV_ERR_INVALID, "Parse cfg tlv failed, left size=%d, cur type=%d, len=%d", left, TlvType(last),
                 TlvLength(last));
    }
    return TAV_OK;
}

uint32_t TAV_ExtTlvConvertEndian(uint32_t type, uint32_t length, const void *source, void *destination) {
    /* The row is looked up once; the getters are asked for a type that has none, or no length, because they report. */
    const TAV_ExtTlvDataTypeRow *row = extcfg::FindCompleteRow(type);
    const uint16_t dataType = row != nullptr ? row->dataType : TAV_GetExtTlvDataType(type);
    const uint32_t limit = row != nullptr ? row->length : TAV_GetExtTlvDataLen(type);
    if (length > limit) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid len %d, over datatype len %d", length, limit);
    }
    if (memcpy_s(destination, length, source, length) != 0) {
        return TAV_ERR_COPY;
    }
    const TAV_ExtTlvEndianFunc convert =
        row != nullptr && !extcfg::kHostIsBigEndian ? row->endian : TAV_GetExtTlvEndianFunc(type);
    /* A value shorter than its type is kept as it stands: the converter's refusal is not a failure here. */
    if (convert != nullptr) {
        convert(0, dataType, static_cast<uint16_t>(length), destination);
    }
    return TAV_OK;
}

uint32_t TAV_ExtTlvSet(uint32_t type, uint32_t length, const void *value, uint8_t *destination, uint32_t maxSize) {
    if (!Fits(length, maxSize)) {
        TAV_FAIL(TAV_ERR_NO_ROOM, "Set TLV len over max(type=%d, len=%d), max size=%d", type, length, maxSize);
    }
    extcfg::StoreBigEndian32(type, destination);
    extcfg::StoreBigEndian32(length, destination + sizeof(uint32_t));
    if (value == nullptr) {
        return TAV_OK;
    }
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, TlvValue(destination));
    if (result != TAV_OK) {
        TAV_FAIL(result, "Convert endian of TLV value failed(type=%d, len=%d), return 0x%x", type, length, result);
    }
    return TAV_OK;
}

uint32_t TAV_ExtTlvAppend(uint32_t type, uint32_t length, const void *value, uint8_t **cursor, const uint8_t *end) {
    if (*cursor > end) {
        TAV_FAIL(TAV_ERR_NO_ROOM, "pointer over end when write TLV(type=%d, len=%d)", type, length);
    }
    const auto room = static_cast<uint32_t>(std::min<size_t>(static_cast<size_t>(end - *cursor), UINT32_MAX));
    const uint32_t result = TAV_ExtTlvSet(type, length, value, *cursor, room);
    /* Advances after a failure as well, on purpose: whoever appends stops at the first failure. */
    *cursor += TAV_EXT_TLV_HEAD_SIZE + (value == nullptr ? size_t{0} : size_t{length});
    return result;
}
