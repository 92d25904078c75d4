/*
 * Field nodes: one block each, header and value together.
 */
#include "extcfg/nodes/field.h"

#include "common/log.h"
#include "extcfg/format/types.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/list.h"
#include "platform/bex_string.h"

namespace {

constexpr char kCreate[] = "TAV_ExtCfgFieldNodeCreate";  // the name under which its helper logs

}  // namespace

bool extcfg::RefuseLength(uint32_t fid, uint32_t length) {
    if (length > TAV_GetExtTlvDataLen(fid)) {
        LOG_AS(kCreate, "Too large for fid %d, len=%d", fid, length);
        return true;
    }
    return false;
}

TAV_ExtCfgFieldNode *extcfg::TakeField(uint32_t fid, uint32_t length) {
    if (!IsLengthAllowed(fid, length)) {
        return nullptr;
    }
    auto *field =
        static_cast<TAV_ExtCfgFieldNode *>(kHeap.Take(static_cast<uint32_t>(sizeof(TAV_ExtCfgFieldNode)) + length));
    if (field == nullptr) {
        LOG_AS(kCreate, "Null pointer, return 0x%x", 0u);
        return nullptr;
    }
    field->fid = fid;
    field->length = length;
    return field;
}

TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeCreate(uint32_t fid, uint32_t length) {
    TAV_ExtCfgFieldNode *field = extcfg::TakeField(fid, length);
    if (field != nullptr) {
        field->link = {};  // in no list, as RecordAddFieldNode sees
        memset_s(extcfg::ValueToFill(field), length, 0, length);
    }
    return field;
}

void TAV_ExtCfgFieldNodeFree(TAV_ExtCfgFieldNode *field) {
    extcfg::kHeap.Return(field);
}

TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeFind(const SLL_List *fields, uint32_t fid) {
    FAIL_IF_NULL(nullptr, fields);
    TAV_ExtCfgFieldNode *field = extcfg::FirstField(fields, fid);
    FAIL_UNLESS(nullptr, field != nullptr, "Fid %d not found", fid);
    return field;
}

int32_t TAV_ExtCfgFieldCompare(const TAV_ExtCfgFieldNode *a, const TAV_ExtCfgFieldNode *b) {
    FAIL_UNLESS(-1, a != nullptr, "Null pointer, return 0x%x", UINT32_MAX);
    FAIL_IF_NULL(1, b);
    if (a->fid != b->fid) {
        return a->fid < b->fid ? -1 : 1;
    }
    const TAV_ExtTlvDataTypeRow *row = extcfg::FindRow(a->fid);
    if (a->length == b->length && (row == nullptr || row->compare == nullptr)) {
        // The getter reports an unknown type.
        FAIL_UNLESS(0, TAV_GetExtTlvCompareFunc(a->fid) != nullptr, "Null pointer, return 0x%x", 0u);
    }
    return extcfg::OrderValues(row, a, b);
}
