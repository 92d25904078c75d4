/*
 * The vector against plain slots, all compared after every step, and what happens when memory is short.
 */
#include <array>
#include <bit>
#include <set>

#include "containers/hierarchical_bitmap.h"
#include "interposer.h"
#include "store.h"
#include "tav_vector.h"

namespace {

using interposer::Call;
using Slots = std::vector<uintptr_t>;

/** Expects a vector, and a copy of it, to have just these slots. */
void ExpectSlots(const VEC_Vector *vector, const Slots &slots) {
    VEC_Vector *copy = nullptr;
    ASSERT_EQ(VEC_VectorCopy_F(1, vector, &copy, "tests", __LINE__), 0);
    const auto size = static_cast<uint32_t>(slots.size());
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(VEC_VectorEnsure(copy, size - 1), 0);
    EXPECT_EQ(VEC_VectorEnsure(copy, size), -1) << "no room, no memory";
    for (const VEC_Vector *each : std::array<const VEC_Vector *, 2>{vector, copy}) {
        EXPECT_EQ(Slots(each->slots, each->slots + each->allocated), slots);
        EXPECT_EQ(VEC_VectorCount(each), std::ranges::count_if(slots, std::identity()));
    }
    const auto firstEmpty = std::find(slots.begin(), slots.begin() + copy->active, 0) - slots.begin();
    EXPECT_EQ(VEC_VectorEmptySlot(copy), firstEmpty);
    VEC_VectorFree_F(copy);
}

TEST(Vector, AgreesWithPlainSlots) {
    NothingLeaks leaks;
    Random random(52);
    interposer::TakenBy();
    VEC_Vector *vector = VEC_VectorInit_F(7, 3, "tests", __LINE__);
    EXPECT_EQ(interposer::TakenBy(), std::set<std::string>{"7 tests"});
    Slots slots(3);
    for (uint32_t step = 0, active = 0; step < 20000 && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        const auto end = slots.begin() + active;
        const auto firstEmpty = static_cast<uint32_t>(std::find(slots.begin(), end, 0) - slots.begin());
        const uintptr_t item = random() % 8 == 0 ? 0 : UINTPTR_MAX - step;
        const uint32_t any = random() % (step / 40 + 2), action = random() % 64;
        if (action < 36) {
            const uint32_t index = action < 20 ? firstEmpty : action < 24 ? active : any;
            EXPECT_EQ(action < 20   ? VEC_VectorSet(vector, item)
                      : action < 24 ? VEC_VectorSetNoDel(vector, item)
                                    : VEC_VectorSetIndex(vector, any, item),
                      static_cast<int32_t>(index));
            slots.resize(slots.size() * std::bit_ceil(index / slots.size() + 1));
            slots[index] = item;
            active = std::max(active, index + 1);
        } else if (action < 60) {
            const uintptr_t was = any < slots.size() ? std::exchange(slots[any], 0) : 0;
            EXPECT_EQ(action % 2 == 0 ? (VEC_VectorUnset(vector, any), was) : VEC_VectorGetUnset(vector, any), was);
            if (any + 1 == active) {
                const auto isItem = [](uintptr_t slot) { return slot != 0; };
                active = static_cast<uint32_t>(slots.rend() - std::find_if(slots.rbegin(), slots.rend(), isItem));
            }
        } else if (action < 62) {
            EXPECT_EQ(VEC_VectorEmptySlot(vector), static_cast<int32_t>(firstEmpty));
        } else {
            any == 0 ? VEC_VectorClearAll(vector) : VEC_VectorZipEmptySlot(vector);
            active = any == 0 ? 0 : static_cast<uint32_t>(remove(slots.begin(), end, 0) - slots.begin());
            std::fill(slots.begin() + active, slots.end(), 0);
        }
        ExpectSlots(vector, slots);
    }
    VEC_VectorFree_F(vector);
}

TEST(Vector, ManySlotsAreFilledAndEmptiedInLongRuns) {
    NothingLeaks leaks;
    Random random;
    for (const uint32_t size : {1u, 64u, 4096u, 5000u}) {
        VEC_Vector *vector = VEC_VectorInit_F(1, size, "tests", __LINE__), *copy = nullptr;
        Slots slots(4 * size);
        for (uint32_t step = 0; step < 100 && !HasFailure(); ++step) {
            SCOPED_TRACE(testing::Message() << size << " slots, step " << step);
            const uint32_t length = random() % (1 << random() % 14), begin = random() % (4 * size);
            for (uint32_t at = begin; at < std::min<size_t>(begin + length, slots.size()); ++at) {
                ASSERT_EQ(VEC_VectorGetUnset(vector, at), std::exchange(slots[at], 0));
            }
            const auto end = std::find_if(slots.rbegin(), slots.rend(), std::identity()).base();
            ASSERT_EQ(vector->active, end - slots.begin());
            for (uint32_t left = random() % (2 * length + 2); left > 0; --left) {
                const auto hole = std::find(slots.begin(), slots.end(), 0);
                if (hole == slots.end()) {
                    break;
                }
                ASSERT_EQ(VEC_VectorSet(vector, left), hole - slots.begin());
                *hole = left;
            }
            ASSERT_EQ(VEC_VectorCopy_F(1, vector, &copy, "tests", __LINE__), 0);
            interposer::FailNth(Call::kMalloc, step % 2);  // a long way is gone without a map, too
            EXPECT_EQ(VEC_VectorEmptySlot(copy), std::find(slots.begin(), slots.end(), 0) - slots.begin());
            interposer::Reset();
            EXPECT_EQ(VEC_VectorEmptySlot(vector), VEC_VectorEmptySlot(copy));
            VEC_VectorFree_F(copy);
        }
        VEC_VectorFree_F(vector);
    }
}

TEST(HierarchicalBitmap, AgreesWithASet) {
    Random random;
    for (const uint32_t count : {1u, 64u, 65u, 4096u, 4097u, 262145u, 20000000u}) {
        std::vector<containers::HierarchicalBitmap::Word> words(containers::HierarchicalBitmap::WordsFor(count));
        containers::HierarchicalBitmap bitmap(count, words.data());
        std::set<uint32_t> numbers;
        for (uint32_t step = 0; step < 2000; ++step) {
            const uint32_t number = step == 7 ? count - 1 : random() % count;
            if (random() % 2 == 0) {
                bitmap.Insert(number);
                numbers.insert(number);
            } else {  // often one that stands there
                const auto there = numbers.lower_bound(number);
                bitmap.Erase(there != numbers.end() ? *there : number);
                numbers.erase(there != numbers.end() ? *there : number);
            }
            const bool isEmpty = numbers.empty();
            ASSERT_EQ(bitmap.First(), isEmpty ? UINT32_MAX : *numbers.begin()) << count << " " << step;
            ASSERT_EQ(bitmap.Last(), isEmpty ? UINT32_MAX : *numbers.rbegin()) << count << " " << step;
        }
    }
}

TEST(Vector, StaysAsItWasWhenMemoryIsShortOrASizeWraps) {
    NothingLeaks leaks;
    VEC_Vector *vector = VEC_VectorInit_F(1, 0, "tests", __LINE__), *copy = nullptr;
    EXPECT_EQ(VEC_VectorSet(vector, 5), 0);
    for (const auto &[size, call, nth] : {std::tuple(UINT32_MAX, Call::kMalloc, 0u),
                                          {1u << 30, Call::kMalloc, 0u},
                                          {4u, Call::kMalloc, 1u},
                                          {4u, Call::kMalloc, 2u},
                                          {4u, Call::kMemFill, 1u}}) {
        interposer::FailNth(call, nth);
        EXPECT_EQ(VEC_VectorInit_F(1, size, "tests", __LINE__), nullptr) << size;
    }
    interposer::FailNth(Call::kMemFill, 1);
    EXPECT_EQ(VEC_VectorEnsure(vector, 1), -1);
    EXPECT_EQ(vector->allocated, 1u) << "room that is not filled does not count";
    EXPECT_EQ(VEC_VectorCopy_F(1, nullptr, &(copy = vector), "tests", __LINE__), -1);
    EXPECT_EQ(copy, nullptr);
    for (const auto &[call, nth] : {std::pair(Call::kMalloc, 1u), {Call::kMalloc, 2u}, {Call::kMemCopy, 1u}}) {
        interposer::FailNth(call, nth);
        EXPECT_EQ(VEC_VectorCopy_F(1, vector, &(copy = vector), "tests", __LINE__), -1);
        EXPECT_EQ(copy, call == Call::kMalloc ? nullptr : vector);
    }
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(VEC_VectorSetNoDel(vector, 6), -1);
    for (const size_t index : {UINT32_MAX / sizeof(uintptr_t), size_t{UINT32_MAX}}) {
        EXPECT_EQ(VEC_VectorSetIndex(vector, static_cast<uint32_t>(index), 6), -1) << index;
    }
    ExpectSlots(vector, {5});
    VEC_VectorFree_F(vector);
}

TEST(Vector, BlocksAreClearedAndCopiedWithinTheirRoom) {
    Bytes block = Filled(6, 0xEE);
    EXPECT_EQ(VEC_Bzero(block.data(), 2), 0);
    EXPECT_EQ(VEC_Bcopy(block.data() + 2, 3, "abc", 3), 0);
    EXPECT_EQ(block, Join({{0, 0}, Text("abc"), {0xEE}}));
    EXPECT_EQ(VEC_Bcopy(block.data() + 2, 2, "xyz", 3), -1);
    EXPECT_EQ(block, Join({Filled(4, 0), {'c', 0xEE}})) << "the room of a refused copy is cleared";
}

}  // namespace
