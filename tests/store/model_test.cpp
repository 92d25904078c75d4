/*
 * Records and fields in memory: order, matching, overwriting, and what is left when memory runs out.
 */
#include <gtest/gtest.h>

#include <filesystem>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;

int Sign(int32_t order) {
    return (order > 0) - (order < 0);
}

TEST(Model, RecordOrderVerifyAndMatch) {
    auto compare = [](const Record &a, const Record &b) {
        return Sign(TAV_ExtCfgRecordCompare(FieldsOf(a.get()), FieldsOf(b.get())));
    };
    auto nameOnly = [](const char *name) { return MakeRecord(7, {{8, Text(name)}}); };
    EXPECT_EQ(compare(Class13(5, 1), Class13(5, 2)), 0);
    EXPECT_EQ(compare(nameOnly("b"), nameOnly("aa")), -1);
    EXPECT_EQ(compare(MakeRecord(99, {{1, {1}}}), MakeRecord(99, {{2, {2}}})), 0) << "a class without key";
    std::vector<Record> ascending;
    ascending.push_back(MakeRecord(13, {}));
    for (uint32_t key : {3u, 0x00010000u, 0x80000000u}) {
        ascending.push_back(Class13(key));
    }
    ascending.push_back(MakeRecord(26, {{14, Host32(1)}}));
    ascending.push_back(MakeRecord(0x80000000, {}));
    for (size_t at = 0; at + 1 < ascending.size(); ++at) {
        EXPECT_EQ(compare(ascending[at], ascending[at + 1]), -1) << at;
        EXPECT_EQ(compare(ascending[at + 1], ascending[at]), 1) << at;
    }

    DebugLog log;
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(7, {{9, Host16(1)}}).get()), TAV_ERR_INVALID);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgRecordVerify(nameOnly("").get()), TAV_OK) << "an empty key is one";
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(99, {}).get()), TAV_OK);
    EXPECT_LT(TAV_ExtCfgFieldCompare(nullptr, nullptr), 0);
    log.Expect({{"TAV_ExtCfgFieldCompare", "Null pointer, return 0xffffffff"}});
    const Record two = MakeRecord(13, {{14, Host32(2)}, {15, Host16(1)}});
    const auto *const a = TAV_ExtCfgFieldNodeFind(FieldsOf(two.get()), 14);
    const auto *const b = TAV_ExtCfgFieldNodeFind(FieldsOf(two.get()), 15);
    EXPECT_TRUE(TAV_ExtCfgFieldCompare(a, b) < 0 && TAV_ExtCfgFieldCompare(b, a) > 0) << "the fid decides first";

    Record record = MakeRecord(13, {{14, Host32(5)}, {15, Host16(1)}, {12, Text("ab")}});
    EXPECT_EQ(TAV_ExtCfgRecordMatchCond(record.get(), nullptr), 1u);
    const std::pair<std::vector<Field>, uint32_t> conditions[] = {{{}, 1},
                                                                  {{{12, Text("ab")}, {14, Host32(5)}}, 1},
                                                                  {{{12, Text("ab")}, {14, Host32(6)}}, 0},
                                                                  {{{12, Text("abc")}}, 0},
                                                                  {{{16, Host16(1)}}, 0}};
    for (const auto &[fields, matches] : conditions) {
        EXPECT_EQ(TAV_ExtCfgRecordMatchCond(record.get(), MakeRecord(7, fields).get()), matches);
    }
}

TEST(Model, ReadingAddingAndDeletingFields) {
    NothingLeaks leaks;
    DebugLog log;
    Record record = MakeRecord(13, {{14, Host32(5)}, {12, Text("first")}, {12, Text("second")}});
    const Bytes before = Encode(record.get());
    Bytes buffer = Filled(255, 9);
    uint32_t length = 77;
    auto get = [&](uint32_t fid, uint32_t size) {
        log.Take();
        return TAV_ExtCfgRecordGetFieldValue(record.get(), fid, size, buffer.data(), &length);
    };
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(nullptr, 14, 5, buffer.data(), &length), TAV_ERR_NOT_READY);
    EXPECT_EQ(get(15, 5), TAV_ERR_NOT_FOUND);
    log.ExpectAmong({{"TAV_ExtCfgRecordGetFieldValue", "Null pointer, return 0x801618"}});
    EXPECT_EQ(get(12, 4), TAV_ERR_NO_ROOM);
    log.Expect({{"TAV_ExtCfgRecordGetFieldValue", "filed len 5 over max(4)"}});
    interposer::FailNth(Call::kMemCopy, 1);
    EXPECT_EQ(get(12, 5), TAV_ERR_COPY);
    interposer::Reset();
    EXPECT_EQ(buffer, Filled(255, 9));
    EXPECT_EQ(length, 77u);
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 12, 5, buffer.data(), nullptr), TAV_OK);
    EXPECT_EQ(Slice(buffer, 0, 6), Text("first\x09"));

    TAV_ExtCfgRecordAddFieldValue(record.get(), 8, 255, buffer.data());
    log.ExpectAmong({{"TAV_ExtCfgFieldNodeCreate", "Too large for fid 8, len=255"}});
    for (Call call : {Call::kMalloc, Call::kMemCopy}) {
        interposer::FailNth(call, 1);
        TAV_ExtCfgRecordAddFieldValue(record.get(), 15, 2, buffer.data());
        interposer::Reset();
    }
    EXPECT_EQ(Encode(record.get()), before) << "a value that cannot be added leaves the record as it was";
    for (uint32_t fid : {12u, 14u, 12u}) {
        TAV_ExtCfgFieldNodeDel(record.get(), TAV_ExtCfgFieldNodeFind(FieldsOf(record.get()), fid));
    }
    EXPECT_EQ(Encode(record.get()), Tlv(13, Bytes{}));
    TAV_ExtCfgRecordAddFieldValue(record.get(), 15, 2, Host16(7).data());
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(15, Be16(7))})) << "an emptied list can be filled again";
}

