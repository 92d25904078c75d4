/*
 * The LMDB peer: gets records by key within one read transaction.
 */
#ifndef TAV_BENCH_PEER_LMDB_H
#define TAV_BENCH_PEER_LMDB_H

#include <endian.h>
#include <lmdb.h>

#include "peer_floor.h"

namespace tav::bench {

template <typename Record>
class LmdbGetter {
  public:
    static constexpr char kMeasure[] = "get";

    /** Writes a database with the records and makes their keys ready, in this order. */
    LmdbGetter(const std::string &path, const std::vector<Record> &records) : path_(path + ".lmdb") {
        Require(mdb_env_create(&environment_) == 0, "lmdb create");
        Require(mdb_env_set_mapsize(environment_, size_t{1} << 30) == 0, "lmdb map size");
        Require(mdb_env_open(environment_, path_.c_str(), MDB_NOSUBDIR, 0640) == 0, "lmdb open");
        for (const Record &record : records) {
            keys_.push_back(Encode(record.key));
        }
        Fill(records);
        Require(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader_) == 0, "lmdb reader");
    }

    LmdbGetter(const LmdbGetter &) = delete;
    LmdbGetter &operator=(const LmdbGetter &) = delete;

    ~LmdbGetter() {
        mdb_txn_abort(reader_);
        mdb_env_close(environment_);
        unlink(path_.c_str());
        unlink((path_ + "-lock").c_str());
    }

    /** Gets each record and touches it. Returns the number found. */
    size_t GetAll() {
        size_t found = 0;
        for (const std::string &text : keys_) {
            MDB_val key = Slice(text), value;
            if (mdb_get(reader_, table_, &key, &value) == 0) {
                touched_ ^= *static_cast<const volatile uint8_t *>(value.mv_data);
                ++found;
            }
        }
        return found;
    }

  private:
    // LMDB orders keys bytewise: a number stands big-endian.
    static std::string Encode(uint32_t key) {
        const uint32_t bigEndian = htobe32(key);
        return std::string(BytesOf(bigEndian));
    }
    static std::string Encode(const std::string &key) { return key; }

    static MDB_val Slice(const std::string &text) { return {text.size(), const_cast<char *>(text.data())}; }

    /** Puts the records in key order, which fills the pages best; a value is all fields one after another. */
    void Fill(const std::vector<Record> &records) {
        std::vector<size_t> order(records.size());
        std::generate(order.begin(), order.end(), [next = size_t{0}]() mutable { return next++; });
        std::sort(order.begin(), order.end(), [&](size_t a, size_t b) { return keys_[a] < keys_[b]; });
        MDB_txn *writer = nullptr;
        Require(mdb_txn_begin(environment_, nullptr, 0, &writer) == 0, "lmdb writer");
        Require(mdb_dbi_open(writer, nullptr, 0, &table_) == 0, "lmdb table");
        for (const size_t i : order) {
            std::string packed;
            Record::Visit(records[i], [&](uint32_t, const auto &value) { packed += BytesOf(value); });
            MDB_val key = Slice(keys_[i]), value = Slice(packed);
            Require(mdb_put(writer, table_, &key, &value, MDB_APPEND) == 0, "lmdb put");
        }
        Require(mdb_txn_commit(writer) == 0, "lmdb commit");
    }

    std::string path_;
    MDB_env *environment_ = nullptr;
    MDB_txn *reader_ = nullptr;
    MDB_dbi table_ = 0;
    std::vector<std::string> keys_;
    uint8_t touched_ = 0;
};

}  // namespace tav::bench

#endif
