// The red-black tree and the singly linked list against the standard library's.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>
#include <map>
#include <random>
#include <vector>

#include "platform/bex_rbt.h"
#include "platform/sll.h"

namespace {

struct Element {
    BEX_RBT_Node node;
    uint32_t key;
};

uint32_t KeyOf(const BEX_RBT_Node *node) {
    return reinterpret_cast<const Element *>(node)->key;
}

void Insert(BEX_RBT_Tree *tree, Element *element) {
    BEX_RBT_Node *parent = &tree->sentinel;
    BEX_RBT_Node **link = &tree->root;
    while (*link != &tree->sentinel) {
        parent = *link;
        link = element->key < KeyOf(parent) ? &parent->smaller : &parent->greater;
    }
    element->node = {parent, &tree->sentinel, &tree->sentinel, BEX_RBT_RED};
    *link = &element->node;
    BEX_RBT_InsertNodeFixup(tree, &element->node);
}

// Checks a subtree's links and colours. Returns its black height; -1 when something is wrong.
int BlackHeight(const BEX_RBT_Tree &tree, const BEX_RBT_Node *node, const BEX_RBT_Node *parent) {
    if (node == &tree.sentinel) {
        return 0;
    }
    const int smaller = BlackHeight(tree, node->smaller, node);
    const int greater = BlackHeight(tree, node->greater, node);
    const bool red = node->colour == BEX_RBT_RED;
    const bool redPair = red && parent->colour == BEX_RBT_RED;
    const bool sound = node->parent == parent && !redPair && smaller >= 0 && smaller == greater;
    return sound ? smaller + (red ? 0 : 1) : -1;
}

void Check(BEX_RBT_Tree *tree, const std::map<uint32_t, Element *> &model) {
    const BEX_RBT_Node &sentinel = tree->sentinel;
    ASSERT_GE(BlackHeight(*tree, tree->root, &sentinel), 0);
    ASSERT_EQ(tree->root->colour, uint32_t{BEX_RBT_BLACK});
    ASSERT_TRUE(sentinel.parent == nullptr && sentinel.smaller == nullptr && sentinel.greater == nullptr);
    ASSERT_EQ(sentinel.colour, uint32_t{BEX_RBT_BLACK});
    const BEX_RBT_Node *node = BEX_RBT_FirstNode(tree);
    for (const auto &[key, element] : model) {
        ASSERT_EQ(node, &element->node);
        node = BEX_RBT_NextNode(tree, &element->node);
    }
    ASSERT_EQ(node, nullptr);
}

// Grows and shrinks in phases, so that the tree is often nearly empty as well as large.
TEST(Tree, FollowsAModelUnderRandomChanges) {
    BEX_RBT_Tree tree = {};
    BEX_RBT_ClearTree(&tree);
    EXPECT_EQ(BEX_RBT_NextNode(&tree, nullptr), nullptr);
    std::mt19937 random(7);
    std::vector<Element> elements(300);
    std::map<uint32_t, Element *> model;
    for (int step = 0; step < 20000; ++step) {
        const auto key = static_cast<uint32_t>(random() % elements.size());
        const bool growing = step / 700 % 2 == 0;
        const bool present = model.count(key) != 0;
        if (present && (!growing || random() % 4 == 0)) {
            BEX_RBT_RemoveNode(&tree, &model[key]->node);
            model.erase(key);
        } else if (!present && (growing || random() % 4 == 0)) {
            elements[key].key = key;
            Insert(&tree, &elements[key]);
            model[key] = &elements[key];
        }
        ASSERT_NO_FATAL_FAILURE(Check(&tree, model)) << "step " << step;
    }
}

TEST(List, FollowsAModelUnderRandomChanges) {
    SLL_List list = {};
    list.head.link.next = &list.head.link;
    list.tail = &list.head.link;
    std::mt19937 random(3);
    std::vector<SLL_Node> nodes(40);
    std::list<SLL_Node *> model;
    for (int step = 0; step < 20000; ++step) {
        SLL_Node *const node = &nodes[random() % nodes.size()];
        const auto found = std::find(model.begin(), model.end(), node);
        if (found != model.end() || random() % 8 == 0) {  // now and then a node that is not there
            SLL_Delete(&list, node);
            model.remove(node);
        } else {
            const auto place = std::next(model.begin(), static_cast<long>(random() % (model.size() + 1)));
            SLL_Insert_In_Middle(&list, place == model.begin() ? &list.head.link : *std::prev(place), node);
            model.insert(place, node);
        }
        SLL_Delete(&list, &list.head.link);  // the head is no element
        ASSERT_EQ(list.count, model.size());
        ASSERT_EQ(list.tail, model.empty() ? &list.head.link : model.back());
        const SLL_Node *walker = &list.head.link;
        for (const SLL_Node *expected : model) {
            walker = walker->next;
            ASSERT_EQ(walker, expected);
        }
        ASSERT_EQ(walker->next, &list.head.link);
    }
}

}  // namespace
