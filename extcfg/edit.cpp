/*
 * Editing the records of an open store. The file does not change before a flush.
 */
#include "common/log.h"
#include "extcfg/lookup.h"

/** Refuses an invalid and a read-only store. A macro, because the log names the operation. */
#define TAV_CHECK_EDITABLE(local)                                   \
    do {                                                            \
        if (!extcfg::IsValid(local)) {                              \
            TAV_FAIL(TAV_ERR_INVALID, "Invalid CfgLocal");          \
        }                                                           \
        if ((local)->mode == TAV_EXT_MODE_READ_ONLY) {              \
            TAV_FAIL(TAV_ERR_REFUSED, "CfgLocal is readonly mode"); \
        }                                                           \
    } while (false)

/** Refuses a record that lacks a key field of its class. */
#define TAV_CHECK_KEYS(record)                                                      \
    do {                                                                            \
        const uint32_t verified = TAV_ExtCfgRecordVerify(record);                   \
        if (verified != TAV_OK) {                                                   \
            TAV_FAIL(verified, "Error code 0x%x, return 0x%x", verified, verified); \
        }                                                                           \
    } while (false)

uint32_t TAV_ExtCfgAddRecord(uint32_t vsId, TAV_ExtCfgRecordNode *record, CfgLocal *local) {
    TAV_CHECK_EDITABLE(local);
    TAV_CHECK_KEYS(record);
    /* Nodes made here stay, even when the record is refused below. */
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeGetInstance(local, vsId);
    TAV_RETURN_IF_NULL(vs, TAV_ERR_NO_MEMORY);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(vs, extcfg::RecordCid(record));
    TAV_RETURN_IF_NULL(classNode, TAV_ERR_NO_MEMORY);
    const uint32_t result = extcfg::ClassAddRecord(classNode, record);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    return TAV_OK;
}

uint32_t TAV_ExtCfgSetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *record, CfgLocal *local) {
    TAV_CHECK_EDITABLE(local);
    /* A record without its key field is simply not found: the look-up is all that checks it. */
    TAV_ExtCfgRecordNode *stored = TAV_ExtCfgGetRecord(vsId, record, local);
    TAV_RETURN_IF_NULL(stored, TAV_ERR_NOT_FOUND);
    const uint32_t result = TAV_ExtCfgRecordNodeSet(stored, record);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Report error: 0x%x", result);
    }
    return TAV_OK;
}

uint32_t TAV_ExtCfgDelRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord, CfgLocal *local) {
    TAV_CHECK_EDITABLE(local);
    TAV_CHECK_KEYS(keyRecord);
    const extcfg::Place place = extcfg::LookUp(local, vsId, keyRecord);
    TAV_RETURN_IF_NULL(place.record, TAV_ERR_NOT_FOUND);
    extcfg::ClassDelRecord(place.classNode, place.record);
    return TAV_OK;
}
