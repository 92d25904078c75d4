// The red-black tree and the singly linked list against the standard library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <random>
#include <set>

#include "platform/bex_rbt.h"
#include "platform/sll.h"

namespace {

/** Inserts a node of an array; its key is its place there. */
void Insert(BEX_RBT_Tree *tree, BEX_RBT_Node *node) {
    BEX_RBT_Node *parent = &tree->sentinel;
    BEX_RBT_Node **link = &tree->root;
    while (*link != &tree->sentinel) {
        parent = *link;
        link = node < parent ? &parent->smaller : &parent->greater;
    }
    *node = {parent, &tree->sentinel, &tree->sentinel, BEX_RBT_RED};
    *link = node;
    BEX_RBT_InsertNodeFixup(tree, node);
}

/** Checks a subtree's links and colours. Returns its black height; -1 when something is wrong. */
int BlackHeight(const BEX_RBT_Tree &tree, const BEX_RBT_Node *node, const BEX_RBT_Node *parent) {
    if (node == &tree.sentinel) {
        return 0;
    }
    const int smaller = BlackHeight(tree, node->smaller, node);
    const int greater = BlackHeight(tree, node->greater, node);
    const bool red = node->colour == BEX_RBT_RED;
    const bool redPair = red && parent->colour == BEX_RBT_RED;
    const bool sound = node->parent == parent && !redPair && smaller >= 0 && smaller == greater;
    return sound ? smaller + !red : -1;
}

/** Grows and shrinks in phases, so that the tree is often nearly empty as well as large. */
TEST(Tree, FollowsAModelUnderRandomChanges) {
    std::mt19937 random(7);
    BEX_RBT_Node nodes[300];
    BEX_RBT_Tree tree;
    BEX_RBT_ClearTree(&tree);
    std::set<BEX_RBT_Node *> model;
    for (int step = 0; step < 20000; ++step) {
        BEX_RBT_Node *const chosen = &nodes[random() % std::size(nodes)];
        const bool growing = random() % 4 == 0 ? step / 700 % 2 != 0 : step / 700 % 2 == 0;
        if (growing && model.insert(chosen).second) {
            Insert(&tree, chosen);
        } else if (!growing && model.erase(chosen) > 0) {
            BEX_RBT_RemoveNode(&tree, chosen);
        }
        const BEX_RBT_Node &sentinel = tree.sentinel;
        ASSERT_GE(BlackHeight(tree, tree.root, &sentinel), 0) << "step " << step;
        ASSERT_EQ(tree.root->colour, uint32_t{BEX_RBT_BLACK});
        ASSERT_EQ(sentinel.colour, uint32_t{BEX_RBT_BLACK});
        ASSERT_EQ((std::set{sentinel.parent, sentinel.smaller, sentinel.greater}), std::set<BEX_RBT_Node *>{nullptr});
        BEX_RBT_Node *node = BEX_RBT_FirstNode(&tree);
        for (BEX_RBT_Node *expected : model) {
            ASSERT_EQ(node, expected);
            node = BEX_RBT_NextNode(&tree, node);
        }
        ASSERT_EQ(node, nullptr);
    }
}

TEST(List, FollowsAModelUnderRandomChanges) {
    SLL_List list = {};
    SLL_Node *const head = &list.head.link;
    head->next = head;
    list.tail = head;
    std::mt19937 random(3);
    SLL_Node nodes[40];
    std::list<SLL_Node *> model;
    for (int step = 0; step < 20000; ++step) {
        SLL_Node *const node = &nodes[random() % std::size(nodes)];
        const auto found = std::find(model.begin(), model.end(), node);
        if (found != model.end() || random() % 8 == 0) {  // now and then a node that is not there
            SLL_Delete(&list, node);
            model.remove(node);
        } else {
            const auto place = std::next(model.begin(), static_cast<long>(random() % (model.size() + 1)));
            SLL_Insert_In_Middle(&list, place == model.begin() ? head : *std::prev(place), node);
            model.insert(place, node);
        }
        SLL_Delete(&list, head);  // the head is no element
        std::list<SLL_Node *> walked;
        for (SLL_Node *next = head->next; next != head && walked.size() < list.count; next = next->next) {
            walked.push_back(next);
        }
        ASSERT_EQ(walked, model);
        ASSERT_EQ(list.count, model.size());
        ASSERT_EQ(list.tail, model.empty() ? head : model.back());
        ASSERT_EQ(list.tail->next, head);
    }
}

}  // namespace
