/*
 * The type table and the class key table: what every TLV type is, decided by its number alone.
 */
#include "extcfg/format/types.h"

#include "common/log.h"
#include "common/words.h"

// Sizes of fixed-size types, comparers and converters come from the platform at start-up. Type 20 stands behind type 5,
// out of numeric order, to keep the head fields together.
TAV_ExtTlvDataTypeRow g_astExtTlvDataTypeTbl[29] = {
    {EXT_TLV_HDR, TAV_EXT_DATA_TYPE_CONTAINER, 0, nullptr, nullptr},
    {EXT_TLV_VS, TAV_EXT_DATA_TYPE_CONTAINER, 0, nullptr, nullptr},
    {EXT_TLV_VERSION, 6, 0, nullptr, nullptr},
    {EXT_TLV_MODIFY_TIME, 61, 0, nullptr, nullptr},
    {EXT_TLV_CHECKSUM, 26, 32, nullptr, nullptr},
    {EXT_TLV_REFER_CHECKSUM, 26, 32, nullptr, nullptr},
    {EXT_TLV_VS_ID, 6, 0, nullptr, nullptr},
    {7, TAV_EXT_DATA_TYPE_CONTAINER, 0, nullptr, nullptr},
    {8, 25, 254, nullptr, nullptr},
    {9, 4, 0, nullptr, nullptr},
    {10, 17, 0, nullptr, nullptr},
    {11, 45, 0, nullptr, nullptr},
    {12, 25, 433, nullptr, nullptr},
    {13, TAV_EXT_DATA_TYPE_CONTAINER, 0, nullptr, nullptr},
    {14, 6, 0, nullptr, nullptr},
    {15, 17, 0, nullptr, nullptr},
    {16, 17, 0, nullptr, nullptr},
    {17, 17, 0, nullptr, nullptr},
    {18, 38, 0, nullptr, nullptr},
    {19, 6, 0, nullptr, nullptr},
    {21, 4, 0, nullptr, nullptr},
    {22, 17, 0, nullptr, nullptr},
    {23, 17, 0, nullptr, nullptr},
    {24, 4, 0, nullptr, nullptr},
    {25, 13, 0, nullptr, nullptr},
    {26, TAV_EXT_DATA_TYPE_CONTAINER, 0, nullptr, nullptr},
    {27, 6, 0, nullptr, nullptr},
    {28, 4, 0, nullptr, nullptr},
    {0, TAV_EXT_DATA_TYPE_UNKNOWN, 0, nullptr, nullptr},
};

// A VS is keyed by its id; classes 13 and 26 share their key field.
TAV_ExtClassKeyRow g_astExtClassKeyTbl[5] = {{EXT_TLV_VS, EXT_TLV_VS_ID}, {7, 8}, {13, 14}, {26, 14}, {0, 0}};

namespace {

/** Stores a value only when it differs, so that a second start-up writes nothing. */
template <typename Value>
void StoreIfChanged(Value &place, Value value) {
    if (place != value) {
        place = value;
    }
}

/** Completes one row from its data type's descriptor. */
void CompleteRow(TAV_ExtTlvDataTypeRow &row, const PLATFORM_DataType &descriptor) {
    if (descriptor.size != PLATFORM_DATA_TYPE_VARIABLE) {
        StoreIfChanged(row.length, descriptor.size);
    }
    StoreIfChanged(row.compare, descriptor.compare);
    StoreIfChanged(row.endian, TAV_GetEndianFunc(&descriptor));
}

}  // namespace

// Few types come this far. Marked as such, it stays out of its callers: loading takes a thirtieth less time.
[[gnu::cold]] TAV_ExtTlvDataTypeRow *extcfg::SearchRow(uint32_t type) {
    for (TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
        if (row->type == type) {
            return row;
        }
    }
    return nullptr;
}

void TAV_InitExtTlvDataTypeTable(PLATFORM_DataTypeLookup lookup) {
    if (lookup == nullptr) {
        return;
    }
    for (TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
        if (row->dataType == TAV_EXT_DATA_TYPE_CONTAINER) {
            continue;
        }
        const PLATFORM_DataType *descriptor = lookup(row->dataType);
        if (descriptor != nullptr) {
            CompleteRow(*row, *descriptor);
        }
    }
}

TAV_ExtTlvDataTypeRow *TAV_GetExtTlvDataTable(uint32_t type) {
    TAV_ExtTlvDataTypeRow *row = extcfg::FindRow(type);
    FAIL_UNLESS(nullptr, row != nullptr, "Invalid TLV type %d", type);
    return row;
}

uint16_t TAV_GetExtTlvDataType(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(type);
    FAIL_IF_NULL(TAV_EXT_DATA_TYPE_UNKNOWN, row);
    return row->dataType;
}

uint16_t TAV_GetExtTlvDataLen(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(type);
    FAIL_IF_NULL(TAV_EXT_LENGTH_UNKNOWN, row);
    FAIL_UNLESS(TAV_EXT_LENGTH_UNKNOWN, row->length != 0, "Invalid len of TLV type %d", type);
    return row->length;
}

TAV_ExtTlvEndianFunc TAV_GetExtTlvEndianFunc(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(type);
    FAIL_IF_NULL(nullptr, row);
    return common::kHostIsBigEndian ? nullptr : row->endian;
}

TAV_ExtTlvCompareFunc TAV_GetExtTlvCompareFunc(uint32_t type) {
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(type);
    FAIL_IF_NULL(nullptr, row);
    return row->compare;
}

uint32_t TAV_GetExtClassKeyFid(uint32_t cid, uint32_t *fids, uint32_t capacity) {
    uint32_t count = 0;
    for (const TAV_ExtClassKeyRow *row = g_astExtClassKeyTbl; row->cid != 0; ++row) {
        if (row->cid == cid) {
            FAIL_UNLESS(0, count < capacity, "Too many key fields of cid %d, max num is %d", cid, capacity);
            fids[count++] = row->fid;
        }
    }
    return count;
}

TAV_ExtTlvProcFunc TAV_GetExtTlvProcFunc(uint32_t type, const TAV_ExtTlvProcRow *table) {
    for (const TAV_ExtTlvProcRow *row = table; row != nullptr && row->func != nullptr; ++row) {
        if (row->type == type) {
            return row->func;
        }
    }
    FAIL(nullptr, "Invalid TLV type %d", type);
}
