/*
 * Vector. Besides the slots it remembers up to where they are full, so that items set one after the other do not look
 * at all that are there already. When the way to an empty slot, or back to the last item, proves long all the same, it
 * makes a map of both.
 */
#include "tav_vector.h"

#include <algorithm>

#include "common/memory.h"
#include "containers/slot_map.h"
#include "platform/bex_string.h"

namespace {

using Vector = VEC_Vector;

constexpr common::Heap kHeap("tav_vector");

/** A way of so many slots is long: a map finds its end in less time. */
constexpr uint32_t kLongWay = 32;

/** How many slots one block can hold: its size is a 32-bit number. */
constexpr uint32_t kMaxSlots = UINT32_MAX / sizeof(uintptr_t);
static_assert(kMaxSlots <= INT32_MAX, "the index of a slot is a result, and results below 0 are failures");

uint32_t BytesOf(uint32_t slotCount) {
    return slotCount * uint32_t{sizeof(uintptr_t)};
}

/** Takes a vector, accounted to the caller's source and line, whose slots are not filled yet; null when it cannot. */
Vector *Take(uintptr_t module, uint32_t slotCount, const char *source, uint32_t line) {
    if (slotCount > kMaxSlots) {
        return nullptr;
    }
    const common::Heap callersHeap(source);
    auto *vector = static_cast<Vector *>(callersHeap.Take(sizeof(Vector), module, line));
    if (vector == nullptr) {
        return nullptr;
    }
    void *slots = callersHeap.Take(BytesOf(slotCount), module, line);
    if (slots == nullptr) {
        kHeap.Return(vector);
        return nullptr;
    }
    *vector = {
        .active = 0, .allocated = slotCount, .slots = static_cast<uintptr_t *>(slots), .full = 0, .map = nullptr};
    return vector;
}

/** Gives up the map, if there is one; the slots change as a whole. */
void DropMap(Vector *vector) {
    if (vector->map != nullptr) {
        kHeap.Return(vector->map);
        vector->map = nullptr;
        vector->full = 0;
    }
}

/** Makes the map of a vector's slots. When memory is short there is none, and ways stay long. */
void MakeMap(Vector *vector) {
    const uint32_t words = VEC_SlotMap::WordsFor(vector->allocated);
    void *block = kHeap.TakeZeroed(static_cast<uint32_t>(sizeof(VEC_SlotMap) + words * sizeof(VEC_SlotMap::Word)));
    if (block == nullptr) {
        return;
    }
    auto *map = static_cast<VEC_SlotMap *>(block);
    *map = VEC_SlotMap(vector->allocated, reinterpret_cast<VEC_SlotMap::Word *>(map + 1));
    for (uint32_t index = 0; index < vector->active; ++index) {
        if (vector->slots[index] != 0) {
            map->NoteItem(index);
        }
    }
    vector->map = map;
}

/** Puts an item, or 0, into a slot. */
void Store(Vector *vector, uint32_t index, uintptr_t item) {
    vector->slots[index] = item;
    if (vector->map != nullptr) {
        item == 0 ? vector->map->NoteHole(index) : vector->map->NoteItem(index);
    } else if (item == 0) {
        vector->full = std::min(vector->full, index);
    }
}

/** Doubles a number of slots until it exceeds an index. Returns 0 when no block can hold so many. */
uint32_t GrownCount(uint32_t slotCount, uint32_t index) {
    while (slotCount <= index) {
        if (slotCount > kMaxSlots / 2) {
            return 0;
        }
        slotCount *= 2;
    }
    return slotCount;
}

/** Draws the end of the active slots back to behind the highest item. */
void Trim(Vector *vector) {
    for (uint32_t steps = 0; vector->active > 0 && vector->slots[vector->active - 1] == 0; ++steps) {
        if (vector->map != nullptr) {
            vector->active = vector->map->EndOfItems();
            return;
        }
        if (steps == kLongWay) {
            MakeMap(vector);
        }
        --vector->active;
    }
}

}  // namespace

int32_t VEC_Bzero(void *block, uint32_t size) {
    if (block == nullptr) {
        return -1;
    }
    return memset_s(block, size, 0, size) == 0 ? 0 : -1;
}

int32_t VEC_Bcopy(void *dest, uint32_t destSize, const void *src, uint32_t count) {
    if (dest == nullptr || src == nullptr) {
        return -1;
    }
    return memcpy_s(dest, destSize, src, count) == 0 ? 0 : -1;
}

VEC_Vector *VEC_VectorInit_F(uintptr_t module, uint32_t size, const char *source, uint32_t line) {
    Vector *vector = Take(module, size == 0 ? 1 : size, source, line);
    if (vector != nullptr && VEC_Bzero(vector->slots, BytesOf(vector->allocated)) != 0) {
        VEC_VectorFree_F(vector);
        return nullptr;
    }
    return vector;
}

