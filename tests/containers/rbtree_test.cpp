/*
 * The tree wrapper against std::map, with its walk after every step; its codes and its key functions.
 */
#include <algorithm>
#include <map>
#include <ranges>
#include <set>

#include "store.h"
#include "tav_rbtree.h"

namespace {

/** An element as callers build it: head, key, and a payload that tells one element from another. */
struct Element {
    TAV_RBT_Node node;
    uint32_t key;
    uint32_t serial;
};

std::vector<uint32_t> g_freed;  // serials of the elements that were freed, in this order

/** Checks a subtree's links and colours. Returns its black height; -1 when something is wrong. */
int BlackHeight(const TAV_RBT_Tree &tree, const TAV_RBT_Node *node, const TAV_RBT_Node *parent) {
    if (node == &tree.sentinel) {
        return 0;
    }
    const int smaller = BlackHeight(tree, node->smaller, node), greater = BlackHeight(tree, node->greater, node);
    const bool red = node->colour == BEX_RBT_RED, redPair = red && parent->colour == BEX_RBT_RED;
    const bool sound = node->parent == parent && !redPair && smaller >= 0 && smaller == greater;
    return sound ? smaller + !red : -1;
}

/** Expects a tree to be balanced and its sentinel untouched, and of an empty one that all else is cleared. */
void ExpectSound(const TAV_RBT_Tree &tree) {
    const TAV_RBT_Node &sentinel = tree.sentinel;
    EXPECT_GE(BlackHeight(tree, tree.root, &sentinel), 0);
    EXPECT_EQ(tree.root->colour, uint32_t{BEX_RBT_BLACK});
    EXPECT_EQ(sentinel.colour, uint32_t{BEX_RBT_BLACK});
    EXPECT_EQ((std::set{sentinel.parent, sentinel.smaller, sentinel.greater}), std::set<TAV_RBT_Node *>{nullptr});
    EXPECT_EQ(tree.platformWords[0], 0u);
    EXPECT_EQ(tree.platformWords[1], 0u);
}

struct Tree : testing::Test {
    TAV_RBT_Tree tree;

    Tree() {
        memset(&tree, 0xA5, sizeof(tree));
        g_freed.clear();
        const auto free = [](void *element) {
            g_freed.push_back(static_cast<Element *>(element)->serial);
            delete static_cast<Element *>(element);
        };
        TAV_RBT_Init(&tree, free, TAV_KEY_RBT_Compare_UINT32);
    }
    ~Tree() override { TAV_RBT_DelTree(&tree); }

    /** Adds, and frees an element that is refused. */
    uint32_t Add(uint32_t key, uint32_t serial) {
        auto element = std::make_unique<Element>(Element{{}, key, serial});
        const uint32_t code = TAV_RBT_AddNode(&tree, element.get());
        (void)(code == TAV_OK ? element.release() : nullptr);
        return code;
    }

