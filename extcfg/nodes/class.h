/*
 * The records of a class, for adding, finding, removing and measuring them.
 */
#ifndef EXTCFG_NODES_CLASS_H
#define EXTCFG_NODES_CLASS_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

/**
 * Adds a record to its class, which owns it on success. While the log is off, records that come in key order go in
 * without a descent.
 *
 * @return TAV_OK; TAV_ERR_INVALID when the key is there already; else as TAV_RBT_AddNode
 */
uint32_t ClassAddRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record);

/** Finds the record of a class with the key fields of a verified key record, or null. */
TAV_ExtCfgRecordNode *ClassFindRecord(TAV_ExtCfgClassNode *classNode, const TAV_ExtCfgRecordNode *keyRecord);

/** Takes a record out of its class; it is the caller's afterwards. */
void ClassTakeRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record);

/** Removes a record from its class and frees it. */
void ClassDelRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record);

/** Returns the bytes of all record TLVs of a class. */
uint32_t ClassSize(const TAV_ExtCfgClassNode *classNode);

}  // namespace extcfg

#endif
