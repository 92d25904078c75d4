/*
 * The circular queue against std::deque, and what happens when memory is short.
 */
#include <deque>

#include "interposer.h"
#include "store.h"
#include "tav_queue.h"

namespace {

/** What a walk has visited, and at which visit it is to end. */
struct Visits {
    size_t last;
    std::vector<uintptr_t> items;

    static uint32_t Add(uintptr_t item, uintptr_t argument) {
        auto &[last, items] = *reinterpret_cast<Visits *>(argument);
        items.push_back(item);
        return items.size() == last ? 7 : 0;
    }
};

TEST(CircularQueue, AgreesWithADeque) {
    NothingLeaks leaks;
    Random random(51);
    for (const uint32_t capacity : {0u, 1u, 2u, 7u, 64u}) {
        interposer::TakenBy();
        TAV_CIRCLEQ_Queue *queue = TAV_CIRCLEQ_Alloc(7, capacity);
        EXPECT_EQ(interposer::TakenBy(), std::set<std::string>{"7 tav_queue"});
        std::deque<uintptr_t> model;
        for (uint32_t step = 0; step < 3000; ++step) {
            const bool hasItem = !model.empty(), hasRoom = model.size() < capacity;
            ASSERT_EQ(TAV_CIRCLEQ_IsEmpty(queue), hasItem ? 0u : 1u);
            ASSERT_EQ(TAV_CIRCLEQ_IsFull(queue), hasRoom ? 0u : 1u);
            ASSERT_EQ(TAV_CIRCLEQ_GetUsedNum(queue), model.size());
            ASSERT_EQ(TAV_CIRCLEQ_GetMaxNum(queue), capacity);
            ASSERT_EQ(TAV_CIRCLEQ_First(queue), hasItem ? model.front() : 0);
            std::vector<uintptr_t> items(model.begin(), model.end());
            for (auto walk : {TAV_CIRCLEQ_Walk, TAV_CIRCLEQ_Walk_Reverse}) {
                Visits visits{1 + random() % (capacity + 1), {}};
                const size_t count = std::min(visits.last, items.size());
                ASSERT_EQ(walk(queue, Visits::Add, reinterpret_cast<uintptr_t>(&visits)), visits.last == count ? 7 : 0);
                ASSERT_EQ(visits.items, std::vector(items.begin(), items.begin() + static_cast<ptrdiff_t>(count)));
                std::ranges::reverse(items);
            }
            if (random() % 8 < (step / 200 % 2 == 0 ? 5u : 3u)) {
                model.insert(model.end(), hasRoom ? 1 : 0, random() % 10 == 0 ? 0 : UINTPTR_MAX - step);
                ASSERT_EQ(TAV_CIRCLEQ_InsertTail(queue, hasRoom ? model.back() : 1), hasRoom ? 0u : 1u);
            } else {
                ASSERT_EQ(TAV_CIRCLEQ_Remove(queue), hasItem ? model.front() : 0);
                model.erase(model.begin(), model.begin() + (hasItem ? 1 : 0));
            }
        }
        TAV_CIRCLEQ_Free(queue);
    }
}

TEST(CircularQueue, AVisitorMayInsertAndRemove) {
    struct Mill {
        TAV_CIRCLEQ_Queue *queue = TAV_CIRCLEQ_Alloc(g_pTavCommHandle, 5);
        std::vector<uintptr_t> items = {};
        uint32_t turns;
        static uint32_t Turn(uintptr_t item, uintptr_t argument) {
            auto &[queue, items, turns] = *reinterpret_cast<Mill *>(argument);
            items.push_back(item);
            for (uint32_t turn = 0; turn < turns; ++turn) {
                TAV_CIRCLEQ_InsertTail(queue, item + 10);
                TAV_CIRCLEQ_Remove(queue);
            }
            return 0;
        }
    };
    for (const bool isReverse : {false, true}) {
        for (const uint32_t turns : {1u, 5u, 6u}) {
            Mill mill{.turns = turns};
            for (uintptr_t item = 1; item < 4; ++item) {
                TAV_CIRCLEQ_InsertTail(mill.queue, item);
            }
            (isReverse ? TAV_CIRCLEQ_Walk_Reverse : TAV_CIRCLEQ_Walk)(mill.queue, Mill::Turn,
                                                                      reinterpret_cast<uintptr_t>(&mill));
            EXPECT_EQ(mill.items.size(), 3u) << turns;
            EXPECT_EQ(mill.items.front(), isReverse ? 3u : 1u);
            TAV_CIRCLEQ_Free(mill.queue);
        }
    }
}

TEST(CircularQueue, IsNotMadeWhenMemoryIsShortOrTheSizeWraps) {
    NothingLeaks leaks;
    for (const uint32_t slots : {UINT32_MAX, 1u << 30, static_cast<uint32_t>(UINT32_MAX / sizeof(uintptr_t))}) {
        EXPECT_EQ(TAV_CIRCLEQ_Alloc(g_pTavCommHandle, slots), nullptr) << slots;
    }
    for (const auto call : {interposer::Call::kMalloc, interposer::Call::kMemFill}) {
        for (const uint32_t nth : {1u, 2u}) {
            interposer::FailNth(call, nth);
            EXPECT_EQ(TAV_CIRCLEQ_Alloc(g_pTavCommHandle, 4), nullptr) << nth;
        }
    }
    TAV_CIRCLEQ_Free(nullptr);
}

}  // namespace
