/*
 * Opening in the three modes, the life of a query, reading by key, editing, and who owns what after a failure.
 */
#include <gtest/gtest.h>

#include <map>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;

const Bytes kGood = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(3)), Tlv(15, Be16(33))}), Tlv(13, {Tlv(14, Be32(1))})}));
const Bytes kBroken = [] {
    Bytes image = kGood;
    image.back() ^= 1;
    return image;
}();
/** Passes its check and gives a VS and a record, then fails on the second record of the same key. */
const Bytes kHalf = Image(VsTlv(0, {Tlv(13, Tlv(14, Be32(3))), Tlv(13, Tlv(14, Be32(3)))}));
/** Passes its check and fails before anything is added. */
const Bytes kNoVs = Image(Tlv(2, Tlv(13, Tlv(14, Be32(3)))));

TEST(Open, EachModeWithEachKindOfFile) {
    NothingLeaks leaks;
    TempFolder folder;
    const std::string path = folder.Path("a.dat");
    struct Case {
        const char *name;
        std::optional<Bytes> content;
        uint32_t loadCode;
        uint32_t recordsReadWrite;  // 99: the open gives none
    };
    const Case cases[] = {
        {"good", kGood, TAV_OK, 2},
        {"missing", std::nullopt, TAV_ERR_OPEN, 0},
        {"empty", Bytes{}, TAV_ERR_READ, 0},
        {"corrupt", kBroken, TAV_ERR_INVALID, 0},
        {"partly loadable", kHalf, TAV_ERR_INVALID, 99},
        {"fails before its first VS", kNoVs, TAV_ERR_INVALID, 0},
    };
    DebugLog log;
    Record any = MakeRecord(13, {});
    auto count = [&](const Store &store) {
        uint32_t records = 0;
        EXPECT_EQ(TAV_ExtCfgStartQuery(0, any.get(), store.get()), TAV_OK);
        while (TAV_ExtCfgGetNextRecord(store.get()) != nullptr) {
            ++records;
        }
        return records;
    };
    for (const Case &test : cases) {
        SCOPED_TRACE(test.name);
        if (test.content) {
            WriteFile(path, *test.content);
        } else {
            std::remove(path.c_str());
        }
        char code[16];
        std::snprintf(code, sizeof code, "0x%x", test.loadCode);
        LogEntry failed{"TAV_ExtCfgOpen", "Load file " + path + " failed, return " + code};
        for (uint32_t mode : {0u, 1u, 2u, 3u}) {
            log.Take();
            interposer::Reset();
            Store store = Open(mode, path);
            bool loads = mode != 2;
            bool readOnly = mode == 1;
            EXPECT_EQ(!interposer::Listed().empty(), loads) << "mode 2 does not touch the file";
            bool opened = test.loadCode == TAV_OK || mode == 2 || (!readOnly && test.recordsReadWrite != 99);
            EXPECT_EQ(static_cast<bool>(store), opened) << "mode " << mode;
            if (loads && test.loadCode != TAV_OK) {
                log.ExpectAmong({{"TAV_LoadExtCfgFile", "Load " + path + " start"},
                                 {"TAV_LoadExtCfgFile", "Load " + path + " end"},
                                 failed});
            }
            if (store && loads) {
                EXPECT_EQ(count(store), test.recordsReadWrite);
            }
            uint32_t edit = store ? Add(store, 8, Class13(77)) : TAV_OK;
            EXPECT_EQ(edit, readOnly && store ? TAV_ERR_REFUSED : TAV_OK);
        }
        EXPECT_EQ(FileExists(path), test.content.has_value());
    }
    EXPECT_EQ(TAV_ExtCfgOpen(0, nullptr, nullptr), nullptr);
    EXPECT_EQ(TAV_LoadExtCfgFile(nullptr, nullptr), TAV_ERR_NULL);
}

