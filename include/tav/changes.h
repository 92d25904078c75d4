/*
 * Changes of a store: applied to it as a whole or not at all, and taken back.
 */
#ifndef TAV_CHANGES_H
#define TAV_CHANGES_H

#include "tav/change.h"
#include "tav/error.h"
#include "tav/store.h"

namespace tav {

/**
 * Makes changes in a store, all of them or none.
 *
 * @param changes  the changes, made in their order
 * @param store    the store, changed in memory only
 * @return the inverse: the changes that take the store back. Throws Error with the change's line as its place (its
 *         number, when it comes from no script), and the store as it was:
 *         TAV_ERR_NOT_FOUND when there is no such virtual system, record or field to set, unset or delete;
 *         TAV_ERR_INVALID when what is to be added is there already, a virtual system to delete still has records, a
 *         key field is missing, unset, or given twice to find a record, a field is set twice, a record would be without
 *         any field, the class is none of records, or a value is too long; TAV_ERR_REFUSED for a read-only store
 */
TAV_VISIBLE Changes Apply(const Changes &changes, Store *store);

/**
 * Makes one change in a store, in memory only. Throws as Apply does, with what the change is for as its place.
 */
TAV_VISIBLE void Make(const Change &change, Store *store);

/** Takes every virtual system out of a store, which must not be read-only. */
TAV_VISIBLE void Clear(Store *store);

/** Counts records; one that is deleted and added again, in that order and side by side, has been changed. */
TAV_VISIBLE ChangeCounts CountChanges(const Changes &changes);

}  // namespace tav

#endif
