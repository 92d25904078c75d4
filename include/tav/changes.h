/*
 * Changes of a store: applied to it as a whole or not at all, and taken back.
 */
#ifndef TAV_CHANGES_H
#define TAV_CHANGES_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tav/error.h"
#include "tav/store.h"

namespace tav {

/** What a change does. */
enum class Verb : uint8_t {
    kAdd,    /**< adds a record that is not there yet, or a virtual system */
    kSet,    /**< overwrites fields of a record, and adds those that it lacks */
    kUnset,  /**< takes fields out of a record */
    kDelete, /**< deletes a record, or a virtual system that holds none */
};

/** A field of a change: its value is in host order. */
struct ChangeField {
    uint32_t fid;      /**< field id */
    std::string value; /**< its bytes; may be empty */

    bool operator==(const ChangeField &) const = default;
};

/** One change of a record, or of a virtual system. */
struct Change {
    Verb verb;                   /**< what is done */
    uint32_t vsId;               /**< where */
    std::optional<uint32_t> cid; /**< class of the record; nothing when the change is one of the virtual system */
    /** kAdd: all fields, in order. kSet: the key fields and the new values. kUnset, kDelete: the key fields. */
    std::vector<ChangeField> fields;
    std::vector<uint32_t> unset; /**< kUnset: the fields to take out, as often as they stand in the record */
    size_t line = 0;             /**< where it stands in its script, for messages; not compared */

    /** Whether two changes do the same, wherever they stand. */
    bool operator==(const Change &other) const {
        return verb == other.verb && vsId == other.vsId && cid == other.cid && fields == other.fields &&
               unset == other.unset;
    }
};

/** Changes in the order in which they are to be made. */
using Changes = std::vector<Change>;

/**
 * Makes changes in a store, all of them or none.
 *
 * @param changes  the changes, made in their order
 * @param store    the store, changed in memory only
 * @return the inverse: the changes that take the store back. Throws Error with the change's line as its place (its
 *         number, when it comes from no script), and the store as it was:
 *         TAV_ERR_NOT_FOUND when there is no such virtual system, record or field to set, unset or delete;
 *         TAV_ERR_INVALID when what is to be added is there already, a virtual system to delete still has records, a
 * key field is missing, unset, or given twice to find a record, a field is set twice, a record would be without any
 *         field, the class is none of records, or a value is too long; TAV_ERR_REFUSED for a read-only store
 */
TAV_VISIBLE Changes Apply(const Changes &changes, Store *store);

/**
 * Makes one change in a store, in memory only. Throws as Apply does, with what the change is for as its place.
 */
TAV_VISIBLE void Make(const Change &change, Store *store);

/** Takes every virtual system out of a store, which must not be read-only. */
TAV_VISIBLE void Clear(Store *store);

/** How many records changes add, change and delete. */
struct ChangeCounts {
    size_t added = 0;   /**< records added */
    size_t changed = 0; /**< records changed */
    size_t deleted = 0; /**< records deleted */

    bool operator==(const ChangeCounts &) const = default;
};

/** Counts records; one that is deleted and added again, in that order and side by side, has been changed. */
TAV_VISIBLE ChangeCounts CountChanges(const Changes &changes);

}  // namespace tav

#endif