TEST(Query, Life) {
    NothingLeaks leaks;
    TempFolder folder;
    DebugLog log;
    Store store = Open(0, folder.Path("a.dat"));
    for (uint32_t key : {3u, 1u, 2u}) {
        ASSERT_EQ(Add(store, 5, Class13(key, static_cast<uint16_t>(key * 11))), TAV_OK);
    }
    Record condition = Class13(2, 22);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
    log.Expect({{"TAV_ExtCfgGetNextRecord", "CfgLocal query not started"}});
    EXPECT_EQ(TAV_ExtCfgEndQuery(store.get()), TAV_OK);
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, nullptr, store.get()), TAV_ERR_NULL);
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, condition.get(), nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(nullptr), nullptr);
    EXPECT_EQ(TAV_ExtCfgEndQuery(nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ExtCfgClose(nullptr), TAV_ERR_INVALID);
    LogEntry invalid{"TAV_ExtCfgStartQuery", "Invalid CfgLocal"};
    log.Expect({{"TAV_ExtCfgStartQuery", "Null pointer, return 0x801619"},
                invalid,
                {"TAV_ExtCfgGetNextRecord", "Invalid CfgLocal"},
                {"TAV_ExtCfgEndQuery", "Invalid CfgLocal"},
                {"TAV_ExtCfgClose", "Invalid CfgLocal"}});

    ASSERT_EQ(TAV_ExtCfgStartQuery(5, condition.get(), store.get()), TAV_OK);
    condition.reset();  // the store has its own copy
    for (uint32_t key : {1u, 2u, 3u}) {
        EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(key))
            << "fields of the condition are not matched";
    }
    for (int again = 0; again < 3; ++again) {
        log.Take();
        EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
        log.ExpectAmong({{"TAV_ExtCfgGetNextRecord", "VS 5, Class 13 no more record"}});
    }
    ASSERT_EQ(Add(store, 5, Class13(9)), TAV_OK);
    EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(9)) << "added behind the cursor";

    Record class26 = MakeRecord(26, {});
    ASSERT_EQ(TAV_ExtCfgStartQuery(5, class26.get(), store.get()), TAV_OK) << "ends the running one";
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
    ASSERT_EQ(TAV_ExtCfgStartQuery(0xFFFFFFFF, class26.get(), store.get()), TAV_OK);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
    log.ExpectAmong(
        {{"TAV_ExtCfgVsNodeFind", "VS -1 not found"}, {"TAV_ExtCfgGetNextRecord", "Null pointer, return 0x0"}});
    EXPECT_EQ(TAV_ExtCfgEndQuery(store.get()), TAV_OK);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
    log.Expect({{"TAV_ExtCfgGetNextRecord", "CfgLocal query not started"}});

    Store writeOnly = Open(2, folder.Path("b.dat"));
    log.Take();
    EXPECT_EQ(TAV_ExtCfgStartQuery(5, class26.get(), writeOnly.get()), TAV_ERR_REFUSED);
    log.Expect({{"TAV_ExtCfgStartQuery", "CfgLocal is write-only mode"}});
    ASSERT_EQ(TAV_ExtCfgStartQuery(5, class26.get(), store.get()), TAV_OK);
    // Closing with the query running frees its condition: the leak check at the end sees to it.
}

TEST(Query, OpenAndQuery) {
    NothingLeaks leaks;
    TempFolder folder;
    DebugLog log;
    WriteFile(folder.Path("a.dat"), kGood);
    WriteFile(folder.Path("b.dat"), kBroken);
    Record any = MakeRecord(13, {});
    Store store(TAV_ExtCfgOpenAndQuery(0, any.get(), folder.Path("a.dat").c_str(), nullptr));
    ASSERT_TRUE(store);
    EXPECT_EQ(ValueOf(TAV_ExtCfgGetNextRecord(store.get()), 14), Host32(1));
    EXPECT_EQ(Add(store, 0, Class13(9)), TAV_ERR_REFUSED) << "it is read-only";
    LogEntry null{"TAV_ExtCfgOpenAndQuery", "Null pointer, return 0x0"};
    for (const char *file : {"b.dat", "missing.dat"}) {
        log.Take();
        EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, any.get(), folder.Path(file).c_str(), nullptr), nullptr);
        log.ExpectAmong({null});
    }
    log.Take();
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, nullptr, "a", nullptr), nullptr);
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, any.get(), nullptr, nullptr), nullptr);
    log.Expect({null, null});
    // The last allocation of a good open and query is the copy of the condition.
    interposer::Reset();
    store.reset(TAV_ExtCfgOpenAndQuery(0, any.get(), folder.Path("a.dat").c_str(), nullptr));
    interposer::FailNth(Call::kMalloc, interposer::Count(Call::kMalloc));
    log.Take();
    EXPECT_EQ(TAV_ExtCfgOpenAndQuery(0, any.get(), folder.Path("a.dat").c_str(), nullptr), nullptr);
    log.ExpectAmong({{"TAV_ExtCfgOpenAndQuery", "Start query return 0x801611, VS 0 filename " + folder.Path("a.dat")}});
    interposer::Reset();
}

