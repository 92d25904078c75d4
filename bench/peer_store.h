/*
 * The store itself, through its exported interface.
 */
#ifndef TAV_BENCH_PEER_STORE_H
#define TAV_BENCH_PEER_STORE_H

#include <filesystem>
#include <optional>

#include "peer_floor.h"
#include "tav/store.h"

namespace tav::bench {

constexpr uint32_t kVs = 0;

using Node = tav::Record;

inline Store OpenStore(uint32_t mode, const std::string &path) {
    return Store::Open(path, {}, mode);
}

/** Makes a node of a record, with the fields that the filter lets through; by the C interface, which is measured. */
template <typename Record, typename Filter>
Node MakeNode(const Record &record, Filter filter) {
    Node node(Record::kClass);
    Record::Visit(record, [&](uint32_t fid, const auto &value) {
        if (filter(fid)) {
            const std::string_view bytes = BytesOf(value);
            TAV_ExtCfgRecordAddFieldValue(node.Get(), fid, static_cast<uint32_t>(bytes.size()), bytes.data());
        }
    });
    return node;
}

template <typename Record>
Node MakeKey(const Record &record) {
    return MakeNode(record, [](uint32_t fid) { return fid == Record::kKeyField; });
}

/** Returns whether a node holds the fields of a record. */
template <typename Record>
bool Holds(const TAV_ExtCfgRecordNode *node, const Record &record) {
    bool same = true;
    Record::Visit(record, [&](uint32_t fid, const auto &value) {
        char bytes[512];
        uint32_t length = 0;
        same = same && TAV_ExtCfgRecordGetFieldValue(node, fid, sizeof(bytes), bytes, &length) == TAV_OK &&
               BytesOf(value) == std::string_view(bytes, length);
    });
    return same;
}

template <typename Record>
class StoreOpener {
  public:
    explicit StoreOpener(const std::string &path) : path_(path + ".dat") {}

    void Write(const std::vector<Record> &records) const {
        const Store store = OpenStore(TAV_EXT_MODE_WRITE_ONLY, path_);
        for (const Record &record : records) {
            Node node = MakeNode(record, [](uint32_t) { return true; });
            Require(TAV_ExtCfgAddRecord(kVs, node.Get(), store.Get()) == TAV_OK, "store add");
            static_cast<void>(node.Release());  // the store's now
        }
        Require(TAV_ExtCfgFlush(store.Get()) == TAV_OK, "store flush");
    }

    void Open() { store_.emplace(OpenStore(TAV_EXT_MODE_READ_ONLY, path_)); }

    bool Check(const std::vector<Record> &records) const {
        const Record &probe = records[records.size() / 2];
        const Node key = MakeKey(probe);
        Require(TAV_ExtCfgStartQuery(kVs, key.Get(), store_->Get()) == TAV_OK, "store query");
        size_t count = 0;
        while (TAV_ExtCfgGetNextRecord(store_->Get()) != nullptr) {
            ++count;
        }
        return count == records.size() && Holds(TAV_ExtCfgGetRecord(kVs, key.Get(), store_->Get()), probe);
    }

    void Close() { store_.reset(); }

  private:
    std::string path_;
    std::optional<Store> store_;
};

template <typename Record>
class StoreGetter {
  public:
    static constexpr char kMeasure[] = "get";

    /** Opens the store and makes the keys of the records ready, in this order. */
    StoreGetter(const std::string &path, const std::vector<Record> &records)
        : store_(OpenStore(TAV_EXT_MODE_READ_ONLY, path + ".dat")) {
        for (const Record &record : records) {
            keys_.push_back(MakeKey(record));
        }
    }

    /** Gets each record and touches it. Returns the number found. */
    size_t GetAll() {
        size_t found = 0;
        for (const Node &key : keys_) {
            if (const auto *record = TAV_ExtCfgGetRecord(kVs, key.Get(), store_.Get())) {
                touched_ ^= *reinterpret_cast<const volatile uint8_t *>(record);
                ++found;
            }
        }
        return found;
    }

  private:
    Store store_;
    std::vector<Node> keys_;
    uint8_t touched_ = 0;
};

/** Makes each record's key anew, as a program does that is asked for one. */
template <typename Record>
class StoreAnewGetter {
  public:
    static constexpr char kMeasure[] = "get anew";

    StoreAnewGetter(const std::string &path, const std::vector<Record> &records)
        : store_(OpenStore(TAV_EXT_MODE_READ_ONLY, path + ".dat")), records_(records) {}

    /** Gets each record and touches it. Returns the number found. */
    size_t GetAll() {
        size_t found = 0;
        for (const Record &wanted : records_) {
            if (const auto *record = TAV_ExtCfgGetRecord(kVs, MakeKey(wanted).Get(), store_.Get())) {
                touched_ ^= *reinterpret_cast<const volatile uint8_t *>(record);
                ++found;
            }
        }
        return found;
    }

  private:
    Store store_;
    const std::vector<Record> &records_;
    uint8_t touched_ = 0;
};

/** Changes one field of one record of a copy of the file. */
template <typename Record>
class StoreFlusher {
  public:
    StoreFlusher(const std::string &path, const Record &record) : path_(path + ".flush.dat"), record_(record) {
        std::filesystem::copy_file(path + ".dat", path_);
        store_.emplace(OpenStore(TAV_EXT_MODE_READ_WRITE, path_));
    }
    ~StoreFlusher() { std::filesystem::remove(path_); }

    void Change() {
        ++(record_.*Record::kChanged);
        const Node node =
            MakeNode(record_, [](uint32_t fid) { return fid == Record::kKeyField || fid == Record::kChangedField; });
        Require(TAV_ExtCfgSetRecord(kVs, node.Get(), store_->Get()) == TAV_OK, "store set");
    }

    void Flush() const { Require(TAV_ExtCfgFlush(store_->Get()) == TAV_OK, "store flush"); }

  private:
    std::string path_;
    Record record_;
    std::optional<Store> store_;
};

}  // namespace tav::bench

#endif
