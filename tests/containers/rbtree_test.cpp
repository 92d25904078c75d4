/*
 * The tree wrapper against std::map, with its walk after every step; its codes and its key functions.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>

#include "interposer.h"
#include "store.h"
#include "tav_rbtree.h"

namespace {

/** An element as callers build it: head, key, and a payload that tells one element from another. */
struct Element {
    TAV_RBT_Node node;
    uint32_t key;
    uint32_t serial;
};

struct TextElement {
    TAV_RBT_Node node;
    const char *text;
};

std::multiset<uint32_t> g_freed;  // serials, in the order of nothing
uint32_t g_compared = 0;

void FreeElement(void *element) {
    g_freed.insert(static_cast<Element *>(element)->serial);
    delete static_cast<Element *>(element);
}

int32_t CountingCompare(const void *a, const void *b) {
    ++g_compared;
    return TAV_KEY_RBT_Compare_UINT32(a, b);
}

class Tree : public testing::Test {
  protected:
    void SetUp() override {
        g_freed.clear();
        TAV_RBT_Init(&tree_, FreeElement, CountingCompare);
    }
    void TearDown() override { TAV_RBT_DelTree(&tree_); }

    /** Adds, and frees an element that is refused. */
    uint32_t Add(uint32_t key, uint32_t serial = 0) {
        auto *element = new Element{{}, key, serial};
        uint32_t code = TAV_RBT_AddNode(&tree_, element);
        if (code != TAV_OK) {
            delete element;
        }
        return code;
    }

    /** The keys in the order of the walk. */
    std::vector<uint32_t> Keys() {
        std::vector<uint32_t> keys;
        for (TAV_RBT_Node *at = BEX_RBT_FirstNode(&tree_); at != nullptr; at = BEX_RBT_NextNode(&tree_, at)) {
            keys.push_back(reinterpret_cast<Element *>(at)->key);
        }
        return keys;
    }

    TAV_RBT_Tree tree_;
};

TEST_F(Tree, AgreesWithAMapUnderRandomOperations) {
    Random random(42);
    std::map<uint32_t, uint32_t> model;
    for (uint32_t serial = 1; serial <= 3000; ++serial) {
        uint32_t key = random() % 300;
        key = key > 290 ? 0xFFFFFFFF - key : key;
        auto known = model.find(key);
        auto *found = static_cast<Element *>(TAV_KEY_RBT_GetNode_UINT32(&tree_, key));
        ASSERT_EQ(found != nullptr, known != model.end());
        if (found != nullptr) {
            ASSERT_EQ(found->serial, known->second);
            ASSERT_EQ(TAV_RBT_GetNode(&tree_, &key), found);
        }
        if (random() % 100 < (serial / 1000 % 2 == 0 ? 65u : 35u)) {
            ASSERT_EQ(Add(key, serial), found != nullptr ? TAV_ERR_INVALID : TAV_OK);
            model.emplace(key, serial);
        } else if (random() % 2 == 0) {
            TAV_KEY_RBT_DelNode_UINT32(&tree_, key);
            ASSERT_EQ(g_freed.count(known != model.end() ? known->second : 0), known != model.end() ? 1u : 0u);
            model.erase(key);
        } else if (found != nullptr) {
            TAV_RBT_DelNode(&tree_, found);
            model.erase(key);
        }
        std::vector<uint32_t> expected;
        for (const auto &[knownKey, knownSerial] : model) {
            expected.push_back(knownKey);
        }
        ASSERT_EQ(Keys(), expected) << "operation " << serial;
    }
    // Delete-all frees each once, and asks for the successor of none just once.
    g_freed.clear();
    interposer::Reset();
    TAV_RBT_DelTree(&tree_);
    EXPECT_EQ(interposer::Count(interposer::Call::kNextOfNone), 1u);
    EXPECT_EQ(g_freed.size(), model.size());
    for (const auto &[key, serial] : model) {
        EXPECT_EQ(g_freed.count(serial), 1u);
    }
    EXPECT_TRUE(Keys().empty());
    EXPECT_EQ(Add(5), TAV_OK) << "usable again";
    interposer::Reset();
    TAV_RBT_DelTree(&tree_);
    EXPECT_EQ(interposer::Count(interposer::Call::kNextOfNone), 1u);
}

TEST_F(Tree, InitialisationAndFirstElement) {
    TAV_RBT_Tree other;
    std::memset(&other, 0xEE, sizeof other);
    TAV_RBT_Init(&other, nullptr, TAV_KEY_RBT_Compare_UINT32);
    EXPECT_EQ(other.root, &other.sentinel);
    EXPECT_EQ(other.sentinel.parent, nullptr);
    EXPECT_EQ(other.sentinel.greater, nullptr);
    EXPECT_EQ(other.sentinel.smaller, nullptr);
    EXPECT_EQ(other.sentinel.colour, 1u);
    EXPECT_EQ(other.platformWords[0], 0u);
    EXPECT_EQ(other.platformWords[1], 0u);
    EXPECT_EQ(other.destructor, nullptr);
    EXPECT_EQ(other.comparer, TAV_KEY_RBT_Compare_UINT32);
    TAV_RBT_Init(nullptr, nullptr, nullptr);

    g_compared = 0;
    uint32_t key = 1;
    EXPECT_EQ(TAV_RBT_GetNode(&tree_, &key), nullptr);
    EXPECT_EQ(g_compared, 0u) << "an empty tree needs no comparison";
    ASSERT_EQ(Add(1), TAV_OK);
    EXPECT_EQ(reinterpret_cast<Element *>(tree_.root)->key, 1u);
    EXPECT_EQ(tree_.root->parent, &tree_.sentinel);
    EXPECT_EQ(tree_.root->greater, &tree_.sentinel);
    EXPECT_EQ(tree_.root->smaller, &tree_.sentinel);
}

