// The vector against plain slots, all compared after every step, and what happens when memory is short.
#include <bit>

#include "interposer.h"
#include "store.h"
#include "tav_vector.h"

namespace {

using Slots = std::vector<uintptr_t>;

/** The slots of a vector, as it shows them and as taking a copy of it apart shows them. It must have just so many. */
Slots SlotsOf(const VEC_Vector *vector, uint32_t count) {
    VEC_Vector *copy = nullptr;
    EXPECT_EQ(VEC_VectorCopy_F(1, vector, &copy, "tests", __LINE__), 0);
    EXPECT_EQ(VEC_VectorCount(copy), VEC_VectorCount(vector));
    interposer::FailNth(interposer::Call::kMalloc, 1);
    EXPECT_TRUE(VEC_VectorEnsure(copy, count - 1) == 0 && VEC_VectorEnsure(copy, count) == -1) << "no room, no memory";
    Slots slots;
    for (uint32_t index = 0; index < count; ++index) {
        slots.push_back(VEC_VectorGetUnset(copy, index));
    }
    VEC_VectorFree_F(copy);
    EXPECT_EQ(slots, Slots(vector->slots, vector->slots + vector->allocated));
    return slots;
}

TEST(Vector, AgreesWithPlainSlots) {
    NothingLeaks leaks;
    Random random(52);
    VEC_Vector *vector = VEC_VectorInit_F(1, 3, "tests", __LINE__);
    Slots slots(3);
    for (uint32_t step = 0, active = 0; step < 20000; ++step) {
        const auto end = slots.begin() + active;
        const auto firstEmpty = static_cast<uint32_t>(std::find(slots.begin(), end, 0) - slots.begin());
        const uintptr_t item = random() % 8 == 0 ? 0 : UINTPTR_MAX - step;
        const uint32_t any = random() % (step / 400 + 2), action = random() % 64;
        if (action < 36) {
            const uint32_t index = action < 20 ? firstEmpty : action < 24 ? active : any;
            ASSERT_EQ(action < 20   ? VEC_VectorSet(vector, item)
                      : action < 24 ? VEC_VectorSetNoDel(vector, item)
                                    : VEC_VectorSetIndex(vector, any, item),
                      static_cast<int32_t>(index));
            slots.resize(slots.size() * std::bit_ceil(index / slots.size() + 1));
            slots[index] = item;
            active = std::max(active, index + 1);
        } else if (action < 60) {
            const uintptr_t was = any < slots.size() ? std::exchange(slots[any], 0) : 0;
            ASSERT_EQ(action % 2 == 0 ? (VEC_VectorUnset(vector, any), was) : VEC_VectorGetUnset(vector, any), was);
            for (const bool wasLast = any + 1 == active; wasLast && active > 0 && slots[active - 1] == 0; --active) {
            }
        } else if (action < 62) {
            ASSERT_EQ(VEC_VectorEmptySlot(vector), static_cast<int32_t>(firstEmpty));
        } else {
            any == 0 ? VEC_VectorClearAll(vector) : VEC_VectorZipEmptySlot(vector);
            active = any == 0 ? 0 : static_cast<uint32_t>(std::remove(slots.begin(), end, 0) - slots.begin());
            std::fill(slots.begin() + active, slots.end(), 0);
        }
        ASSERT_EQ(SlotsOf(vector, static_cast<uint32_t>(slots.size())), slots) << "step " << step;
        ASSERT_EQ(VEC_VectorCount(vector), std::ranges::count_if(slots, std::identity()));
    }
    VEC_VectorFree_F(vector);
}

TEST(Vector, StaysAsItWasWhenMemoryIsShortOrASizeWraps) {
    NothingLeaks leaks;
    VEC_Vector *vector = VEC_VectorInit_F(1, 0, "tests", __LINE__), *copy = nullptr;
    EXPECT_EQ(VEC_VectorSet(vector, 5), 0);
    for (const auto &[size, nth] : {std::pair(UINT32_MAX, 0u), {1u << 30, 0u}, {4u, 1u}, {4u, 2u}}) {
        interposer::FailNth(interposer::Call::kMalloc, nth);
        EXPECT_EQ(VEC_VectorInit_F(1, size, "tests", __LINE__), nullptr) << size;
        interposer::FailNth(nth > 0 ? interposer::Call::kMalloc : interposer::Call::kMemCopy, nth > 0 ? nth : 1);
        EXPECT_EQ(VEC_VectorCopy_F(1, vector, &(copy = vector), "tests", __LINE__), -1);
        EXPECT_EQ(copy, nth > 0 ? nullptr : vector);
    }
    interposer::FailNth(interposer::Call::kMalloc, 1);
    EXPECT_TRUE(VEC_VectorSetNoDel(vector, 6) == -1 && VEC_VectorSetIndex(vector, UINT32_MAX, 6) == -1);
    EXPECT_EQ(SlotsOf(vector, 1), Slots{5});
    VEC_VectorFree_F(vector);
}

}  // namespace