TEST(Edit, GetSetAddDelete) {
    NothingLeaks leaks;
    DebugLog log;
    for (uint32_t mode : {0u, 2u}) {
        TempFolder folder;
        Store store = Open(mode, folder.Path("a.dat"));
        CfgLocal *local = store.get();
        Record keyless = MakeRecord(7, {{9, Host16(1)}});
        log.Take();
        EXPECT_EQ(TAV_ExtCfgAddRecord(1, keyless.get(), local), TAV_ERR_INVALID);
        log.ExpectAmong({{"TAV_ExtCfgRecordVerify", "Record key field not found, cid 7, fid 8"},
                         {"TAV_ExtCfgAddRecord", "Error code 0x801617, return 0x801617"}});
        EXPECT_EQ(TAV_CalcExtCfgFileBodySize(local), 0u) << "no VS for a record that is not verified";
        EXPECT_EQ(TAV_ExtCfgAddRecord(1, nullptr, local), TAV_ERR_NULL);

        ASSERT_EQ(Add(store, 1, MakeRecord(13, {{14, Host32(5)}, {12, Text("abc")}, {15, Host16(1)}})), TAV_OK);
        log.Take();
        EXPECT_EQ(Add(store, 1, Class13(5, 99)), TAV_ERR_INVALID);
        log.ExpectAmong({{"TAV_ExtCfgAddRecord", "Report error: 0x801617"}});
        Record key = Class13(5, 12345);
        TAV_ExtCfgRecordNode *stored = TAV_ExtCfgGetRecord(1, key.get(), local);
        ASSERT_NE(stored, nullptr) << "fields beside the key are ignored";
        EXPECT_EQ(ValueOf(stored, 15), Host16(1));
        // A class without key fields holds one record per VS.
        EXPECT_EQ(Add(store, 1, MakeRecord(99, {{1000, {1}}})), TAV_OK);
        EXPECT_EQ(Add(store, 1, MakeRecord(99, {{1000, {2}}})), TAV_ERR_INVALID);

        Record change = MakeRecord(13, {{14, Host32(5)}, {12, Text("xyz")}});
        EXPECT_EQ(TAV_ExtCfgSetRecord(1, change.get(), local), TAV_OK);
        EXPECT_EQ(Encode(stored), Tlv(13, {Tlv(14, Be32(5)), Tlv(12, Text("xyz")), Tlv(15, Be16(1))}));
        change = MakeRecord(13, {{14, Host32(5)}, {12, Text("wxyz")}});
        EXPECT_EQ(TAV_ExtCfgSetRecord(1, change.get(), local), TAV_OK);
        EXPECT_EQ(Encode(stored), Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(1)), Tlv(12, Text("wxyz"))}));

        const uint32_t size = TAV_CalcExtCfgFileBodySize(local);
        struct Miss {
            uint32_t vsId;
            Record record;
            uint32_t deleteCode;
        };
        std::vector<Miss> misses;
        misses.push_back({1, Class13(6), TAV_ERR_NOT_FOUND});
        misses.push_back({2, Class13(5), TAV_ERR_NOT_FOUND});
        misses.push_back({1, MakeRecord(26, {{14, Host32(5)}}), TAV_ERR_NOT_FOUND});
        misses.push_back({1, MakeRecord(13, {{15, Host16(1)}}), TAV_ERR_INVALID});
        misses.push_back({1, nullptr, TAV_ERR_NULL});
        for (const Miss &miss : misses) {
            bool verified = miss.deleteCode == TAV_ERR_NOT_FOUND;
            char code[16];
            std::snprintf(code, sizeof code, "0x%x", miss.deleteCode);
            log.Take();
            EXPECT_EQ(TAV_ExtCfgGetRecord(miss.vsId, miss.record.get(), local), nullptr);
            LogEntry notGot{"TAV_ExtCfgGetRecord", verified ? std::string("Null pointer, return 0x0")
                                                            : std::string("Error code ") + code + ", return 0x0"};
            log.ExpectAmong({notGot});
            EXPECT_EQ(TAV_ExtCfgSetRecord(miss.vsId, miss.record.get(), local), TAV_ERR_NOT_FOUND);
            log.ExpectAmong({notGot, {"TAV_ExtCfgSetRecord", "Null pointer, return 0x801618"}});
            EXPECT_EQ(TAV_ExtCfgDelRecord(miss.vsId, miss.record.get(), local), miss.deleteCode);
            log.ExpectAmong(
                {{"TAV_ExtCfgDelRecord", verified ? std::string("Null pointer, return 0x801618")
                                                  : std::string("Error code ") + code + ", return " + code}});
        }
        EXPECT_EQ(TAV_CalcExtCfgFileBodySize(local), size) << "a miss creates nothing";

        EXPECT_EQ(TAV_ExtCfgDelRecord(1, key.get(), local), TAV_OK);
        EXPECT_EQ(TAV_ExtCfgGetRecord(1, key.get(), local), nullptr);
        EXPECT_EQ(TAV_ExtCfgDelRecord(1, key.get(), local), TAV_ERR_NOT_FOUND);
        EXPECT_EQ(TAV_ExtCfgDelRecord(1, MakeRecord(99, {}).get(), local), TAV_OK);
        EXPECT_EQ(TAV_CalcExtCfgFileBodySize(local), 20u) << "the VS stays";
        EXPECT_EQ(Add(store, 1, Class13(5)), TAV_OK) << "the key is free again";
    }
}

