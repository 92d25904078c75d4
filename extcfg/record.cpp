/*
 * Record nodes: lists of fields under a class id, compared and found by the key fields of their class.
 */
#include "common/log.h"
#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "platform/bex_string.h"

using extcfg::FieldValue;
using extcfg::FirstOf;
using extcfg::NextOf;

namespace {

constexpr uint32_t kCopyFailed = 0xFFFFFFFF; /* what overwriting answers when a copy failed */

/** The key field ids of one class. */
struct KeyFids {
    explicit KeyFids(uint32_t cid) : count(TAV_GetExtClassKeyFid(cid, fids, TAV_EXT_MAX_KEY_FIDS)) {}
    const uint32_t *begin() const { return fids; }
    const uint32_t *end() const { return fids + count; }

    uint32_t fids[TAV_EXT_MAX_KEY_FIDS]; /* in the order of comparison */
    uint32_t count;                      /* how many there are */
};

/** Creates a field with a copy of a value. `failure` receives the code for the caller when there is none. */
TAV_ExtCfgFieldNode *CopyToNewField(uint32_t fid, uint32_t length, const void *value, uint32_t *failure) {
    TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeCreate(fid, length);
    if (field == nullptr) {
        *failure = TAV_ERR_NO_MEMORY;
        return nullptr;
    }
    if (memcpy_s(FieldValue(field), length, value, length) != 0) {
        TAV_ExtCfgFieldNodeFree(field);
        *failure = kCopyFailed;
        return nullptr;
    }
    return field;
}

}  // namespace

void extcfg::RecordUnlinkField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    SLL_Delete(&record->fields, &field->link);
    record->recordLength -= TAV_EXT_TLV_HEAD_SIZE + field->length;
}

void TAV_ExtCfgFieldNodeDel(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    if (record == nullptr || field == nullptr) {
        return;
    }
    extcfg::RecordUnlinkField(record, field);
    TAV_ExtCfgFieldNodeFree(field);
}

TAV_ExtCfgRecordNode *TAV_ExtCfgRecordNodeCreate(uint32_t cid) {
    auto *record = static_cast<TAV_ExtCfgRecordNode *>(TAV_TAKE(sizeof(TAV_ExtCfgRecordNode)));
    TAV_NONE_IF_NULL(record);
    record->node = {};
    extcfg::InitList(&record->fields, cid);
    record->recordLength = 0;
    return record;
}

void TAV_ExtCfgRecordAddFieldValue(TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t length, const void *value) {
    if (record == nullptr || value == nullptr) {
        return;
    }
    uint32_t failure = TAV_OK;
    TAV_ExtCfgRecordAddFieldNode(record, CopyToNewField(fid, length, value, &failure));
}

void TAV_ExtCfgRecordAddFieldNode(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field) {
    if (record == nullptr || field == nullptr) {
        return;
    }
    record->recordLength += TAV_EXT_TLV_HEAD_SIZE + field->length;
    extcfg::AppendTo(&record->fields, &field->link);
}

uint32_t TAV_ExtCfgRecordGetFieldValue(const TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t bufferSize,
                                       void *buffer, uint32_t *length) {
    if (record == nullptr || buffer == nullptr) {
        return TAV_ERR_NOT_READY;
    }
    const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fid);
    TAV_RETURN_IF_NULL(field, TAV_ERR_NOT_FOUND);
    if (field->length > bufferSize) {
        TAV_FAIL(TAV_ERR_NO_ROOM, "filed len %d over max(%d)", field->length, bufferSize);
    }
    if (memcpy_s(buffer, bufferSize, FieldValue(field), field->length) != 0) {
        return TAV_ERR_COPY;
    }
    if (length != nullptr) {
        *length = field->length;
    }
    return TAV_OK;
}

uint32_t TAV_ExtCfgRecordVerify(const TAV_ExtCfgRecordNode *record) {
    TAV_RETURN_IF_NULL(record, TAV_ERR_NULL);
    const uint32_t cid = extcfg::RecordCid(record);
    for (const uint32_t fid : KeyFids(cid)) {
        if (TAV_ExtCfgFieldNodeFind(&record->fields, fid) == nullptr) {
            TAV_FAIL(TAV_ERR_INVALID, "Record key field not found, cid %d, fid %d", cid, fid);
        }
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
        if (a == nullptr) {
            TAV_LOG("Null pointer, return 0x%x", UINT32_MAX);
            return -1;
        }
        const TAV_ExtCfgFieldNode *b = TAV_ExtCfgFieldNodeFind(fieldsB, fid);
        TAV_RETURN_IF_NULL(b, 1);
        const int32_t order = TAV_ExtCfgFieldCompare(a, b);
        if (order != 0) {
            return order;
        }
    }
    return 0;
}

uint32_t TAV_ExtCfgRecordMatchCond(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgRecordNode *condition) {
    TAV_RETURN_IF_NULL(record, 0);
    if (condition == nullptr) {
        return 1;
    }
    /* The condition's class does not count here: whoever asks has compared it. */
    for (const auto *wanted = FirstOf<TAV_ExtCfgFieldNode>(&condition->fields); wanted != nullptr;
         wanted = NextOf(&condition->fields, wanted)) {
        const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, wanted->fid);
        if (field == nullptr || TAV_ExtCfgFieldCompare(field, wanted) != 0) {
            return 0;
        }
    }
    return 1;
}

uint32_t TAV_ExtCfgRecordNodeSet(TAV_ExtCfgRecordNode *target, const TAV_ExtCfgRecordNode *source) {
    if (target == nullptr || source == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    for (const auto *field = FirstOf<TAV_ExtCfgFieldNode>(&source->fields); field != nullptr;
         field = NextOf(&source->fields, field)) {
        TAV_ExtCfgFieldNode *old = TAV_ExtCfgFieldNodeFind(&target->fields, field->fid);
        if (old != nullptr && old->length == field->length) {
            if (TAV_ExtCfgFieldCompare(old, field) != 0 &&
                memcpy_s(FieldValue(old), old->length, FieldValue(field), field->length) != 0) {
                return kCopyFailed;
            }
            continue;
        }
        /* Another length: the field moves to the end of the list. The old one goes first and is gone on failure. */
        TAV_ExtCfgFieldNodeDel(target, old);
        uint32_t failure = TAV_OK;
        TAV_ExtCfgFieldNode *copy = CopyToNewField(field->fid, field->length, FieldValue(field), &failure);
        if (copy == nullptr) {
            if (failure == TAV_ERR_NO_MEMORY) {
                TAV_LOG("Null pointer, return 0x%x", failure);
            }
            return failure;
        }
        TAV_ExtCfgRecordAddFieldNode(target, copy);
    }
    return TAV_OK;
}

void TAV_ExtCfgRecordNodeFree(TAV_ExtCfgRecordNode *record) {
    if (record == nullptr) {
        return;
    }
    for (auto *field = FirstOf<TAV_ExtCfgFieldNode>(&record->fields); field != nullptr;) {
        TAV_ExtCfgFieldNode *next = NextOf(&record->fields, field);
        TAV_ExtCfgFieldNodeFree(field);
        field = next;
    }
    TAV_GIVE_BACK(record);
}

void TAV_ExtCfgRecordNodeFreeForRBT(void *record) {
    TAV_ExtCfgRecordNodeFree(static_cast<TAV_ExtCfgRecordNode *>(record));
}
