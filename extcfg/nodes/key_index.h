/*
 * An index of the records of one class by a hash of their keys, beside the class's tree.
 *
 * The tree alone decides: a find is confirmed by the tree's own comparison, and what is not found here is searched for
 * in the tree. So it does not matter whether keys that compare equal always have equal bytes. The index only spares
 * memory accesses: a descent in a large tree waits for one or two a level.
 */
#ifndef EXTCFG_NODES_KEY_INDEX_H
#define EXTCFG_NODES_KEY_INDEX_H

#include "extcfg/nodes/key_order.h"

namespace extcfg {

/**
 * Finds a record of a class by its key; null when the index does not know it, or when there is none. Builds one, which
 * takes memory, once as many searches as half of the records have come since the records last changed.
 */
TAV_ExtCfgRecordNode *FindByIndex(TAV_ExtCfgClassNode *classNode, const KeyOrder &keyOrder);

/** Frees the index of a class, if there is one. Whoever changes the class's records calls this. */
void ForgetIndex(TAV_ExtCfgClassNode *classNode);

}  // namespace extcfg

#endif
