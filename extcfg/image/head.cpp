/*
 * The head of a file image: its size, its fields filled in, and the whole of it built. The body is built first, because
 * the head's checksum covers it.
 */
#include "extcfg/image/head.h"

#include "common/log.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/record.h"
#include "extcfg/nodes/valid.h"
#include "platform/bex_string.h"
#include "platform/mel_clock.h"
#include "tav_extcfg.h"

const TAV_ExtTlvProcRow g_astExtCfgFileHeadFillFuncTbl[5] = {
    {EXT_TLV_VERSION, TAV_FillExtCfgFileVersion},
    {EXT_TLV_MODIFY_TIME, TAV_FillExtCfgFileModifyTime},
    {EXT_TLV_CHECKSUM, TAV_FillExtCfgFileChecksum},
    {EXT_TLV_REFER_CHECKSUM, TAV_FillExtCfgFileReferChecksum},
    {0, nullptr},
};

namespace {

constexpr uint32_t kFileVersion = 0x08070001;

/** Copies a finished head field into its place. */
uint32_t Store(uint8_t *value, uint32_t length, const void *source) {
    return memcpy_s(value, length, source, length) == 0 ? TAV_OK : TAV_ERR_COPY;
}

}  // namespace

uint32_t extcfg::BuiltHeadSize(bool withRefer) {
    uint32_t size = 0;
    for (const TAV_ExtTlvProcRow *row = g_astExtCfgFileHeadFillFuncTbl; row->func != nullptr; ++row) {
        if (row->type == EXT_TLV_REFER_CHECKSUM && !withRefer) {
            continue;
        }
        const uint32_t length = TAV_GetExtTlvDataLen(row->type);
        if (length == TAV_EXT_LENGTH_UNKNOWN) {
            LOG_AS("TAV_CalcExtCfgFileHeadSize", "Invalid TLV type %d, must specify len", row->type);
            return 0;
        }
        size += TAV_EXT_TLV_HEAD_SIZE + length;
    }
    return size + TAV_EXT_TLV_HEAD_SIZE;
}

uint32_t TAV_CalcExtCfgFileHeadSize(const CfgLocal *local) {
    FAIL_UNLESS(0, extcfg::IsValid(local), "Invalid CfgLocal");
    return extcfg::BuiltHeadSize(local->referFlag != 0);
}

uint32_t TAV_FillExtCfgFileHead(TAV_ExtCfgRecordNode *headRecord, TAV_ExtCfgFileContext *context) {
    for (const TAV_ExtTlvProcRow *row = g_astExtCfgFileHeadFillFuncTbl; row->func != nullptr; ++row) {
        const uint32_t length = TAV_GetExtTlvDataLen(row->type);
        FAIL_UNLESS(TAV_ERR_COPY, length != TAV_EXT_LENGTH_UNKNOWN, "Invalid TLV type %d, must specify len", row->type);
        extcfg::OwnedField field(TAV_ExtCfgFieldNodeCreate(row->type, length));
        FAIL_UNLESS(TAV_ERR_NO_MEMORY, field != nullptr, "Malloc failed, TLV type=%d, len=%d", row->type, length);
        const uint32_t result = row->func(row->type, extcfg::ValueToFill(field.get()), length, context);
        if (result == TAV_OK) {
            TAV_ExtCfgRecordAddFieldNode(headRecord, field.release());
            continue;
        }
        field.reset();  // before the failure is reported
        LOG("Proc failed, TLV type=%d, len=%d, return 0x%x", row->type, length, result);
        if (result != TAV_ERR_UNCHANGED) {  // nothing to write leaves the field out
            return result;
        }
    }
    return TAV_OK;
}

uint32_t TAV_FillExtCfgFileVersion(uint32_t, uint8_t *value, uint32_t length, void *) {
    FAIL_UNLESS(TAV_ERR_COPY, length == sizeof(kFileVersion), "Invalid size %d", length);
    return Store(value, length, &kFileVersion);
}

uint32_t TAV_FillExtCfgFileModifyTime(uint32_t, uint8_t *value, uint32_t length, void *) {
    FAIL_UNLESS(TAV_ERR_COPY, length == sizeof(BEX_SysTime), "Invalid size %d", length);
    BEX_SysTime now = {};
    BEX_SystimeGet(&now);
    return Store(value, length, &now);
}

uint32_t TAV_FillExtCfgFileChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    FAIL_UNLESS(TAV_ERR_COPY, length == TAV_EXT_CHECKSUM_SIZE, "Invalid size %d", length);
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    return TAV_CalcChecksum(file->image + file->headSize, file->imageSize - file->headSize, value, length);
}

uint32_t TAV_FillExtCfgFileReferChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    FAIL_UNLESS(TAV_ERR_COPY, length == TAV_EXT_CHECKSUM_SIZE, "Invalid size %d", length);
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    FAIL_IF_NULL(TAV_ERR_UNCHANGED, file->referPath);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result = TAV_GetExtCfgFileChecksum(file->referPath, checksum, sizeof(checksum));
    FAIL_UNLESS(TAV_ERR_NOT_FOUND, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_NOT_FOUND);
    return Store(value, length, checksum);
}

uint32_t TAV_BuildExtCfgFileHead(uint8_t *image, uint32_t headSize, uint32_t totalSize, const char *referPath) {
    FAIL_UNLESS(TAV_ERR_INVALID, headSize <= totalSize, "Head size %d over image size %d", headSize, totalSize);
    const extcfg::OwnedRecord head(TAV_ExtCfgRecordNodeCreate(EXT_TLV_HDR));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, head);
    TAV_ExtCfgFileContext context = {};
    context.image = image;
    context.imageSize = totalSize;
    context.headSize = headSize;
    context.referPath = referPath;
    uint32_t result = TAV_FillExtCfgFileHead(head.get(), &context);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    // What is built must fill the room: bytes behind it would be taken for TLVs. Too little room is refused below.
    const uint32_t builtSize = head->recordLength + TAV_EXT_TLV_HEAD_SIZE;
    FAIL_UNLESS(TAV_ERR_INVALID, headSize <= builtSize, "Head size %d, but %d are built", headSize, builtSize);
    uint8_t *cursor = image;
    result = TAV_BuildExtCfgRecordData(head.get(), &cursor, image + headSize);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}
