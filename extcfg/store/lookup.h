/*
 * Finding a stored record by its key, for reading, overwriting and deleting alike.
 */
#ifndef EXTCFG_STORE_LOOKUP_H
#define EXTCFG_STORE_LOOKUP_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

/** Where a record is. */
struct Place {
    TAV_ExtCfgClassNode *classNode;  // its class, or null
    TAV_ExtCfgRecordNode *record;    // the record, or null when there is none
};

/** Finds the record with the class and key fields of a verified key record. Creates nothing. */
Place LookUp(CfgLocal *local, uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord);

}  // namespace extcfg

#endif