    /** Keys and serials in the order of the walk. */
    std::vector<std::pair<const uint32_t, uint32_t>> Walk() {
        std::vector<std::pair<const uint32_t, uint32_t>> elements;
        for (TAV_RBT_Node *at = BEX_RBT_FirstNode(&tree); at != nullptr; at = BEX_RBT_NextNode(&tree, at)) {
            elements.emplace_back(reinterpret_cast<Element *>(at)->key, reinterpret_cast<Element *>(at)->serial);
        }
        return elements;
    }
};

TEST_F(Tree, AgreesWithAMapUnderRandomOperations) {
    Random random(42);
    std::map<uint32_t, uint32_t> model;
    std::vector<uint32_t> freed;
    for (uint32_t serial = 1; serial <= 3000; ++serial) {
        uint32_t key = random() % 300;
        key = key > 290 ? 0xFFFFFFFF - key : key;
        auto *found = static_cast<Element *>(TAV_KEY_RBT_GetNode_UINT32(&tree, key));
        ASSERT_EQ(found != nullptr, model.contains(key));
        ASSERT_EQ(TAV_RBT_GetNode(&tree, &key), found);
        if (random() % 100 < (serial / 1000 % 2 == 0 ? 65u : 35u)) {
            ASSERT_EQ(Add(key, serial), model.emplace(key, serial).second ? 0 : 0x801617);
        } else {
            freed.insert(freed.end(), model.count(key), found != nullptr ? found->serial : 0);
            model.erase(key);
            random() % 2 == 0 ? TAV_KEY_RBT_DelNode_UINT32(&tree, key) : TAV_RBT_DelNode(&tree, found);
        }
        ASSERT_TRUE(std::ranges::equal(Walk(), model)) << "operation " << serial;
        ASSERT_EQ(g_freed, freed);
        ExpectSound(tree);
    }
    std::ranges::copy(model | std::views::values, std::back_inserter(freed));
    TAV_RBT_DelTree(&tree);
    EXPECT_EQ(g_freed, freed);
    EXPECT_TRUE(Walk().empty());
    ExpectSound(tree);
    EXPECT_EQ(Add(5, 1), TAV_OK) << "usable again";
}

TEST_F(Tree, IsEmptyOnceItIsMadeOrCleared) {
    ExpectSound(tree);
    memset(&tree, 0xA5, sizeof(tree));
    BEX_RBT_ClearTree(&tree);
    ExpectSound(tree);
    EXPECT_EQ(BEX_RBT_FirstNode(&tree), nullptr);
    TAV_RBT_Init(&tree, nullptr, nullptr);
}

TEST_F(Tree, RefusalsAndUnusableTrees) {
    Element element = {{}, 2, 9};
    const uint32_t key = 2;
    EXPECT_EQ(TAV_RBT_AddNode(nullptr, nullptr), 0x801619u) << "the element is looked at first";
    EXPECT_EQ(TAV_RBT_AddNode(nullptr, &element), 0x801612u);
    EXPECT_EQ(TAV_RBT_GetNode(&tree, nullptr), nullptr);
    ASSERT_EQ(Add(2, 1), TAV_OK);
    ASSERT_EQ(Add(1, 2), TAV_OK);
    const TAV_RBT_Tree sound = tree;
    for (bool hasComparer : {true, false}) {
        tree.comparer = hasComparer ? sound.comparer : nullptr;
        tree.root = hasComparer ? nullptr : sound.root;
        EXPECT_EQ(TAV_RBT_AddNode(&tree, &element), 0x801612u);
        EXPECT_EQ(TAV_RBT_GetNode(&tree, &key), nullptr);
        TAV_RBT_DelNode(&tree, &element);
        TAV_RBT_DelTree(&tree);
    }
    tree.comparer = sound.comparer;
    tree.root->greater = nullptr;  // a damaged tree
    element.key = 3;
    EXPECT_EQ(TAV_RBT_AddNode(&tree, &element), 0x801619u);
    tree.root->greater = &tree.sentinel;
    EXPECT_EQ(Walk().size(), 2u);
    EXPECT_TRUE(g_freed.empty());
}

TEST(TreeKeys, KeysThatArePointersAndElementsThatThePlatformFrees) {
    NothingLeaks leaks;
    TAV_RBT_Tree tree;
    TAV_RBT_Init(&tree, nullptr, TAV_KEY_RBT_Compare_IString);
    struct TextElement {
        TAV_RBT_Node node;
        const char *text;
    };
    for (const char *text : {"one", "two", "three", "ONE"}) {
        auto *block = MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], sizeof(TextElement), "tests", __LINE__);
        static_cast<TextElement *>(block)->text = text;
        const uint32_t code = TAV_RBT_AddNode(&tree, block);
        EXPECT_EQ(code, *text == 'O' ? 0x801617 : 0) << text;
        Block refused(code == TAV_OK ? nullptr : static_cast<uint8_t *>(block));
    }
    const auto word = reinterpret_cast<uintptr_t>("Two");
    EXPECT_STREQ(static_cast<TextElement *>(TAV_KEY_RBT_GetNode(&tree, word))->text, "two");
    TAV_KEY_RBT_DelNode(&tree, word);
    TAV_KEY_RBT_DelNode(&tree, word);
    EXPECT_EQ(TAV_KEY_RBT_GetNode(&tree, word), nullptr);
    TAV_RBT_DelTree(&tree);

    const char *lower = "abc", *upper = "ABC", *longer = "abcd", *high = "\xFF";
    EXPECT_GT(TAV_KEY_RBT_Compare_String(&lower, &upper), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_String(&lower, &longer), 0);
    EXPECT_LT(TAV_KEY_RBT_Compare_String(&longer, &high), 0) << "bytewise, unsigned";
    EXPECT_EQ(TAV_KEY_RBT_Compare_IString(&lower, &upper), 0);
}

/** A key is read byte by byte: whatever type its word was written with, and wherever it lies. */
TEST(TreeKeys, WordsOfAnyTypeAtAnyAddress) {
    const char *const texts[] = {"abc", "ABD", "abe"};
    for (size_t offset = 0; offset < sizeof(uintptr_t); ++offset) {
        Bytes bytes[2] = {Bytes(2 * sizeof(uintptr_t)), Bytes(2 * sizeof(uintptr_t))};
        uint8_t *const a = bytes[0].data() + offset, *const b = bytes[1].data() + sizeof(uintptr_t) - 1 - offset;
        for (int i = 0; i < 9; ++i) {
            const auto wordA = reinterpret_cast<uintptr_t>(texts[i / 3]),
                       wordB = reinterpret_cast<uintptr_t>(texts[i % 3]);
            memcpy(a, &wordA, sizeof(wordA));
            memcpy(b, &wordB, sizeof(wordB));
            const int order = strcmp(texts[i / 3], texts[i % 3]), anyCase = i / 3 - i % 3;
            EXPECT_EQ(TAV_KEY_RBT_Compare_String(a, b) < 0, order < 0) << i;
            EXPECT_EQ(TAV_KEY_RBT_Compare_String(a, b) > 0, order > 0) << i;
            EXPECT_EQ(TAV_KEY_RBT_Compare_IString(a, b) < 0, anyCase < 0) << i;
            EXPECT_EQ(TAV_KEY_RBT_Compare_IString(a, b) > 0, anyCase > 0) << i;
            memcpy(a, &i, sizeof(i));
            EXPECT_EQ(TAV_KEY_RBT_Compare_UINT32(a, bytes[0].data() + offset), 0);
        }
    }
}

}  // namespace
