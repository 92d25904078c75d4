/*
 * The index of a list by the ids of its elements: a tree through the elements, so it takes no memory and cannot fail.
 */
#include "extcfg/nodes/id_index.h"

#include <cstddef>

#include "containers/rbtree.h"

namespace {

/** The count of an index that has been given up; no list reaches it. */
constexpr uint32_t kGivenUp = UINT32_MAX;

/** Returns what begins with a node of an index's tree. */
TAV_ExtCfgIdNode *IdNodeAt(void *node) {
    return static_cast<TAV_ExtCfgIdNode *>(node);
}

}  // namespace

// The comparer is handed what follows the tree node.
static_assert(offsetof(TAV_ExtCfgIdNode, id) == sizeof(TAV_RBT_Node));

void extcfg::InitIdIndex(TAV_ExtCfgIdIndex *index) {
    TAV_RBT_Init(&index->ids, nullptr, TAV_KEY_RBT_Compare_UINT32);
    index->count = 0;
    index->last = nullptr;
}

void extcfg::InitIdNode(TAV_ExtCfgIdNode *node, SLL_Node *element, uint32_t id) {
    node->node = {};
    node->id = id;
    node->element = element;
    node->index = nullptr;
}

bool extcfg::Covers(TAV_ExtCfgIdIndex *index, const SLL_List *list) {
    if (index->count == list->count && (index->count == 0 || index->last == list->tail)) {
        return true;
    }
    if (index->count != kGivenUp) {
        DropIdIndex(index);
    }
    return false;
}

void extcfg::AppendIndexed(SLL_List *list, TAV_ExtCfgIdIndex *index, TAV_ExtCfgIdNode *node) {
    const bool covered = Covers(index, list);
    AppendTo(list, node->element);
    if (!covered || TAV_RBT_AddNode(&index->ids, node) != TAV_OK) {
        DropIdIndex(index);
        return;
    }
    node->index = index;
    index->last = node->element;
    ++index->count;
}

SLL_Node *extcfg::FindIndexed(TAV_ExtCfgIdIndex *index, uint32_t id) {
    const auto order = [id](TAV_RBT_Node *node) {
        return id < IdNodeAt(node)->id ? -1 : id > IdNodeAt(node)->id ? 1 : 0;
    };
    const TAV_ExtCfgIdNode *node = IdNodeAt(containers::RbtFind(&index->ids, order));
    return node == nullptr ? nullptr : node->element;
}

void extcfg::DropIdIndex(TAV_ExtCfgIdIndex *index) {
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(&index->ids); node != nullptr;
         node = BEX_RBT_NextNode(&index->ids, node)) {
        IdNodeAt(node)->index = nullptr;
    }
    InitIdIndex(index);
    index->count = kGivenUp;
}

void extcfg::LeaveIdIndex(const TAV_ExtCfgIdNode *node) {
    if (node->index != nullptr) {
        DropIdIndex(node->index);
    }
}
