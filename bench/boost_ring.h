/*
 * Boost's ring with the queue's answers for a full and an empty one, to be compiled into its user or called across the
 * boundary of a shared library.
 */
#ifndef BENCH_BOOST_RING_H
#define BENCH_BOOST_RING_H

#include <boost/circular_buffer.hpp>
#include <cstdint>

struct BoostRing {
    explicit BoostRing(uint32_t capacity) : items(capacity) {}

    bool Insert(uintptr_t item) {
        const bool hasRoom = !items.full();
        if (hasRoom) {
            items.push_back(item);
        }
        return hasRoom;
    }
    uintptr_t Remove() {
        const uintptr_t item = items.empty() ? 0 : items.front();
        if (!items.empty()) {
            items.pop_front();
        }
        return item;
    }

    boost::circular_buffer<uintptr_t> items;
};

BoostRing *BoostRing_New(uint32_t capacity);
void BoostRing_Delete(BoostRing *ring);
bool BoostRing_Insert(BoostRing *ring, uintptr_t item);
uintptr_t BoostRing_Remove(BoostRing *ring);

#endif
