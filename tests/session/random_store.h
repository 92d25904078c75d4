/*
 * Random stores of everything that a file can hold, and what tells them apart.
 */
#ifndef TAV_TESTS_SESSION_RANDOM_STORE_H
#define TAV_TESTS_SESSION_RANDOM_STORE_H

#include <gmock/gmock.h>

#include <set>

#include "bytes.h"
#include "tav/json.h"
#include "tav/store.h"
#include "tav_posix.h"

/** The code and the text of the Error that a call throws; fails when it throws none. */
template <typename Call>
std::pair<uint32_t, std::string> ErrorOf(Call call) {
    try {
        call();
    } catch (const tav::Error &error) {
        return {error.Code(), error.what()};
    }
    ADD_FAILURE() << "nothing was thrown";
    return {};
}

/** The body of a store's file. */
inline Bytes BodyOf(const tav::Store &store) {
    Bytes body(TAV_CalcExtCfgFileBodySize(store.Get()));
    EXPECT_EQ(TAV_BuildExtCfgFileBody(store.Get(), body.data(), static_cast<uint32_t>(body.size())),
              body.empty() ? TAV_ERR_NULL : TAV_OK);
    return body;
}

/** The virtual systems and records of a store, whatever the order of virtual systems and classes. */
inline std::multiset<std::string> ContentOf(const tav::Store &store) {
    std::multiset<std::string> lines;
    for (const tav::VsView vs : store) {
        lines.insert("VS " + std::to_string(vs.Id()));
        for (const tav::ClassView records : vs) {
            for (const tav::RecordView record : records) {
                std::string line = std::to_string(vs.Id()) + " " + std::to_string(record.Cid());
                for (const tav::FieldView field : record) {
                    line += " " + std::to_string(field.Id()) + "=" + testing::PrintToString(field.Text());
                }
                lines.insert(line);
            }
        }
    }
    return lines;
}

/** Makes stores and records at random, the same ones on every machine. */
class Maker {
  public:
    explicit Maker(uint32_t seed) : random_(seed) {}

    uint32_t Below(uint32_t limit) { return random_() % limit; }

    /** A value for any field: of the type's full length every other time, many of its bytes small, few of them many. */
    std::string Value(uint32_t fid) {
        const size_t limit = std::min<size_t>(TAV_GetExtTlvDataLen(fid), 24);
        std::string value(Below(2) == 0 ? limit : Below(static_cast<uint32_t>(limit) + 1), '\0');
        for (char &byte : value) {
            byte = static_cast<char>(Below(3) == 0 ? random_() : "\4\6\0ab \"#\\=\n"[Below(11)]);
        }
        return value;
    }

    /** A record of any class, its key one of a few. */
    tav::Record Record() {
        const auto [cid, key] = kClasses[Below(std::size(kClasses))];
        std::vector<uint32_t> fids(Below(6));
        for (uint32_t &fid : fids) {
            fid = Below(20) == 0 ? random_() : Below(30);
        }
        fids.push_back(key);
        std::rotate(fids.begin(), fids.begin() + Below(static_cast<uint32_t>(fids.size())), fids.end());
        tav::Record record(cid);
        for (const uint32_t fid : fids) {
            if (fid == key && !record.View().Find(key)) {
                const std::string value(cid == 7 ? 1 : 4, static_cast<char>(Below(12)));
                record.Add(key, tav::Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
            } else {
                Append(&record, fid);
            }
        }
        return record;
    }

    void Append(tav::Record *record, uint32_t fid) {
        const std::string value = Value(fid);
        record->Add(fid, tav::Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
    }

    tav::Store Store() {
        tav::Store store = tav::Store::New("/random.dat");
        for (uint32_t systems = Below(4) + 1; systems > 0; --systems) {
            const uint32_t vsId = Below(4) * 7;
            store.AddVs(vsId);
            for (uint32_t records = Below(3) == 0 ? 0 : Below(24); records > 0; --records) {
                AddOrDrop(&store, vsId, Record());
            }
        }
        return store;
    }

    /** A copy with a few records more, fewer, or with other fields, and perhaps a virtual system less. */
    tav::Store Changed(const tav::Store &store) {
        tav::Store copy = tav::Store::New("/changed.dat");
        for (const tav::VsView vs : store) {
            if (Below(8) != 0) {
                copy.AddVs(vs.Id());
                for (const tav::ClassView records : vs) {
                    for (const tav::RecordView record : records) {
                        CopyRecord(&copy, vs.Id(), record);
                    }
                }
                AddOrDrop(&copy, vs.Id(), Record());
            }
        }
        return copy;
    }

  private:
    static constexpr std::pair<uint32_t, uint32_t> kClasses[] = {{1, 0}, {2, 6}, {7, 8}, {13, 14}, {26, 14}};

    static void AddOrDrop(tav::Store *store, uint32_t vsId, tav::Record record) {
        if (!store->Find(vsId, record)) {
            store->Add(vsId, std::move(record));
        }
    }

    void CopyRecord(tav::Store *store, uint32_t vsId, tav::RecordView record) {
        tav::Record copy(record.Cid());
        for (const tav::FieldView field : record) {
            const bool isKey = !tav::KeyFields(record.Cid()).empty() && field.Id() == tav::KeyFields(record.Cid())[0];
            const uint32_t luck = isKey ? 9 : Below(10);  // 0 drops a field, 1 changes it
            if (luck == 1) {
                Append(&copy, field.Id());
            } else if (luck != 0) {
                copy.Add(field.Id(), field.Value());
            }
        }
        if (Below(4) == 0) {
            Append(&copy, Below(30));
        }
        if (copy.View().FieldCount() > 0) {
            AddOrDrop(store, vsId, std::move(copy));
        }
    }

    Random random_;
};

#endif
