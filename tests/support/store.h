/*
 * Short ways to make and read stores and records, and the proof that nothing is left allocated.
 */
#ifndef TAV_TESTS_STORE_H
#define TAV_TESTS_STORE_H

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bytes.h"
#include "owned.h"
#include "tav_posix.h"
#include "tav_posix_bus.h"

/** One field of a record, its value in host order. */
struct Field {
    uint32_t fid;
    Bytes value;
};

Record MakeRecord(uint32_t cid, const std::vector<Field> &fields);

/** A class 13 record with its key, and a 16-bit field 15 when a value is given. */
Record Class13(uint32_t key, std::optional<uint16_t> value = std::nullopt);

/** Opens a store; `refer` may be empty. */
Store Open(uint32_t mode, const std::string &path, const std::string &refer = {});

/** Adds a record; one that is refused is freed. */
uint32_t Add(const Store &store, uint32_t vsId, Record record);

/** Returns the value of a record's field in host order; nothing when there is no such field. */
std::optional<Bytes> ValueOf(const TAV_ExtCfgRecordNode *record, uint32_t fid);

/** The body of a file that holds this store; nothing without a store. */
std::optional<Bytes> BodyOf(const Store &store);

/** The record as a TLV of the file. */
Bytes Encode(const TAV_ExtCfgRecordNode *record);

/** Returns what an ExactBlock has taken. */
struct ReturnPages {
    void *pages;
    size_t size;
    void operator()(uint8_t *block) const;
};

/** Copies bytes to where nothing behind them can be read: before a closed page, or what the sanitizer watches. */
std::unique_ptr<uint8_t[], ReturnPages> ExactBlock(const Bytes &bytes);

/** Fails the test when, as it goes, blocks of the platform's allocator or messages are left over or missing. */
class NothingLeaks {
  public:
    NothingLeaks();
    ~NothingLeaks();
    NothingLeaks(const NothingLeaks &) = delete;
    NothingLeaks &operator=(const NothingLeaks &) = delete;

  private:
    TAV_Posix_MemAccount before_;
    TAV_Posix_BusCounts messagesBefore_;
};

/** A test with a folder and the path of a file in it. It leaves no block behind, and no call failing. */
struct FolderTest : testing::Test {
    FolderTest() = default;
    ~FolderTest() override;
    NothingLeaks leaks;
    TempFolder folder;
    const std::string path = folder.Path("a.dat");
};

/** The type table as the library ships it, before start-up completed it. */
const std::vector<TAV_ExtTlvDataTypeRow> &ShippedTypeTable();

#endif
