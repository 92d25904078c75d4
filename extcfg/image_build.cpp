/*
 * Building a file image from a store. The body is written first, because the head's checksum covers it.
 */
#include "common/log.h"
#include "extcfg/head_size.h"
#include "extcfg/model.h"
#include "platform/bex_string.h"
#include "platform/mel_clock.h"

using extcfg::FirstOf;
using extcfg::NextOf;

const TAV_ExtTlvProcRow g_astExtCfgFileHeadFillFuncTbl[5] = {
    {EXT_TLV_VERSION, TAV_FillExtCfgFileVersion},
    {EXT_TLV_MODIFY_TIME, TAV_FillExtCfgFileModifyTime},
    {EXT_TLV_CHECKSUM, TAV_FillExtCfgFileChecksum},
    {EXT_TLV_REFER_CHECKSUM, TAV_FillExtCfgFileReferChecksum},
    {0, nullptr},
};

namespace {

constexpr uint32_t kFileVersion = 0x08070001;

/** Refuses a head field whose length is not its type's. A macro, because the log names the fill function. */
#define TAV_CHECK_LENGTH(length, expected)                     \
    do {                                                       \
        if ((length) != (expected)) {                          \
            TAV_FAIL(TAV_ERR_COPY, "Invalid size %d", length); \
        }                                                      \
    } while (false)

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
            TAV_LOG_AS("TAV_CalcExtCfgFileHeadSize", "Invalid TLV type %d, must specify len", row->type);
            return 0;
        }
        size += TAV_EXT_TLV_HEAD_SIZE + length;
    }
    return size + TAV_EXT_TLV_HEAD_SIZE;
}

uint32_t TAV_CalcExtCfgFileHeadSize(const CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(0, "Invalid CfgLocal");
    }
    return extcfg::BuiltHeadSize(local->referFlag != 0);
}

uint32_t TAV_CalcExtCfgFileBodySize(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(0, "Invalid CfgLocal");
    }
    uint32_t size = 0;
    for (auto *vs = FirstOf<TAV_ExtCfgVsNode>(&local->vsList); vs != nullptr; vs = NextOf(&local->vsList, vs)) {
        size = extcfg::AddSizes(size, extcfg::AddSizes(TAV_ExtCfgVsNodeCalcSize(vs), TAV_EXT_TLV_HEAD_SIZE));
    }
    return size;
}

uint32_t TAV_FillExtCfgFileHead(TAV_ExtCfgRecordNode *headRecord, TAV_ExtCfgFileContext *context) {
    for (const TAV_ExtTlvProcRow *row = g_astExtCfgFileHeadFillFuncTbl; row->func != nullptr; ++row) {
        const uint32_t length = TAV_GetExtTlvDataLen(row->type);
        if (length == TAV_EXT_LENGTH_UNKNOWN) {
            TAV_FAIL(TAV_ERR_COPY, "Invalid TLV type %d, must specify len", row->type);
        }
        TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeCreate(row->type, length);
        if (field == nullptr) {
            TAV_FAIL(TAV_ERR_NO_MEMORY, "Malloc failed, TLV type=%d, len=%d", row->type, length);
        }
        const uint32_t result = row->func(row->type, extcfg::FieldValue(field), length, context);
        if (result == TAV_OK) {
            TAV_ExtCfgRecordAddFieldNode(headRecord, field);
            continue;
        }
        TAV_ExtCfgFieldNodeFree(field);
        TAV_LOG("Proc failed, TLV type=%d, len=%d, return 0x%x", row->type, length, result);
        if (result != TAV_ERR_UNCHANGED) { /* nothing to write leaves the field out */
            return result;
        }
    }
    return TAV_OK;
}

uint32_t TAV_FillExtCfgFileVersion(uint32_t, uint8_t *value, uint32_t length, void *) {
    TAV_CHECK_LENGTH(length, sizeof(kFileVersion));
    return Store(value, length, &kFileVersion);
}

uint32_t TAV_FillExtCfgFileModifyTime(uint32_t, uint8_t *value, uint32_t length, void *) {
    TAV_CHECK_LENGTH(length, sizeof(BEX_SysTime));
    BEX_SysTime now = {};
    BEX_SystimeGet(&now);
    return Store(value, length, &now);
}

uint32_t TAV_FillExtCfgFileChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    TAV_CHECK_LENGTH(length, TAV_EXT_CHECKSUM_SIZE);
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    return TAV_CalcChecksum(file->image + file->headSize, file->imageSize - file->headSize, value, length);
}

uint32_t TAV_FillExtCfgFileReferChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    TAV_CHECK_LENGTH(length, TAV_EXT_CHECKSUM_SIZE);
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    TAV_RETURN_IF_NULL(file->referPath, TAV_ERR_UNCHANGED);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result = TAV_GetExtCfgFileChecksum(file->referPath, checksum, sizeof(checksum));
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_NOT_FOUND, "Error code 0x%x, return 0x%x", result, TAV_ERR_NOT_FOUND);
    }
    return Store(value, length, checksum);
}

