/*
 * What a change of a store is. tav/changes.h makes changes, tav/diff.h finds them, tav/script.h reads and writes them.
 */
#ifndef TAV_CHANGE_H
#define TAV_CHANGE_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

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

/** How many records changes add, change and delete. */
struct ChangeCounts {
    size_t added = 0;   /**< records added */
    size_t changed = 0; /**< records changed */
    size_t deleted = 0; /**< records deleted */

    bool operator==(const ChangeCounts &) const = default;
};

}  // namespace tav

#endif
