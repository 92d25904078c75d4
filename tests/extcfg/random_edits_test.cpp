/*
 * A store beside a map that is edited in the same way: few keys and many edits, and so many keys that searches are sped
 * up. Neither what is found nor the order may tell the two apart.
 */
#include <gtest/gtest.h>

#include <map>

#include "interposer.h"
#include "store.h"
#include "tav_common.h"
#include "tav_extcfg_nodes.h"

namespace {

using interposer::Call;

class Twins {
  public:
    Twins(uint32_t seed, uint32_t keys) : random_(seed), keys_(keys) {}

    /** Adds, now and then with the log on, when the tree is searched without short cuts. */
    void Add() {
        const uint32_t key = random_() % keys_;
        g_ucTavDebugFlag = random_() % 4 == 0 ? 1 : 0;
        Record record = Class13(key, static_cast<uint16_t>(random_()));
        const TAV_ExtCfgRecordNode *node = record.get();
        ASSERT_EQ(::Add(store_, 0, std::move(record)), map_.emplace(key, node).second ? TAV_OK : TAV_ERR_INVALID);
        g_ucTavDebugFlag = 0;
    }
    void Set() {
        const uint32_t key = random_() % keys_;
        const auto value = static_cast<uint16_t>(random_());
        ASSERT_EQ(TAV_ExtCfgSetRecord(0, Class13(key, value).get(), store_.get()), CodeOf(key));
        if (map_.contains(key)) {
            ASSERT_EQ(ValueOf(map_[key], 15), Host16(value));
        }
    }
    void Delete() {
        const uint32_t key = random_() % keys_;
        ASSERT_EQ(TAV_ExtCfgDelRecord(0, Class13(key).get(), store_.get()), CodeOf(key));
        map_.erase(key);
    }

    /** Searches for every key, often enough that the last searches are sped up, and walks all records in order. */
    void ExpectSame() const {
        for (uint32_t search = 0; search < 2 * keys_; ++search) {
            const auto wanted = map_.find(search % keys_);
            const TAV_ExtCfgRecordNode *found = TAV_ExtCfgGetRecord(0, Class13(search % keys_).get(), store_.get());
            ASSERT_EQ(found, wanted == map_.end() ? nullptr : wanted->second) << "key " << search % keys_;
        }
        ASSERT_EQ(TAV_ExtCfgStartQuery(0, Class13(0).get(), store_.get()), TAV_OK);
        for (const auto &[key, node] : map_) {
            ASSERT_EQ(TAV_ExtCfgGetNextRecord(store_.get()), node) << "key " << key;
        }
        ASSERT_EQ(TAV_ExtCfgGetNextRecord(store_.get()), nullptr);
    }

  private:
    uint32_t CodeOf(uint32_t key) const { return map_.contains(key) ? TAV_OK : TAV_ERR_NOT_FOUND; }

    NothingLeaks leaks_;
    Random random_;
    const uint32_t keys_;
    const Store store_ = Open(TAV_EXT_MODE_READ_WRITE, "/nowhere/a.dat");
    std::map<uint32_t, const TAV_ExtCfgRecordNode *> map_;
};

TEST(RandomEdits, AgreeWithAMap) {
    struct Course {
        uint32_t keys, addedFirst, edits, editsBetweenLooks;
    };
    for (const auto &[keys, addedFirst, edits, editsBetweenLooks] :
         {Course{50, 0, 2000, 20}, Course{3000, 4000, 12, 1}}) {
        Twins twins(keys, keys);
        for (uint32_t count = 0; count < addedFirst; ++count) {
            twins.Add();
        }
        for (uint32_t edit = 0; edit < edits; ++edit) {
            const auto change = std::to_array({&Twins::Add, &Twins::Set, &Twins::Delete, &Twins::Add})[edit % 4];
            (twins.*change)();
            if (edit % editsBetweenLooks == 0) {
                twins.ExpectSame();
            }
        }
    }
}

TEST(RandomEdits, SearchesNeedNoMemory) {
    const NothingLeaks nothingLeaks;
    for (const Call refused : {Call::kMalloc, Call::kMemFill}) {  // what searching takes, and fills, is the index alone
        const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, "/nowhere/a.dat");
        std::vector<Record> keys;
        for (uint32_t key = 0; key < 3000; ++key) {
            ASSERT_EQ(Add(store, 0, Class13(key)), TAV_OK);
            keys.push_back(Class13(key));
        }
        interposer::FailNth(refused, 1);
        for (uint32_t search = 0; search < 6000; ++search) {
            ASSERT_NE(TAV_ExtCfgGetRecord(0, keys[search % 3000].get(), store.get()), nullptr);
        }
        EXPECT_GE(interposer::Count(refused), 2u) << "one index was refused, a later one made";
        interposer::Reset();
    }
}

