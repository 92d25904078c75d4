/*
 * Random stores: what the library writes is what a second, simple writer makes of the same records, plain and in an
 * archive; and it reads back the same.
 */
#include <gtest/gtest.h>
#include <zip.h>

#include <algorithm>
#include <map>

#include "store.h"

namespace {

/** One field twice: as callers give it and as the file keeps it. */
struct BothForms {
    uint32_t fid;
    Bytes host;
    Bytes file;
};

class RandomStore {
  public:
    explicit RandomStore(uint32_t seed) : random_(seed) {}

    /** Fills a store with up to 60 records in up to 4 VS; remembers what must come out of it. */
    void Fill(const Store &store) {
        for (unsigned count = Below(60) + 1; count > 0; --count) {
            const uint32_t vsIds[] = {0, 1, 0xFFFFFFFF, 256};
            uint32_t vsId = vsIds[Below(4)];
            const uint32_t classes[] = {7, 13, 26};
            uint32_t cid = classes[Below(3)];
            std::vector<BothForms> fields = Fields(cid);
            if (std::find(order_.begin(), order_.end(), vsId) == order_.end()) {
                order_.push_back(vsId);
            }
            Vs &vs = content_[vsId];
            if (std::find(vs.order.begin(), vs.order.end(), cid) == vs.order.end()) {
                vs.order.push_back(cid);
            }
            auto key = std::find_if(fields.begin(), fields.end(),
                                    [&](const BothForms &field) { return field.fid == (cid == 7 ? 8u : 14u); });
            // Keys sort by length, then as unsigned bytes from the most significant on, which the file's form has
            // first.
            bool isNew = vs.records[cid].try_emplace({key->file.size(), key->file}, fields).second;
            std::vector<Field> given;
            for (const BothForms &field : fields) {
                given.push_back({field.fid, field.host});
            }
            ASSERT_EQ(Add(store, vsId, MakeRecord(cid, given)), isNew ? TAV_OK : TAV_ERR_INVALID);
        }
    }

    Bytes Body() const {
        Bytes body;
        for (uint32_t vsId : order_) {
            std::vector<Bytes> records;
            ForEachRecord(vsId, [&](uint32_t cid, const std::vector<BothForms> &fields) {
                std::vector<Bytes> tlvs;
                for (const BothForms &field : fields) {
                    tlvs.push_back(Tlv(field.fid, field.file));
                }
                records.push_back(Tlv(cid, tlvs));
            });
            body = Join({body, VsTlv(vsId, records)});
        }
        return body;
    }

    /** Queries every class of every VS and expects the records in key order, field by field. */
    void ExpectIn(const Store &store) const {
        for (uint32_t vsId : order_) {
            for (uint32_t cid : content_.at(vsId).order) {
                Record any = MakeRecord(cid, {});
                ASSERT_EQ(TAV_ExtCfgStartQuery(vsId, any.get(), store.get()), TAV_OK);
                for (const auto &[key, fields] : content_.at(vsId).records.at(cid)) {
                    TAV_ExtCfgRecordNode *record = TAV_ExtCfgGetNextRecord(store.get());
                    ASSERT_NE(record, nullptr);
                    for (const BothForms &field : fields) {
                        ASSERT_EQ(ValueOf(record, field.fid), field.host) << "field " << field.fid;
                    }
                }
                ASSERT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
            }
        }
    }

  private:
    struct Vs {
        std::vector<uint32_t> order;
        std::map<uint32_t, std::map<std::pair<size_t, Bytes>, std::vector<BothForms>>> records;
    };

    template <class Visitor>
    void ForEachRecord(uint32_t vsId, Visitor visitor) const {
        const Vs &vs = content_.at(vsId);
        for (uint32_t cid : vs.order) {
            for (const auto &[key, fields] : vs.records.at(cid)) {
                visitor(cid, fields);
            }
        }
    }

    unsigned Below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }

