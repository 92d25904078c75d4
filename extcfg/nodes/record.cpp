/*
 * Record nodes: lists of fields under a class id, compared and found by the key fields of their class.
 */
#include "extcfg/nodes/record.h"

#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/field_room.h"
#include "extcfg/nodes/list.h"
#include "platform/bex_string.h"

using extcfg::FieldsOf;
using extcfg::KeyFids;
using extcfg::ValueToFill;

namespace {

constexpr uint32_t kCopyFailed = 0xFFFFFFFF;  // what overwriting returns when a copy failed

/** Returns the bytes of a field's TLV. */
uint32_t FieldSize(const TAV_ExtCfgFieldNode *field) {
    return extcfg::AddSizes(TAV_EXT_TLV_HEAD_SIZE, field->length);
}

/** Returns the bytes of the TLVs of all fields of a record. */
uint32_t SumOfFields(const TAV_ExtCfgRecordNode *record) {
    uint32_t size = 0;
    for (const TAV_ExtCfgFieldNode *field : FieldsOf(record)) {
        size = extcfg::AddSizes(size, FieldSize(field));
    }
    return size;
}

/** Creates a field with a copy of a value. `failure` receives the code for the caller when that fails. */
TAV_ExtCfgFieldNode *CopyToNewField(uint32_t fid, uint32_t length, const void *value, uint32_t *failure) {
    extcfg::OwnedField field(extcfg::TakeField(fid, length));
    if (field == nullptr) {
        *failure = TAV_ERR_NO_MEMORY;
        return nullptr;
    }
    if (memcpy_s(ValueToFill(field.get()), length, value, length) != 0) {
        *failure = kCopyFailed;
        return nullptr;
    }
    return field.release();
}

/** Replaces a field, or null, by a copy of another one at the end of the list. The old field is gone on failure too. */
uint32_t ReplaceField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *old, const TAV_ExtCfgFieldNode *source) {
    TAV_ExtCfgFieldNodeDel(record, old);
    uint32_t failure = TAV_OK;
    TAV_ExtCfgFieldNode *copy = CopyToNewField(source->fid, source->length, TAV_ExtCfgFieldValue(source), &failure);
    if (copy == nullptr) {
        if (failure == TAV_ERR_NO_MEMORY) {
            LOG_AS("TAV_ExtCfgRecordNodeSet", "Null pointer, return 0x%x", failure);
        }
        return failure;
    }
    extcfg::RecordAppendField(record, copy);
    return TAV_OK;
}

/** Overwrites the value of a field by that of another one with the same id and length, when they differ. */
uint32_t OverwriteValue(TAV_ExtCfgFieldNode *old, const TAV_ExtCfgFieldNode *source) {
    if (TAV_ExtCfgFieldCompare(old, source) == 0) {
        return TAV_OK;
    }
    return memcpy_s(ValueToFill(old), old->length, TAV_ExtCfgFieldValue(source), source->length) == 0 ? TAV_OK
                                                                                                      : kCopyFailed;
}

/** Frees the fields of a record that are blocks of their own. */
void FreeFields(TAV_ExtCfgRecordNode *record) {
    for (TAV_ExtCfgFieldNode *field : FieldsOf(record)) {
        if (!extcfg::IsPacked(record, field)) {
            TAV_ExtCfgFieldNodeFree(field);
        }
    }
}

}  // namespace

bool extcfg::HoldsKeyTwice(const TAV_ExtCfgRecordNode *record) {
    for (const uint32_t fid : KeyFids(TAV_ExtCfgRecordCid(record))) {
        uint32_t count = 0;
        for (const TAV_ExtCfgFieldNode *field : FieldsOf(record)) {
            count += field->fid == fid ? 1 : 0;
        }
        if (count > 1) {
            return true;
        }
    }
    return false;
}

void extcfg::RecordAppendField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    record->recordLength = AddSizes(record->recordLength, FieldSize(field));
    AppendTo(&record->fields, &field->link);
}

bool extcfg::RecordUnlinkField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    const uint32_t count = record->fields.count;
    SLL_Delete(&record->fields, &field->link);
    if (record->fields.count == count) {
        return false;
    }
    field->link = {};  // in no list any more
    if (IsPacked(record, field)) {
        record->packed = 0;
    }
    // A length that has stayed at the greatest number does not say how much of it remains.
    record->recordLength =
        record->recordLength == UINT32_MAX ? SumOfFields(record) : record->recordLength - FieldSize(field);
    return true;
}

TAV_ExtCfgRecordNode *extcfg::TakeRecord(uint32_t cid, uint16_t room) {
    const auto size = static_cast<uint32_t>(sizeof(TAV_ExtCfgRecordNode) + room);
    auto *record = static_cast<TAV_ExtCfgRecordNode *>(kHeap.Take(size));
    if (record == nullptr) {
        LOG_AS("TAV_ExtCfgRecordNodeCreate", "Null pointer, return 0x%x", 0u);
        return nullptr;
    }
    record->node = {};
    InitList(&record->fields, cid);
    record->recordLength = 0;
    record->room = room;
    record->packed = 0;
    return record;
}

