/*
 * Editing the records of an open store. The file does not change before a flush.
 */
#include "common/log.h"
#include "extcfg/nodes/class.h"
#include "extcfg/nodes/record.h"
#include "extcfg/nodes/valid.h"
#include "extcfg/store/lookup.h"

namespace {

/** Adds a record to its class, unless a tree or the store's query has it already: it would be freed twice. */
uint32_t AddToClass(const CfgLocal *local, TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record) {
    if (extcfg::IsLinked(record) || record == local->queryDeleted) {
        LOG_AS("TAV_ExtCfgAddRecord", "Record is in a store already, cid %d", classNode->cid);
        return TAV_ERR_INVALID;
    }
    return extcfg::ClassAddRecord(classNode, record);
}

/** Takes the record under a query's cursor out of its class. The query keeps it: it goes on with what follows its key.
 */
void HandToQuery(CfgLocal *local, const extcfg::Place &place) {
    extcfg::ClassTakeRecord(place.classNode, place.record);
    local->queryDeleted = place.record;
    local->queryCursor = nullptr;
}

}  // namespace

uint32_t TAV_ExtCfgAddRecord(uint32_t vsId, TAV_ExtCfgRecordNode *record, CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(TAV_ERR_REFUSED, local->mode != TAV_EXT_MODE_READ_ONLY, "CfgLocal is readonly mode");
    uint32_t result = TAV_ExtCfgRecordVerify(record);
    FAIL_UNLESS(result, result == TAV_OK, "Error code 0x%x, return 0x%x", result, result);
    // Nodes made here stay, even when the record is refused below.
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeGetInstance(local, vsId);
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, vs);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(vs, TAV_ExtCfgRecordCid(record));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, classNode);
    result = AddToClass(local, classNode, record);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ExtCfgSetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *record, CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(TAV_ERR_REFUSED, local->mode != TAV_EXT_MODE_READ_ONLY, "CfgLocal is readonly mode");
    // A record without its key field is simply not found: the look-up is all that checks it.
    TAV_ExtCfgRecordNode *stored = TAV_ExtCfgGetRecord(vsId, record, local);
    FAIL_IF_NULL(TAV_ERR_NOT_FOUND, stored);
    // A second key field would be written over the key, and the record would stand in the wrong place of its tree.
    FAIL_UNLESS(TAV_ERR_INVALID, !extcfg::HoldsKeyTwice(record), "Key field given twice, cid %d",
                TAV_ExtCfgRecordCid(record));
    const uint32_t result = TAV_ExtCfgRecordNodeSet(stored, record);
    FAIL_UNLESS(result, result == TAV_OK, "Report error: 0x%x", result);
    return TAV_OK;
}

uint32_t TAV_ExtCfgDelRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord, CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(TAV_ERR_REFUSED, local->mode != TAV_EXT_MODE_READ_ONLY, "CfgLocal is readonly mode");
    const uint32_t result = TAV_ExtCfgRecordVerify(keyRecord);
    FAIL_UNLESS(result, result == TAV_OK, "Error code 0x%x, return 0x%x", result, result);
    const extcfg::Place place = extcfg::LookUp(local, vsId, keyRecord);
    FAIL_IF_NULL(TAV_ERR_NOT_FOUND, place.record);
    if (place.record == local->queryCursor) {
        HandToQuery(local, place);
    } else {
        extcfg::ClassDelRecord(place.classNode, place.record);
    }
    return TAV_OK;
}
