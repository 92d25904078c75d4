/*
 * Circular queue: a ring of fixed capacity for words (pointers or numbers) that mean nothing to the queue.
 *
 * The word 0 doubles as "nothing" in what TAV_CIRCLEQ_Remove and TAV_CIRCLEQ_First return, so a queue that holds zeros
 * needs TAV_CIRCLEQ_IsEmpty beside them. Items are never freed: what they point at stays the caller's. No locks: a
 * queue that is shared between threads needs the caller's.
 *
 * Only TAV_CIRCLEQ_Alloc and TAV_CIRCLEQ_Free look at their arguments; every other call needs a queue that is there.
 */
#ifndef TAV_QUEUE_H
#define TAV_QUEUE_H

#include "tav_base.h"

/** A queue; belongs to whoever called TAV_CIRCLEQ_Alloc. */
typedef struct TAV_CIRCLEQ_Queue TAV_CIRCLEQ_Queue;

/**
 * Receives an item of a walk. It may insert and remove items, but not free the queue: the walk goes on over the slots
 * that were in use when it began.
 *
 * @param item      the item
 * @param argument  the word given to the walk
 * @return 0 to go on, anything else to end the walk
 */
typedef uint32_t (*TAV_CIRCLEQ_Visitor)(uintptr_t item, uintptr_t argument);

/**
 * Makes an empty queue.
 *
 * @param module    memory module handle to account the queue to
 * @param capacity  the most items it can hold; a queue of capacity 0 is always both empty and full
 * @return the queue, to be freed with TAV_CIRCLEQ_Free; null when memory is short or the slots, of which there is one
 *         more than the capacity, would take 4 GiB or more
 */
TAV_API TAV_CIRCLEQ_Queue *TAV_CIRCLEQ_Alloc(uintptr_t module, uint32_t capacity);

/** Frees a queue, but nothing that its items point at. A null queue is ignored. */
TAV_API void TAV_CIRCLEQ_Free(TAV_CIRCLEQ_Queue *queue);

/** Returns 1 when the queue holds no item, else 0. */
TAV_API uint32_t TAV_CIRCLEQ_IsEmpty(const TAV_CIRCLEQ_Queue *queue);

/** Returns 1 when the queue has no room for another item, else 0. */
TAV_API uint32_t TAV_CIRCLEQ_IsFull(const TAV_CIRCLEQ_Queue *queue);

/**
 * Puts an item behind the newest one.
 *
 * @param queue  the queue
 * @param item   any word; 0 is stored like any other
 * @return 0; 1 when the queue is full, and then nothing is stored
 */
TAV_API uint32_t TAV_CIRCLEQ_InsertTail(TAV_CIRCLEQ_Queue *queue, uintptr_t item);

/** Takes the oldest item out and returns it; 0 when the queue is empty. */
TAV_API uintptr_t TAV_CIRCLEQ_Remove(TAV_CIRCLEQ_Queue *queue);

/** Returns the oldest item, which stays in the queue; 0 when the queue is empty. */
TAV_API uintptr_t TAV_CIRCLEQ_First(const TAV_CIRCLEQ_Queue *queue);

/** Returns the number of items in the queue. */
TAV_API uint32_t TAV_CIRCLEQ_GetUsedNum(const TAV_CIRCLEQ_Queue *queue);

/** Returns the capacity that the queue was made with. */
TAV_API uint32_t TAV_CIRCLEQ_GetMaxNum(const TAV_CIRCLEQ_Queue *queue);

/**
 * Visits the items from the oldest to the newest, until a visitor's result is not 0.
 *
 * @param queue     the queue
 * @param visitor   called once per item; must not be null, unless the queue is empty
 * @param argument  handed to the visitor
 * @return 0, or the visitor's result that ended the walk
 */
TAV_API uint32_t TAV_CIRCLEQ_Walk(const TAV_CIRCLEQ_Queue *queue, TAV_CIRCLEQ_Visitor visitor, uintptr_t argument);

/** As TAV_CIRCLEQ_Walk, from the newest item back to the oldest. */
TAV_API uint32_t TAV_CIRCLEQ_Walk_Reverse(const TAV_CIRCLEQ_Queue *queue, TAV_CIRCLEQ_Visitor visitor,
                                          uintptr_t argument);

#endif