TEST(Edit, AgreesWithAMapUnderRandomEdits) {
    NothingLeaks leaks;
    TempFolder folder;
    Store store = Open(0, folder.Path("a.dat"));
    Record any = MakeRecord(13, {});
    std::map<uint32_t, uint16_t> model;
    Random random(5);
    for (unsigned step = 0; step < 5000; ++step) {
        const uint32_t key = random() % 50;
        const auto value = static_cast<uint16_t>(random());
        Record record = Class13(key, value);
        const bool known = model.count(key) > 0;
        switch (random() % 4) {
            case 0:
            case 1:
                ASSERT_EQ(Add(store, 0, std::move(record)), known ? TAV_ERR_INVALID : TAV_OK);
                model.emplace(key, value);
                break;
            case 2:
                ASSERT_EQ(TAV_ExtCfgDelRecord(0, record.get(), store.get()), known ? TAV_OK : TAV_ERR_NOT_FOUND);
                model.erase(key);
                break;
            default:
                ASSERT_EQ(TAV_ExtCfgSetRecord(0, record.get(), store.get()), known ? TAV_OK : TAV_ERR_NOT_FOUND);
                if (known) {
                    model[key] = value;
                }
        }
        if (step % 20 != 0) {
            continue;
        }
        ASSERT_EQ(TAV_ExtCfgStartQuery(0, any.get(), store.get()), TAV_OK);
        for (const auto &[knownKey, knownValue] : model) {
            TAV_ExtCfgRecordNode *stored = TAV_ExtCfgGetNextRecord(store.get());
            ASSERT_NE(stored, nullptr);
            ASSERT_EQ(ValueOf(stored, 14), Host32(knownKey)) << "step " << step;
            ASSERT_EQ(ValueOf(stored, 15), Host16(knownValue));
        }
        ASSERT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr);
        ASSERT_EQ(TAV_ExtCfgEndQuery(store.get()), TAV_OK);
    }
}