TEST_F(Tree, RefusalsAndUnusableTrees) {
    Element element = {{}, 2, 9};
    uint32_t key = 2;
    EXPECT_EQ(TAV_RBT_AddNode(&tree_, nullptr), TAV_ERR_NULL);
    EXPECT_EQ(TAV_RBT_AddNode(nullptr, nullptr), TAV_ERR_NULL) << "the element is looked at first";
    EXPECT_EQ(TAV_RBT_AddNode(nullptr, &element), TAV_ERR_NOT_READY);
    EXPECT_EQ(TAV_RBT_GetNode(nullptr, &key), nullptr);
    EXPECT_EQ(TAV_RBT_GetNode(&tree_, nullptr), nullptr);
    TAV_RBT_DelNode(nullptr, &element);
    TAV_RBT_DelNode(&tree_, nullptr);
    TAV_RBT_DelTree(nullptr);

    ASSERT_EQ(Add(2, 1), TAV_OK);
    ASSERT_EQ(Add(1, 2), TAV_OK);
    auto expectUnusable = [&] {
        EXPECT_EQ(TAV_RBT_AddNode(&tree_, &element), TAV_ERR_NOT_READY);
        EXPECT_EQ(TAV_RBT_GetNode(&tree_, &key), nullptr);
        TAV_RBT_DelNode(&tree_, &element);
        TAV_RBT_DelTree(&tree_);
        EXPECT_TRUE(g_freed.empty());
    };
    tree_.comparer = nullptr;
    expectUnusable();
    tree_.comparer = CountingCompare;
    TAV_RBT_Node *root = tree_.root;
    tree_.root = nullptr;
    expectUnusable();
    tree_.root = root;

    root->greater = nullptr;  // a damaged tree
    element.key = 3;
    EXPECT_EQ(TAV_RBT_AddNode(&tree_, &element), TAV_ERR_NULL);
    root->greater = &tree_.sentinel;
    TAV_KEY_RBT_DelNode_UINT32(&tree_, 77);
    EXPECT_TRUE(g_freed.empty());
    EXPECT_EQ(Keys(), (std::vector<uint32_t>{1, 2}));
}

TEST_F(Tree, WithoutDestructorThePlatformFrees) {
    NothingLeaks leaks;
    TAV_RBT_Tree plain;
    TAV_RBT_Init(&plain, nullptr, TAV_KEY_RBT_Compare_UINT32);
    for (uint32_t key = 0; key < 20; ++key) {
        auto *element = static_cast<Element *>(
            MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], sizeof(Element), "tests", __LINE__));
        element->key = key * 7 % 20;
        ASSERT_EQ(TAV_RBT_AddNode(&plain, element), TAV_OK);
    }
    TAV_KEY_RBT_DelNode_UINT32(&plain, 3);
    TAV_RBT_DelTree(&plain);
}

TEST(TreeKeys, Comparers) {
    const uint32_t ascending[] = {0, 1, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    for (uint32_t a : ascending) {
        for (uint32_t b : ascending) {
            EXPECT_EQ(TAV_KEY_RBT_Compare_UINT32(&a, &b), (a > b) - (a < b));
        }
    }
    const char *lower = "abc", *upper = "ABC", *longer = "abcd", *high = "\xFF";
    EXPECT_GT(TAV_KEY_RBT_Compare_String(&lower, &upper), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_String(&upper, &lower), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_String(&lower, &longer), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_String(&longer, &high), 0) << "bytewise, unsigned";
    EXPECT_EQ(TAV_KEY_RBT_Compare_IString(&lower, &upper), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_IString(&upper, &longer), 0);
}

TEST(TreeKeys, KeysThatArePointers) {
    TAV_RBT_Tree tree;
    TAV_RBT_Init(
        &tree, [](void *) {}, TAV_KEY_RBT_Compare_IString);
    TextElement one = {{}, "one"}, two = {{}, "two"}, again = {{}, "ONE"};
    EXPECT_EQ(TAV_RBT_AddNode(&tree, &one), TAV_OK);
    EXPECT_EQ(TAV_RBT_AddNode(&tree, &two), TAV_OK);
    EXPECT_EQ(TAV_RBT_AddNode(&tree, &again), TAV_ERR_INVALID);
    const std::string name = "Two";
    auto word = reinterpret_cast<uintptr_t>(name.c_str());
    EXPECT_EQ(TAV_KEY_RBT_GetNode(&tree, word), &two);
    TAV_KEY_RBT_DelNode(&tree, word);
    EXPECT_EQ(TAV_KEY_RBT_GetNode(&tree, word), nullptr);
    TAV_KEY_RBT_DelNode(&tree, word);
    EXPECT_EQ(TAV_KEY_RBT_GetNode(&tree, reinterpret_cast<uintptr_t>("one")), &one);
}

}  // namespace
