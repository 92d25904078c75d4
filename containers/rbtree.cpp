/*
 * Red-black tree wrapper. The descents are here; re-balancing, removal and walking are the platform's.
 *
 * In a descent the ways of a step are branches on purpose: the processor goes on with the child that it expects while
 * the key is still on its way from memory. A choice between two addresses would have to wait.
 */
#include "containers/rbtree.h"

#include "platform/bex_string.h"
#include "platform/mel_memory.h"

using containers::RbtKey;

namespace {

constexpr char kModule[] = "tav_rbtree";

/** Tells whether a tree has been initialised with a comparer. */
bool IsUsable(const TAV_RBT_Tree *tree) {
    return tree != nullptr && tree->comparer != nullptr && tree->root != nullptr;
}

/** Links a node in as a red leaf below `parent` and has the platform re-balance. */
void LinkLeaf(TAV_RBT_Tree *tree, TAV_RBT_Node *parent, TAV_RBT_Node **link, TAV_RBT_Node *node) {
    node->greater = &tree->sentinel;
    node->smaller = &tree->sentinel;
    node->parent = parent;
    node->colour = BEX_RBT_RED;
    *link = node;
    BEX_RBT_InsertNodeFixup(tree, node);
}

/** Reads the pointer or number that a key begins with. */
template <typename Word>
Word KeyWord(const void *key) {
    return *static_cast<const Word *>(key);
}

}  // namespace

void containers::RbtAppend(TAV_RBT_Tree *tree, TAV_RBT_Node *greatest, TAV_RBT_Node *node) {
    LinkLeaf(tree, greatest, &greatest->greater, node);
}

TAV_RBT_Node *containers::RbtGreatest(TAV_RBT_Tree *tree) {
    TAV_RBT_Node *node = tree->root;
    if (node == &tree->sentinel) {
        return nullptr;
    }
    while (node->greater != &tree->sentinel) {
        node = node->greater;
    }
    return node;
}

void TAV_RBT_Init(TAV_RBT_Tree *tree, BEX_RBT_Destructor destructor, BEX_RBT_Comparer comparer) {
    if (tree == nullptr) {
        return;
    }
    tree->destructor = destructor;
    tree->comparer = comparer;
    tree->platformWords[0] = 0;
    tree->platformWords[1] = 0;
    tree->sentinel.parent = nullptr;
    tree->sentinel.greater = nullptr;
    tree->sentinel.smaller = nullptr;
    tree->sentinel.colour = BEX_RBT_BLACK;
    tree->root = &tree->sentinel;
}

uint32_t TAV_RBT_AddNode(TAV_RBT_Tree *tree, void *element) {
    if (element == nullptr) {
        return TAV_ERR_NULL;
    }
    if (!IsUsable(tree)) {
        return TAV_ERR_NOT_READY;
    }
    auto *node = static_cast<TAV_RBT_Node *>(element);
    TAV_RBT_Node *parent = &tree->sentinel;
    TAV_RBT_Node **link = &tree->root;
    while (*link != &tree->sentinel) {
        parent = *link;
        if (parent == nullptr) {
            return TAV_ERR_NULL; /* a damaged tree */
        }
        const int32_t order = tree->comparer(RbtKey(node), RbtKey(parent));
        if (order < 0) {
            link = &parent->smaller;
        } else if (order > 0) {
            link = &parent->greater;
        } else {
            return TAV_ERR_INVALID;
        }
    }
    LinkLeaf(tree, parent, link, node);
    return TAV_OK;
}

void *TAV_RBT_GetNode(TAV_RBT_Tree *tree, const void *key) {
    if (key == nullptr || !IsUsable(tree)) {
        return nullptr;
    }
    TAV_RBT_Node *node = tree->root;
    while (node != &tree->sentinel) {
        const int32_t order = tree->comparer(key, RbtKey(node));
        if (order < 0) {
            node = node->smaller;
        } else if (order > 0) {
            node = node->greater;
        } else {
            return node;
        }
    }
    return nullptr;
}

void TAV_RBT_DelNode(TAV_RBT_Tree *tree, void *element) {
    if (element == nullptr || !IsUsable(tree)) {
        return;
    }
    BEX_RBT_RemoveNode(tree, static_cast<TAV_RBT_Node *>(element));
    if (tree->destructor != nullptr) {
        tree->destructor(element);
    } else {
        MEL_Free_F(element, kModule, __LINE__);
    }
}

void TAV_RBT_DelTree(TAV_RBT_Tree *tree) {
    if (!IsUsable(tree)) {
        return;
    }
    /* The successor is asked for while its predecessor still stands; at the end, once, for the successor of none. */
    TAV_RBT_Node *node = BEX_RBT_FirstNode(tree);
    TAV_RBT_Node *next = BEX_RBT_NextNode(tree, node);
    while (node != nullptr) {
        TAV_RBT_DelNode(tree, node);
        node = next;
        next = BEX_RBT_NextNode(tree, node);
    }
    BEX_RBT_ClearTree(tree);
}

int32_t TAV_KEY_RBT_Compare_UINT32(const void *keyA, const void *keyB) {
    const auto a = KeyWord<uint32_t>(keyA);
    const auto b = KeyWord<uint32_t>(keyB);
    return a < b ? -1 : (a > b ? 1 : 0);
}

int32_t TAV_KEY_RBT_Compare_String(const void *keyA, const void *keyB) {
    return BEX_StrCmp(KeyWord<const char *>(keyA), KeyWord<const char *>(keyB));
}

int32_t TAV_KEY_RBT_Compare_IString(const void *keyA, const void *keyB) {
    return BEX_StrICmp(KeyWord<const char *>(keyA), KeyWord<const char *>(keyB));
}

void *TAV_KEY_RBT_GetNode(TAV_RBT_Tree *tree, uintptr_t key) {
    return TAV_RBT_GetNode(tree, &key);
}

void *TAV_KEY_RBT_GetNode_UINT32(TAV_RBT_Tree *tree, uint32_t key) {
    return TAV_RBT_GetNode(tree, &key);
}

void TAV_KEY_RBT_DelNode(TAV_RBT_Tree *tree, uintptr_t key) {
    TAV_RBT_DelNode(tree, TAV_KEY_RBT_GetNode(tree, key));
}

void TAV_KEY_RBT_DelNode_UINT32(TAV_RBT_Tree *tree, uint32_t key) {
    TAV_RBT_DelNode(tree, TAV_KEY_RBT_GetNode_UINT32(tree, key));
}
