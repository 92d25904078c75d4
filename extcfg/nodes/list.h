/*
 * The platform's lists: how one is made empty, filled, and walked.
 *
 * New elements go behind the last one, so every list keeps the order of first use.
 */
#ifndef EXTCFG_NODES_LIST_H
#define EXTCFG_NODES_LIST_H

#include "platform/sll.h"
#include "tav_extcfg_nodes.h"

namespace extcfg {

/** Makes a list empty. */
inline void InitList(SLL_List *list, uint32_t spare = 0) {
    list->head.link.next = &list->head.link;
    list->head.spare = spare;
    list->tail = &list->head.link;
    list->count = 0;
}

/** Puts an element at the end of a list. */
inline void AppendTo(SLL_List *list, SLL_Node *link) {
    SLL_Insert_In_Middle(list, list->tail, link);
}

/**
 * The elements of a list, for a range-for loop. An element's link is its first member. The element behind is known
 * before an element is handed out, which may thus be unlinked or freed meanwhile.
 */
template <typename Element>
class ListRange {
  public:
    class Iterator {
      public:
        explicit Iterator(SLL_Node *link) : link_(link), behind_(link->next) {}
        Element *operator*() const { return reinterpret_cast<Element *>(link_); }
        Iterator &operator++() {
            link_ = behind_;
            behind_ = link_->next;
            return *this;
        }
        bool operator!=(const SLL_Node *end) const { return link_ != end; }

      private:
        SLL_Node *link_;
        SLL_Node *behind_;
    };

    explicit ListRange(const SLL_List *list) : list_(list) {}
    Iterator begin() const { return Iterator(list_->head.link.next); }
    const SLL_Node *end() const { return &list_->head.link; }

  private:
    const SLL_List *list_;
};

/** The fields of a record. */
inline ListRange<TAV_ExtCfgFieldNode> FieldsOf(TAV_ExtCfgRecordNode *record) {
    return ListRange<TAV_ExtCfgFieldNode>(&record->fields);
}
inline ListRange<const TAV_ExtCfgFieldNode> FieldsOf(const TAV_ExtCfgRecordNode *record) {
    return ListRange<const TAV_ExtCfgFieldNode>(&record->fields);
}

/** The classes of a VS. */
inline ListRange<TAV_ExtCfgClassNode> ClassesOf(TAV_ExtCfgVsNode *vs) {
    return ListRange<TAV_ExtCfgClassNode>(&vs->classes);
}

/** The virtual systems of a store. */
inline ListRange<TAV_ExtCfgVsNode> SystemsOf(CfgLocal *local) {
    return ListRange<TAV_ExtCfgVsNode>(&local->vsList);
}

}  // namespace extcfg

#endif
