/*
 * Opening in the three modes, the life of a query, reading by key, editing, and who owns what after a failure.
 */
#include <gtest/gtest.h>

#include <set>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"
#include "tav_extcfg_nodes.h"

namespace {

using interposer::Call;

const Bytes kGood = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(3)), Tlv(15, Be16(33))}), Tlv(13, {Tlv(14, Be32(1))})}));
/** Fails its check, for a byte lacks. */
const Bytes kBroken = Slice(kGood, 0, kGood.size() - 1);
/** Passes its check and gives a VS and a record, then fails on the second record of the same key. */
const Bytes kHalf = Image(VsTlv(0, {Tlv(13, Tlv(14, Be32(3))), Tlv(13, Tlv(14, Be32(3)))}));
/** Passes its check and fails before anything is added. */
const Bytes kNoVs = Image(Tlv(2, Tlv(13, Tlv(14, Be32(3)))));

/** A test with a file that holds kGood. The log is off: with it on, searches take no short cut. */
struct Stores : FolderTest {
    Stores() { WriteFile(path, kGood); }

    /** Queries the records of class 13 in a VS and expects just these keys, in this order. */
    static void ExpectKeys(const Store &store, uint32_t vsId, const std::vector<uint32_t> &keys) {
        ASSERT_EQ(TAV_ExtCfgStartQuery(vsId, Class13(2, 22).get(), store.get()), TAV_OK);  // which takes a copy
        for (uint32_t key : keys) {
            ASSERT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(key));
        }
        ASSERT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
    }
};
using Opening = Stores;
using Query = Stores;
using Edit = Stores;

TEST_F(Opening, EachModeWithEachKindOfFile) {
    DebugLog log;
    struct Case {
        const char *name;
        std::optional<Bytes> content;
        const char *loadCode;  // as the log shows it; null when it loads
        bool opensReadWrite;
    };
    const Case cases[] = {
        {"good", kGood, nullptr, true},
        {"missing", std::nullopt, "0x801616", true},
        {"empty", Bytes{}, "0x801614", true},
        {"corrupt", kBroken, "0x801617", true},
        {"partly loadable", kHalf, "0x801617", false},
        {"fails before its first VS", kNoVs, "0x801617", true},
    };
    for (const Case &test : cases) {
        for (uint32_t mode : {0u, 1u, 2u, 3u, 256u, 257u, 258u}) {
            SCOPED_TRACE(std::string(test.name) + " in mode " + std::to_string(mode));
            remove(path.c_str());
            if (test.content) {
                WriteFile(path, *test.content);
            }
            log.Take();
            interposer::Reset();
            Store store = Open(mode, path);
            const bool fails = mode != 2 && test.loadCode != nullptr, readOnly = mode == 1;
            EXPECT_EQ(interposer::Listed().empty(), mode == 2) << "mode 2 does not touch the file";
            ASSERT_EQ(store != nullptr, !fails || (!readOnly && test.opensReadWrite));
            EXPECT_EQ(FileExists(path), test.content.has_value());
            if (fails) {
                log.ExpectAmong(
                    {{"TAV_LoadExtCfgFile", "Load " + path + " start"},
                     {"TAV_LoadExtCfgFile", "Load " + path + " end"},
                     {"TAV_ExtCfgOpen", "Load file " + path + " failed, return " + std::string(test.loadCode)}});
            }
            if (store == nullptr) {
                continue;
            }
            if (mode != 2) {
                ExpectKeys(store, 0, fails ? std::vector<uint32_t>{} : std::vector<uint32_t>{1, 3});
            }
            EXPECT_EQ(Add(store, 8, Class13(77)), readOnly ? TAV_ERR_REFUSED : TAV_OK);
        }
        log.Take();
        const Store queried(TAV_ExtCfgOpenAndQuery(0, Class13(0).get(), path.c_str(), nullptr));
        if (test.loadCode == nullptr) {
            EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(queried.get()), 14), Host32(1));
            EXPECT_EQ(Add(queried, 0, Class13(9)), TAV_ERR_REFUSED) << "it is read-only";
        } else {
            EXPECT_EQ(queried, nullptr);
            log.ExpectAmong({{"TAV_ExtCfgOpenAndQuery", "Null pointer, return 0x0"}});
        }
    }
}