TEST(Model, Overwriting) {
    NothingLeaks leaks;
    const std::vector<Field> stored = {{14, Host32(5)}, {12, Text("old")}, {15, Host16(1)}, {8, Text("n")}};
    const Bytes key = Tlv(14, Be32(5)), text = Tlv(12, Text("old")), number = Tlv(15, Be16(1)),
                name = Tlv(8, Text("n"));
    struct Case {
        std::vector<Field> source;
        std::vector<Bytes> after;
    };
    const Case cases[] = {
        {{}, {key, text, number, name}},
        {{{15, Host16(9)}, {14, Host32(5)}}, {key, text, Tlv(15, Be16(9)), name}},
        {{{12, Text("long")}}, {key, number, name, Tlv(12, Text("long"))}},
        {{{12, {}}, {16, Host16(4)}}, {key, number, name, Tlv(12, Bytes{}), Tlv(16, Be16(4))}},
        {{{8, Text("m")}, {8, Text("lo")}}, {key, text, number, Tlv(8, Text("lo"))}},
    };
    for (const Case &test : cases) {
        Record target = MakeRecord(13, stored);
        EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), MakeRecord(13, test.source).get()), TAV_OK);
        EXPECT_EQ(Encode(target.get()), Tlv(13, test.after));
    }
    // No memory for the longer text: its old field is gone already, what came before it is changed.
    Record target = MakeRecord(13, stored);
    Record source = MakeRecord(13, {{15, Host16(9)}, {12, Text("long")}, {8, Text("z")}});
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), source.get()), TAV_ERR_NO_MEMORY);
    EXPECT_EQ(Encode(target.get()), Tlv(13, {key, Tlv(15, Be16(9)), name}));
    for (uint32_t nth = 1; nth <= 3; ++nth) {
        target = MakeRecord(13, stored);
        interposer::FailNth(Call::kMemCopy, nth);
        EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), source.get()), 0xFFFFFFFF) << nth;
    }
    interposer::Reset();
}

TEST(Model, CreatingAStore) {
    NothingLeaks leaks;
    DebugLog log;
    const std::string here = std::filesystem::current_path().string();
    CfgLocal *local = TAV_ExtCfgLocalCreate(2, "cfg/x.dat", "/r.dat");
    log.Expect({{"TAV_ExtCfgLocalCreate", "Mode 2, Filename cfg/x.dat"},
                {"TAV_ExtCfgLocalCreate", "File Path " + here + "/cfg/x.dat"},
                {"TAV_ExtCfgLocalCreate", "Refer File Path /r.dat"}});
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(local), kReferHeadSize);
    TAV_ExtCfgClassNodeGetInstance(TAV_ExtCfgVsNodeGetInstance(local, 4), 7);
    log.Expect({{"TAV_ExtCfgVsNodeFind", "VS 4 not found"}, {"TAV_ExtCfgClassNodeFind", "Class 7 not found"}});
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(local), 20u) << "an empty class takes no room";
    TAV_ExtCfgLocalFree(local);
    log.Expect({{"TAV_ExtCfgLocalFree", "Filename " + here + "/cfg/x.dat"}});

    char out[256];
    for (size_t length = 1; length < 300; ++length) {
        std::string path(length, 'p');
        EXPECT_EQ(TAV_GetAbsPath(path.c_str(), out, sizeof out), TAV_OK);
        EXPECT_EQ(out, (here + "/" + path).substr(0, 255));
        path[0] = '/';
        EXPECT_EQ(TAV_GetAbsPath(path.c_str(), out, sizeof out), TAV_OK);
        EXPECT_EQ(out, path.substr(0, 255));
    }
}

}  // namespace
