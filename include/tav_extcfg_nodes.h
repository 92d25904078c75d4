/*
 * The nodes of an open store, for reading: whoever wants to walk all virtual systems, classes, records or fields, or
 * calls the functions that take a record's field list or a field, finds here what they are made of.
 *
 *     CfgLocal -- list --> virtual systems -- list --> classes -- tree --> records -- list --> fields
 *
 * All of it belongs to the store, or, for a record that was built and not yet added, to whoever built it. Read the
 * members, and change nothing but through the functions of tav_extcfg.h: lengths, counts and the order of the trees
 * depend on each other. Members marked private are the library's own and may change with any release.
 *
 * A walk asks for the first element and then for the next one until that is null:
 *
 *     const TAV_ExtCfgFieldNode *field;
 *     for (field = TAV_ExtCfgRecordFirstField(record); field != NULL; field = TAV_ExtCfgRecordNextField(record, field))
 *
 * No argument may be null. What a walk stands on must not be deleted before the walk has gone on. Lists are in the
 * order of first use, records in the order of their keys.
 */
#ifndef TAV_EXTCFG_NODES_H
#define TAV_EXTCFG_NODES_H

#include "platform/bex_rbt.h"
#include "platform/sll.h"
#include "tav_extcfg.h"
#include "tav_rbtree.h"

/** One field: this header, then its value in host order. A block of its own, or a part of its record's block. */
struct TAV_ExtCfgFieldNode {
    SLL_Node link;   /**< in its record's field list */
    uint32_t fid;    /**< field id */
    uint32_t length; /**< bytes of the value */
};

/** One record. What follows the tree node is its key as the class tree's comparer sees it. */
struct TAV_ExtCfgRecordNode {
    TAV_RBT_Node node;     /**< in its class's tree */
    SLL_List fields;       /**< its fields, in the order in which they were added; the head's spare is the class id */
    uint32_t recordLength; /**< bytes of the record's TLV value: 8 + length a field; 0xFFFFFFFF when that is too much */
    uint16_t room;         /**< private: bytes behind this in the same block, for the fields that were loaded with it */
    uint16_t packed;       /**< private: number of fields in that room; 0 once one of them has been taken out */
};

/** Private. */
struct TAV_ExtCfgKeyIndex;

/** Private: finds the elements of a list by their ids; a tree through the elements. */
typedef struct TAV_ExtCfgIdIndex {
    TAV_RBT_Tree ids; /**< of the elements that it knows, TAV_ExtCfgIdNode */
    uint32_t count;   /**< number of them; 0xFFFFFFFF once it has been given up */
    SLL_Node *last;   /**< the one that came last */
} TAV_ExtCfgIdIndex;

/** Private: an element's place in the index of its list. */
typedef struct TAV_ExtCfgIdNode {
    TAV_RBT_Node node;        /**< in the index's tree */
    uint32_t id;              /**< the key of that tree */
    SLL_Node *element;        /**< whose place it is */
    TAV_ExtCfgIdIndex *index; /**< in which it stands, or null */
} TAV_ExtCfgIdNode;

/** The records of one class in one virtual system. */
struct TAV_ExtCfgClassNode {
    SLL_Node link;                    /**< in its VS's class list */
    uint32_t cid;                     /**< class id */
    TAV_RBT_Tree records;             /**< the records, in the order of their keys; owned */
    TAV_ExtCfgRecordNode *greatest;   /**< private: the record with the greatest key, or null while it is not known */
    uint32_t recordCount;             /**< private: number of records */
    uint32_t searches;                /**< private: searches since the records last changed */
    struct TAV_ExtCfgKeyIndex *index; /**< private: finds records faster than the tree, or null; owned */
    TAV_ExtCfgIdNode byCid;           /**< private: in its VS's index of classes */
};

/** One virtual system. */
struct TAV_ExtCfgVsNode {
    SLL_Node link;                /**< in the store's VS list */
    uint32_t vsId;                /**< id of the VS */
    SLL_List classes;             /**< its classes; owned */
    uint32_t dataLength;          /**< bytes of the VS TLV's value, valid after TAV_ExtCfgVsNodeCalcSize */
    TAV_ExtCfgIdNode byVsId;      /**< private: in the store's index of virtual systems */
    TAV_ExtCfgIdIndex classIndex; /**< private: finds classes */
};