TEST_F(Query, Life) {
    DebugLog log;
    Store store = Open(0, folder.Path("new.dat")), writeOnly = Open(2, path);
    CfgLocal *local = store.get();
    /** Expects that there is no record, and what stands in the store: a condition and its VS while a query runs. */
    auto expectNone = [&](const std::string &report, uint32_t vsId, const Bytes &condition) {
        log.Take();
        EXPECT_EQ(TAV_ExtCfgGetNextRecord(local), nullptr);
        log.ExpectAmong({{"TAV_ExtCfgGetNextRecord", report}});
        EXPECT_EQ(local->queryVsId, vsId);
        EXPECT_EQ(local->queryFlag, condition.empty() ? 0 : 1);
        EXPECT_TRUE(!condition.empty() || local->queryCursor == nullptr);
        EXPECT_EQ(local->queryCondition != nullptr ? Encode(local->queryCondition) : Bytes(), condition);
    };
    const std::string notStarted = "CfgLocal query not started";
    const uint32_t none = 0xFFFFFFFF;
    for (uint32_t key : {3u, 1u, 2u}) {
        ASSERT_EQ(Add(store, 5, Class13(key, static_cast<uint16_t>(key * 11))), TAV_OK);
    }
    expectNone(notStarted, 0, {});
    EXPECT_EQ(TAV_ExtCfgGetRecord(0, MakeRecord(13, {}).get(), local), nullptr);
    log.ExpectAmong({{"TAV_ExtCfgGetRecord", "Error code 0x801617, return 0x0"}});
    EXPECT_EQ(TAV_ExtCfgEndQuery(local), TAV_OK);
    expectNone(notStarted, 0, {});
    ExpectKeys(store, 5, {1, 2, 3});
    expectNone("VS 5, Class 13 no more record", 5, Encode(Class13(2, 22).get()));
    ASSERT_EQ(Add(store, 5, Class13(9)), TAV_OK);
    EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(local), 14), Host32(9)) << "added behind the cursor";

    Record class26 = MakeRecord(26, {});
    for (uint32_t vsId : {5u, 0xFFFFFFFF}) {  // each start ends the running query
        ASSERT_EQ(TAV_ExtCfgStartQuery(vsId, class26.get(), local), TAV_OK);
        expectNone("Null pointer, return 0x0", vsId, Tlv(26, Bytes{}));
    }
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, class26.get(), local), TAV_ERR_NO_MEMORY);
    log.ExpectAmong({{"TAV_ExtCfgStartQuery", "Null pointer, return 0x801611"}});
    expectNone(notStarted, none, {});
    interposer::FailNth(Call::kMalloc, 7);  // behind store, image, VS, class and two records
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, class26.get(), path.c_str(), nullptr), nullptr);
    log.ExpectAmong({{"TAV_ExtCfgOpenAndQuery", "Start query return 0x801611, VS 0 filename " + path}});
    ExpectKeys(store, 5, {1, 2, 3, 9});
    EXPECT_EQ(TAV_ExtCfgEndQuery(local), TAV_OK);
    expectNone(notStarted, none, {});
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, nullptr, nullptr), TAV_ERR_NULL) << "the condition is looked at first";
    log.Expect({{"TAV_ExtCfgStartQuery", "Null pointer, return 0x801619"}});
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, class26.get(), writeOnly.get()), TAV_ERR_REFUSED);
    log.Expect({{"TAV_ExtCfgStartQuery", "CfgLocal is write-only mode"}});
    ExpectKeys(store, 5, {1, 2, 3, 9});  // closing with a query running frees its condition
}

/** Takes some of five records, deletes any, adds any keys: what is behind the cursor comes, and nothing else. */
TEST_F(Query, GoesOnBehindItsCursorWhateverIsDeleted) {
    for (uint32_t round = 0; round < 7 << 5 << 7; ++round) {
        const uint32_t taken = round % 7, deleted = round / 7 % 32 << 1, added = round / 7 / 32;
        const Store store(TAV_ExtCfgLocalCreate(0, "/nowhere/a.dat", nullptr));
        std::set<uint32_t> keys = {1, 2, 3, 4, 5};
        for (uint32_t key : keys) {
            ASSERT_EQ(Add(store, 0, Class13(key)), TAV_OK);
        }
        ASSERT_EQ(TAV_ExtCfgStartQuery(0, Class13(0).get(), store.get()), TAV_OK);
        for (uint32_t count = 0; count < taken; ++count) {
            TAV_ExtCfgGetNextRecord(store.get());
        }
        for (uint32_t key = 0; key < 7; ++key) {
            if ((deleted >> key & 1) != 0) {
                ASSERT_EQ(TAV_ExtCfgDelRecord(0, Class13(key).get(), store.get()), TAV_OK);
                keys.erase(key);
            }
            if ((added >> key & 1) != 0) {
                ASSERT_EQ(Add(store, 0, Class13(key)), keys.insert(key).second ? TAV_OK : TAV_ERR_INVALID);
            }
        }
        for (auto key = keys.lower_bound(taken == 0 ? 0 : std::min(taken, 5u) + 1); key != keys.end(); ++key) {
            ASSERT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(*key)) << "round " << round;
            ASSERT_EQ(TAV_ExtCfgDelRecord(0, Class13(*key).get(), store.get()), TAV_OK) << "under the cursor again";
        }
        ASSERT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr) << "round " << round;
    }
}

