/*
 * The shared library around the list of holes.
 */
#include "free_list.h"

FreeList *FreeList_New() {
    return new FreeList;
}

void FreeList_Delete(FreeList *list) {
    delete list;
}

uint32_t FreeList_Set(FreeList *list, uintptr_t item) {
    return list->Set(item);
}

uintptr_t FreeList_Unset(FreeList *list, uint32_t index) {
    return list->Unset(index);
}
