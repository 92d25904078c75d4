/*
 * Many searches in a large class: what speeds them up must not change what they find, whatever is edited in between.
 */
#include <gtest/gtest.h>

#include <map>
#include <random>

#include "interposer.h"
#include "store.h"

namespace {

constexpr uint32_t kRecords = 3000;

/** Searches a store for every key of a range often enough that the next searches are sped up, and compares. */
void ExpectFinds(const Store &store, const std::map<uint32_t, const TAV_ExtCfgRecordNode *> &stored) {
    for (int round = 0; round < 2; ++round) {
        for (uint32_t key = 0; key < kRecords + 100; ++key) {
            const auto wanted = stored.find(key);
            const TAV_ExtCfgRecordNode *found = TAV_ExtCfgGetRecord(0, Class13(key).get(), store.get());
            ASSERT_EQ(found, wanted == stored.end() ? nullptr : wanted->second) << "key " << key;
        }
    }
}

void FillAndEdit(uint32_t seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, "key_index.dat");
    std::map<uint32_t, const TAV_ExtCfgRecordNode *> stored;
    const auto add = [&](uint32_t key) {
        Record record = Class13(key, static_cast<uint16_t>(key));
        const TAV_ExtCfgRecordNode *node = record.get();
        ASSERT_EQ(Add(store, 0, std::move(record)), stored.contains(key) ? TAV_ERR_INVALID : TAV_OK);
        stored.emplace(key, node);
    };
    while (stored.size() < kRecords * 2 / 3) {
        add(static_cast<uint32_t>(random() % kRecords));
    }
    ExpectFinds(store, stored);
    for (int edit = 0; edit < 4; ++edit) {
        const uint32_t key = stored.begin()->first;
        ASSERT_EQ(TAV_ExtCfgSetRecord(0, Class13(key, uint16_t{77}).get(), store.get()), TAV_OK);
        ASSERT_EQ(TAV_ExtCfgGetRecord(0, Class13(key).get(), store.get()), stored[key]);
        ASSERT_EQ(TAV_ExtCfgDelRecord(0, Class13(key).get(), store.get()), TAV_OK);
        stored.erase(key);
        ExpectFinds(store, stored);
        add(kRecords + static_cast<uint32_t>(edit));
        ExpectFinds(store, stored);
    }
}

TEST(KeyIndex, FindsWhatTheTreeFinds) {
    const NothingLeaks nothingLeaks;
    FillAndEdit(1);
    FillAndEdit(2);
}

TEST(KeyIndex, WithoutMemoryTheTreeServes) {
    const NothingLeaks nothingLeaks;
    const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, "key_index.dat");
    std::vector<Record> keys;
    for (uint32_t key = 0; key < kRecords; ++key) {
        ASSERT_EQ(Add(store, 0, Class13(key)), TAV_OK);
        keys.push_back(Class13(key));
    }
    interposer::FailNth(interposer::Call::kMalloc, 1); /* searching takes no memory but the index */
    for (int round = 0; round < 2; ++round) {
        for (const Record &key : keys) {
            ASSERT_NE(TAV_ExtCfgGetRecord(0, key.get(), store.get()), nullptr);
        }
    }
    EXPECT_GE(interposer::Count(interposer::Call::kMalloc), 2u) << "one index was refused, a later one made";
    interposer::Reset();
}

}  // namespace