/** A record of class 13 and key 5 with some more fields, of any ids and lengths that its fields may have. */
Record AnyRecord(Random &random, uint32_t fieldCount) {
    Record record = MakeRecord(13, {});
    const uint32_t keyAt = random() % (fieldCount + 1);
    for (uint32_t at = 0; at <= fieldCount; ++at) {
        const bool isKey = at == keyAt;
        const uint32_t fid = isKey ? 14 : std::to_array({12u, 15u, 18u, 8u})[random() % 4];
        const uint32_t length = isKey ? 4 : random() % std::min<uint32_t>(TAV_GetExtTlvDataLen(fid) + 1, 30);
        const Bytes value = isKey ? Host32(5) : Filled(length, static_cast<uint8_t>(random()));
        TAV_ExtCfgRecordAddFieldValue(record.get(), fid, length, value.data());
    }
    return record;
}

/** Changes a record's fields, in the same way for the same random number. */
uint32_t ChangeFields(TAV_ExtCfgRecordNode *record, uint32_t change, const TAV_ExtCfgRecordNode *other) {
    auto *field = const_cast<TAV_ExtCfgFieldNode *>(TAV_ExtCfgRecordFirstField(record));
    for (uint32_t at = change % 7; at > 0 && TAV_ExtCfgRecordNextField(record, field) != nullptr; --at) {
        field = const_cast<TAV_ExtCfgFieldNode *>(TAV_ExtCfgRecordNextField(record, field));
    }
    if (change % 3 == 0) {
        return TAV_ExtCfgRecordNodeSet(record, other);
    }
    if (change % 5 == 0) {
        uint8_t value[] = {1, 2};
        return TAV_ParseExtCfgFieldNode(15, value, sizeof(value), record);
    }
    if (change % 3 == 1 && field->fid != 14) {
        TAV_ExtCfgFieldNodeDel(record, field);
    } else {
        TAV_ExtCfgRecordAddFieldValue(record, 15, 2, "ab");
    }
    return TAV_OK;
}

TEST(RandomEdits, ALoadedRecordIsLikeOneThatWasBuilt) {
    const NothingLeaks nothingLeaks;
    const TempFolder folder;
    const std::string path = folder.Path("a.dat");
    Random random;
    for (uint32_t round = 0; round < 120; ++round) {
        // Now and then more fields than there is room for in one block.
        const Record built = AnyRecord(random, round % 50 == 7 ? 3000 : random() % 9);
        WriteFile(path, Image(VsTlv(0, {Encode(built.get())})));
        const Store store = Open(TAV_EXT_MODE_READ_WRITE, path);
        TAV_ExtCfgRecordNode *const loaded = TAV_ExtCfgGetRecord(0, Class13(5).get(), store.get());
        ASSERT_NE(loaded, nullptr);
        ASSERT_EQ(Encode(loaded), Encode(built.get())) << round;
        for (uint32_t step = 0; step < round % 12; ++step) {
            const Record other = AnyRecord(random, random() % 4);
            const uint32_t change = random();
            ASSERT_EQ(ChangeFields(loaded, change, other.get()), ChangeFields(built.get(), change, other.get()));
            ASSERT_EQ(Encode(loaded), Encode(built.get())) << round << " " << step;
            ASSERT_EQ(loaded->recordLength, built->recordLength);
        }
        if (round % 3 == 0) {
            EXPECT_EQ(TAV_ExtCfgDelRecord(0, Class13(5).get(), store.get()), TAV_OK);
        } else if (round % 3 == 1) {  // takes the key field out of the record
            EXPECT_EQ(TAV_ExtCfgSetRecordToFile(0, loaded, path.c_str(), nullptr), TAV_OK);
            EXPECT_EQ(TAV_ExtCfgSetRecordToFile(0, built.get(), path.c_str(), nullptr), TAV_OK);
            EXPECT_EQ(Encode(loaded), Encode(built.get()));
        }
    }
}

}  // namespace
