/*
 * The singly linked list.
 */
#include "interfaces.h"

void SLL_Insert_In_Middle(SLL_List *list, SLL_Node *previous, SLL_Node *node) {
    if (list == nullptr || previous == nullptr || node == nullptr) {
        return;
    }
    node->next = previous->next;
    previous->next = node;
    if (list->tail == previous) {
        list->tail = node;
    }
    ++list->count;
}

void SLL_Delete(SLL_List *list, SLL_Node *node) {
    if (list == nullptr || node == nullptr) {
        return;
    }
    SLL_Node *const head = &list->head.link;
    SLL_Node *previous = head;
    while (previous->next != node && previous->next != head) {
        previous = previous->next;
    }
    // Asked for the head itself, the walk stops in front of it too; it is no element.
    if (previous->next == head) {
        return;
    }
    previous->next = node->next;
    if (list->tail == node) {
        list->tail = previous;
    }
    --list->count;
}
