/*
 * Opening, reading and closing a store.
 */
#include "extcfg/lookup.h"

#include "common/log.h"

namespace {

/** Copies a condition: its class and its fields in order. Returns none when memory is short. */
TAV_ExtCfgRecordNode *CopyCondition(const TAV_ExtCfgRecordNode *condition) {
    TAV_ExtCfgRecordNode *copy = TAV_ExtCfgRecordNodeCreate(extcfg::RecordCid(condition));
    if (copy == nullptr) {
        return nullptr;
    }
    for (const auto *field = extcfg::FirstOf<TAV_ExtCfgFieldNode>(&condition->fields); field != nullptr;
         field = extcfg::NextOf(&condition->fields, field)) {
        TAV_ExtCfgRecordAddFieldValue(copy, field->fid, field->length, extcfg::FieldValue(field));
    }
    return copy;
}

}  // namespace

extcfg::Place extcfg::LookUp(CfgLocal *local, uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord) {
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, vsId);
    if (vs == nullptr) {
        return {};
    }
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, RecordCid(keyRecord));
    if (classNode == nullptr) {
        return {};
    }
    return {classNode, ClassFindRecord(classNode, keyRecord)};
}

CfgLocal *TAV_ExtCfgOpen(uint32_t mode, const char *fileName, const char *referName) {
    TAV_NONE_IF_NULL(fileName);
    CfgLocal *local = TAV_ExtCfgLocalCreate(mode, fileName, referName);
    TAV_NONE_IF_NULL(local);
    if (local->mode == TAV_EXT_MODE_WRITE_ONLY) {
        return local;
    }
    TAV_ExtCfgFileContext context = {};
    context.local = local;
    context.referPath = extcfg::ReferPath(local);
    const uint32_t result = TAV_LoadExtCfgFile(local->filePath, &context);
    if (result == TAV_OK) {
        return local;
    }
    TAV_LOG("Load file %s failed, return 0x%x", local->filePath, result);
    /* A file that is not there, or of which nothing was loaded, starts an empty store; the next flush makes it. */
    if (local->mode != TAV_EXT_MODE_READ_ONLY && local->vsList.count == 0) {
        return local;
    }
    TAV_ExtCfgLocalFree(local);
    return nullptr;
}

uint32_t TAV_ExtCfgClose(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid CfgLocal");
    }
    TAV_ExtCfgEndQuery(local);
    TAV_ExtCfgLocalFree(local);
    return TAV_OK;
}

TAV_ExtCfgRecordNode *TAV_ExtCfgGetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord, CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(nullptr, "Invalid CfgLocal");
    }
    const uint32_t result = TAV_ExtCfgRecordVerify(keyRecord);
    if (result != TAV_OK) {
        TAV_FAIL(nullptr, "Error code 0x%x, return 0x%x", result, 0u);
    }
    TAV_ExtCfgRecordNode *record = extcfg::LookUp(local, vsId, keyRecord).record;
    TAV_NONE_IF_NULL(record);
    return record;
}

uint32_t TAV_ExtCfgStartQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, CfgLocal *local) {
    TAV_RETURN_IF_NULL(condition, TAV_ERR_NULL);
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid CfgLocal");
    }
    if (local->mode == TAV_EXT_MODE_WRITE_ONLY) {
        TAV_FAIL(TAV_ERR_REFUSED, "CfgLocal is write-only mode");
    }
    TAV_ExtCfgEndQuery(local);
    local->queryCondition = CopyCondition(condition);
    TAV_RETURN_IF_NULL(local->queryCondition, TAV_ERR_NO_MEMORY);
    local->queryVsId = vsId;
    local->queryFlag = 1;
    local->queryCursor = nullptr;
    return TAV_OK;
}

TAV_ExtCfgRecordNode *TAV_ExtCfgGetNextRecord(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(nullptr, "Invalid CfgLocal");
    }
    if (local->queryFlag == 0) {
        TAV_FAIL(nullptr, "CfgLocal query not started");
    }
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeFind(local, local->queryVsId);
    TAV_NONE_IF_NULL(vs);
    /* The condition's class alone selects: its fields are not matched here, on purpose. */
    const uint32_t cid = extcfg::RecordCid(local->queryCondition);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeFind(vs, cid);
    TAV_NONE_IF_NULL(classNode);
    TAV_RBT_Tree *records = &classNode->records;
    TAV_RBT_Node *node = local->queryCursor == nullptr ? BEX_RBT_FirstNode(records)
                                                       : BEX_RBT_NextNode(records, &local->queryCursor->node);
    if (node == nullptr) {
        TAV_FAIL(nullptr, "VS %u, Class %u no more record", local->queryVsId, cid);
    }
    local->queryCursor = reinterpret_cast<TAV_ExtCfgRecordNode *>(node);
    return local->queryCursor;
}

uint32_t TAV_ExtCfgEndQuery(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid CfgLocal");
    }
    if (local->queryFlag == 0) {
        return TAV_OK;
    }
    TAV_ExtCfgRecordNodeFree(local->queryCondition);
    local->queryCondition = nullptr;
    local->queryFlag = 0;
    local->queryCursor = nullptr;
    local->queryVsId = extcfg::kNoVs;
    return TAV_OK;
}

CfgLocal *TAV_ExtCfgOpenAndQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, const char *fileName,
                                 const char *referName) {
    if (condition == nullptr || fileName == nullptr) {
        TAV_FAIL_NONE();
    }
    CfgLocal *local = TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, fileName, referName);
    TAV_NONE_IF_NULL(local);
    const uint32_t result = TAV_ExtCfgStartQuery(vsId, condition, local);
    if (result != TAV_OK) {
        TAV_LOG("Start query return 0x%x, VS %d filename %s", result, vsId, fileName);
        TAV_ExtCfgClose(local);
        return nullptr;
    }
    return local;
}
