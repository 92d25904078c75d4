/*
 * The order of a class's records beside one of them.
 */
#include "extcfg/nodes/key_order.h"

#include "common/words.h"
#include "extcfg/format/types.h"
#include "extcfg/nodes/field.h"
#include "extcfg/nodes/record.h"

namespace {

/** Mixes a hash and a byte or more of a key, under a secret. */
uint64_t Mix(uint64_t hash, uint64_t bytes, uint64_t secret) {
    hash = (hash ^ bytes) * (secret | 1);
    return hash ^ hash >> 32;
}

/** Mixes a hash and the value of a field. */
uint64_t MixValue(uint64_t hash, const TAV_ExtCfgFieldNode *field, uint64_t secret) {
    const auto *value = static_cast<const uint8_t *>(TAV_ExtCfgFieldValue(field));
    uint32_t at = 0;
    for (; field->length - at >= sizeof(uint32_t); at += sizeof(uint32_t)) {
        hash = Mix(hash, common::LoadWord<uint32_t>(value + at), secret);
    }
    for (; at < field->length; ++at) {
        hash = Mix(hash, value[at], secret);
    }
    return hash;
}

}  // namespace

extcfg::KeyOrder::KeyOrder(const TAV_ExtCfgRecordNode *record) : cid_(TAV_ExtCfgRecordCid(record)) {
    for (const uint32_t fid : KeyFids(cid_)) {
        parts_[count_++] = {fid, FirstField(&record->fields, fid), FindRow(fid)};
    }
}

uint32_t extcfg::KeyOrder::Hash(uint64_t secret) const {
    uint64_t hash = secret;
    for (const Part *part = parts_; part != parts_ + count_; ++part) {
        if (part->field != nullptr) {
            hash = MixValue(hash, part->field, secret);
        }
    }
    return static_cast<uint32_t>(Mix(hash, 0, secret));
}

int32_t extcfg::KeyOrder::operator()(const TAV_RBT_Node *node) const {
    const auto *other = reinterpret_cast<const TAV_ExtCfgRecordNode *>(node);
    // Where the fields of a record that was loaded begin, while its first bytes are still on their way: searches in
    // 200,000 records take 0.9 of the time, in 50,000 two thirds.
    __builtin_prefetch(other + 1);
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
