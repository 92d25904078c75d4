/*
 * Intrusive lists: circular, doubly linked, with a head. A link on no list points to itself, so that taking an element
 * off its list twice does no harm.
 */
#ifndef DETECT_LIST_H
#define DETECT_LIST_H

#include "aru_detect.h"

namespace detect {

using List = ARU_Detect_List;

/** Makes a head that of an empty list, or a link one on no list. */
inline void Clear(List *list) {
    list->next = list;
    list->prev = list;
}

/** Returns whether a list has no element, or a link is on no list. */
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

/** Returns the element that has a link, of a list or another one, as the given member:
 * `OwnerOf<&Cond::bookLink>(link)`. */
template <auto kLink, typename Link>
auto *OwnerOf(Link *link) {
    const auto find = []<typename Element>(Link Element::*member, Link *of) {
        Element any;  // its addresses say where the link is; compilers make that a constant
        const auto offset = reinterpret_cast<const char *>(&(any.*member)) - reinterpret_cast<const char *>(&any);
        return reinterpret_cast<Element *>(reinterpret_cast<char *>(of) - offset);
    };
    return find(kLink, link);
}

/**
 * The elements that hang in a list by a link of theirs, in order: `Elements<&Cond::bookLink>(list)`. The next element
 * is looked up before an element is handed out, which may therefore be moved or freed.
 */
template <auto kLink>
class Elements;

template <typename Element, List Element::*kLink>
class Elements<kLink> {
  public:
    explicit Elements(const List &head) : head_(&head) {}

    class Iterator {
      public:
        explicit Iterator(List *link) : link_(link), next_(link->next) {}
        Element &operator*() const { return *OwnerOf<kLink>(link_); }
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

}  // namespace detect

#endif
