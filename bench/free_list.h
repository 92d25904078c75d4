/*
 * A vector that keeps a list of its holes, to be compiled into its user or called across the boundary of a shared
 * library. It fills the latest hole first, where the library's vector fills the lowest.
 */
#ifndef TAV_BENCH_FREE_LIST_H
#define TAV_BENCH_FREE_LIST_H

#include <cstdint>
#include <utility>
#include <vector>

struct FreeList {
    uint32_t Set(uintptr_t item) {
        if (holes.empty()) {
            slots.push_back(item);
            return static_cast<uint32_t>(slots.size() - 1);
        }
        const uint32_t index = holes.back();
        holes.pop_back();
        slots[index] = item;
        return index;
    }
    uintptr_t Unset(uint32_t index) {
        holes.push_back(index);
        return std::exchange(slots[index], 0);
    }

    std::vector<uintptr_t> slots;
    std::vector<uint32_t> holes;
};

FreeList *FreeList_New();
void FreeList_Delete(FreeList *list);
uint32_t FreeList_Set(FreeList *list, uintptr_t item);
uintptr_t FreeList_Unset(FreeList *list, uint32_t index);

#endif
