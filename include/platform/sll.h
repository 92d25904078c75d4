/*
 * Platform singly linked list: intrusive and circular through its head.
 */
#ifndef PLATFORM_SLL_H
#define PLATFORM_SLL_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The first word of every element. */
typedef struct SLL_Node {
    struct SLL_Node *next; /**< next element; the list's head after the last one */
} SLL_Node;

/** The head of a list: a link like an element's, and one word that the list's owner may use. */
typedef struct SLL_Head {
    SLL_Node link;  /**< link.next is the first element; points at the head itself while the list is empty */
    uint32_t spare; /**< the owner's */
} SLL_Head;

/** A list. It must not move in memory while it holds elements, because the last element points at its head. */
typedef struct SLL_List {
    SLL_Head head;  /**< head link */
    SLL_Node *tail; /**< last element; the head's link while the list is empty */
    uint32_t count; /**< number of elements */
} SLL_List;

/** Inserts `node` behind `previous` (an element, the tail, or the head's link) and counts it. */
void SLL_Insert_In_Middle(SLL_List *list, SLL_Node *previous, SLL_Node *node);

/** Unlinks `node` from the list and counts it off; does nothing when the list does not hold it. */
void SLL_Delete(SLL_List *list, SLL_Node *node);

#ifdef __cplusplus
}
#endif

#endif
