/*
 * Random stores: what the library writes is what a second, simple writer makes of the same records, plain and in an
 * archive; and it reads back the same.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "platform/bex_zip.h"
#include "store.h"

namespace {

/** One field twice: as callers give it and as the file keeps it. */
struct BothForms : Field {
    Bytes file;
};
using Fields = std::vector<BothForms>;

/** A list that keeps the order in which its ids were first used. */
template <typename Value>
struct ById : std::vector<std::pair<uint32_t, Value>> {
    Value &operator[](uint32_t id) {
        auto at = std::find_if(this->begin(), this->end(), [&](const auto &entry) { return entry.first == id; });
        return at != this->end() ? at->second : this->emplace_back(id, Value{}).second;
    }
};

class RandomStore {
  public:
    explicit RandomStore(uint32_t seed) : random_(seed) {}

    /** Fills a store with up to 60 records in up to 4 VS; remembers what must come out of it. */
    void Fill(const Store &store) {
        for (unsigned count = Below(60) + 1; count > 0; --count) {
            const uint32_t vsIds[] = {0, 1, 0xFFFFFFFF, 256}, classes[] = {7, 13, 26};
            const uint32_t vsId = vsIds[Below(4)], cid = classes[Below(3)];
            Fields fields = {Value(cid == 7 ? 8 : 14)};
            // Keys sort by length, then as bytes from the most significant on, which the file's form has first.
            const Bytes key = fields[0].file;
            for (uint32_t fid :
                 {9u, 10u, 11u, 12u, 15u, 16u, 17u, 18u, 19u, 21u, 22u, 23u, 24u, 25u, 27u, 28u, 0x12345u}) {
                if (Below(3) == 0) {
                    fields.push_back(Value(fid));
                }
            }
            std::shuffle(fields.begin(), fields.end(), random_);
            const bool isNew = content_[vsId][cid].try_emplace({key.size(), key}, fields).second;
            ASSERT_EQ(Add(store, vsId, MakeRecord(cid, {fields.begin(), fields.end()})),
                      isNew ? TAV_OK : TAV_ERR_INVALID);
        }
    }

    Bytes Body() const {
        std::vector<Bytes> body;
        for (const auto &[vsId, classes] : content_) {
            std::vector<Bytes> records;
            for (const auto &[cid, byKey] : classes) {
                for (const auto &[key, fields] : byKey) {
                    std::vector<Bytes> tlvs;
                    for (const BothForms &field : fields) {
                        tlvs.push_back(Tlv(field.fid, field.file));
                    }
                    records.push_back(Tlv(cid, tlvs));
                }
            }
            body.push_back(VsTlv(vsId, records));
        }
        return Join(body);
    }

    /** Queries every class of every VS and expects the records in key order, field by field. */
    void ExpectIn(const Store &store) const {
        for (const auto &[vsId, classes] : content_) {
            for (const auto &[cid, byKey] : classes) {
                ASSERT_EQ(TAV_ExtCfgStartQuery(vsId, MakeRecord(cid, {}).get(), store.get()), TAV_OK);
                for (const auto &[key, fields] : byKey) {
                    TAV_ExtCfgRecordNode *record = TAV_ExtCfgGetNextRecord(store.get());
                    ASSERT_NE(record, nullptr);
                    for (const BothForms &field : fields) {
                        ASSERT_EQ(ValueOf(record, field.fid), field.value) << "field " << field.fid;
                    }
                }
                ASSERT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
            }
        }
    }

  private:
    unsigned Below(unsigned limit) { return random_() % limit; }

    /** A field with a random value; texts and numbers are small half of the time, so that keys meet. */
    BothForms Value(uint32_t fid) {
        const uint32_t word = Below(2) == 0 ? Below(40) : random_();
        Bytes bytes(fid == 18 ? 16 : fid == 11 ? 1 : Below(2) == 0 ? Below(3) : Below(fid == 12 ? 434 : 255));
        std::generate(bytes.begin(), bytes.end(), std::ref(random_));
        switch (fid) {
            case 8:
            case 11:
            case 12:
            case 0x12345:  // a type of a later version: carried as it is
                return {{fid, bytes}, bytes};
            case 18:
                return {{fid, Join({{4}, Host32(word), bytes})}, Join({{4}, Be32(word), bytes})};
            case 14:
            case 19:
            case 25:
            case 27:
                return {{fid, Host32(word)}, Be32(word)};
            default:
                return {{fid, Host16(static_cast<uint16_t>(word))}, Be16(word)};
        }
    }

    Random random_;
    ById<ById<std::map<std::pair<size_t, Bytes>, Fields>>> content_;
};

using RoundTrip = FolderTest;

TEST_F(RoundTrip, RandomStores) {
    const std::string archive = folder.Path("a.zip"), copy = folder.Path("b.dat");
    for (uint32_t seed = 1; seed <= 60; ++seed) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        RandomStore expected(seed);
        Store store = Open(2, path);
        expected.Fill(store);
        const Bytes image = Image(expected.Body());
        ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
        ASSERT_EQ(WithoutTime(ReadFile(path)), image);
        ASSERT_EQ(TAV_WriteExtCfgFile(archive.c_str(), store.get()), TAV_OK);
        ASSERT_EQ(TAV_WriteExtCfgFile(archive.c_str(), store.get()), TAV_ERR_UNCHANGED);
        Bytes member(image.size());
        ASSERT_EQ(BEX_UnzipToBuffer(static_cast<uint32_t>(image.size()), member.data(), "a.zip.dat", archive.c_str()),
                  0u);
        ASSERT_EQ(WithoutTime(member), image);
        for (const std::string &each : {path, archive}) {
            store = Open(0, each);
            ASSERT_TRUE(store);
            expected.ExpectIn(store);
            ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
            remove(copy.c_str());
            ASSERT_EQ(TAV_WriteExtCfgFile(copy.c_str(), store.get()), TAV_OK);
            ASSERT_EQ(WithoutTime(ReadFile(copy)), image);
        }
    }
}

}  // namespace
