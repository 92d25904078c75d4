/*
 * Records and their keys, for the nodes above and for whoever reads or writes records.
 */
#ifndef EXTCFG_NODES_RECORD_H
#define EXTCFG_NODES_RECORD_H

#include <memory>

#include "tav_extcfg_nodes.h"

namespace extcfg {

/** The key field ids of a class, for a range-for loop, in the order in which they are compared. */
class KeyFids {
  public:
    explicit KeyFids(uint32_t cid) : count_(TAV_GetExtClassKeyFid(cid, fids_, TAV_EXT_MAX_KEY_FIDS)) {}
    const uint32_t *begin() const { return fids_; }
    const uint32_t *end() const { return fids_ + count_; }

  private:
    uint32_t fids_[TAV_EXT_MAX_KEY_FIDS];
    uint32_t count_;
};

/** A record that is freed with its holder unless it is released before. */
struct RecordFreer {
    void operator()(TAV_ExtCfgRecordNode *record) const { TAV_ExtCfgRecordNodeFree(record); }
};
using OwnedRecord = std::unique_ptr<TAV_ExtCfgRecordNode, RecordFreer>;

/**
 * Takes a record with room for fields in its block. Reports under the name of TAV_ExtCfgRecordNodeCreate.
 *
 * @param room  bytes for fields, the sum of their PackedSize; they are taken through a FieldRoom
 */
TAV_ExtCfgRecordNode *TakeRecord(uint32_t cid, uint16_t room);

/** Returns the record that begins with a node of its class's tree; null for null. */
inline TAV_ExtCfgRecordNode *RecordAt(TAV_RBT_Node *node) {
    return reinterpret_cast<TAV_ExtCfgRecordNode *>(node);
}

/** Returns whether a record stands in a tree: only there has a node a parent, the root the sentinel. */
inline bool IsLinked(const TAV_ExtCfgRecordNode *record) {
    return record->node.parent != nullptr;
}

/** Returns whether a record holds a key field of its class more than once. */
bool HoldsKeyTwice(const TAV_ExtCfgRecordNode *record);

/** Appends a field that is in no list to a record, which owns it from then on. */
void RecordAppendField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field);

/**
 * Takes a field out of a record, which is shortened; the field is the caller's afterwards. Changes nothing when the
 * record does not hold the field.
 *
 * @return whether the record held the field
 */
bool RecordUnlinkField(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field);

}  // namespace extcfg

#endif