void VEC_VectorFree_F(VEC_Vector *vector) {
    if (vector == nullptr) {
        return;
    }
    DropMap(vector);
    kHeap.Return(vector->slots);
    kHeap.Return(vector);
}

int32_t VEC_VectorCopy_F(uintptr_t module, const VEC_Vector *vector, VEC_Vector **copy, const char *source,
                         uint32_t line) {
    if (copy == nullptr) {
        return -1;
    }
    Vector *made = vector != nullptr ? Take(module, vector->allocated, source, line) : nullptr;
    if (made == nullptr) {
        *copy = nullptr;
        return -1;
    }
    const uint32_t bytes = BytesOf(vector->allocated);
    if (VEC_Bcopy(made->slots, bytes, vector->slots, bytes) != 0) {
        VEC_VectorFree_F(made);  // and *copy stays as it was, as callers are told: memory was not short
        return -1;
    }
    made->active = vector->active;
    made->full = vector->map == nullptr ? vector->full : 0;
    *copy = made;
    return 0;
}

int32_t VEC_VectorEnsure(VEC_Vector *vector, uint32_t index) {
    if (vector == nullptr) {
        return -1;
    }
    const uint32_t present = vector->allocated;
    if (index < present) {
        return 0;
    }
    const uint32_t wanted = GrownCount(present, index);
    if (wanted == 0) {
        return -1;
    }
    void *slots = MEL_MemReAlloc(g_uiMelHandleCommon, g_aucMelMemPt[0], vector->slots, BytesOf(wanted));
    if (slots == nullptr) {
        return -1;
    }
    vector->slots = static_cast<uintptr_t *>(slots);
    if (VEC_Bzero(vector->slots + present, BytesOf(wanted - present)) != 0) {
        return -1;  // the block has room that the vector does not count
    }
    vector->allocated = wanted;
    DropMap(vector);
    return 0;
}

int32_t VEC_VectorEmptySlot(VEC_Vector *vector) {
    if (vector == nullptr) {
        return -1;
    }
    if (vector->map != nullptr) {
        return static_cast<int32_t>(std::min(vector->map->FirstHole(), vector->active));
    }
    for (uint32_t steps = 0; vector->full < vector->active && vector->slots[vector->full] != 0; ++steps) {
        if (steps == kLongWay) {
            MakeMap(vector);
        }
        ++vector->full;
    }
    return static_cast<int32_t>(vector->full);
}

int32_t VEC_VectorSet(VEC_Vector *vector, uintptr_t item) {
    return VEC_VectorSetIndex(vector, static_cast<uint32_t>(VEC_VectorEmptySlot(vector)), item);
}

int32_t VEC_VectorSetNoDel(VEC_Vector *vector, uintptr_t item) {
    return VEC_VectorSetIndex(vector, vector->active, item);
}

int32_t VEC_VectorSetIndex(VEC_Vector *vector, uint32_t index, uintptr_t item) {
    if (VEC_VectorEnsure(vector, index) != 0) {
        return -1;
    }
    Store(vector, index, item);
    if (index >= vector->active) {
        vector->active = index + 1;  // also for the item 0: only emptying a slot draws the end back
    }
    return static_cast<int32_t>(index);
}

void VEC_VectorUnset(VEC_Vector *vector, uint32_t index) {
    (void)VEC_VectorGetUnset(vector, index);
}

uintptr_t VEC_VectorGetUnset(VEC_Vector *vector, uint32_t index) {
    if (vector == nullptr || index >= vector->allocated) {
        return 0;
    }
    const uintptr_t item = vector->slots[index];
    Store(vector, index, 0);
    if (index + 1 == vector->active) {
        Trim(vector);
    }
    return item;
}

void VEC_VectorClearAll(VEC_Vector *vector) {
    VEC_Bzero(vector->slots, BytesOf(vector->allocated));
    DropMap(vector);
    vector->active = 0;
    vector->full = 0;
}

int32_t VEC_VectorCount(const VEC_Vector *vector) {
    if (vector == nullptr) {
        return -1;
    }
    int32_t count = 0;
    for (uint32_t index = 0; index < vector->active; ++index) {
        count += vector->slots[index] != 0 ? 1 : 0;
    }
    return count;
}

void VEC_VectorZipEmptySlot(VEC_Vector *vector) {
    DropMap(vector);
    uint32_t count = vector->full;
    for (uint32_t index = count; index < vector->active; ++index) {
        const uintptr_t item = vector->slots[index];
        vector->slots[index] = 0;
        if (item != 0) {
            vector->slots[count++] = item;
        }
    }
    vector->active = count;
    vector->full = count;
}
