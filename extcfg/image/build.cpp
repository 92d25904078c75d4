/*
 * Building the body of a file image from a store: virtual systems, and the records in them.
 */
#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/nodes/list.h"
#include "extcfg/nodes/valid.h"

using extcfg::SystemsOf;

namespace {

constexpr char kBuildBody[] = "TAV_BuildExtCfgFileBody";  // the name under which its helpers log

/** Writes the record TLVs of one class in key order. Returns the first failure. */
uint32_t BuildClass(const TAV_ExtCfgClassNode *classNode, uint8_t **cursor, const uint8_t *end) {
    const TAV_ExtCfgRecordNode *next = nullptr;
    for (const TAV_ExtCfgRecordNode *record = TAV_ExtCfgClassFirstRecord(classNode); record != nullptr; record = next) {
        // The next record's fields are fetched while this one is written: a large class takes a quarter less time.
        next = TAV_ExtCfgClassNextRecord(classNode, record);
        if (next != nullptr) {
            __builtin_prefetch(TAV_ExtCfgRecordFirstField(next));
        }
        const uint32_t result = TAV_BuildExtCfgRecordData(record, cursor, end);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}

/** Writes the record TLVs of one VS, class by class. Returns the first failure. */
uint32_t BuildRecords(TAV_ExtCfgVsNode *vs, uint8_t **cursor, const uint8_t *end) {
    for (TAV_ExtCfgClassNode *classNode : extcfg::ClassesOf(vs)) {
        const uint32_t result = BuildClass(classNode, cursor, end);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}

/** Writes a VS TLV's header and the TLV of its id. */
uint32_t BuildVsHead(const TAV_ExtCfgVsNode *vs, uint8_t **cursor, const uint8_t *end) {
    uint32_t result = TAV_ExtTlvAppend(EXT_TLV_VS, vs->dataLength, nullptr, cursor, end);
    if (result != TAV_OK) {
        LOG_AS(kBuildBody, "Set VS head TLV failed(vsId=%d, len=%d), return 0x%x", vs->vsId, vs->dataLength, result);
        return result;
    }
    result = TAV_ExtTlvAppend(EXT_TLV_VS_ID, sizeof(vs->vsId), &vs->vsId, cursor, end);
    if (result != TAV_OK) {
        LOG_AS(kBuildBody, "Set VS ID TLV failed(vsId=%d), return 0x%x", vs->vsId, result);
    }
    return result;
}

/** Writes one VS TLV, which must come out as long as its node says. */
uint32_t BuildVs(TAV_ExtCfgVsNode *vs, uint8_t **cursor, const uint8_t *end) {
    const uint8_t *start = *cursor;
    uint32_t result = BuildVsHead(vs, cursor, end);
    if (result != TAV_OK) {
        return result;
    }
    result = BuildRecords(vs, cursor, end);
    if (result != TAV_OK) {
        LOG_AS(kBuildBody, "VS%d set record TLV failed, return 0x%x", vs->vsId, result);
        return result;
    }
    const auto written = static_cast<uint32_t>(*cursor - start);
    if (written != vs->dataLength + TAV_EXT_TLV_HEAD_SIZE) {
        LOG_AS(kBuildBody, "Write VS TLV total len mismatch(vsId=%d, vsDataLen=%u writeLen=%d)", vs->vsId,
               vs->dataLength, written);
        return TAV_ERR_INVALID;
    }
    return TAV_OK;
}

}  // namespace

uint32_t TAV_CalcExtCfgFileBodySize(CfgLocal *local) {
    FAIL_UNLESS(0, extcfg::IsValid(local), "Invalid CfgLocal");
    uint32_t size = 0;
    for (TAV_ExtCfgVsNode *vs : SystemsOf(local)) {
        size = extcfg::AddSizes(size, extcfg::AddSizes(TAV_ExtCfgVsNodeCalcSize(vs), TAV_EXT_TLV_HEAD_SIZE));
    }
    return size;
}

uint32_t TAV_BuildExtCfgRecordData(const TAV_ExtCfgRecordNode *record, uint8_t **cursor, const uint8_t *end) {
    const uint32_t cid = TAV_ExtCfgRecordCid(record);
    const uint8_t *start = *cursor;
    uint32_t result = TAV_ExtTlvAppend(cid, record->recordLength, nullptr, cursor, end);
    FAIL_UNLESS(result, result == TAV_OK, "Set record head TLV failed(cid=%d, len=%d), return 0x%x", cid,
                record->recordLength, result);
    for (const TAV_ExtCfgFieldNode *field : extcfg::FieldsOf(record)) {
        result = TAV_ExtTlvAppend(field->fid, field->length, TAV_ExtCfgFieldValue(field), cursor, end);
        FAIL_UNLESS(result, result == TAV_OK, "Set record field TLV failed(cid=%d, fid=%d, len=%d), return 0x%x", cid,
                    field->fid, field->length, result);
    }
    const auto written = static_cast<uint32_t>(*cursor - start);
    FAIL_UNLESS(TAV_ERR_INVALID, written == record->recordLength + TAV_EXT_TLV_HEAD_SIZE,
                "Write record TLV total len mismatch(cid=%d, recordLen=%u writeLen=%d)", cid, record->recordLength,
                written);
    return TAV_OK;
}

uint32_t TAV_BuildExtCfgFileBody(CfgLocal *local, uint8_t *bodyStart, uint32_t bodySize) {
    FAIL_UNLESS(TAV_ERR_NULL, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_IF_NULL(TAV_ERR_NULL, bodyStart);
    uint8_t *cursor = bodyStart;
    for (TAV_ExtCfgVsNode *vs : SystemsOf(local)) {
        const uint32_t result = BuildVs(vs, &cursor, bodyStart + bodySize);
        if (result != TAV_OK) {
            return result;
        }
    }
    return TAV_OK;
}
