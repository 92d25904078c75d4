/*
 * Taking fields from the room in a record's block.
 */
#include "extcfg/nodes/field_room.h"

#include "extcfg/nodes/field.h"

TAV_ExtCfgFieldNode *extcfg::FieldRoom::Take(uint32_t fid, uint32_t length) {
    const uint32_t size = PackedSize(length);
    if (size > left_ || length > left_) {  // the size of a length near the greatest number has wrapped
        return TakeField(fid, length);
    }
    if (!IsLengthAllowed(fid, length)) {
        return nullptr;
    }
    auto *field = reinterpret_cast<TAV_ExtCfgFieldNode *>(place_);
    field->fid = fid;
    field->length = length;
    place_ += size;
    left_ -= size;
    ++record_->packed;
    return field;
}

void extcfg::FieldRoom::Return(TAV_ExtCfgFieldNode *field) {
    if (IsPacked(record_, field)) {
        place_ = reinterpret_cast<uint8_t *>(field);
        left_ += PackedSize(field->length);
        --record_->packed;
    } else {
        TAV_ExtCfgFieldNodeFree(field);
    }
}
