/*
 * Changing one record inside a plain file, and the cheap look at a file's checksum. No store is involved: the file's
 * image is searched, patched, and what changed is written over the file at its offset.
 */
#include <utility>

#include "common/log.h"
#include "extcfg/head_size.h"
#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "extcfg/tlv.h"
#include "platform/bex_string.h"

using extcfg::TlvLength;
using extcfg::TlvValue;

namespace {

constexpr char kSetInPlace[] = "TAV_ExtCfgSetRecordToFile"; /* the name under which its helpers log */

/**
 * Moves the key fields of a record into a condition, for which they are taken out of the record for good. A key field
 * that the record lacks is not asked for.
 */
void MoveKeyFields(TAV_ExtCfgRecordNode *record, TAV_ExtCfgRecordNode *condition) {
    uint32_t fids[TAV_EXT_MAX_KEY_FIDS];
    const uint32_t count = TAV_GetExtClassKeyFid(extcfg::RecordCid(record), fids, TAV_EXT_MAX_KEY_FIDS);
    for (uint32_t i = 0; i < count; ++i) {
        TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fids[i]);
        if (field != nullptr) {
            extcfg::RecordUnlinkField(record, field);
            TAV_ExtCfgRecordAddFieldNode(condition, field);
        }
    }
}

/** Looks for a record in an image. The context receives where it stands, or no found value. */
void Search(uint8_t *image, uint32_t size, const uint32_t *vsId, extcfg::OwnedRecord condition,
            TAV_ExtCfgFileContext *context) {
    context->vsFilter = vsId;
    context->recordCond = condition.get();
    /* The result says nothing: a find ends the walk with a non-zero one. What counts is whether a value was found. */
    TAV_ParseExtCfgFileData(image, size, context);
    context->recordCond = nullptr;
}

/** Brings a new value into the image. Returns its place there, or null when the record has no place for it. */
uint8_t *PatchImage(const TAV_ExtCfgFieldNode *field, const TAV_ExtCfgFileContext &context) {
    uint8_t *tlv = TAV_ExtTlvFind(context.foundValue, context.foundLength, field->fid);
    if (tlv == nullptr || TlvLength(tlv) != field->length) {
        TAV_LOG_AS(kSetInPlace, "Field %d not exist or len error", field->fid);
        return nullptr;
    }
    uint8_t *value = TlvValue(tlv);
    const uint32_t result = TAV_ExtTlvConvertEndian(field->fid, field->length, extcfg::FieldValue(field), value);
    if (result != TAV_OK) {
        TAV_LOG_AS(kSetInPlace, "Convert failed, return 0x%x", result);
        return nullptr;
    }
    return value;
}

/** Brings the fields of a record into the image and the file, one by one, and stops at the first failed write. */
uint32_t WriteFields(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgFileContext &context, const char *path) {
    for (const auto *field = extcfg::FirstOf<TAV_ExtCfgFieldNode>(&record->fields); field != nullptr;
         field = extcfg::NextOf(&record->fields, field)) {
        const uint8_t *value = PatchImage(field, context);
        if (value == nullptr) {
            continue; /* passed over; the other fields are still written */
        }
        const auto offset = static_cast<uint32_t>(value - context.image);
        const uint32_t result = TAV_WriteFileAtOffset(value, field->length, path, offset);
        if (result != TAV_OK) {
            TAV_LOG_AS(kSetInPlace, "Write %s failed, offset=%d, size=%d, return 0x%x", path, offset, field->length,
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
        TAV_LOG_AS(kSetInPlace, "Update %s head failed, size=%d, return 0x%x", path, context.headSize, result);
        return result;
    }
    result = TAV_WriteFileAtOffset(context.image, context.headSize, path, 0);
    if (result != TAV_OK) {
        TAV_LOG_AS(kSetInPlace, "Write %s head failed, size=%d, return 0x%x", path, context.headSize, result);
    }
    return result;
}

}  // namespace

uint32_t TAV_ExtCfgSetRecordToFile(uint32_t vsId, TAV_ExtCfgRecordNode *record, const char *fileName,
                                   const char *referName) {
    if (fileName == nullptr || record == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    TAV_LOG("Set %s VS %d start", fileName, vsId);
    char path[TAV_EXT_PATH_SIZE] = {};
    TAV_GetAbsPath(fileName, path, sizeof(path));
    if (TAV_CheckFileSuffix(path, ".dat") == 0) {
        return TAV_ERR_READ;
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = TAV_ReadFileToBuffer(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK || size == 0) {
        TAV_FAIL(TAV_ERR_READ, "Read %s failed, return 0x%x", path, result);
    }
    const uint32_t cid = extcfg::RecordCid(record);
    extcfg::OwnedRecord condition(TAV_ExtCfgRecordNodeCreate(cid));
    if (condition == nullptr) {
        TAV_FAIL(TAV_ERR_NO_MEMORY, "Create record node failed");
    }
    MoveKeyFields(record, condition.get());
    TAV_ExtCfgFileContext context = {};
    context.referPath = referName;
    Search(image, size, &vsId, std::move(condition), &context);
    if (context.foundValue == nullptr) {
        TAV_FAIL(TAV_ERR_NOT_FOUND, "Record not exist");
    }
    /* A head of another size than ours (a longer checksum field) cannot be built anew in its place. */
    if (context.headSize != extcfg::BuiltHeadSize(referName != nullptr)) {
        TAV_FAIL(TAV_ERR_INVALID, "Update %s head failed, size=%d, return 0x%x", path, context.headSize,
                 TAV_ERR_INVALID);
    }
    result = WriteFields(record, context, path);
    if (result == TAV_OK) {
        result = WriteHead(context, path);
    }
    if (result == TAV_OK) {
        TAV_LOG("Set VS %d class %d to %s return 0x%x", vsId, cid, path, result);
    }
    return result;
}

uint32_t TAV_ExtCfgGetChecksumFromFile(const char *path, uint8_t *out, uint32_t outSize) {
    if (path == nullptr || out == nullptr) {
        TAV_FAIL_NULL(0u);
    }
    if (outSize < TAV_EXT_CHECKSUM_SIZE) {
        return 0;
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    const uint32_t result = TAV_ReadFileToBuffer(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK) {
        return 0;
    }
    uint8_t *head = TAV_ExtTlvFind(image, size, EXT_TLV_HDR);
    if (head == nullptr) {
        return 0;
    }
    uint8_t *checksum = TAV_ExtTlvFind(TlvValue(head), TlvLength(head), EXT_TLV_CHECKSUM);
    if (checksum == nullptr || TlvLength(checksum) > outSize) {
        return 0;
    }
    return memcpy_s(out, outSize, TlvValue(checksum), TlvLength(checksum)) == 0 ? TlvLength(checksum) : 0;
}
