/*
 * The operations of the containers, for growth_bench.
 */
#include <memory>

#include "growth.h"
#include "platform/mel_memory.h"
#include "report.h"
#include "tav_queue.h"
#include "tav_rbtree.h"
#include "tav_vector.h"

namespace tav::bench {
namespace {

struct Freer {
    void operator()(VEC_Vector *vector) const { VEC_VectorFree_F(vector); }
    void operator()(TAV_CIRCLEQ_Queue *queue) const { TAV_CIRCLEQ_Free(queue); }
};

/** An operation on a vector full of items, for each of them, measured for one. */
template <typename Operation>
std::function<double(size_t)> OnVector(Operation operation) {
    return [=](size_t count) {
        const std::unique_ptr<VEC_Vector, Freer> vector(VEC_VectorInit_F(g_pTavCommHandle, 1, "bench", __LINE__));
        const auto last = static_cast<uint32_t>(count - 1);
        for (uint32_t item = 0; item <= last; ++item) {
            Require(VEC_VectorSet(vector.get(), item + 1) == static_cast<int32_t>(item), "set");
        }
        const auto run = [&] {
            for (uint32_t item = 0; item <= last; ++item) {
                operation(vector.get(), item, last);
            }
        };
        return Seconds(run) / static_cast<double>(count);
    };
}

void UnsetFirstAndLast(VEC_Vector *vector, uint32_t, uint32_t last) {
    VEC_VectorUnset(vector, 0);
    Require(VEC_VectorSet(vector, 7) == 0, "first");
    VEC_VectorUnset(vector, last);
    Require(VEC_VectorSet(vector, 8) == static_cast<int32_t>(last), "last");
}

/** The vector keeps its first item and one behind a gap, which goes again. */
void UnsetBehindAGap(VEC_Vector *vector, uint32_t item, uint32_t last) {
    if (item == 0) {
        VEC_VectorClearAll(vector);
        VEC_VectorSet(vector, 7);
    }
    VEC_VectorSetIndex(vector, last, 8);
    VEC_VectorUnset(vector, last);
    Require(vector->active == 1, "end");
}

void Unset(VEC_Vector *vector, uint32_t item, uint32_t) {
    VEC_VectorUnset(vector, item);
}

void UnsetLast(VEC_Vector *vector, uint32_t item, uint32_t last) {
    VEC_VectorUnset(vector, last - item);
}

/** An element of a tree: its node, then its key. */
struct Element {
    TAV_RBT_Node node;
    uint32_t key;
};

/** Adds elements to a tree, finds them, and deletes them. */
double SecondsOfATree(size_t count) {
    std::vector<Element> elements(count);
    TAV_RBT_Tree tree;
    TAV_RBT_Init(
        &tree, [](void *) {}, TAV_KEY_RBT_Compare_UINT32);
    for (size_t at = 0; at < count; ++at) {
        elements[at].key = static_cast<uint32_t>(at) * 2654435761u;
    }
    return Seconds([&] {
               for (Element &element : elements) {
                   Require(TAV_RBT_AddNode(&tree, &element) == TAV_OK, "add");
               }
               for (const Element &element : elements) {
                   Require(TAV_KEY_RBT_GetNode_UINT32(&tree, element.key) == &element, "find");
               }
               for (const Element &element : elements) {
                   TAV_KEY_RBT_DelNode_UINT32(&tree, element.key);
               }
           }) /
           static_cast<double>(count);
}

/** Fills a queue and empties it again. */
double SecondsOfAQueue(size_t count) {
    const auto capacity = static_cast<uint32_t>(count);
    const std::unique_ptr<TAV_CIRCLEQ_Queue, Freer> queue(TAV_CIRCLEQ_Alloc(g_pTavCommHandle, capacity));
    return Seconds([&] {
               for (uint32_t item = 0; item < capacity; ++item) {
                   TAV_CIRCLEQ_InsertTail(queue.get(), item + 1);
               }
               while (TAV_CIRCLEQ_IsEmpty(queue.get()) == 0) {
                   TAV_CIRCLEQ_Remove(queue.get());
               }
           }) /
           static_cast<double>(count);
}

}  // namespace

std::vector<Growth> ContainersGrowth() {
    constexpr double kFlat = 2;
    return {
        {"vector: unset, set first and last", 10000, kFlat, OnVector(UnsetFirstAndLast)},
        {"vector: unset behind a gap", 10000, kFlat, OnVector(UnsetBehindAGap)},
        {"vector: unset, first to last", 10000, kFlat, OnVector(Unset)},
        {"vector: unset, last to first", 10000, kFlat, OnVector(UnsetLast)},
        {"tree: add, find, delete", 1000, kGrowth, SecondsOfATree},
        {"queue: insert, remove", 10000, kFlat, SecondsOfAQueue},
    };
}

}  // namespace tav::bench
