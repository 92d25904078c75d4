/*
 * Parsing a file image into a store, or searching it for one record.
 */
#include "common/log.h"
#include "extcfg/nodes/class.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/record.h"

namespace {

constexpr uint32_t kFound = 1;  // ends every enclosing walk: the record wanted has been found

constexpr char kParseRecord[] = "TAV_ParseExtCfgRecordNode";  // the name under which its helpers log

/** Reads a record's fields and checks that its key is complete. */
uint32_t ReadRecord(TAV_ExtCfgRecordNode *record, uint8_t *value, uint32_t length) {
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    uint32_t result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgFieldNode, value, length, record);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Parse record failed, cid=%d, return 0x%x", cid, result);
        return result;
    }
    result = TAV_ExtCfgRecordVerify(record);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Verify record failed, cid=%d, return 0x%x", cid, result);
    }
    return result;
}

/** Adds a record to its class in a VS, which owns it on success. */
uint32_t LoadRecord(TAV_ExtCfgVsNode *vs, TAV_ExtCfgRecordNode *record) {
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(vs, cid);
    if (classNode == nullptr) {
        LOG_AS(kParseRecord, "Get class instance failed, cid=%d", cid);
        return TAV_ERR_NO_MEMORY;
    }
    const uint32_t result = extcfg::ClassAddRecord(classNode, record);
    if (result != TAV_OK) {
        LOG_AS(kParseRecord, "Add record failed, cid=%d, return 0x%x", cid, result);
    }
    return result;
}

/** Notes where the record that was searched for stands in the image. */
uint32_t NoteFound(TAV_ExtCfgFileContext *file, uint8_t *value, uint32_t length) {
    file->foundValue = value;
    file->foundLength = length;
    return kFound;
}

}  // namespace

uint32_t TAV_ParseExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context) {
    uint32_t result = TAV_CheckExtCfgFileData(image, size, context);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "File data is invalid");
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgVsNode, image + context->headSize, size - context->headSize, context);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgVsNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    FAIL_IF_NULL(TAV_ERR_NULL, value, context);
    if (type != EXT_TLV_VS) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    uint32_t vsId = 0;
    uint32_t result = TAV_ExtTlvGetValue_UINT32(value, length, EXT_TLV_VS_ID, &vsId);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    if (file->vsFilter != nullptr && *file->vsFilter != vsId) {
        return TAV_OK;
    }
    if (file->local != nullptr) {
        file->currentVs = TAV_ExtCfgVsNodeGetInstance(file->local, vsId);
        FAIL_IF_NULL(TAV_ERR_NO_MEMORY, file->currentVs);
    }
    result = TAV_ExtTlvProcForEach(TAV_ParseExtCfgRecordNode, value, length, file);
    file->currentVs = nullptr;
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ParseExtCfgRecordNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    // The class of a record is its TLV type; what is no container (the VS id, an unknown type) is no record.
    if (TAV_GetExtTlvDataType(type) != TAV_EXT_DATA_TYPE_CONTAINER) {
        return TAV_OK;
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    if (file->recordCond != nullptr && TAV_ExtCfgRecordCid(file->recordCond) != type) {
        return TAV_OK;
    }
    extcfg::OwnedRecord record(TAV_ExtCfgRecordNodeCreate(type));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, record);
    uint32_t result = ReadRecord(record.get(), value, length);
    if (result != TAV_OK) {
        return result;
    }
    if (TAV_ExtCfgRecordMatchCond(record.get(), file->recordCond) == 0) {
        return TAV_OK;
    }
    if (file->currentVs == nullptr) {
        return NoteFound(file, value, length);
    }
    result = LoadRecord(file->currentVs, record.get());
    if (result == TAV_OK) {
        static_cast<void>(record.release());  // the class's now
    }
    return result;
}

uint32_t TAV_ParseExtCfgFieldNode(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    extcfg::OwnedField field(extcfg::TakeField(type, length));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, field);
    const uint32_t result = TAV_ExtTlvConvertEndian(type, length, value, extcfg::ValueToFill(field.get()));
    if (result != TAV_OK) {
        field.reset();  // before the failure is reported
        FAIL(result, "Convert endian failed, TLV type=%d, return 0x%x", type, result);
    }
    TAV_ExtCfgRecordAddFieldNode(static_cast<TAV_ExtCfgRecordNode *>(context), field.release());
    return TAV_OK;
}