/** One open configuration file. */
struct CfgLocal {
    uint32_t magic;                       /**< 0x0807ABCD while the store is valid, 0 once it is freed */
    uint8_t mode;                         /**< open mode; neither 1 nor 2 means read-write */
    uint8_t referFlag;                    /**< 1 when there is a refer file */
    uint8_t queryFlag;                    /**< 1 while a query runs */
    char filePath[TAV_EXT_PATH_SIZE];     /**< absolute path of the file */
    char referPath[TAV_EXT_PATH_SIZE];    /**< absolute path of the refer file, or empty */
    SLL_List vsList;                      /**< the virtual systems; owned */
    TAV_ExtCfgRecordNode *queryCursor;    /**< the record that the query returned last, or null */
    uint32_t queryVsId;                   /**< VS of the query; 0xFFFFFFFF once a query has ended */
    TAV_ExtCfgRecordNode *queryCondition; /**< the query's own copy of its condition, or null */
    TAV_ExtCfgIdIndex vsIndex;            /**< private: finds virtual systems */
    TAV_ExtCfgRecordNode *queryDeleted;   /**< private: what the cursor was when it was deleted, or null; owned */
};

/** The element behind a link of a list, or null at the list's end. For the functions below. */
static inline const void *TAV_ExtCfgElementBehind(const SLL_List *list, const SLL_Node *link) {
    return link->next == &list->head.link ? (const void *)0 : (const void *)link->next;
}

/** Returns the id of a field. */
static inline uint32_t TAV_ExtCfgFieldId(const TAV_ExtCfgFieldNode *field) {
    return field->fid;
}

/** Returns the length of a field's value in bytes. */
static inline uint32_t TAV_ExtCfgFieldLength(const TAV_ExtCfgFieldNode *field) {
    return field->length;
}

/** Returns a field's value, in host order; aligned to 4 bytes. It lives as long as the field. */
static inline const void *TAV_ExtCfgFieldValue(const TAV_ExtCfgFieldNode *field) {
    return field + 1;
}

/** Returns the class id of a record. */
static inline uint32_t TAV_ExtCfgRecordCid(const TAV_ExtCfgRecordNode *record) {
    return record->fields.head.spare;
}

/** Returns the first field of a record; null when it has none. */
static inline const TAV_ExtCfgFieldNode *TAV_ExtCfgRecordFirstField(const TAV_ExtCfgRecordNode *record) {
    return (const TAV_ExtCfgFieldNode *)TAV_ExtCfgElementBehind(&record->fields, &record->fields.head.link);
}

/** Returns the field behind one of a record; null behind the last one. */
static inline const TAV_ExtCfgFieldNode *TAV_ExtCfgRecordNextField(const TAV_ExtCfgRecordNode *record,
                                                                   const TAV_ExtCfgFieldNode *field) {
    return (const TAV_ExtCfgFieldNode *)TAV_ExtCfgElementBehind(&record->fields, &field->link);
}

/** Returns the record of a class with the smallest key; null when the class is empty. */
static inline const TAV_ExtCfgRecordNode *TAV_ExtCfgClassFirstRecord(const TAV_ExtCfgClassNode *classNode) {
    /* The platform's walk reads the tree only; its argument is not const because it may hand out elements to change. */
    return (const TAV_ExtCfgRecordNode *)(const void *)BEX_RBT_FirstNode((TAV_RBT_Tree *)&classNode->records);
}

/** Returns the record of a class behind another one in the order of the keys; null behind the last one. */
static inline const TAV_ExtCfgRecordNode *TAV_ExtCfgClassNextRecord(const TAV_ExtCfgClassNode *classNode,
                                                                    const TAV_ExtCfgRecordNode *record) {
    return (const TAV_ExtCfgRecordNode *)(const void *)BEX_RBT_NextNode((TAV_RBT_Tree *)&classNode->records,
                                                                        (TAV_RBT_Node *)&record->node);
}

/** Returns the first class of a VS; null when it has none. */
static inline const TAV_ExtCfgClassNode *TAV_ExtCfgVsFirstClass(const TAV_ExtCfgVsNode *vs) {
    return (const TAV_ExtCfgClassNode *)TAV_ExtCfgElementBehind(&vs->classes, &vs->classes.head.link);
}

/** Returns the class behind one of a VS; null behind the last one. */
static inline const TAV_ExtCfgClassNode *TAV_ExtCfgVsNextClass(const TAV_ExtCfgVsNode *vs,
                                                               const TAV_ExtCfgClassNode *classNode) {
    return (const TAV_ExtCfgClassNode *)TAV_ExtCfgElementBehind(&vs->classes, &classNode->link);
}

/** Returns the first virtual system of a store; null when it has none. */
static inline const TAV_ExtCfgVsNode *TAV_ExtCfgLocalFirstVs(const CfgLocal *local) {
    return (const TAV_ExtCfgVsNode *)TAV_ExtCfgElementBehind(&local->vsList, &local->vsList.head.link);
}

/** Returns the virtual system behind one of a store; null behind the last one. */
static inline const TAV_ExtCfgVsNode *TAV_ExtCfgLocalNextVs(const CfgLocal *local, const TAV_ExtCfgVsNode *vs) {
    return (const TAV_ExtCfgVsNode *)TAV_ExtCfgElementBehind(&local->vsList, &vs->link);
}

#endif
