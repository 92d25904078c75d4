/*
 * Field nodes: one block each, header and value together.
 */
#include "common/log.h"
#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "extcfg/type_row.h"

using extcfg::FieldValue;

TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeCreate(uint32_t fid, uint32_t length) {
    if (length > TAV_GetExtTlvDataLen(fid)) {
        TAV_FAIL(nullptr, "Too large for fid %d, len=%d", fid, length);
    }
    auto *field = static_cast<TAV_ExtCfgFieldNode *>(TAV_TAKE(sizeof(TAV_ExtCfgFieldNode) + length));
    TAV_NONE_IF_NULL(field);
    field->fid = fid;
    field->length = length;
    return field;
}

void TAV_ExtCfgFieldNodeFree(TAV_ExtCfgFieldNode *field) {
    if (field != nullptr) {
        TAV_GIVE_BACK(field);
    }
}

TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeFind(const SLL_List *fields, uint32_t fid) {
    TAV_NONE_IF_NULL(fields);
    for (auto *field = extcfg::FirstOf<TAV_ExtCfgFieldNode>(fields); field != nullptr;
         field = extcfg::NextOf(fields, field)) {
        if (field->fid == fid) {
            return field;
        }
    }
    TAV_FAIL(nullptr, "Fid %d not found", fid);
}

int32_t TAV_ExtCfgFieldCompare(const TAV_ExtCfgFieldNode *a, const TAV_ExtCfgFieldNode *b) {
    if (a == nullptr) {
        TAV_LOG("Null pointer, return 0x%x", UINT32_MAX);
        return -1;
    }
    TAV_RETURN_IF_NULL(b, 1);
    if (a->fid != b->fid) {
        return a->fid < b->fid ? -1 : 1;
    }
    /* Values of different length are not compared by content, on purpose, for strings as for everything else. */
    if (a->length != b->length) {
        return a->length < b->length ? -1 : 1;
    }
    const TAV_ExtTlvDataTypeRow *row = extcfg::FindRow(a->fid);
    const TAV_ExtTlvCompareFunc compare = row != nullptr ? row->compare : TAV_GetExtTlvCompareFunc(a->fid);
    TAV_RETURN_IF_NULL(compare, 0);
    return compare(row->dataType, static_cast<uint16_t>(a->length), FieldValue(a), FieldValue(b));
}
