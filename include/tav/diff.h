/*
 * What tells two stores apart.
 */
#ifndef TAV_DIFF_H
#define TAV_DIFF_H

#include <cstdint>
#include <functional>
#include <optional>
#include <set>

#include "tav/change.h"
#include "tav/error.h"
#include "tav/store.h"

namespace tav {

/** What of two stores is compared. */
struct DiffScope {
    std::optional<uint32_t> vsId;    /**< one virtual system; all without it */
    std::optional<uint32_t> cid;     /**< one class; all without it, and then virtual systems as such, too */
    std::set<uint32_t> ignored = {}; /**< fields that make no difference, other than key fields */
};

/** What hears of the differences of two stores, in the order of `before`, and then of what `after` has beyond it. */
struct DiffVisitor {
    /** A virtual system that `after` lacks. */
    std::function<void(uint32_t vsId)> vsGone = {};
    /** A virtual system that `before` lacks. */
    std::function<void(uint32_t vsId)> vsNew = {};
    /** A record that `after` lacks. */
    std::function<void(uint32_t vsId, RecordView before)> gone = {};
    /** A record that `before` lacks. */
    std::function<void(uint32_t vsId, RecordView after)> added = {};
    /** A record that both have, with other fields. */
    std::function<void(uint32_t vsId, RecordView before, RecordView after)> changed = {};
};

/**
 * Walks two stores side by side, in linear time, and tells of every virtual system and record that one of them lacks
 * and of every record whose fields differ in ids, values or order. Of a virtual system that is gone or new it tells
 * after its records are gone, and before they are new. The order of virtual systems and of classes makes no difference.
 *
 * @param before,after  the stores; only read
 * @param scope         what is compared
 * @param visitor       hears of the differences; a function that is not set is not called
 */
TAV_VISIBLE void Compare(const Store &before, const Store &after, const DiffScope &scope, const DiffVisitor &visitor);

/**
 * The changes that take one store to another: once applied to `before`, it has the virtual systems and records of
 * `after`, each with the same fields in the same order. A record whose fields cannot be brought into that order by
 * setting and unsetting is deleted and added again.
 *
 * @param before,after  the stores; only read
 * @param scope         what is compared; where fields are ignored, the changes say nothing of them
 * @return the changes, which own copies of everything
 */
TAV_VISIBLE Changes Diff(const Store &before, const Store &after, const DiffScope &scope = {});

/** Counts the records that only one of two stores has, and those whose fields differ. */
TAV_VISIBLE ChangeCounts CountDifferences(const Store &before, const Store &after, const DiffScope &scope = {});

/**
 * The changes that bring all virtual systems and records of one store into another: records that are there already are
 * set, others added. Apply refuses to set a record of `from` that holds a field twice.
 *
 * @param from  the store with what is to come in
 * @param into  the store that the changes are for; only read
 */
TAV_VISIBLE Changes Merge(const Store &from, const Store &into);

}  // namespace tav

#endif
