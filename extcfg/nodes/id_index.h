/*
 * Finding the elements of a list, virtual systems or classes, by their ids without walking it.
 *
 * The list is what counts: it is public, and whoever works on it with the platform's calls leaves the index behind. An
 * index that has been left behind once is not used again; then the list is walked.
 */
#ifndef EXTCFG_NODES_ID_INDEX_H
#define EXTCFG_NODES_ID_INDEX_H

#include "extcfg/nodes/list.h"
#include "tav_extcfg_nodes.h"

namespace extcfg {

/** Makes the index of an empty list. */
void InitIdIndex(TAV_ExtCfgIdIndex *index);

/** Prepares the place in an index of an element that stands in no list yet. */
void InitIdNode(TAV_ExtCfgIdNode *node, SLL_Node *element, uint32_t id);

/** Puts an element at the end of a list, which holds no other one of its id, and into the list's index. */
void AppendIndexed(SLL_List *list, TAV_ExtCfgIdIndex *index, TAV_ExtCfgIdNode *node);

/** Returns whether count and last element of a list are those that its index knows. Otherwise the index is given up. */
bool Covers(TAV_ExtCfgIdIndex *index, const SLL_List *list);

/** Returns the element with an id, or null when the index has none. */
SLL_Node *FindIndexed(TAV_ExtCfgIdIndex *index, uint32_t id);

/** Gives an index up; its elements may go, and so may it. */
void DropIdIndex(TAV_ExtCfgIdIndex *index);

/** Gives the index up in which an element stands, if any: the element goes. */
void LeaveIdIndex(const TAV_ExtCfgIdNode *node);

/** Finds the first element with an id in a list, or null. `id` is the member that holds it. */
template <typename Element>
Element *FindById(const SLL_List *list, TAV_ExtCfgIdIndex *index, uint32_t Element::*id, uint32_t wanted) {
    if (Covers(index, list)) {
        return reinterpret_cast<Element *>(FindIndexed(index, wanted));
    }
    for (Element *element : ListRange<Element>(list)) {
        if (element->*id == wanted) {
            return element;
        }
    }
    return nullptr;
}

}  // namespace extcfg

#endif
