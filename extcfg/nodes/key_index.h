/*
 * An index of the records of one class by a hash of their keys, beside the class's tree.
 *
 * The tree alone decides: a find is confirmed by the tree's own comparison, and what is not found here is searched for
 * in the tree. So it does not matter whether keys that compare equal always have equal bytes. The index only spares
 * memory accesses: a descent in a large tree waits for one or two a level.
 */
#ifndef EXTCFG_NODES_KEY_INDEX_H
#define EXTCFG_NODES_KEY_INDEX_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

/**
 * Indexes the records of a class.
 *
 * @param records  the class's tree; must not change while the index lives
 * @param count    number of records in it
 * @return the index, the caller's (FreeKeyIndex); null when memory is short
 */
TAV_ExtCfgKeyIndex *BuildKeyIndex(TAV_RBT_Tree *records, uint32_t count);

/** Finds the record with the class and key fields of a verified key record; null when the index does not know it. */
TAV_ExtCfgRecordNode *FindInKeyIndex(const TAV_ExtCfgKeyIndex *index, const TAV_ExtCfgRecordNode *keyRecord);

/** Frees an index. Null is ignored. */
void FreeKeyIndex(TAV_ExtCfgKeyIndex *index);

}  // namespace extcfg

#endif