/** What an edit answers and reports; it is not tried when the code is TAV_OK. */
struct Answer {
    uint32_t code = TAV_OK;
    std::string report = {};
};

TEST_F(Edit, RefusalsAndMisses) {
    DebugLog log;
    const Store store = Open(0, folder.Path("new.dat")), readOnly = Open(1, path);
    EXPECT_EQ(Add(store, 1, MakeRecord(7, {{9, Host16(1)}})), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ExtCfgRecordVerify", "Record key field not found, cid 7, fid 8"}});
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), 0u) << "no VS for a record that is not verified";
    EXPECT_EQ(Add(store, 1, Class13(5, 1)), TAV_OK);
    EXPECT_EQ(Add(store, 1, MakeRecord(99, {{1000, {1}}})), TAV_OK);
    const auto body = BodyOf(store);
    const auto expect = [&](CfgLocal *local, uint32_t vsId, const Record &record, const Answer &add, const Answer &set,
                            const Answer &del) {
        const auto tried = [&](const char *function, const Answer &answer, auto edit) {
            if (answer.code != TAV_OK) {
                EXPECT_EQ(edit(vsId, record.get(), local), answer.code) << function << ": " << answer.report;
                log.ExpectAmong({{function, answer.report}});
            }
        };
        tried("TAV_ExtCfgAddRecord", add, TAV_ExtCfgAddRecord);
        tried("TAV_ExtCfgSetRecord", set, TAV_ExtCfgSetRecord);
        tried("TAV_ExtCfgDelRecord", del, TAV_ExtCfgDelRecord);
        EXPECT_EQ(BodyOf(store), body);
    };
    const Answer noStore = {TAV_ERR_INVALID, "Invalid CfgLocal"},
                 fixed = {TAV_ERR_REFUSED, "CfgLocal is readonly mode"},
                 missing = {TAV_ERR_NOT_FOUND, "Null pointer, return 0x801618"},
                 keyless = {TAV_ERR_INVALID, "Error code 0x801617, return 0x801617"},
                 null = {TAV_ERR_NULL, "Error code 0x801619, return 0x801619"},
                 taken = {TAV_ERR_INVALID, "Report error: 0x801617"};
    CfgLocal *const local = store.get();
    expect(nullptr, 0, Class13(3), noStore, noStore, noStore);
    expect(readOnly.get(), 0, Class13(3), fixed, fixed, fixed);
    expect(local, 1, nullptr, null, missing, null);
    expect(local, 1, MakeRecord(13, {}), keyless, missing, keyless);
    expect(local, 1, Class13(6), {}, missing, missing);
    expect(local, 2, Class13(5), {}, missing, missing);
    expect(local, 1, MakeRecord(26, {{14, Host32(5)}}), {}, missing, missing);
    expect(local, 1, Class13(5, 99), taken, {}, {});
    expect(local, 1, MakeRecord(99, {{1000, {2}}}), taken, {}, {});  // without key fields there is one in a VS

    EXPECT_EQ(TAV_ExtCfgDelRecord(1, MakeRecord(99, {}).get(), local), TAV_OK);
    EXPECT_EQ(TAV_ExtCfgDelRecord(1, Class13(5).get(), local), TAV_OK);
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(local), 20u) << "the VS stays";
    EXPECT_EQ(ValueOf(TAV_ExtCfgGetRecord(0, Class13(3, 1).get(), readOnly.get()), 15), Host16(33))
        << "keys alone count";
    log.Take();
    EXPECT_EQ(TAV_ExtCfgFlush(nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ExtCfgFlush(readOnly.get()), TAV_ERR_REFUSED);
    log.Expect({{"TAV_ExtCfgFlush", "Invalid CfgLocal"}, {"TAV_ExtCfgFlush", "CfgLocal is readonly mode"}});
    EXPECT_EQ(TAV_WriteExtCfgFile("a", nullptr), TAV_ERR_NULL);
    EXPECT_EQ(TAV_ExtCfgStartQuery(0, Class13(3).get(), nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(ReadFile(path), kGood);
}

TEST_F(Opening, LoadingLeavesNoPointersIntoTheImage) {
    const Record condition = Class13(3);
    for (const Bytes &content : {kGood, kBroken, kNoVs}) {
        WriteFile(path, content);
        TAV_ExtCfgFileContext context = {};
        context.recordCond = condition.get();
        EXPECT_EQ(TAV_LoadExtCfgFile(path.c_str(), &context), content == kGood ? 1u : TAV_ERR_INVALID);
        EXPECT_EQ(context.image, nullptr);
        EXPECT_EQ(context.foundValue, nullptr);
        EXPECT_EQ(context.storedChecksum, nullptr);
    }
}

TEST_F(Edit, ARecordIsItsCallersUntilItIsAdded) {
    Store store = Open(2, path);
    Record record = Class13(3);
    for (uint32_t nth = 1; nth <= 2; ++nth) {  // adding takes a VS node and a class node
        interposer::FailNth(Call::kMalloc, nth);
        EXPECT_EQ(TAV_ExtCfgAddRecord(nth, record.get(), store.get()), TAV_ERR_NO_MEMORY) << nth;
        EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(14, Be32(3))}));
    }
    TAV_ExtCfgRecordNode *added = record.get();
    ASSERT_EQ(Add(store, 0, std::move(record)), TAV_OK);
    const Store other = Open(2, path);
    DebugLog log;
    for (const auto &[vsId, local] : {std::pair{0u, store.get()}, {7u, store.get()}, {0u, other.get()}}) {
        EXPECT_EQ(TAV_ExtCfgAddRecord(vsId, added, local), TAV_ERR_INVALID) << "it is in a store already";
        log.ExpectAmong({{"TAV_ExtCfgAddRecord", "Record is in a store already, cid 13"},
                         {"TAV_ExtCfgAddRecord", "Report error: 0x801617"}});
    }
    Record twin = Class13(3);
    EXPECT_EQ(TAV_ExtCfgAddRecord(0, twin.get(), store.get()), TAV_ERR_INVALID);
    EXPECT_EQ(Add(store, 7, std::move(twin)), TAV_OK) << "a record that was refused is in no store";
}

