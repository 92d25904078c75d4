/*
 * The index of a class's records: a hash table with open addressing. Files come from anywhere, so the hash has a
 * secret, and the places of a record are bounded: what does not fit is left to the tree.
 */
#include "extcfg/nodes/key_index.h"

#include <bit>

#include "common/words.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/record.h"
#include "platform/bex_string.h"

namespace {

/** How many places a record may stand behind its own one. At half of the places taken, few stand as far. */
constexpr uint32_t kMaxProbes = 16;

/** Mixes a hash and a byte or more of a key, under a secret. */
uint64_t Mix(uint64_t hash, uint64_t bytes, uint64_t secret) {
    hash = (hash ^ bytes) * (secret | 1);
    return hash ^ hash >> 32;
}

/** Hashes the key fields of a record under a secret. A key field that it lacks does not count. */
uint32_t HashKey(const TAV_ExtCfgRecordNode *record, uint64_t secret) {
    uint64_t hash = secret;
    for (const uint32_t fid : extcfg::KeyFids(TAV_ExtCfgRecordCid(record))) {
        const TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeFind(&record->fields, fid);
        if (field == nullptr) {
            continue;
        }
        const auto *value = static_cast<const uint8_t *>(TAV_ExtCfgFieldValue(field));
        uint32_t at = 0;
        for (; field->length - at >= sizeof(uint32_t); at += sizeof(uint32_t)) {
            hash = Mix(hash, common::LoadWord<uint32_t>(value + at), secret);
        }
        for (; at < field->length; ++at) {
            hash = Mix(hash, value[at], secret);
        }
    }
    return static_cast<uint32_t>(Mix(hash, 0, secret));
}

/** Returns what the author of a file cannot know: where the system has put a block and the stack. */
uint64_t MakeSecret(const void *block) {
    const int onStack = 0;
    const auto there = reinterpret_cast<uintptr_t>(block), here = reinterpret_cast<uintptr_t>(&onStack);
    return (uint64_t{there} >> 4 ^ uint64_t{here} << 32) * 0x9E3779B97F4A7C15u;  // spreads the bits that vary
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
struct TAV_ExtCfgKeyIndex {
    uint64_t secret;  // of the hash: keys that meet in one place cannot be made ready beforehand
    uint32_t mask;    // number of places, a power of two, less 1

    /** The records by place; what stands at a free place means nothing. */
    TAV_ExtCfgRecordNode **Records() { return reinterpret_cast<TAV_ExtCfgRecordNode **>(this + 1); }
    TAV_ExtCfgRecordNode *const *Records() const { return reinterpret_cast<TAV_ExtCfgRecordNode *const *>(this + 1); }

    /** The tags by place; kFree at a free one. */
    uint8_t *Tags() { return reinterpret_cast<uint8_t *>(Records() + mask + 1); }
    const uint8_t *Tags() const { return reinterpret_cast<const uint8_t *>(Records() + mask + 1); }

    /** Enters a record, unless all places that it may have are taken. */
    void Insert(TAV_ExtCfgRecordNode *record) {
        const uint32_t hash = HashKey(record, secret);
        for (uint32_t probe = 0; probe < kMaxProbes; ++probe) {
            const uint32_t place = (hash + probe) & mask;
            if (Tags()[place] == kFree) {
                Records()[place] = record;
                Tags()[place] = TagOf(hash);
                return;
            }
        }
    }
};

TAV_ExtCfgKeyIndex *extcfg::BuildKeyIndex(TAV_RBT_Tree *records, uint32_t count) {
    constexpr uint32_t kMaxCount = 1u << 26;  // what fits in a block
    if (count > kMaxCount) {
        return nullptr;
    }
    const uint32_t places = std::bit_ceil(2 * count);
    const auto size = static_cast<uint32_t>(sizeof(TAV_ExtCfgKeyIndex) + places * (sizeof(TAV_ExtCfgRecordNode *) + 1));
    auto *index = static_cast<TAV_ExtCfgKeyIndex *>(kHeap.Take(size));
    if (index == nullptr) {
        return nullptr;
    }
    index->secret = MakeSecret(index);
    index->mask = places - 1;
    memset_s(index->Tags(), places, kFree, places);
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = BEX_RBT_NextNode(records, node)) {
        index->Insert(RecordAt(node));
    }
    return index;
}

TAV_ExtCfgRecordNode *extcfg::FindInKeyIndex(const TAV_ExtCfgKeyIndex *index, const TAV_ExtCfgRecordNode *keyRecord) {
    const uint32_t hash = HashKey(keyRecord, index->secret);
    const uint8_t *tags = index->Tags();
    for (uint32_t probe = 0; probe < kMaxProbes; ++probe) {
        const uint32_t place = (hash + probe) & index->mask;
        if (tags[place] == kFree) {
            return nullptr;
        }
        TAV_ExtCfgRecordNode *record = index->Records()[place];
        if (tags[place] == TagOf(hash) && TAV_ExtCfgRecordCompare(&keyRecord->fields, &record->fields) == 0) {
            return record;
        }
    }
    return nullptr;
}

void extcfg::FreeKeyIndex(TAV_ExtCfgKeyIndex *index) {
    kHeap.Return(index);
}