    Bytes RandomBytes(unsigned size) {
        Bytes bytes(size);
        for (uint8_t &byte : bytes) {
            byte = static_cast<uint8_t>(random_());
        }
        return bytes;
    }

    BothForms Value(uint32_t fid) {
        auto word = static_cast<uint32_t>(random_());
        auto half = static_cast<uint16_t>(random_());
        Bytes tail;
        switch (fid) {
            case 8:
                tail = RandomBytes(Below(2) == 0 ? Below(3) : Below(255));
                return {fid, tail, tail};
            case 12:
                tail = RandomBytes(Below(2) == 0 ? Below(10) : Below(434));
                return {fid, tail, tail};
            case 11:
                tail = RandomBytes(1);
                return {fid, tail, tail};
            case 18:
                tail = RandomBytes(16);
                return {fid, Join({{4}, Host32(word), tail}), Join({{4}, Be32(word), tail})};
            case 14:
                word = Below(2) == 0 ? Below(40) : word;
                return {fid, Host32(word), Be32(word)};
            case 19:
            case 25:
            case 27:
                return {fid, Host32(word), Be32(word)};
            case 0x12345:  // a type of a later version: carried as it is
                tail = RandomBytes(Below(20));
                return {fid, tail, tail};
            default:
                return {fid, Host16(half), Be16(half)};
        }
    }

    /** The key and a choice of other fields, in random order. */
    std::vector<BothForms> Fields(uint32_t cid) {
        std::vector<BothForms> fields = {Value(cid == 7 ? 8 : 14)};
        for (uint32_t fid : {9u, 10u, 11u, 12u, 15u, 16u, 17u, 18u, 19u, 21u, 22u, 23u, 24u, 25u, 27u, 28u, 0x12345u}) {
            if (Below(3) == 0) {
                fields.push_back(Value(fid));
            }
        }
        std::shuffle(fields.begin(), fields.end(), random_);
        return fields;
    }

    Random random_;
    std::vector<uint32_t> order_;
    std::map<uint32_t, Vs> content_;
};

Bytes OnlyMember(const std::string &path, const char *expectedName) {
    zip_t *archive = zip_open(path.c_str(), ZIP_RDONLY | ZIP_CHECKCONS, nullptr);
    zip_stat_t stat;
    EXPECT_EQ(zip_get_num_entries(archive, 0), 1);
    EXPECT_EQ(zip_stat_index(archive, 0, 0, &stat), 0);
    EXPECT_STREQ(stat.name, expectedName);
    Bytes content(stat.size);
    zip_file_t *file = zip_fopen_index(archive, 0, 0);
    EXPECT_EQ(zip_fread(file, content.data(), content.size()), static_cast<zip_int64_t>(content.size()));
    zip_fclose(file);
    zip_discard(archive);
    return content;
}

TEST(RoundTrip, RandomStores) {
    TempFolder folder;
    NothingLeaks leaks;
    const std::string plain = folder.Path("a.dat"), archive = folder.Path("a.zip"), copy = folder.Path("b.dat");
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomStore expected(seed);
        Store store = Open(2, plain);
        expected.Fill(store);
        const Bytes image = Image(expected.Body());
        ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
        ASSERT_EQ(WithoutTime(ReadFile(plain)), image);
        ASSERT_EQ(TAV_WriteExtCfgFile(archive.c_str(), store.get()), TAV_OK);
        ASSERT_EQ(WithoutTime(OnlyMember(archive, "a.zip.dat")), image);
        ASSERT_EQ(TAV_WriteExtCfgFile(archive.c_str(), store.get()), TAV_ERR_UNCHANGED);
        store.reset();
        for (const std::string &path : {plain, archive}) {
            store = Open(0, path);
            ASSERT_TRUE(store);
            expected.ExpectIn(store);
            ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
            std::remove(copy.c_str());
            ASSERT_EQ(TAV_WriteExtCfgFile(copy.c_str(), store.get()), TAV_OK);
            ASSERT_EQ(WithoutTime(ReadFile(copy)), image);
        }
    }
}

}  // namespace
