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

class Tree : public testing::Test {
  protected:
    void SetUp() override {
        tree_.root = nullptr;
        tree_.platformWords[0] = 5;
        BEX_RBT_ClearTree(&tree_);
    }

    void Insert(Element *element) {
        BEX_RBT_Node *parent = &tree_.sentinel;
        BEX_RBT_Node **link = &tree_.root;
        while (*link != &tree_.sentinel) {
            parent = *link;
            link = element->key < KeyOf(parent) ? &parent->smaller : &parent->greater;
        }
        element->node = {parent, &tree_.sentinel, &tree_.sentinel, BEX_RBT_RED};
        *link = &element->node;
        BEX_RBT_InsertNodeFixup(&tree_, &element->node);
    }

    // Checks a subtree's links and colours. Returns its black height; -1 when something is wrong.
    int BlackHeight(const BEX_RBT_Node *node, const BEX_RBT_Node *parent) const {
        if (node == &tree_.sentinel) {
            return 0;
        }
        const int smaller = BlackHeight(node->smaller, node);
        const int greater = BlackHeight(node->greater, node);
        const bool red = node->colour == BEX_RBT_RED;
        const bool redPair = red && parent->colour == BEX_RBT_RED;
        const bool sound = node->parent == parent && !redPair && smaller >= 0 && smaller == greater;
        return sound ? smaller + (red ? 0 : 1) : -1;
    }

    void Check(const std::map<uint32_t, Element *> &model) {
        ASSERT_GE(BlackHeight(tree_.root, &tree_.sentinel), 0);
        ASSERT_EQ(tree_.root->colour, uint32_t{BEX_RBT_BLACK});
        ASSERT_TRUE(tree_.sentinel.parent == nullptr && tree_.sentinel.smaller == nullptr &&
                    tree_.sentinel.greater == nullptr && tree_.sentinel.colour == BEX_RBT_BLACK);
        const BEX_RBT_Node *node = BEX_RBT_FirstNode(&tree_);
        for (const auto &[key, element] : model) {
            ASSERT_EQ(node, &element->node);
            ASSERT_EQ(KeyOf(node), key);
            node = BEX_RBT_NextNode(&tree_, &element->node);
        }
        ASSERT_EQ(node, nullptr);
    }

    BEX_RBT_Tree tree_ = {};
};

// Grows and shrinks in phases, so that the tree is often nearly empty as well as large.
TEST_F(Tree, StaysSoundUnderRandomChanges) {
    std::mt19937 random(7);
    std::vector<Element> elements(300);
    std::map<uint32_t, Element *> model;
    for (int step = 0; step < 20000; ++step) {
        const auto key = static_cast<uint32_t>(random() % 300);
        const bool growing = step / 700 % 2 == 0;
        const auto found = model.find(key);
        if (found != model.end() && (!growing || random() % 4 == 0)) {
            BEX_RBT_RemoveNode(&tree_, &found->second->node);
            model.erase(found);
        } else if (found == model.end() && (growing || random() % 4 == 0)) {
            elements[key].key = key;
            Insert(&elements[key]);
            model[key] = &elements[key];
        }
        ASSERT_NO_FATAL_FAILURE(Check(model)) << "step " << step;
    }
}

// Removes each node in turn from trees of every small size and both orders of filling.
TEST_F(Tree, StaysSoundWhenAnyNodeGoes) {
    for (uint32_t size = 1; size <= 40; ++size) {
        for (uint32_t gone = 0; gone < 2 * size; ++gone) {
            std::vector<Element> elements(size);
            std::map<uint32_t, Element *> model;
            BEX_RBT_ClearTree(&tree_);
            for (uint32_t i = 0; i < size; ++i) {
                elements[i].key = gone < size ? i : size - i;
                Insert(&elements[i]);
                model[elements[i].key] = &elements[i];
            }
            Element &leaver = elements[gone % size];
            BEX_RBT_RemoveNode(&tree_, &leaver.node);
            model.erase(leaver.key);
            ASSERT_NO_FATAL_FAILURE(Check(model)) << size << ", " << gone;
        }
    }
}

TEST_F(Tree, AnswersNoneWhereThereIsNothing) {
    EXPECT_EQ(tree_.platformWords[0], 0u);
    EXPECT_EQ(BEX_RBT_FirstNode(&tree_), nullptr);
    EXPECT_EQ(BEX_RBT_FirstNode(nullptr), nullptr);
    EXPECT_EQ(BEX_RBT_NextNode(&tree_, nullptr), nullptr);
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
            SLL_Node *const previous = place == model.begin() ? &list.head.link : *std::prev(place);
            SLL_Insert_In_Middle(&list, previous, node);
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