TEST_F(Edit, WhatAQueryHasKeptIsNotTakenTwice) {
    for (const bool asCondition : {false, true}) {
        const Store store = Open(0, "/nowhere/a.dat");
        ASSERT_EQ(Add(store, 0, Class13(1)), TAV_OK);
        ASSERT_EQ(Add(store, 0, Class13(2)), TAV_OK);
        ASSERT_EQ(TAV_ExtCfgStartQuery(0, Class13(0).get(), store.get()), TAV_OK);
        TAV_ExtCfgRecordNode *kept = TAV_ExtCfgGetNextRecord(store.get());
        ASSERT_EQ(TAV_ExtCfgDelRecord(0, kept, store.get()), TAV_OK);
        if (asCondition) {
            EXPECT_EQ(TAV_ExtCfgStartQuery(0, kept, store.get()), TAV_OK);
        } else {
            EXPECT_EQ(TAV_ExtCfgAddRecord(1, kept, store.get()), TAV_ERR_INVALID);
        }
        EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(2));
    }
}

TEST_F(Edit, ARecordSetFromItselfStaysAsItIs) {
    const Record record = MakeRecord(13, {{14, Host32(3)}, {15, Host16(2)}, {15, {9}}, {15, Host16(2)}});
    const Bytes before = Encode(record.get());
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(record.get(), record.get()), TAV_OK);
    EXPECT_EQ(Encode(record.get()), before);
}

TEST_F(Edit, AKeyGivenTwiceChangesNothing) {
    const Bytes image = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(3)), Tlv(15, Be16(33))})}));
    WriteFile(path, image);
    const Store store = Open(0, path);
    const Record twice = MakeRecord(13, {{15, Host16(9)}, {14, Host32(3)}, {14, Host32(1)}});
    EXPECT_EQ(TAV_ExtCfgSetRecord(0, twice.get(), store.get()), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
    EXPECT_EQ(TAV_ExtCfgSetRecord(1, twice.get(), store.get()), TAV_ERR_NOT_FOUND) << "the look-up comes first";
    EXPECT_EQ(TAV_ExtCfgSetRecordToFile(0, twice.get(), path.c_str(), nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(ReadFile(path), image);
    EXPECT_EQ(Encode(twice.get()), Tlv(13, {Tlv(15, Be16(9)), Tlv(14, Be32(3)), Tlv(14, Be32(1))})) << "none consumed";
}

}  // namespace
