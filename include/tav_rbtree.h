/*
 * Red-black tree: an ordered, intrusive index with a comparison and a destructor of the caller's choice.
 *
 * An element begins with a TAV_RBT_Node; its key follows immediately, and that is what the comparer receives. The tree
 * neither copies nor allocates elements: an element added belongs to the tree until it is deleted, when the tree's
 * destructor (or, without one, the platform's MEL_Free_F) releases it. No locks: one thread at a time.
 */
#ifndef TAV_RBTREE_H
#define TAV_RBTREE_H

#include "platform/bex_rbt.h"
#include "tav_base.h"

/** The head of every element. */
typedef BEX_RBT_Node TAV_RBT_Node;

/** A tree, owned by the caller and usually embedded; it must not be moved or copied once it is initialised. */
typedef BEX_RBT_Tree TAV_RBT_Tree;

/**
 * Makes a tree empty and usable. A tree that still holds elements loses them. A null tree is ignored.
 *
 * @param tree        the tree
 * @param destructor  releases a deleted element, or null for MEL_Free_F
 * @param comparer    orders two keys; without one the tree refuses every use
 */
TAV_API void TAV_RBT_Init(TAV_RBT_Tree *tree, BEX_RBT_Destructor destructor, BEX_RBT_Comparer comparer);

/**
 * Adds an element, which belongs to the tree on success and stays the caller's on failure.
 *
 * @param tree     an initialised tree
 * @param element  begins with a TAV_RBT_Node, whose words need not be set
 * @return TAV_OK; TAV_ERR_NULL for a null element, and for a null link met inside the tree (a damaged tree);
 *         TAV_ERR_NOT_READY for a null tree or one without comparer or root; TAV_ERR_INVALID when an element with an
 *         equal key is present (nothing is changed)
 */
TAV_API uint32_t TAV_RBT_AddNode(TAV_RBT_Tree *tree, void *element);

/**
 * Finds the element whose key compares equal.
 *
 * @param tree  the tree; the comparer must not be changed while the search runs
 * @param key   the key, laid out as it follows an element's head
 * @return the element, still the tree's; null when there is none, for a null argument or an unusable tree
 */
TAV_API void *TAV_RBT_GetNode(TAV_RBT_Tree *tree, const void *key);

/**
 * Removes an element and releases it. Null arguments and an unusable tree are ignored.
 *
 * @param tree     the tree
 * @param element  an element of this tree, which is not checked: one of another tree, or of none, damages both
 */
TAV_API void TAV_RBT_DelNode(TAV_RBT_Tree *tree, void *element);

/**
 * Removes and releases every element; the tree is then empty and usable. An unusable tree is ignored. The destructor
 * must neither add elements to the tree nor delete others meanwhile.
 */
TAV_API void TAV_RBT_DelTree(TAV_RBT_Tree *tree);

/** Comparer for keys that begin with an unsigned 32-bit number in host order. */
TAV_API int32_t TAV_KEY_RBT_Compare_UINT32(const void *keyA, const void *keyB);

/** Comparer for keys that begin with a pointer to a string; bytewise. */
TAV_API int32_t TAV_KEY_RBT_Compare_String(const void *keyA, const void *keyB);

/** Comparer for keys that begin with a pointer to a string; without regard to case. */
TAV_API int32_t TAV_KEY_RBT_Compare_IString(const void *keyA, const void *keyB);

/**
 * Finds an element by a key given by value: the key word is what the element's key begins with (a string pointer, say,
 * or a number of pointer width).
 *
 * @return the element, still the tree's; null as for TAV_RBT_GetNode
 */
TAV_API void *TAV_KEY_RBT_GetNode(TAV_RBT_Tree *tree, uintptr_t key);

/** As TAV_KEY_RBT_GetNode, for keys that begin with an unsigned 32-bit number. */
TAV_API void *TAV_KEY_RBT_GetNode_UINT32(TAV_RBT_Tree *tree, uint32_t key);

/** Finds an element as TAV_KEY_RBT_GetNode does, removes and releases it. Does nothing when there is none. */
TAV_API void TAV_KEY_RBT_DelNode(TAV_RBT_Tree *tree, uintptr_t key);

/** Finds an element as TAV_KEY_RBT_GetNode_UINT32 does, removes and releases it. Does nothing when there is none. */
TAV_API void TAV_KEY_RBT_DelNode_UINT32(TAV_RBT_Tree *tree, uint32_t key);

#endif
