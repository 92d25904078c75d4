/*
 * Trees by which elements of a list are found without walking it. A link and its key lie in the element; trees own
 * none.
 */
#ifndef DETECT_INDEX_H
#define DETECT_INDEX_H

#include "tav_rbtree.h"

namespace detect {

using Index = TAV_RBT_Tree;

/** An element's place in an index. */
template <typename Key>
struct IndexLink {
    TAV_RBT_Node node;
    Key key;  // directly behind the node, where comparers expect it
};

/** What conditions are the same by that need no compare function: type and bytes. */
struct CondKey {
    uint32_t typeId;   // id of their type
    uint32_t length;   // bytes of data
    const void *data;  // the data of one of them, while it lives
};

}  // namespace detect

#endif
