#include "extcfg/key_index.h"

#include <bit>

#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "platform/bex_string.h"

namespace {

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

/** The tag of a free place. */
constexpr uint8_t kFree = 0;

/** Returns what is kept of a hash beside the place that it leads to: its upper bits, never kFree. */
uint8_t TagOf(uint32_t hash) {
    return static_cast<uint8_t>(hash >> 24 | 1);
}

}  // namespace

/**
 * Open addressing: this header, a record for each place, and a tag for each place, in one block; at most half of the
 * places are taken. The tags are few bytes and stay in the processor's caches, so a search waits for little but the
 * record that it finds.
 */
struct alignas(TAV_ExtCfgRecordNode *) extcfg::KeyIndex {
    uint32_t mask; /* number of places, a power of two, less 1 */

    /** The records by place; what stands at a free place means nothing. */
    TAV_ExtCfgRecordNode **Records() { return reinterpret_cast<TAV_ExtCfgRecordNode **>(this + 1); }
    TAV_ExtCfgRecordNode *const *Records() const { return reinterpret_cast<TAV_ExtCfgRecordNode *const *>(this + 1); }

    /** The tags by place; kFree at a free one. */
    uint8_t *Tags() { return reinterpret_cast<uint8_t *>(Records() + mask + 1); }
    const uint8_t *Tags() const { return reinterpret_cast<const uint8_t *>(Records() + mask + 1); }

    /** Enters a record. */
    void Insert(TAV_ExtCfgRecordNode *record) {
        const uint32_t hash = HashKey(record);
        uint32_t place = hash & mask;
        while (Tags()[place] != kFree) {
            place = (place + 1) & mask;
        }
        Records()[place] = record;
        Tags()[place] = TagOf(hash);
    }
};

extcfg::KeyIndex *extcfg::BuildKeyIndex(TAV_RBT_Tree *records, uint32_t count) {
    constexpr uint32_t kMaxCount = 1u << 26; /* what fits in a block */
    if (count > kMaxCount) {
        return nullptr;
    }
    const uint32_t places = std::bit_ceil(2 * count);
    const auto size = static_cast<uint32_t>(sizeof(KeyIndex) + places * (sizeof(TAV_ExtCfgRecordNode *) + 1));
    auto *index = static_cast<KeyIndex *>(TAV_TAKE(size));
    if (index == nullptr) {
        return nullptr;
    }
    index->mask = places - 1;
    memset_s(index->Tags(), places, kFree, places);
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = BEX_RBT_NextNode(records, node)) {
        index->Insert(reinterpret_cast<TAV_ExtCfgRecordNode *>(node));
    }
    return index;
}

TAV_ExtCfgRecordNode *extcfg::FindInKeyIndex(const KeyIndex *index, const TAV_ExtCfgRecordNode *keyRecord) {
    const uint32_t hash = HashKey(keyRecord);
    const uint8_t *tags = index->Tags();
    for (uint32_t place = hash & index->mask; tags[place] != kFree; place = (place + 1) & index->mask) {
        TAV_ExtCfgRecordNode *record = index->Records()[place];
        if (tags[place] == TagOf(hash) && TAV_ExtCfgRecordCompare(&keyRecord->fields, &record->fields) == 0) {
            return record;
        }
    }
    return nullptr;
}

void extcfg::FreeKeyIndex(KeyIndex *index) {
    if (index != nullptr) {
        TAV_GIVE_BACK(index);
    }
}
