/*
 * Changes of stores, in C: the difference of two stores, scripts of one change a line, all applied or none. Part of
 * libtav_session.so; docs/change-scripts.md describes the scripts, tav/changes.h and tav/diff.h are the same for C++.
 *
 *     TAV_Changes *changes;
 *     if (TAV_ChangesParse(script, strlen(script), NULL, &changes) == TAV_OK) {
 *         code = TAV_ChangesApply(changes, TAV_SessionStore(session), NULL);
 *         TAV_ChangesFree(changes);
 *     }
 *
 * Threads, failures and fields are as tav_store.h says. Changes own copies of everything; they outlive the stores that
 * they come from.
 */
#ifndef TAV_CHANGES_C_H
#define TAV_CHANGES_C_H

#include "tav_store.h"

/** What a change does. */
enum {
    TAV_CHANGE_ADD = 0,   /**< adds a record that is not there yet, or a virtual system */
    TAV_CHANGE_SET = 1,   /**< overwrites fields of a record, and adds those that it lacks */
    TAV_CHANGE_UNSET = 2, /**< takes fields out of a record */
    TAV_CHANGE_DELETE = 3 /**< deletes a record, or a virtual system that holds none */
};

/** One change of a record, or of a virtual system. Null where there are no fields. */
typedef struct TAV_Change {
    uint32_t verb;         /**< TAV_CHANGE_ADD to TAV_CHANGE_DELETE */
    uint32_t vsId;         /**< the virtual system */
    uint32_t isOfRecord;   /**< 1 for a record, 0 for the virtual system itself, which only ADD and DELETE can be of */
    uint32_t cid;          /**< class of the record */
    const void *fields;    /**< ADD: all fields, in order. SET: the key fields and the new values. Else: the key */
    size_t fieldsSize;     /**< their size in bytes */
    const uint32_t *unset; /**< UNSET: the fields to take out */
    size_t unsetCount;     /**< number of them */
} TAV_Change;

/** Changes in the order in which they are to be made. */
typedef struct TAV_Changes TAV_Changes;

/**
 * Makes one change in a store, in memory.
 *
 * @param change  the change; only read
 * @param local   the store
 * @return TAV_OK; after anything else the store is as it was. TAV_ERR_NULL for a null change or store;
 *         TAV_ERR_NOT_FOUND when there is no such virtual system, record or field to set, unset or delete;
 *         TAV_ERR_INVALID when what is to be added is there already, a virtual system to delete still has records, a
 *         key field is missing, unset or given twice, a field is set twice, a record would be without any field, the
 *         class is none of records, a value is too long, the fields are cut off, or the verb is none of that for which
 *         it is given; TAV_ERR_REFUSED for a read-only store; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangeMake(const TAV_Change *change, CfgLocal *local);

/**
 * Begins an empty list of changes.
 *
 * @param changes  receives the changes, the caller's (TAV_ChangesFree); null on failure, here as below
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesNew(TAV_Changes **changes);

/** Frees changes. Null is ignored. */
TAV_API void TAV_ChangesFree(TAV_Changes *changes);

/**
 * Appends a copy of a change.
 *
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_INVALID when the fields are cut off or the verb is none of that for which it is
 *         given; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesAppend(TAV_Changes *changes, const TAV_Change *change);

/** Which part of two stores is compared. */
typedef struct TAV_DiffScope {
    const uint32_t *vsId;    /**< one virtual system; null for all */
    const uint32_t *cid;     /**< one class; null for all, and then virtual systems as such, too */
    const uint32_t *ignored; /**< fields that make no difference, other than key fields */
    size_t ignoredCount;     /**< number of them */
} TAV_DiffScope;

/**
 * Finds the changes that take one store to another.
 *
 * @param before,after  the stores; only read
 * @param scope         what is compared; null for everything
 * @param changes       receives the changes
 * @return TAV_OK; TAV_ERR_NULL for a null store or changes; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesDiff(CfgLocal *before, CfgLocal *after, const TAV_DiffScope *scope, TAV_Changes **changes);

/**
 * Finds the changes that bring all virtual systems and records of one store into another: records that are there
 * already are set, others added.
 *
 * @param from     the store with what is to come in; only read
 * @param into     the store that the changes are for; only read
 * @param changes  receives the changes
 * @return as TAV_ChangesDiff
 */
TAV_API uint32_t TAV_ChangesMerge(CfgLocal *from, CfgLocal *into, TAV_Changes **changes);

/**
 * Reads a script.
 *
 * @param script   the script, UTF-8
 * @param length   its length in bytes
 * @param names    names that it may use, or null
 * @param changes  receives the changes
 * @return TAV_OK; TAV_ERR_NULL for a null script or changes; TAV_ERR_INVALID, with the line as its place, for what is
 *         no change; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesParse(const char *script, size_t length, const TAV_Names *names, TAV_Changes **changes);

/** Returns the number of changes; 0 for a null. */
TAV_API size_t TAV_ChangesCount(const TAV_Changes *changes);

/**
 * Gives one of the changes.
 *
 * @param changes  the changes
 * @param index    counted from 0
 * @param change   receives the change. What it points at is the changes', and holds until the next call of this
 *                 function with them
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NOT_FOUND when there are not so many; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesGet(TAV_Changes *changes, size_t index, TAV_Change *change);

/** How many records changes add, change and delete. */
typedef struct TAV_ChangeCounts {
    uint64_t added;   /**< records added */
    uint64_t changed; /**< records changed */
    uint64_t deleted; /**< records deleted */
} TAV_ChangeCounts;

/** Counts the records of changes. TAV_OK, or TAV_ERR_NULL. */
TAV_API uint32_t TAV_ChangesCountRecords(const TAV_Changes *changes, TAV_ChangeCounts *counts);

/**
 * Writes changes as a script, which TAV_ChangesParse reads.
 *
 * @param changes  the changes
 * @param names    names to be shown, or null
 * @param script   receives the script, each line with a line feed, the caller's
 * @return TAV_OK; TAV_ERR_NULL for null changes or a null script; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ChangesToScript(const TAV_Changes *changes, const TAV_Names *names, TAV_Bytes *script);

/** Writes changes as lines of JSON. As TAV_ChangesToScript. */
TAV_API uint32_t TAV_ChangesToJson(const TAV_Changes *changes, const TAV_Names *names, TAV_Bytes *text);

/**
 * Makes changes in a store, in memory: all of them or none.
 *
 * @param changes  the changes, made in their order
 * @param local    the store
 * @param inverse  receives the changes that take the store back; may be null
 * @return TAV_OK; else as TAV_ChangeMake, with the line of the change that cannot be made as the place, and the store
 *         is as it was
 */
TAV_API uint32_t TAV_ChangesApply(const TAV_Changes *changes, CfgLocal *local, TAV_Changes **inverse);

#endif
