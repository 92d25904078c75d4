/*
 * Reading a store: a record by its key, and all records of a class one after the other.
 */
#include "common/log.h"
#include "extcfg/nodes/list.h"
#include "extcfg/nodes/record.h"
#include "extcfg/nodes/valid.h"
#include "extcfg/store/lookup.h"

using extcfg::IsValid;

namespace {

constexpr uint32_t kNoVs = 0xFFFFFFFF;  // what stands for the VS of a query that has ended

/** Copies a condition: its class and its fields in order. Null when memory is short. */
TAV_ExtCfgRecordNode *CopyCondition(const TAV_ExtCfgRecordNode *condition) {
    TAV_ExtCfgRecordNode *copy = TAV_ExtCfgRecordNodeCreate(TAV_ExtCfgRecordCid(condition));
    if (copy == nullptr) {
        return nullptr;
    }
    for (const TAV_ExtCfgFieldNode *field : extcfg::FieldsOf(condition)) {
        TAV_ExtCfgRecordAddFieldValue(copy, field->fid, field->length, TAV_ExtCfgFieldValue(field));
    }
    return copy;
}

/** Returns the first record of a tree whose key is greater than that of a record outside of it; null for none. */
TAV_RBT_Node *NodeBehind(TAV_RBT_Tree *records, const TAV_ExtCfgRecordNode *record) {
    TAV_RBT_Node *behind = nullptr;
    for (TAV_RBT_Node *node = records->root; node != &records->sentinel;) {
        if (records->comparer(&record->fields, &extcfg::RecordAt(node)->fields) < 0) {
            behind = node;
            node = node->smaller;
        } else {
            node = node->greater;
        }
    }
    return behind;
}

/** Returns where a query without a cursor goes on: behind the deleted record that was its cursor, or at the first. */
TAV_RBT_Node *NodeWithoutCursor(TAV_RBT_Tree *records, const TAV_ExtCfgRecordNode *deleted) {
    return deleted != nullptr ? NodeBehind(records, deleted) : BEX_RBT_FirstNode(records);
}

/** Frees the deleted record that a query has kept, if any. */
void DropDeleted(CfgLocal *local) {
    if (local->queryDeleted != nullptr) {
        TAV_ExtCfgRecordNodeFree(local->queryDeleted);
        local->queryDeleted = nullptr;
    }
}

}  // namespace

TAV_ExtCfgRecordNode *TAV_ExtCfgGetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord, CfgLocal *local) {
    FAIL_UNLESS(nullptr, IsValid(local), "Invalid CfgLocal");
    // A record that lacks a key field equals no stored one, so with the log off nothing is left to verify: a get in
    // 200,000 records takes half of the time, in 50,000 a third.
    if (keyRecord == nullptr || TAV_GetDebugFlag() != 0) {
        const uint32_t result = TAV_ExtCfgRecordVerify(keyRecord);
        FAIL_UNLESS(nullptr, result == TAV_OK, "Error code 0x%x, return 0x%x", result, 0u);
    }
    TAV_ExtCfgRecordNode *record = extcfg::LookUp(local, vsId, keyRecord).record;
    FAIL_IF_NULL(nullptr, record);
    return record;
}

uint32_t TAV_ExtCfgStartQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, CfgLocal *local) {
    FAIL_IF_NULL(TAV_ERR_NULL, condition);
    FAIL_UNLESS(TAV_ERR_INVALID, IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(TAV_ERR_REFUSED, local->mode != TAV_EXT_MODE_WRITE_ONLY, "CfgLocal is write-only mode");
    // Copied first: it may be the deleted record that the former query has kept.
    TAV_ExtCfgRecordNode *copy = CopyCondition(condition);
    TAV_ExtCfgEndQuery(local);
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, copy);
    local->queryCondition = copy;
    local->queryVsId = vsId;
    local->queryFlag = 1;
    local->queryCursor = nullptr;
    return TAV_OK;
}

TAV_ExtCfgRecordNode *TAV_ExtCfgGetNextRecord(CfgLocal *local) {
    FAIL_UNLESS(nullptr, IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(nullptr, local->queryFlag != 0, "CfgLocal query not started");
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, local->queryVsId);
    FAIL_IF_NULL(nullptr, vs);
    // The condition's class alone selects, as the interface says: its fields are not matched.
    const uint32_t cid = TAV_ExtCfgRecordCid(local->queryCondition);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, cid);
    FAIL_IF_NULL(nullptr, classNode);
    TAV_RBT_Tree *records = &classNode->records;
    TAV_RBT_Node *node = local->queryCursor != nullptr ? BEX_RBT_NextNode(records, &local->queryCursor->node)
                                                       : NodeWithoutCursor(records, local->queryDeleted);
    FAIL_UNLESS(nullptr, node != nullptr, "VS %u, Class %u no more record", local->queryVsId, cid);
    local->queryCursor = extcfg::RecordAt(node);
    DropDeleted(local);
    return local->queryCursor;
}

uint32_t TAV_ExtCfgEndQuery(CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, IsValid(local), "Invalid CfgLocal");
    if (local->queryFlag == 0) {
        return TAV_OK;
    }
    TAV_ExtCfgRecordNodeFree(local->queryCondition);
    local->queryCondition = nullptr;
    local->queryFlag = 0;
    local->queryCursor = nullptr;
    DropDeleted(local);
    local->queryVsId = kNoVs;
    return TAV_OK;
}