uint32_t TAV_BuildExtCfgFileHead(uint8_t *image, uint32_t headSize, uint32_t totalSize, const char *referPath) {
    const extcfg::OwnedRecord head(TAV_ExtCfgRecordNodeCreate(EXT_TLV_HDR));
    TAV_RETURN_IF_NULL(head, TAV_ERR_NO_MEMORY);
    TAV_ExtCfgFileContext context = {};
    context.image = image;
    context.imageSize = totalSize;
    context.headSize = headSize;
    context.referPath = referPath;
    uint32_t result = TAV_FillExtCfgFileHead(head.get(), &context);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    uint8_t *cursor = image;
    result = TAV_BuildExtCfgRecordData(head.get(), &cursor, image + headSize);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    return TAV_OK;
}

uint32_t TAV_BuildExtCfgRecordData(const TAV_ExtCfgRecordNode *record, uint8_t **cursor, const uint8_t *end) {
    const uint32_t cid = extcfg::RecordCid(record);
    const uint8_t *start = *cursor;
    uint32_t result = TAV_ExtTlvAppend(cid, record->recordLength, nullptr, cursor, end);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Set record head TLV failed(cid=%d, len=%d), return 0x%x", cid, record->recordLength, result);
    }
    for (const auto *field = FirstOf<TAV_ExtCfgFieldNode>(&record->fields); field != nullptr;
         field = NextOf(&record->fields, field)) {
        result = TAV_ExtTlvAppend(field->fid, field->length, extcfg::FieldValue(field), cursor, end);
        if (result != TAV_OK) {
            TAV_FAIL(result, "Set record field TLV failed(cid=%d, fid=%d, len=%d), return 0x%x", cid, field->fid,
                     field->length, result);
        }
    }
    const auto written = static_cast<uint32_t>(*cursor - start);
    if (written != record->recordLength + TAV_EXT_TLV_HEAD_SIZE) {
        TAV_FAIL(TAV_ERR_INVALID, "Write record TLV total len mismatch(cid=%d, recordLen=%u writeLen=%d)", cid,
                 record->recordLength, written);
    }
    return TAV_OK;
}

namespace {

/** Writes the record TLVs of one class in key order. Returns the first failure. */
uint32_t BuildClass(TAV_ExtCfgClassNode *classNode, uint8_t **cursor, const uint8_t *end) {
    TAV_RBT_Tree *records = &classNode->records;
    TAV_RBT_Node *next = nullptr;
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = next) {
        /* The next record's fields are fetched while this one is written. */
        next = BEX_RBT_NextNode(records, node);
        if (next != nullptr) {
            __builtin_prefetch(reinterpret_cast<TAV_ExtCfgRecordNode *>(next)->fields.head.link.next);
        }
        const uint32_t result = TAV_BuildExtCfgRecordData(reinterpret_cast<TAV_ExtCfgRecordNode *>(node), cursor, end);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}

/** Writes the record TLVs of one VS, class by class. Returns the first failure. */
uint32_t BuildRecords(TAV_ExtCfgVsNode *vs, uint8_t **cursor, const uint8_t *end) {
    for (auto *classNode = FirstOf<TAV_ExtCfgClassNode>(&vs->classes); classNode != nullptr;
         classNode = NextOf(&vs->classes, classNode)) {
        const uint32_t result = BuildClass(classNode, cursor, end);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}

}  // namespace

uint32_t TAV_BuildExtCfgFileBody(CfgLocal *local, uint8_t *bodyStart, uint32_t bodySize) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_NULL, "Invalid CfgLocal");
    }
    TAV_RETURN_IF_NULL(bodyStart, TAV_ERR_NULL);
    uint8_t *cursor = bodyStart;
    const uint8_t *end = bodyStart + bodySize;
    for (auto *vs = FirstOf<TAV_ExtCfgVsNode>(&local->vsList); vs != nullptr; vs = NextOf(&local->vsList, vs)) {
        const uint8_t *start = cursor;
        uint32_t result = TAV_ExtTlvAppend(EXT_TLV_VS, vs->dataLength, nullptr, &cursor, end);
        if (result != TAV_OK) {
            TAV_FAIL(result, "Set VS head TLV failed(vsId=%d, len=%d), return 0x%x", vs->vsId, vs->dataLength, result);
        }
        result = TAV_ExtTlvAppend(EXT_TLV_VS_ID, sizeof(vs->vsId), &vs->vsId, &cursor, end);
        if (result != TAV_OK) {
            TAV_FAIL(result, "Set VS ID TLV failed(vsId=%d), return 0x%x", vs->vsId, result);
        }
        result = BuildRecords(vs, &cursor, end);
        if (result != TAV_OK) {
            TAV_FAIL(result, "VS%d set record TLV failed, return 0x%x", vs->vsId, result);
        }
        const auto written = static_cast<uint32_t>(cursor - start);
        if (written != vs->dataLength + TAV_EXT_TLV_HEAD_SIZE) {
            TAV_FAIL(TAV_ERR_INVALID, "Write VS TLV total len mismatch(vsId=%d, vsDataLen=%u writeLen=%d)", vs->vsId,
                     vs->dataLength, written);
        }
    }
    return TAV_OK;
}
