/*
 * Intrusive lists: circular, doubly linked, with a head. A link on no list points to itself, so that taking an element
 * off its list twice does no harm.
 */
#ifndef DETECT_LIST_H
#define DETECT_LIST_H

#include <stddef.h>

#include "aru_detect.h"

namespace detect {

using List = ARU_Detect_List;

/** Makes a head empty, or a link one on no list. */
inline void Clear(List *list) {
    list->next = list;
    list->prev = list;
}

/** Tells whether a list has no element, or a link is on no list. */
inline bool IsEmpty(const List &list) {
    return list.next == &list;
}

/** Puts an element behind a place: the head for the front of the list, the head's prev for its end. */
inline void InsertBehind(List *place, List *link) {
    link->prev = place;
    link->next = place->next;
    place->next->prev = link;
    place->next = link;
}

inline void InsertAtTail(List *list, List *link) {
    InsertBehind(list->prev, link);
}

/** Takes an element off its list; nothing happens to one on no list. */
inline void Unlink(List *link) {
    link->prev->next = link->next;
    link->next->prev = link->prev;
    Clear(link);
}

inline void MoveToTail(List *list, List *link) {
    Unlink(link);
    InsertAtTail(list, link);
}

/** Moves all elements of one list to the end of another, in their order. */
inline void MoveAllToTail(List *to, List *from) {
    if (IsEmpty(*from)) {
        return;
    }
    from->next->prev = to->prev;
    to->prev->next = from->next;
    from->prev->next = to;
    to->prev = from->prev;
    Clear(from);
}

/** The elements of a list, in order. The element after one is known before that is handed out, which may so be moved.
 */
template <typename Element, size_t kLinkOffset>
class Elements {
  public:
    explicit Elements(const List &head) : head_(&head) {}

    class Iterator {
      public:
        explicit Iterator(List *link) : link_(link), next_(link->next) {}
        Element &operator*() const {
            return *reinterpret_cast<Element *>(reinterpret_cast<char *>(link_) - kLinkOffset);
        }
        Iterator &operator++() {
            *this = Iterator(next_);
            return *this;
        }
        bool operator!=(const List *head) const { return link_ != head; }

      private:
        List *link_;
        List *next_;
    };

    Iterator begin() const { return Iterator(head_->next); }
    const List *end() const { return head_; }

    /** The first element. The list must not be empty. */
    Element *First() const { return &*begin(); }

  private:
    const List *head_;
};

/** The elements of type `Type` that hang in the list `head` by their member `link`. */
#define DETECT_ELEMENTS(Type, link, head) detect::Elements<Type, offsetof(Type, link)>(head)

}  // namespace detect

#endif
