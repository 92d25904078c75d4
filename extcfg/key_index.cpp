#include "extcfg/key_index.h"

#include <bit>

#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "platform/bex_string.h"

namespace {

/** One place of the index. */
struct Slot {
    TAV_ExtCfgRecordNode *record; /* null while the place is free */
    uint32_t hash;                /* hash of the record's key */
};

/** Hashes the key fields of a record (FNV-1a). A key field that it lacks does not count. */
uint32_t HashKey(const TAV_ExtCfgRecordNode *record) {
    uint32_t fids[TAV_EXT_MAX_KEY_FIDS];
    const uint32_t count = TAV_GetExtClassKeyFid(extcfg::RecordCid(record), fids, TAV_EXT_MAX_KEY_FIDS);
    uint32_t hash = 2166136261u;
    for (uint32_t i = 0; i < count; ++i) {
        const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fids[i]);
        const uint8_t *value = field != nullptr ? extcfg::FieldValue(field) : nullptr;
        for (uint32_t k = 0; value != nullptr && k < field->length; ++k) {
            hash = (hash ^ value[k]) * 16777619u;
        }
    }
    return hash;
}

}  // namespace

/** Open addressing: this header, then the slots, of which at most half are taken, in one block. */
struct alignas(Slot) extcfg::KeyIndex {
    uint32_t mask; /* number of slots, a power of two, less 1 */

    Slot *Slots() { return reinterpret_cast<Slot *>(this + 1); }
    const Slot *Slots() const { return reinterpret_cast<const Slot *>(this + 1); }

    /** Enters a record. */
    void Insert(TAV_ExtCfgRecordNode *record) {
        const uint32_t hash = HashKey(record);
        uint32_t place = hash & mask;
        while (Slots()[place].record != nullptr) {
            place = (place + 1) & mask;
        }
        Slots()[place] = {record, hash};
    }
};

extcfg::KeyIndex *extcfg::BuildKeyIndex(TAV_RBT_Tree *records, uint32_t count) {
    constexpr uint32_t kMaxCount = 1u << 26; /* what fits in a block */
    if (count > kMaxCount) {
        return nullptr;
    }
    const uint32_t slotCount = std::bit_ceil(2 * count);
    const uint32_t size = static_cast<uint32_t>(sizeof(KeyIndex) + slotCount * sizeof(Slot));
    auto *index = static_cast<KeyIndex *>(TAV_TAKE(size));
    if (index == nullptr) {
        return nullptr;
    }
    memset_s(index, size, 0, size);
    index->mask = slotCount - 1;
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = BEX_RBT_NextNode(records, node)) {
        index->Insert(reinterpret_cast<TAV_ExtCfgRecordNode *>(node));
    }
    return index;
}

TAV_ExtCfgRecordNode *extcfg::FindInKeyIndex(const KeyIndex *index, const TAV_ExtCfgRecordNode *keyRecord) {
    const uint32_t hash = HashKey(keyRecord);
    for (uint32_t place = hash & index->mask; index->Slots()[place].record != nullptr;
         place = (place + 1) & index->mask) {
        const Slot &slot = index->Slots()[place];
        if (slot.hash == hash && TAV_ExtCfgRecordCompare(&keyRecord->fields, &slot.record->fields) == 0) {
            return slot.record;
        }
    }
    return nullptr;
}

void extcfg::FreeKeyIndex(KeyIndex *index) {
    if (index != nullptr) {
        TAV_GIVE_BACK(index);
    }
}
