/*
 * The shared library around Boost's ring.
 */
#include "boost_ring.h"

BoostRing *BoostRing_New(uint32_t capacity) {
    return new BoostRing(capacity);
}

void BoostRing_Delete(BoostRing *ring) {
    delete ring;
}

bool BoostRing_Insert(BoostRing *ring, uintptr_t item) {
    return ring->Insert(item);
}

uintptr_t BoostRing_Remove(BoostRing *ring) {
    return ring->Remove();
}