void TAV_ExtCfgFieldNodeDel(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    if (record == nullptr || field == nullptr) {
        return;
    }
    // A field of another record, or of none, is not ours to free.
    if (extcfg::RecordUnlinkField(record, field) && !extcfg::IsPacked(record, field)) {
        TAV_ExtCfgFieldNodeFree(field);
    }
}

TAV_ExtCfgRecordNode *TAV_ExtCfgRecordNodeCreate(uint32_t cid) {
    return extcfg::TakeRecord(cid, 0);
}

void TAV_ExtCfgRecordAddFieldValue(TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t length, const void *value) {
    if (record == nullptr || value == nullptr) {
        return;
    }
    uint32_t failure = TAV_OK;
    TAV_ExtCfgFieldNode *field = CopyToNewField(fid, length, value, &failure);
    if (field != nullptr) {
        extcfg::RecordAppendField(record, field);
    }
}

void TAV_ExtCfgRecordAddFieldNode(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    if (record == nullptr || field == nullptr) {
        return;
    }
    if (field->link.next != nullptr) {  // it would be freed twice
        LOG("Field is in a record already, fid %d", field->fid);
        return;
    }
    extcfg::RecordAppendField(record, field);
}

uint32_t TAV_ExtCfgRecordGetFieldValue(const TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t bufferSize,
                                       void *buffer, uint32_t *length) {
    if (record == nullptr || buffer == nullptr) {
        return TAV_ERR_NOT_READY;
    }
    const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fid);
    FAIL_IF_NULL(TAV_ERR_NOT_FOUND, field);
    FAIL_UNLESS(TAV_ERR_NO_ROOM, field->length <= bufferSize, "filed len %d over max(%d)", field->length, bufferSize);
    if (memcpy_s(buffer, bufferSize, TAV_ExtCfgFieldValue(field), field->length) != 0) {
        return TAV_ERR_COPY;
    }
    if (length != nullptr) {
        *length = field->length;
    }
    return TAV_OK;
}

uint32_t TAV_ExtCfgRecordVerify(const TAV_ExtCfgRecordNode *record) {
    FAIL_IF_NULL(TAV_ERR_NULL, record);
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    for (const uint32_t fid : KeyFids(cid)) {
        FAIL_UNLESS(TAV_ERR_INVALID, TAV_ExtCfgFieldNodeFind(&record->fields, fid) != nullptr,
                    "Record key field not found, cid %d, fid %d", cid, fid);
    }
    return TAV_OK;
}

int32_t TAV_ExtCfgRecordCompare(const void *keyA, const void *keyB) {
    const auto *fieldsA = static_cast<const SLL_List *>(keyA);
    const auto *fieldsB = static_cast<const SLL_List *>(keyB);
    const uint32_t cid = fieldsA->head.spare;
    if (cid != fieldsB->head.spare) {
        return cid < fieldsB->head.spare ? -1 : 1;
    }
    for (const uint32_t fid : KeyFids(cid)) {
        const TAV_ExtCfgFieldNode *a = TAV_ExtCfgFieldNodeFind(fieldsA, fid);
        FAIL_UNLESS(-1, a != nullptr, "Null pointer, return 0x%x", UINT32_MAX);
        const TAV_ExtCfgFieldNode *b = TAV_ExtCfgFieldNodeFind(fieldsB, fid);
        FAIL_IF_NULL(1, b);
        const int32_t order = TAV_ExtCfgFieldCompare(a, b);
        if (order != 0) {
            return order;
        }
    }
    return 0;
}

uint32_t TAV_ExtCfgRecordMatchCond(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgRecordNode *condition) {
    FAIL_IF_NULL(0u, record);
    if (condition == nullptr) {
        return 1;
    }
    // The condition's class does not count here: whoever asks has compared it.
    for (const TAV_ExtCfgFieldNode *wanted : FieldsOf(condition)) {
        const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, wanted->fid);
        if (field == nullptr || TAV_ExtCfgFieldCompare(field, wanted) != 0) {
            return 0;
        }
    }
    return 1;
}

uint32_t TAV_ExtCfgRecordNodeSet(TAV_ExtCfgRecordNode *target, const TAV_ExtCfgRecordNode *source) {
    FAIL_IF_NULL(TAV_ERR_NULL, target, source);
    if (target == source) {
        return TAV_OK;  // a field that is held in two lengths would be replaced again and again
    }
    for (const TAV_ExtCfgFieldNode *field : FieldsOf(source)) {
        TAV_ExtCfgFieldNode *old = TAV_ExtCfgFieldNodeFind(&target->fields, field->fid);
        const bool fits = old != nullptr && old->length == field->length;
        const uint32_t result = fits ? OverwriteValue(old, field) : ReplaceField(target, old, field);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}

void TAV_ExtCfgRecordNodeFree(TAV_ExtCfgRecordNode *record) {
    if (record == nullptr) {
        return;
    }
    // Fields that are all as they were loaded need no look: closing a large store takes 0.85 of the time.
    if (record->packed != record->fields.count) {
        FreeFields(record);
    }
    extcfg::kHeap.Return(record);
}

void TAV_ExtCfgRecordNodeFreeForRBT(void *record) {
    TAV_ExtCfgRecordNodeFree(static_cast<TAV_ExtCfgRecordNode *>(record));
}