TEST(Edit, RefusedStores) {
    NothingLeaks leaks;
    TempFolder folder;
    WriteFile(folder.Path("a.dat"), kGood);
    DebugLog log;
    Store store = Open(1, folder.Path("a.dat"));
    Record record = Class13(3, 1);
    for (const auto &[function, call] : {std::pair("TAV_ExtCfgSetRecord", &TAV_ExtCfgSetRecord),
                                         std::pair("TAV_ExtCfgDelRecord", &TAV_ExtCfgDelRecord)}) {
        log.Take();
        EXPECT_EQ(call(0, record.get(), store.get()), TAV_ERR_REFUSED);
        log.Expect({{function, "CfgLocal is readonly mode"}});
        EXPECT_EQ(call(0, record.get(), nullptr), TAV_ERR_INVALID);
        log.Expect({{function, "Invalid CfgLocal"}});
    }
    EXPECT_EQ(TAV_ExtCfgAddRecord(0, record.get(), store.get()), TAV_ERR_REFUSED);
    log.Expect({{"TAV_ExtCfgAddRecord", "CfgLocal is readonly mode"}});
    EXPECT_EQ(TAV_ExtCfgAddRecord(0, record.get(), nullptr), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ExtCfgGetRecord(0, record.get(), nullptr), nullptr);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_REFUSED);
    log.Expect({{"TAV_ExtCfgFlush", "CfgLocal is readonly mode"}});
    EXPECT_EQ(TAV_ExtCfgFlush(nullptr), TAV_ERR_INVALID);
    log.Expect({{"TAV_ExtCfgFlush", "Invalid CfgLocal"}});
    EXPECT_EQ(TAV_WriteExtCfgFile("a.dat", nullptr), TAV_ERR_NULL);
    EXPECT_EQ(TAV_WriteExtCfgFile(nullptr, store.get()), TAV_ERR_NULL);
    log.Expect({{"TAV_WriteExtCfgFile", "Invalid CfgLocal"}, {"TAV_WriteExtCfgFile", "Null pointer, return 0x801619"}});
    EXPECT_EQ(ReadFile(folder.Path("a.dat")), kGood);
    EXPECT_EQ(ValueOf(TAV_ExtCfgGetRecord(0, record.get(), store.get()), 15), Host16(33));
}

TEST(Edit, AllocationsFailingInTurn) {
    TempFolder folder;
    const std::string path = folder.Path("a.dat");
    WriteFile(path, kGood);
    // Opening needs the store, the buffer, and a block for each VS, class, record and field. Without the store there is
    // nothing; a read-write open that fails before its first VS starts empty.
    const uint32_t needed = 1 + 1 + 1 + 1 + 2 + 3;
    for (uint32_t mode : {0u, 1u}) {
        for (uint32_t nth = 1; nth <= needed + 1; ++nth) {
            NothingLeaks leaks;
            interposer::Reset();
            interposer::FailNth(Call::kMalloc, nth);
            Store store = Open(mode, path);
            interposer::Reset();
            bool startsEmpty = mode == 0 && (nth == 2 || nth == 3);
            EXPECT_EQ(static_cast<bool>(store), nth > needed || startsEmpty) << "mode " << mode << " block " << nth;
            if (store) {
                EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), startsEmpty ? 0u : kGood.size() - kHeadSize);
            }
        }
    }
    NothingLeaks leaks;
    Store store = Open(0, path);
    uint32_t vsId = 100;
    // Adding takes a VS node and a class node; the record is the caller's until then.
    for (uint32_t nth = 1; nth <= 3; ++nth) {
        Record record = Class13(1);
        interposer::Reset();
        interposer::FailNth(Call::kMalloc, nth);
        uint32_t code = TAV_ExtCfgAddRecord(vsId, record.get(), store.get());
        interposer::Reset();
        if (nth <= 2) {
            EXPECT_EQ(code, TAV_ERR_NO_MEMORY) << nth;
            EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(14, Be32(1))}));
            ++vsId;
        } else {
            EXPECT_EQ(code, TAV_OK);
            (void)record.release();
        }
    }
    Record condition = Class13(1, 2);
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(TAV_ExtCfgStartQuery(0, condition.get(), store.get()), TAV_ERR_NO_MEMORY);
    interposer::Reset();
    EXPECT_EQ(TAV_ExtCfgGetNextRecord(store.get()), nullptr) << "the query did not start";
    Record longer = MakeRecord(13, {{14, Host32(3)}, {12, Text("new")}});
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(TAV_ExtCfgSetRecord(0, longer.get(), store.get()), TAV_ERR_NO_MEMORY);
    interposer::Reset();
    EXPECT_EQ(TAV_ExtCfgSetRecord(0, longer.get(), store.get()), TAV_OK);
}

}  // namespace
