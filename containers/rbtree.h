/*
 * What other rooms of the library may do with a tree beyond its exported interface, and the descents of both.
 *
 * In a descent the ways of a step are branches: the processor goes on with the child that it expects while the key is
 * still on its way from memory. A choice between two addresses has to wait: with a million elements in random order,
 * insertions then take 1.1 times as long, and searches 1.05 times.
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
 * Finds the element that a key equals, or null. Like TAV_RBT_GetNode, for a user that compares by itself.
 *
 * @param tree   an initialised tree
 * @param order  order(node) says how the key sorts beside that of an element, as a comparer does
 */
template <typename Order>
TAV_RBT_Node *RbtFind(TAV_RBT_Tree *tree, const Order &order) {
    TAV_RBT_Node *node = tree->root;
    while (node != &tree->sentinel) {
        const int32_t side = order(node);
        if (side < 0) {
            node = node->smaller;
        } else if (side > 0) {
            node = node->greater;
        } else {
            return node;
        }
    }
    return nullptr;
}

/** Links a node in as a red leaf below `parent`, at one of its child words or the root's, and has the platform
 * re-balance.
 */
void RbtLink(TAV_RBT_Tree *tree, TAV_RBT_Node *parent, TAV_RBT_Node **link, TAV_RBT_Node *node);

/** Adds an element. Like TAV_RBT_AddNode, and with its results, for a user that compares by itself as above. */
template <typename Order>
uint32_t RbtAdd(TAV_RBT_Tree *tree, TAV_RBT_Node *node, const Order &order) {
    TAV_RBT_Node *parent = &tree->sentinel;
    TAV_RBT_Node **link = &tree->root;
    while (*link != &tree->sentinel) {
        parent = *link;
        if (parent == nullptr) {
            return TAV_ERR_NULL;  // a damaged tree
        }
        const int32_t side = order(parent);
        if (side < 0) {
            link = &parent->smaller;
        } else if (side > 0) {
            link = &parent->greater;
        } else {
            return TAV_ERR_INVALID;
        }
    }
    RbtLink(tree, parent, link, node);
    return TAV_OK;
}

/**
 * Adds an element that sorts behind every other, without a descent.
 *
 * @param tree      an initialised tree that is not empty
 * @param greatest  the tree's element with the greatest key
 * @param node      the new element, whose key the caller has compared with that of `greatest`
 */
void RbtAppend(TAV_RBT_Tree *tree, TAV_RBT_Node *greatest, TAV_RBT_Node *node);

/**
 * Removes and frees every element in the order of the keys, as TAV_RBT_DelTree, but without keeping the tree balanced
 * meanwhile: that takes three quarters of the time.
 *
 * @param tree  an initialised tree (its root is not null) with a destructor that does not look at the tree
 */
void RbtFreeAll(TAV_RBT_Tree *tree);

/** Returns the element with the greatest key of an initialised tree, or null when the tree is empty. */
TAV_RBT_Node *RbtGreatest(TAV_RBT_Tree *tree);

}  // namespace containers

#endif
