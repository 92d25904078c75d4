/*
 * The in-memory model: the layout of its nodes, and what its rooms do for each other.
 *
 * A CfgLocal holds a list of VS nodes, a VS a list of classes, a class a tree of records, a record a list of fields.
 * New elements go behind the last one, so every list keeps the order of first use.
 */
#ifndef EXTCFG_MODEL_H
#define EXTCFG_MODEL_H

#include <memory>

#include "platform/sll.h"
#include "tav_extcfg.h"
#include "tav_rbtree.h"

namespace extcfg {
struct KeyIndex;
}

/** One field: this header, then its value in host order, in one block. */
struct TAV_ExtCfgFieldNode {
    SLL_Node link;   /* in its record's field list */
    uint32_t fid;    /* field id */
    uint32_t length; /* bytes of the value */
};

/** One record. What follows the tree node is its key as the class tree's comparer sees it. */
struct TAV_ExtCfgRecordNode {
    TAV_RBT_Node node;     /* in its class's tree */
    SLL_List fields;       /* its fields; the head's spare word holds the class id */
    uint32_t recordLength; /* bytes of the record's TLV value: the sum of 8 + length over the fields */
};

/** The records of one class in one VS. */
struct TAV_ExtCfgClassNode {
    SLL_Node link;                  /* in its VS's class list */
    uint32_t cid;                   /* class id */
    TAV_RBT_Tree records;           /* the records, in the order of their keys; owned */
    TAV_ExtCfgRecordNode *greatest; /* the record with the greatest key, or null while it is not known */
    uint32_t recordCount;           /* number of records */
    uint32_t searches;              /* searches since the records last changed */
    extcfg::KeyIndex *index;        /* finds records faster than the tree, or null; owned */
};

/** One virtual system. */
struct TAV_ExtCfgVsNode {
    SLL_Node link;       /* in the store's VS list */
    uint32_t vsId;       /* id of the VS */
    SLL_List classes;    /* its classes; owned */
    uint32_t dataLength; /* bytes of the VS TLV's value, valid after TAV_ExtCfgVsNodeCalcSize */
};

/** One open configuration file. */
struct CfgLocal {
    uint32_t magic;                       /* extcfg::kMagic while the store is valid, 0 once it is freed */
    uint8_t mode;                         /* open mode; neither 1 nor 2 means read-write */
    uint8_t referFlag;                    /* 1 when there is a refer file */
    uint8_t queryFlag;                    /* 1 while a query runs */
    char filePath[TAV_EXT_PATH_SIZE];     /* absolute path of the file */
    char referPath[TAV_EXT_PATH_SIZE];    /* absolute path of the refer file, or empty */
    SLL_List vsList;                      /* the virtual systems; owned */
    TAV_ExtCfgRecordNode *queryCursor;    /* the record that the query returned last, or null */
    uint32_t queryVsId;                   /* VS of the query; extcfg::kNoVs once a query has ended */
    TAV_ExtCfgRecordNode *queryCondition; /* the query's own copy of its condition, or null */
};

namespace extcfg {

inline constexpr uint32_t kMagic = 0x0807ABCD;
inline constexpr uint32_t kNoVs = 0xFFFFFFFF;

/** Tells whether a store is one, as far as its magic tells. */
inline bool IsValid(const CfgLocal *local) {
    return local != nullptr && local->magic == kMagic;
}

/** Returns the path of a store's refer file, or null when it has none. */
inline const char *ReferPath(const CfgLocal *local) {
    return local->referFlag != 0 ? local->referPath : nullptr;
}

/** Returns where a field's value begins. */
inline uint8_t *FieldValue(TAV_ExtCfgFieldNode *field) {
    return reinterpret_cast<uint8_t *>(field + 1);
}

inline const uint8_t *FieldValue(const TAV_ExtCfgFieldNode *field) {
    return reinterpret_cast<const uint8_t *>(field + 1);
}

/** Returns a record's class id. */
inline uint32_t RecordCid(const TAV_ExtCfgRecordNode *record) {
    return record->fields.head.spare;
}

/** Makes a list empty. */
inline void InitList(SLL_List *list, uint32_t spare = 0) {
    list->head.link.next = &list->head.link;
    list->head.spare = spare;
    list->tail = &list->head.link;
    list->count = 0;
}

/** Returns the first element of a list, or null. An element's link is its first member. */
template <typename Element>
Element *FirstOf(const SLL_List *list) {
    SLL_Node *link = list->head.link.next;
    return link == &list->head.link ? nullptr : reinterpret_cast<Element *>(link);
}

/** Returns the element behind another one, or null at the end. */
template <typename Element>
Element *NextOf(const SLL_List *list, const Element *element) {
    SLL_Node *link = element->link.next;
    return link == &list->head.link ? nullptr : reinterpret_cast<Element *>(link);
}

/** Puts an element at the end of a list. */
inline void AppendTo(SLL_List *list, SLL_Node *link) {
    SLL_Insert_In_Middle(list, list->tail, link);
}

/** Takes a field out of a record, which is shortened; the field is the caller's afterwards. */
void RecordUnlinkField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field);

/**
 * Adds a record to its class, which owns it on success. While the log is off, records that come in key order
 * go in without a descent.
 *
 * @return TAV_OK; TAV_ERR_INVALID when the key is there already; else as TAV_RBT_AddNode
 */
uint32_t ClassAddRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record);

/** Finds the record of a class with the key fields of a verified key record, or null. */
TAV_ExtCfgRecordNode *ClassFindRecord(TAV_ExtCfgClassNode *classNode, const TAV_ExtCfgRecordNode *keyRecord);

/** Removes a record from its class and frees it. */
void ClassDelRecord(TAV_ExtCfgClassNode *classNode, TAV_ExtCfgRecordNode *record);

/** A record that is freed with its holder unless it is released before. */
struct RecordFreer {
    void operator()(TAV_ExtCfgRecordNode *record) const { TAV_ExtCfgRecordNodeFree(record); }
};
using OwnedRecord = std::unique_ptr<TAV_ExtCfgRecordNode, RecordFreer>;

/** Adds two byte counts; one that would not fit stays at 0xFFFFFFFF, which is more than any file may have. */
inline uint32_t AddSizes(uint32_t a, uint32_t b) {
    return a > UINT32_MAX - b ? UINT32_MAX : a + b;
}

}  // namespace extcfg

#endif
