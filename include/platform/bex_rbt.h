/*
 * Platform red-black tree: the intrusive node, the tree, and the primitives that keep it balanced.
 *
 * The descent (search, place of insertion) is the user's; the platform re-balances, removes, walks and clears.
 */
#ifndef PLATFORM_BEX_RBT_H
#define PLATFORM_BEX_RBT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Node colours. */
enum { BEX_RBT_RED = 0, BEX_RBT_BLACK = 1 };

/** The head of every element; the element's key follows it immediately. */
typedef struct BEX_RBT_Node {
    struct BEX_RBT_Node *parent;  /**< parent; the tree's sentinel for the root */
    struct BEX_RBT_Node *greater; /**< subtree of the keys that compare greater, or the sentinel */
    struct BEX_RBT_Node *smaller; /**< subtree of the keys that compare smaller, or the sentinel */
    uint32_t colour;              /**< BEX_RBT_RED or BEX_RBT_BLACK */
} BEX_RBT_Node;

/** Releases an element. */
typedef void (*BEX_RBT_Destructor)(void *element);

/** Orders two keys: negative when A sorts before B, 0 when equal, positive when after. */
typedef int32_t (*BEX_RBT_Comparer)(const void *keyA, const void *keyB);

/** A tree. Its owner embeds it; it must not move in memory, because its nodes point at the sentinel. */
typedef struct BEX_RBT_Tree {
    BEX_RBT_Node *root;            /**< root node; the sentinel while the tree is empty */
    BEX_RBT_Node sentinel;         /**< stands for every missing child and for the root's parent; black */
    uint32_t platformWords[2];     /**< for the platform's primitives; 0 after initialisation */
    BEX_RBT_Destructor destructor; /**< releases a deleted element; may be null */
    BEX_RBT_Comparer comparer;     /**< orders the keys */
} BEX_RBT_Tree;

/** Re-balances after `node` has been linked in as a red leaf. */
void BEX_RBT_InsertNodeFixup(BEX_RBT_Tree *tree, BEX_RBT_Node *node);

/** Unlinks `node` and re-balances. No other element is moved or copied: pointers to them stay valid. */
void BEX_RBT_RemoveNode(BEX_RBT_Tree *tree, BEX_RBT_Node *node);

/** Returns the element with the smallest key; null for a null or empty tree. */
BEX_RBT_Node *BEX_RBT_FirstNode(BEX_RBT_Tree *tree);

/** Returns the in-order successor of `node`; null at the end and for a null node. */
BEX_RBT_Node *BEX_RBT_NextNode(BEX_RBT_Tree *tree, BEX_RBT_Node *node);

/** Resets an emptied tree to its initial state (destructor and comparer stay). Elements are not touched. */
void BEX_RBT_ClearTree(BEX_RBT_Tree *tree);

#ifdef __cplusplus
}
#endif

#endif
