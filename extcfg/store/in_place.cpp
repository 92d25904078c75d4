/*
 * Changing one record inside a plain file. No store is involved: the file's image is searched, patched, and what
 * changed is written over the file at its offset.
 */
#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/image/head.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/field_room.h"
#include "extcfg/nodes/list.h"
#include "extcfg/nodes/record.h"

using extcfg::TlvLength;
using extcfg::TlvValue;

namespace {

constexpr char kSetInPlace[] = "TAV_ExtCfgSetRecordToFile";  // the name under which its helpers log

/**
 * Moves the key fields of a record into a condition, for which they are taken out of the record for good. A key field
 * that the record lacks is not asked for.
 */
void MoveKeyFields(TAV_ExtCfgRecordNode *record, TAV_ExtCfgRecordNode *condition) {
    for (const uint32_t fid : extcfg::KeyFids(TAV_ExtCfgRecordCid(record))) {
        TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fid);
        if (field != nullptr) {
            extcfg::RecordUnlinkField(record, field);
            TAV_ExtCfgRecordAddFieldNode(condition, field);
        }
    }
}

/** Frees a condition that MoveKeyFields has filled. Fields that lie in the record's block stay there. */
void FreeCondition(const TAV_ExtCfgRecordNode *record, TAV_ExtCfgRecordNode *condition) {
    for (TAV_ExtCfgFieldNode *field : extcfg::FieldsOf(condition)) {
        if (extcfg::IsPacked(record, field)) {
            extcfg::RecordUnlinkField(condition, field);
        }
    }
    TAV_ExtCfgRecordNodeFree(condition);
}

/** Looks in an image for the record with the class and the key fields of another one, which loses them. */
uint32_t FindRecord(uint8_t *image, uint32_t size, TAV_ExtCfgRecordNode *record, TAV_ExtCfgFileContext *context) {
    TAV_ExtCfgRecordNode *condition = TAV_ExtCfgRecordNodeCreate(TAV_ExtCfgRecordCid(record));
    if (condition == nullptr) {
        LOG_AS(kSetInPlace, "Create record node failed");
        return TAV_ERR_NO_MEMORY;
    }
    MoveKeyFields(record, condition);
    context->recordCond = condition;
    // The result says nothing: a find ends the walk with a non-zero one. What counts is whether a value was found.
    TAV_ParseExtCfgFileData(image, size, context);
    context->recordCond = nullptr;
    FreeCondition(record, condition);  // before the miss is reported
    if (context->foundValue == nullptr) {
        LOG_AS(kSetInPlace, "Record not exist");
        return TAV_ERR_NOT_FOUND;
    }
    return TAV_OK;
}

/** Brings a new value into the image. Returns its place there, or null when the record has no place for it. */
uint8_t *PatchImage(const TAV_ExtCfgFieldNode *field, const TAV_ExtCfgFileContext &context) {
    uint8_t *tlv = TAV_ExtTlvFind(context.foundValue, context.foundLength, field->fid);
    if (tlv == nullptr || TlvLength(tlv) != field->length) {
        LOG_AS(kSetInPlace, "Field %d not exist or len error", field->fid);
        return nullptr;
    }
    uint8_t *value = TlvValue(tlv);
    const uint32_t result = TAV_ExtTlvConvertEndian(field->fid, field->length, TAV_ExtCfgFieldValue(field), value);
    if (result != TAV_OK) {
        LOG_AS(kSetInPlace, "Convert failed, return 0x%x", result);
        return nullptr;
    }
    return value;
}

/** Brings the fields of a record into the image and the file, one by one, and stops at the first failed write. */
uint32_t WriteFields(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgFileContext &context, const char *path) {
    for (const TAV_ExtCfgFieldNode *field : extcfg::FieldsOf(record)) {
        const uint8_t *value = PatchImage(field, context);
        if (value == nullptr) {
            continue;  // passed over; the other fields are still written
        }
        const auto offset = static_cast<uint32_t>(value - context.image);
        const uint32_t result = TAV_WriteFileAtOffset(value, field->length, path, offset);
        if (result != TAV_OK) {
            LOG_AS(kSetInPlace, "Write %s failed, offset=%d, size=%d, return 0x%x", path, offset, field->length,
                   result);
            return result;
        }
    }
    return TAV_OK;
}

/** Builds the head of the patched image and writes it over the old one, which must have the same size. */
uint32_t WriteHead(const TAV_ExtCfgFileContext &context, const char *path) {
    uint32_t result = TAV_BuildExtCfgFileHead(context.image, context.headSize, context.imageSize, context.referPath);
    if (result != TAV_OK) {
        LOG_AS(kSetInPlace, "Update %s head failed, size=%d, return 0x%x", path, context.headSize, result);
        return result;
    }
    result = TAV_WriteFileAtOffset(context.image, context.headSize, path, 0);
    if (result != TAV_OK) {
        LOG_AS(kSetInPlace, "Write %s head failed, size=%d, return 0x%x", path, context.headSize, result);
    }
    return result;
}

/** Brings a record's fields into the place that was found, then renews the head. */
uint32_t WriteChanges(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgFileContext &context, const char *path) {
    // A head of another size than ours (a longer checksum field) cannot be built anew in its place.
    if (context.headSize != extcfg::BuiltHeadSize(context.referPath != nullptr)) {
        LOG_AS(kSetInPlace, "Update %s head failed, size=%d, return 0x%x", path, context.headSize, TAV_ERR_INVALID);
        return TAV_ERR_INVALID;
    }
    const uint32_t result = WriteFields(record, context, path);
    return result == TAV_OK ? WriteHead(context, path) : result;
}

}  // namespace

uint32_t TAV_ExtCfgSetRecordToFile(uint32_t vsId, TAV_ExtCfgRecordNode *record, const char *fileName,
                                   const char *referName) {
    FAIL_IF_NULL(TAV_ERR_NULL, fileName, record);
    LOG("Set %s VS %d start", fileName, vsId);
    char path[TAV_EXT_PATH_SIZE] = {};
    TAV_GetAbsPath(fileName, path, sizeof(path));
    if (TAV_CheckFileSuffix(path, ".dat") == 0) {
        return TAV_ERR_READ;
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = TAV_ReadFileToBuffer(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    FAIL_UNLESS(TAV_ERR_READ, result == TAV_OK && size != 0, "Read %s failed, return 0x%x", path, result);
    // The second one would be written over the key, and the file might not load any more.
    FAIL_UNLESS(TAV_ERR_INVALID, !extcfg::HoldsKeyTwice(record), "Key field given twice, cid %d",
                TAV_ExtCfgRecordCid(record));
    TAV_ExtCfgFileContext context = {};
    context.vsFilter = &vsId;
    context.referPath = referName;
    result = FindRecord(image, size, record, &context);
    if (result == TAV_OK) {
        result = WriteChanges(record, context, path);
    }
    if (result == TAV_OK) {
        LOG("Set VS %d class %d to %s return 0x%x", vsId, TAV_ExtCfgRecordCid(record), path, result);
    }
    return result;
}
