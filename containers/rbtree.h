/*
 * What other rooms of the library may do with a tree beyond its exported interface.
 */
#ifndef CONTAINERS_RBTREE_H
#define CONTAINERS_RBTREE_H

#include "tav_rbtree.h"

namespace containers {

/** Returns an element's key, which follows its head. */
inline const void *RbtKey(const TAV_RBT_Node *node) {
    return node + 1;
}

/**
 * Adds an element that sorts behind every other, without a descent.
 *
 * @param tree      an initialised tree that is not empty
 * @param greatest  the tree's element with the greatest key
 * @param node      the new element, whose key the caller has compared with that of `greatest`
 */
void RbtAppend(TAV_RBT_Tree *tree, TAV_RBT_Node *greatest, TAV_RBT_Node *node);

/** Returns the element with the greatest key of an initialised tree, or null when the tree is empty. */
TAV_RBT_Node *RbtGreatest(TAV_RBT_Tree *tree);

}  // namespace containers

#endif
