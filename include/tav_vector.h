/*
 * Vector: a growable table of words (pointers or numbers) in which an item's index is its handle.
 *
 * The word 0 means an empty slot, so an item can go without moving the others, and a new one can fill the hole. A
 * vector is "active" up to one past its highest slot in use. Items are never freed: what they point at stays the
 * caller's. No locks: a vector that is shared between threads needs the caller's.
 *
 * Results are -1 for a failure, else what each call says; an index returned is never above INT32_MAX, because the slots
 * of a vector take less than 4 GiB. Where null is not mentioned, the vector must be there.
 */
#ifndef TAV_VECTOR_H
#define TAV_VECTOR_H

#include "tav_base.h"

/**
 * A vector; belongs to whoever called VEC_VectorInit_F or VEC_VectorCopy_F. Items are read here, and written through
 * the calls alone, which also keep what the vector remembers.
 */
typedef struct VEC_Vector {
    uint32_t active;         /**< one past the highest slot in use; slots from here on are empty */
    uint32_t allocated;      /**< number of slots, at least 1 */
    uintptr_t *slots;        /**< the slots, which move when the vector grows; 0 is an empty one */
    uint32_t full;           /**< private: no slot below this one is empty, while there is no map */
    struct VEC_SlotMap *map; /**< private: finds holes and the last item, or null until that proves long; owned */
} VEC_Vector;

/**
 * Fills memory with zero.
 *
 * @param block  the memory
 * @param size   its bytes
 * @return 0; -1 for a null block, and when the platform refuses the fill
 */
TAV_API int32_t VEC_Bzero(void *block, uint32_t size);

/**
 * Copies between pieces of memory that do not overlap.
 *
 * @param dest      where the bytes go
 * @param destSize  the room there, in bytes; zeroed when the platform refuses the copy
 * @param src       where they come from
 * @param count     how many
 * @return 0; -1 for a null pointer, overlapping pieces, or too little room
 */
TAV_API int32_t VEC_Bcopy(void *dest, uint32_t destSize, const void *src, uint32_t count);

/**
 * Makes a vector without items.
 *
 * @param module  memory module handle to account it to
 * @param size    slots to begin with; 0 becomes 1
 * @param source  name of the caller's source module, a string that stays as it is while the process runs
 * @param line    the caller's source line
 * @return the vector, to be freed with VEC_VectorFree_F; null when memory is short or the slots would take 4 GiB or
 *         more
 */
TAV_API VEC_Vector *VEC_VectorInit_F(uintptr_t module, uint32_t size, const char *source, uint32_t line);

/** Frees a vector, but nothing that its items point at. A null vector is ignored. */
TAV_API void VEC_VectorFree_F(VEC_Vector *vector);

/**
 * Makes a second vector with the same slots and the same items; what they point at is shared.
 *
 * @param module  memory module handle to account the copy to
 * @param vector  what is copied
 * @param copy    where the copy goes, to be freed with VEC_VectorFree_F. It becomes null when the vector is null or
 *                memory is short, but is left alone when the copying of the slots is refused
 * @param source  name of the caller's source module, a string that stays as it is while the process runs
 * @param line    the caller's source line
 * @return 0; -1 for a null argument, when memory is short, or when copying was refused
 */
TAV_API int32_t VEC_VectorCopy_F(uintptr_t module, const VEC_Vector *vector, VEC_Vector **copy, const char *source,
                                 uint32_t line);

/**
 * Makes sure that there is a slot with an index, by doubling the number of slots until there is. The platform is asked
 * under the process's common memory handle, not the one that the vector was made with; it decides what that means.
 *
 * @param vector  the vector
 * @param index   the index wanted
 * @return 0; -1 for a null vector, and when it cannot grow so far: it is then as it was
 */
TAV_API int32_t VEC_VectorEnsure(VEC_Vector *vector, uint32_t index);

/**
 * Finds the first empty slot.
 *
 * @param vector  the vector; its slots do not change, but what it remembers of where holes may be
 * @return its index; one past the last slot in use (which may not exist yet) when there is no hole; -1 for null
 */
TAV_API int32_t VEC_VectorEmptySlot(VEC_Vector *vector);

/**
 * Stores an item in the first empty slot, growing when there is none. The item 0 leaves the slot empty, and the next
 * call finds it again.
 *
 * @return the item's index; -1 for a null vector and when it cannot grow
 */
TAV_API int32_t VEC_VectorSet(VEC_Vector *vector, uintptr_t item);

/**
 * Stores an item behind the last slot in use, whatever holes there are before it.
 *
 * @return the item's index; -1 when the vector cannot grow
 */
TAV_API int32_t VEC_VectorSetNoDel(VEC_Vector *vector, uintptr_t item);

/**
 * Stores an item at an index, in place of what is there. The slots between the last one in use and the index stay
 * empty.
 *
 * @param vector  the vector
 * @param index   where the item goes; the vector grows as VEC_VectorEnsure says
 * @param item    the item
 * @return the index; -1 for a null vector and when it cannot grow
 */
TAV_API int32_t VEC_VectorSetIndex(VEC_Vector *vector, uint32_t index, uintptr_t item);

/**
 * Empties a slot. When it was the last one in use, the vector is then active up to the highest remaining item only. A
 * null vector and an index that has no slot are ignored.
 */
TAV_API void VEC_VectorUnset(VEC_Vector *vector, uint32_t index);

/** As VEC_VectorUnset; returns what was in the slot, 0 for a null vector or an index that has no slot. */
TAV_API uintptr_t VEC_VectorGetUnset(VEC_Vector *vector, uint32_t index);

/** Empties all slots. The memory stays. */
TAV_API void VEC_VectorClearAll(VEC_Vector *vector);

/** Counts the items. Looks at every slot up to the last one in use. Returns -1 for null. */
TAV_API int32_t VEC_VectorCount(const VEC_Vector *vector);

/** Closes all holes: the items move down in their order, and so change their indexes. The memory stays. */
TAV_API void VEC_VectorZipEmptySlot(VEC_Vector *vector);

#endif
