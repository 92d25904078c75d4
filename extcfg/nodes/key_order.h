/*
 * The order of a class's records beside one of them, for a whole descent in the class's tree.
 */
#ifndef EXTCFG_NODES_KEY_ORDER_H
#define EXTCFG_NODES_KEY_ORDER_H

#include "tav_extcfg_nodes.h"

namespace extcfg {

/**
 * What TAV_ExtCfgRecordCompare looks up for each comparison, looked up once: the class's key fields, their comparers,
 * and the one record's fields. A search in a tree of 200,000 records takes four fifths of the time. Reports nothing, so
 * it is for while the log is off.
 */
class KeyOrder {
  public:
    /** `record` must stay as it is meanwhile. */
    explicit KeyOrder(const TAV_ExtCfgRecordNode *record);

    /** Returns a hash of the record's key fields, as bytes; one that it lacks does not count. */
    uint32_t Hash(uint64_t secret) const;

    /** Returns how the record sorts beside one that stands in a tree: as TAV_ExtCfgRecordCompare of the two. */
    int32_t operator()(const TAV_RBT_Node *node) const;

  private:
    /** A key field. */
    struct Part {
        uint32_t fid;
        const TAV_ExtCfgFieldNode *field;  // the record's, or null
        const TAV_ExtTlvDataTypeRow *row;  // the type's, or null
    };
    Part parts_[TAV_EXT_MAX_KEY_FIDS];
    uint32_t count_ = 0;
    uint32_t cid_;
};

}  // namespace extcfg

#endif
