/*
 * Records, fields, classes and VS in memory: order, matching, overwriting, sizes, and what is left when memory runs
 * out.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;

int Sign(int32_t order) {
    return (order > 0) - (order < 0);
}

int CompareRecords(const Record &a, const Record &b) {
    return Sign(TAV_ExtCfgRecordCompare(FieldsOf(a.get()), FieldsOf(b.get())));
}

TEST(Model, FieldOrder) {
    const Bytes v6a = Join({{6}, Host32(9), Filled(16, 1)}), v6b = Join({{6}, Host32(1), Filled(16, 2)});
    const Bytes time9 = Join({Host16(2024), {2, 1, 0, 0, 0, 4}, Host32(9)});
    const Bytes time300 = Join({Host16(2024), {2, 1, 0, 0, 0, 4}, Host32(300)});
    // In ascending order throughout: by id, then by length whatever the content, then by value.
    const std::vector<Field> ascending = {
        {4, time9},
        {4, time300},
        {4, Join({Host16(2025), {1, 1, 0, 0, 0, 3}, Host32(0)})},
        {8, {}},
        {8, Text("z")},
        {8, Text("aa")},
        {8, Text("ab")},
        {8, Filled(2, 0xFF)},
        {8, Text("aaa")},
        {9, Host16(2)},
        {9, Host16(0x0100)},
        {9, Host16(0xFFFF)},
        {11, {1}},
        {11, {0x80}},
        {14, Host32(3)},
        {14, Host32(0x00010000)},
        {14, Host32(0x80000000)},
        {14, Host32(0xFFFFFFFF)},
        {18, Join({{4}, Host32(2), Filled(16, 9)})},
        {18, Join({{4}, Host32(256), Filled(16, 1)})},
        {18, v6a},
        {18, v6b},
        {25, Host32(1)},
        {25, Host32(256)},
    };
    Record all = MakeRecord(13, ascending);
    std::vector<const TAV_ExtCfgFieldNode *> nodes;
    const SLL_List *list = FieldsOf(all.get());
    for (const SLL_Node *node = list->head.link.next; node != &list->head.link; node = node->next) {
        nodes.push_back(reinterpret_cast<const TAV_ExtCfgFieldNode *>(node));
    }
    ASSERT_EQ(nodes.size(), ascending.size());
    for (size_t a = 0; a < nodes.size(); ++a) {
        for (size_t b = 0; b < nodes.size(); ++b) {
            EXPECT_EQ(Sign(TAV_ExtCfgFieldCompare(nodes[a], nodes[b])), (a > b) - (a < b)) << a << " and " << b;
        }
    }
    EXPECT_EQ(TAV_ExtCfgFieldNodeFind(list, 8), nodes[3]) << "the first one of an id";
    DebugLog log;
    EXPECT_EQ(TAV_ExtCfgFieldNodeFind(list, 5), nullptr);
    log.Expect({{"TAV_ExtCfgFieldNodeFind", "Fid 5 not found"}});
    EXPECT_EQ(TAV_ExtCfgFieldNodeFind(nullptr, 5), nullptr);
    log.Take();
    EXPECT_LT(TAV_ExtCfgFieldCompare(nullptr, nullptr), 0);
    log.Expect({{"TAV_ExtCfgFieldCompare", "Null pointer, return 0xffffffff"}});
    EXPECT_EQ(TAV_ExtCfgFieldCompare(nodes[0], nullptr), 1);
    Record unknown = MakeRecord(13, {{1000, {1}}, {1000, {2}}});
    auto *first = reinterpret_cast<const TAV_ExtCfgFieldNode *>(FieldsOf(unknown.get())->head.link.next);
    auto *second = reinterpret_cast<const TAV_ExtCfgFieldNode *>(FieldsOf(unknown.get())->tail);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgFieldCompare(first, second), 0) << "no comparer, no order";
    log.ExpectAmong({{"TAV_ExtCfgFieldCompare", "Null pointer, return 0x0"}});
}

TEST(Model, RecordOrderVerifyAndMatch) {
    EXPECT_EQ(CompareRecords(Class13(5, 1), Class13(5, 2)), 0);
    EXPECT_EQ(CompareRecords(Class13(5), Class13(7)), -1);
    EXPECT_EQ(CompareRecords(Class13(7), Class13(5)), 1);
    EXPECT_EQ(CompareRecords(Class13(7), MakeRecord(26, {{14, Host32(1)}})), -1) << "the class comes first";
    EXPECT_EQ(CompareRecords(MakeRecord(0x80000000, {}), Class13(7)), 1) << "unsigned";
    EXPECT_EQ(CompareRecords(MakeRecord(13, {}), Class13(0)), -1) << "without key, first";
    EXPECT_EQ(CompareRecords(Class13(0), MakeRecord(13, {})), 1);
    EXPECT_EQ(CompareRecords(MakeRecord(99, {{1, {1}}}), MakeRecord(99, {{2, {2}}})), 0) << "a class without key";
    EXPECT_EQ(CompareRecords(MakeRecord(7, {{8, Text("b")}}), MakeRecord(7, {{8, Text("aa")}})), -1);

    DebugLog log;
    EXPECT_EQ(TAV_ExtCfgRecordVerify(nullptr), TAV_ERR_NULL);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(7, {{9, Host16(1)}}).get()), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ExtCfgRecordVerify", "Record key field not found, cid 7, fid 8"}});
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(7, {{8, {}}}).get()), TAV_OK) << "an empty key is one";
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(99, {}).get()), TAV_OK);

    Record record = MakeRecord(13, {{14, Host32(5)}, {15, Host16(1)}, {12, Text("ab")}});
    auto matches = [&](const Record &condition) { return TAV_ExtCfgRecordMatchCond(record.get(), condition.get()); };
    EXPECT_EQ(TAV_ExtCfgRecordMatchCond(record.get(), nullptr), 1u);
    EXPECT_EQ(TAV_ExtCfgRecordMatchCond(nullptr, nullptr), 0u);
    EXPECT_EQ(matches(MakeRecord(7, {})), 1u) << "no field, no demand, whatever the class";
    EXPECT_EQ(matches(MakeRecord(7, {{12, Text("ab")}, {14, Host32(5)}})), 1u);
    EXPECT_EQ(matches(MakeRecord(13, {{12, Text("ab")}, {14, Host32(6)}})), 0u);
    EXPECT_EQ(matches(MakeRecord(13, {{12, Text("abc")}})), 0u);
    EXPECT_EQ(matches(MakeRecord(13, {{16, Host16(1)}})), 0u);
}

TEST(Model, ReadingAndAddingFields) {
    NothingLeaks leaks;
    DebugLog log;
    Record record = MakeRecord(13, {{14, Host32(5)}, {12, Text("first")}, {12, Text("second")}});
    const Bytes before = Encode(record.get());
    EXPECT_EQ(before, Tlv(13, {Tlv(14, Be32(5)), Tlv(12, Text("first")), Tlv(12, Text("second"))}));
    uint8_t buffer[5] = {9, 9, 9, 9, 9};
    uint32_t length = 77;
    log.Take();
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(nullptr, 14, 5, buffer, &length), TAV_ERR_NOT_READY);
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 14, 5, nullptr, &length), TAV_ERR_NOT_READY);
    log.Expect({});
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 15, 5, buffer, &length), TAV_ERR_NOT_FOUND);
    log.ExpectAmong({{"TAV_ExtCfgRecordGetFieldValue", "Null pointer, return 0x801618"}});
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 12, 4, buffer, &length), TAV_ERR_NO_ROOM);
    log.Expect({{"TAV_ExtCfgRecordGetFieldValue", "filed len 5 over max(4)"}});
    EXPECT_EQ(Bytes(buffer, buffer + 5), Filled(5, 9));
    EXPECT_EQ(length, 77u);
    interposer::Reset();
    interposer::FailNth(Call::kMemCopy, 1);
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 12, 5, buffer, &length), TAV_ERR_COPY);
    interposer::Reset();
    EXPECT_EQ(TAV_ExtCfgRecordGetFieldValue(record.get(), 12, 5, buffer, nullptr), TAV_OK);
    EXPECT_EQ(Bytes(buffer, buffer + 5), Text("first"));

    TAV_ExtCfgRecordAddFieldValue(nullptr, 14, 4, buffer);
    TAV_ExtCfgRecordAddFieldValue(record.get(), 14, 4, nullptr);
    log.Take();
    TAV_ExtCfgRecordAddFieldValue(record.get(), 8, 255, Filled(255, 'x').data());
    log.ExpectAmong({{"TAV_ExtCfgFieldNodeCreate", "Too large for fid 8, len=255"}});
    for (Call call : {Call::kMalloc, Call::kMemCopy}) {
        interposer::Reset();
        interposer::FailNth(call, 1);
        TAV_ExtCfgRecordAddFieldValue(record.get(), 15, 2, buffer);
        interposer::Reset();
    }
    EXPECT_EQ(Encode(record.get()), before) << "a value that cannot be added leaves the record as it was";

    EXPECT_EQ(TAV_ExtCfgFieldNodeCreate(14, 5), nullptr);
    TAV_ExtCfgFieldNode *field = TAV_ExtCfgFieldNodeCreate(14, 4);
    TAV_ExtCfgRecordAddFieldNode(nullptr, field);
    TAV_ExtCfgRecordAddFieldNode(record.get(), nullptr);
    TAV_ExtCfgFieldNodeDel(nullptr, field);
    TAV_ExtCfgFieldNodeDel(record.get(), nullptr);
    TAV_ExtCfgFieldNodeFree(nullptr);
    TAV_ExtCfgFieldNodeFree(field);
    TAV_ExtCfgFieldNodeDel(record.get(), TAV_ExtCfgFieldNodeFind(FieldsOf(record.get()), 12));
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(14, Be32(5)), Tlv(12, Text("second"))}));
    for (uint32_t fid : {12u, 14u}) {
        TAV_ExtCfgFieldNodeDel(record.get(), TAV_ExtCfgFieldNodeFind(FieldsOf(record.get()), fid));
    }
    EXPECT_EQ(Encode(record.get()), Tlv(13, Bytes{}));
    TAV_ExtCfgRecordAddFieldValue(record.get(), 15, 2, Host16(7).data());
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(15, Be16(7))})) << "an emptied list can be filled again";
}

TEST(Model, Overwriting) {
    NothingLeaks leaks;
    const std::vector<Field> stored = {{14, Host32(5)}, {12, Text("0123456789")}, {15, Host16(1)}, {8, Text("n")}};
    struct Case {
        std::vector<Field> source;
        uint32_t code;
        std::vector<Bytes> after;
    };
    const Bytes key = Tlv(14, Be32(5)), text = Tlv(12, Text("0123456789")), number = Tlv(15, Be16(1)),
                name = Tlv(8, Text("n"));
    const Case cases[] = {
        {{}, TAV_OK, {key, text, number, name}},
        {{{15, Host16(9)}, {14, Host32(5)}}, TAV_OK, {key, text, Tlv(15, Be16(9)), name}},
        {{{12, Text("0123456789A")}}, TAV_OK, {key, number, name, Tlv(12, Text("0123456789A"))}},
        {{{12, {}}, {16, Host16(4)}}, TAV_OK, {key, number, name, Tlv(12, Bytes{}), Tlv(16, Be16(4))}},
        {{{8, Text("m")}, {8, Text("lo")}}, TAV_OK, {key, text, number, Tlv(8, Text("lo"))}},
    };
    for (const Case &test : cases) {
        Record target = MakeRecord(13, stored), source = MakeRecord(13, test.source);
        const Bytes sourceBefore = Encode(source.get());
        EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), source.get()), test.code);
        EXPECT_EQ(Encode(target.get()), Tlv(13, test.after));
        EXPECT_EQ(Encode(source.get()), sourceBefore);
    }
    Record target = MakeRecord(13, stored);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(nullptr, target.get()), TAV_ERR_NULL);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), nullptr), TAV_ERR_NULL);

    // No memory for the longer text: its old field is gone already, what came before it is changed.
    Record source = MakeRecord(13, {{15, Host16(9)}, {12, Text("0123456789A")}, {8, Text("z")}});
    interposer::Reset();
    interposer::FailNth(Call::kMalloc, 1);
    EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), source.get()), TAV_ERR_NO_MEMORY);
    interposer::Reset();
    EXPECT_EQ(Encode(target.get()), Tlv(13, {key, Tlv(15, Be16(9)), name}));
    for (uint32_t nth = 1; nth <= 3; ++nth) {
        target = MakeRecord(13, stored);
        interposer::Reset();
        interposer::FailNth(Call::kMemCopy, nth);
        EXPECT_EQ(TAV_ExtCfgRecordNodeSet(target.get(), source.get()), 0xFFFFFFFF) << nth;
        interposer::Reset();
    }
}

TEST(Model, SizesAndSearches) {
    NothingLeaks leaks;
    DebugLog log;
    Store store(TAV_ExtCfgLocalCreate(0, "/nowhere/a.dat", nullptr));
    log.Take();
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), 0u);
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(store.get()), kHeadSize);
    TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeGetInstance(store.get(), 4);
    log.Expect({{"TAV_ExtCfgVsNodeFind", "VS 4 not found"}});
    EXPECT_EQ(TAV_ExtCfgVsNodeFind(store.get(), 4), vs);
    EXPECT_EQ(TAV_ExtCfgVsNodeGetInstance(store.get(), 4), vs);
    log.Expect({});
    EXPECT_EQ(TAV_ExtCfgVsNodeCalcSize(vs), 12u);
    TAV_ExtCfgClassNode *classNode = TAV_ExtCfgClassNodeGetInstance(vs, 7);
    log.Expect({{"TAV_ExtCfgClassNodeFind", "Class 7 not found"}});
    EXPECT_EQ(TAV_ExtCfgClassNodeFind(vs, 7), classNode);
    EXPECT_EQ(TAV_ExtCfgClassNodeGetInstance(vs, 7), classNode);
    EXPECT_EQ(TAV_ExtCfgVsNodeCalcSize(vs), 12u) << "an empty class takes no room";
    ASSERT_EQ(Add(store, 4, MakeRecord(7, {{8, Text("0123456789AB")}})), TAV_OK);                    // 20 bytes
    ASSERT_EQ(Add(store, 4, MakeRecord(13, {{14, Host32(1)}, {15, Host16(1)}, {12, {}}})), TAV_OK);  // 30 bytes
    EXPECT_EQ(TAV_ExtCfgVsNodeCalcSize(vs), 12u + 28 + 38);
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), 8u + 78);
    EXPECT_EQ(TAV_ExtCfgVsNodeCalcSize(nullptr), 0u);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgClassNodeFind(nullptr, 7), nullptr);
    log.Expect({{"TAV_ExtCfgClassNodeFind", "Null pointer, return 0x0"}});
    EXPECT_EQ(TAV_ExtCfgVsNodeFind(nullptr, 7), nullptr);
    log.Expect({{"TAV_ExtCfgVsNodeFind", "Invalid CfgLocal"}});
    TAV_ExtCfgVsNodeFree(TAV_ExtCfgVsNodeCreate(1));
    TAV_ExtCfgClassNodeFree(TAV_ExtCfgClassNodeCreate(1));
    TAV_ExtCfgRecordNodeFreeForRBT(TAV_ExtCfgRecordNodeCreate(1));
    TAV_ExtCfgVsNodeFree(nullptr);
    TAV_ExtCfgClassNodeFree(nullptr);
    TAV_ExtCfgRecordNodeFree(nullptr);
}

TEST(Model, CreatingAStore) {
    NothingLeaks leaks;
    DebugLog log;
    TempFolder folder;
    EXPECT_EQ(TAV_ExtCfgLocalCreate(0, nullptr, nullptr), nullptr);
    log.Expect({{"TAV_ExtCfgLocalCreate", "Null pointer, return 0x0"}});
    std::string here = std::filesystem::current_path().string();
    CfgLocal *local = TAV_ExtCfgLocalCreate(2, "cfg/x.dat", "/r.dat");
    log.Expect({{"TAV_ExtCfgLocalCreate", "Mode 2, Filename cfg/x.dat"},
                {"TAV_ExtCfgLocalCreate", "File Path " + here + "/cfg/x.dat"},
                {"TAV_ExtCfgLocalCreate", "Refer File Path /r.dat"}});
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(local), kReferHeadSize);
    TAV_ExtCfgLocalFree(local);
    log.ExpectAmong({{"TAV_ExtCfgLocalFree", "Filename " + here + "/cfg/x.dat"}});
    TAV_ExtCfgLocalFree(nullptr);
    log.Expect({{"TAV_ExtCfgLocalFree", "Invalid CfgLocal"}});

    char out[256];
    EXPECT_EQ(TAV_GetAbsPath(nullptr, out, sizeof out), TAV_ERR_NULL);
    EXPECT_EQ(TAV_GetAbsPath("a", nullptr, sizeof out), TAV_ERR_NULL);
    for (size_t length = 1; length < 300; ++length) {
        std::string path(length, 'p');
        path[0] = '/';
        EXPECT_EQ(TAV_GetAbsPath(path.c_str(), out, sizeof out), TAV_OK);
        EXPECT_EQ(out, path.substr(0, 255));
        path[0] = 'q';
        EXPECT_EQ(TAV_GetAbsPath(path.c_str(), out, sizeof out), TAV_OK);
        EXPECT_EQ(out, (here + "/" + path).substr(0, 255));
    }
}

}  // namespace
