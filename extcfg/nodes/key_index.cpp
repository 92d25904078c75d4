/*
 * The index of a class's records: a hash table with open addressing. Files come from anywhere, so the hash has a
 * secret, and the places of a record are bounded: what does not fit is left to the tree.
 */
#include "extcfg/nodes/key_index.h"

#include <bit>

#include "extcfg/memory.h"
#include "extcfg/nodes/record.h"
#include "platform/bex_string.h"

namespace {

/** How many places a record may stand behind its own one. At half of the places taken, few stand as far. */
constexpr uint32_t kMaxProbes = 16;

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
        const uint32_t hash = extcfg::KeyOrder(record).Hash(secret);
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

namespace {

/** Indexes the records of a class; null when memory is short. */
TAV_ExtCfgKeyIndex *BuildIndex(TAV_RBT_Tree *records, uint32_t count) {
    constexpr uint32_t kMaxCount = 1u << 26;  // what fits in a block
    if (count > kMaxCount) {
        return nullptr;
    }
    const uint32_t places = std::bit_ceil(2 * count);
    const auto size = static_cast<uint32_t>(sizeof(TAV_ExtCfgKeyIndex) + places * (sizeof(TAV_ExtCfgRecordNode *) + 1));
    auto *index = static_cast<TAV_ExtCfgKeyIndex *>(extcfg::kHeap.Take(size));
    if (index == nullptr) {
        return nullptr;
    }
    index->secret = MakeSecret(index);
    index->mask = places - 1;
    if (memset_s(index->Tags(), places, kFree, places) != 0) {
        extcfg::kHeap.Return(index);
        return nullptr;
    }
    for (TAV_RBT_Node *node = BEX_RBT_FirstNode(records); node != nullptr; node = BEX_RBT_NextNode(records, node)) {
        index->Insert(extcfg::RecordAt(node));
    }
    return index;
}

/** Finds the record whose key equals that of another one; null when the index does not know it. */
TAV_ExtCfgRecordNode *Search(const TAV_ExtCfgKeyIndex *index, const extcfg::KeyOrder &keyOrder) {
    const uint32_t hash = keyOrder.Hash(index->secret);
    const uint8_t *tags = index->Tags();
    for (uint32_t probe = 0; probe < kMaxProbes; ++probe) {
        const uint32_t place = (hash + probe) & index->mask;
        if (tags[place] == kFree) {
            return nullptr;
        }
        TAV_ExtCfgRecordNode *record = index->Records()[place];
        if (tags[place] == TagOf(hash) && keyOrder(&record->node) == 0) {
            return record;
        }
    }
    return nullptr;
}

/** Returns whether the records are so many, and have been searched for so often, that an index pays. */
bool IndexPays(const TAV_ExtCfgClassNode *classNode) {
    constexpr uint32_t kManyRecords = 64;  // of 100, a get takes half of the tree's time; of 20, nearly as long
    return classNode->recordCount >= kManyRecords && classNode->searches >= classNode->recordCount / 2;
}

}  // namespace

TAV_ExtCfgRecordNode *extcfg::FindByIndex(TAV_ExtCfgClassNode *classNode, const KeyOrder &keyOrder) {
    if (classNode->index == nullptr && IndexPays(classNode)) {
        classNode->searches = 0;  // when memory is short, the next try is as far off as this one was
        classNode->index = BuildIndex(&classNode->records, classNode->recordCount);
    }
    if (classNode->index == nullptr) {
        ++classNode->searches;
        return nullptr;
    }
    return Search(classNode->index, keyOrder);
}

void extcfg::ForgetIndex(TAV_ExtCfgClassNode *classNode) {
    kHeap.Return(classNode->index);
    classNode->index = nullptr;
    classNode->searches = 0;
}
