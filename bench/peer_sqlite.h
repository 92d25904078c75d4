/*
 * The SQLite peer: an integrity check, then all rows in key order into an ordered map of structures.
 */
#ifndef TAV_BENCH_PEER_SQLITE_H
#define TAV_BENCH_PEER_SQLITE_H

#include <sqlite3.h>

#include <map>
#include <type_traits>

#include "peer_floor.h"

namespace tav::bench {

struct SqliteDeleter {
    void operator()(sqlite3 *database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt *statement) const { sqlite3_finalize(statement); }
};

/** Binds the values of a record to the parameters of a statement, in order. */
struct SqliteBinder {
    sqlite3_stmt *statement;
    int at = 0;

    void operator()(uint32_t, uint32_t value) { sqlite3_bind_int64(statement, ++at, value); }
    void operator()(uint32_t, const Address &value) {
        sqlite3_bind_blob(statement, ++at, value.data(), sizeof(value), nullptr);
    }
    void operator()(uint32_t, const std::string &value) {
        sqlite3_bind_text(statement, ++at, value.data(), static_cast<int>(value.size()), nullptr);
    }
};

/** Reads the columns of a row into a record, in order. */
struct SqliteReader {
    sqlite3_stmt *statement;
    int at = 0;

    template <typename Integer>
    void operator()(uint32_t, Integer &value) {
        value = static_cast<Integer>(sqlite3_column_int64(statement, at++));
    }
    void operator()(uint32_t, Address &value) {
        Require(sqlite3_column_bytes(statement, at) == sizeof(value), "sqlite address");
        memcpy(value.data(), sqlite3_column_blob(statement, at++), sizeof(value));
    }
    void operator()(uint32_t, std::string &value) {
        const auto *text = reinterpret_cast<const char *>(sqlite3_column_text(statement, at));
        value.assign(text, static_cast<size_t>(sqlite3_column_bytes(statement, at++)));
    }
};

template <typename Record>
class SqliteOpener {
    static constexpr bool kNumbers = std::is_same_v<Record, Record13>;
    static constexpr const char *kCreate =
        kNumbers ? "CREATE TABLE records (f14 INTEGER PRIMARY KEY, f15 INTEGER, f16 INTEGER, f17 INTEGER, f18 BLOB,"
                   " f19 INTEGER, f21 INTEGER, f24 INTEGER)"
                 : "CREATE TABLE records (f8 TEXT PRIMARY KEY, f9 INTEGER, f12 TEXT) WITHOUT ROWID";
    static constexpr const char *kInsert =
        kNumbers ? "INSERT INTO records VALUES (?, ?, ?, ?, ?, ?, ?, ?)" : "INSERT INTO records VALUES (?, ?, ?)";

  public:
    explicit SqliteOpener(const std::string &path) : path_(path + ".sqlite") {}

    void Write(const std::vector<Record> &records) {
        OpenDatabase(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        Execute(kCreate);
        Execute("BEGIN");
        {
            const Statement insert = Prepare(kInsert);
            for (const Record &record : records) {
                Record::Visit(record, SqliteBinder{insert.get()});
                Require(sqlite3_step(insert.get()) == SQLITE_DONE, "sqlite insert");
                sqlite3_reset(insert.get());
            }
        }
        Execute("COMMIT");
        database_.reset();
    }

    void Open() {
        OpenDatabase(SQLITE_OPEN_READONLY);
        const Statement check = Prepare("PRAGMA integrity_check");
        Require(sqlite3_step(check.get()) == SQLITE_ROW, "sqlite integrity check");
        sound_ = strcmp(reinterpret_cast<const char *>(sqlite3_column_text(check.get(), 0)), "ok") == 0;
        const Statement rows = Prepare("SELECT * FROM records ORDER BY 1");
        while (sqlite3_step(rows.get()) == SQLITE_ROW) {
            Record record;
            Record::Visit(record, SqliteReader{rows.get()});
            auto key = record.key;
            byKey_.emplace_hint(byKey_.end(), std::move(key), std::move(record));
        }
    }

    bool Check(const std::vector<Record> &records) const {
        const Record &probe = records[records.size() / 2];
        const auto found = byKey_.find(probe.key);
        return sound_ && byKey_.size() == records.size() && found != byKey_.end() && found->second == probe;
    }

    void Close() {
        byKey_.clear();
        database_.reset();
    }

  private:
    using Statement = std::unique_ptr<sqlite3_stmt, SqliteDeleter>;

    void OpenDatabase(int flags) {
        sqlite3 *database = nullptr;
        const int result = sqlite3_open_v2(path_.c_str(), &database, flags, nullptr);
        database_.reset(database);
        Require(result == SQLITE_OK, "sqlite open");
    }

    Statement Prepare(const char *sql) const {
        sqlite3_stmt *statement = nullptr;
        Require(sqlite3_prepare_v2(database_.get(), sql, -1, &statement, nullptr) == SQLITE_OK, "sqlite prepare");
        return Statement(statement);
    }

    void Execute(const char *sql) const {
        Require(sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) == SQLITE_OK, "sqlite execute");
    }

    std::string path_;
    std::unique_ptr<sqlite3, SqliteDeleter> database_;
    bool sound_ = false;
    std::map<decltype(Record::key), Record> byKey_;
};

}  // namespace tav::bench

#endif
