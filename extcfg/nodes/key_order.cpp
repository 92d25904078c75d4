/*
 * The order of a class's records beside one of them.
 */
#include "extcfg/nodes/key_order.h"

#include "extcfg/format/types.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/record.h"

extcfg::KeyOrder::KeyOrder(const TAV_ExtCfgRecordNode *record) : cid_(TAV_ExtCfgRecordCid(record)) {
    for (const uint32_t fid : KeyFids(cid_)) {
        parts_[count_++] = {fid, FirstField(&record->fields, fid), FindRow(fid)};
    }
}

int32_t extcfg::KeyOrder::operator()(const TAV_RBT_Node *node) const {
    const auto *other = reinterpret_cast<const TAV_ExtCfgRecordNode *>(node);
    const uint32_t otherCid = TAV_ExtCfgRecordCid(other);
    if (cid_ != otherCid) {
        return cid_ < otherCid ? -1 : 1;
    }
    for (const Part *part = parts_; part != parts_ + count_; ++part) {
        if (part->field == nullptr) {
            return -1;
        }
        const TAV_ExtCfgFieldNode *field = FirstField(&other->fields, part->fid);
        if (field == nullptr) {
            return 1;
        }
        const int32_t order = OrderValues(part->row, part->field, field);
        if (order != 0) {
            return order;
        }
    }
    return 0;
}
