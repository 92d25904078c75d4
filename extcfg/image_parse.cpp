/*
 * Parsing a file image into a store, or searching it for one record.
 */
#include "common/log.h"
#include "extcfg/model.h"

namespace {

constexpr uint32_t kFound = 1; /* ends every enclosing walk: the record wanted has been found */

}  // namespace

uint32_t TAV_ParseExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context) {
    uint32_t result = TAV_CheckExtCfgFileData(image, size, context);
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_INVALID, "File data is invalid");
    }
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgVsNode, image + context->headSize, size - context->headSize, context);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgVsNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    if (value == nullptr || context == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    if (type != EXT_TLV_VS) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    uint32_t vsId = 0;
    uint32_t result = TAV_ExtTlvGetValue_UINT32(value, length, EXT_TLV_VS_ID, &vsId);
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_INVALID, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    }
    if (file->vsFilter != nullptr && *file->vsFilter != vsId) {
        return TAV_OK;
    }
    if (file->local != nullptr) {
        file->currentVs = TAV_ExtCfgVsNodeGetInstance(file->local, vsId);
        TAV_RETURN_IF_NULL(file->currentVs, TAV_ERR_NO_MEMORY);
    }
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgRecordNode, value, length, file);
    file->currentVs = nullptr;
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgRecordNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    /* The class of a record is its TLV type; what is no container (the VS id, an unknown type) is no record. */
    if (TAV_GetExtTlvDataType(type) != TAV_EXT_DATA_TYPE_CONTAINER) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    if (file->recordCond != nullptr && extcfg::RecordCid(file->recordCond) != type) {
        return TAV_OK;
    }
    extcfg::OwnedRecord record(TAV_ExtCfgRecordNodeCreate(type));
    TAV_RETURN_IF_NULL(record, TAV_ERR_NO_MEMORY);
    uint32_t result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgFieldNode, value, length, record.get());
    if (result != TAV_OK) {
        TAV_FAIL(result, "Parse record failed, cid=%d, return 0x%x", type, result);
    }
    result = TAV_ExtCfgRecordVerify(record.get());
    if (result != TAV_OK) {
        TAV_FAIL(result, "Verify record failed, cid=%d, return 0x%x", type, result);
    }
    if (TAV_ExtCfgRecordMatchCond(record.get(), file->recordCond) == 0) {
        return TAV_OK;
    }
    if (file->currentVs == nullptr) {
        file->foundValue = value;
        file->foundLength = length;
        return kFound;
    }
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(file->currentVs, type);
    if (classNode == nullptr) {
        TAV_FAIL(TAV_ERR_NO_MEMORY, "Get class instance failed, cid=%d", type);
    }
    result = extcfg::ClassAddRecord(classNode, record.get());
    if (result != TAV_OK) {
        TAV_FAIL(result, "Add record failed, cid=%d, return 0x%x", type, result);
    }
    record.release(); /* the tree's now */
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgFieldNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeCreate(type, length);
    TAV_RETURN_IF_NULL(field, TAV_ERR_NO_MEMORY);
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, extcfg::FieldValue(field));
    if (result != TAV_OK) {
        TAV_ExtCfgFieldNodeFree(field);
        TAV_FAIL(result, "Convert endian failed, TLV type=%d, return 0x%x", type, result);
    }
    TAV_ExtCfgRecordAddFieldNode(static_cast<TAV_ExtCfgRecordNode *>(context), field);
    return TAV_OK;
}
