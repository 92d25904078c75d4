/*
 * Records and fields in memory: order, matching, overwriting, and what is left when memory runs out.
 */
#include <gtest/gtest.h>

#include <filesystem>
#include <map>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"
#include "tav_extcfg_nodes.h"

namespace {

using interposer::Call;

using Model = FolderTest;

int Sign(int32_t order) {
    return (order > 0) - (order < 0);
}

TEST_F(Model, RecordOrderVerifyAndMatch) {
    auto compare = [](const Record &a, const Record &b) {
        return Sign(TAV_ExtCfgRecordCompare(&a->fields, &b->fields));
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
    for (const size_t without : {0u, 1u}) {  // the one or the other has no key field
        compare(ascending[without], ascending[1 - without]);
        log.ExpectAmong({{"TAV_ExtCfgRecordCompare",
                          without == 0 ? "Null pointer, return 0xffffffff" : "Null pointer, return 0x1"}});
    }
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(7, {{9, Host16(1)}}).get()), TAV_ERR_INVALID);
    log.Take();
    EXPECT_EQ(TAV_ExtCfgRecordVerify(nameOnly("").get()), TAV_OK) << "an empty key is one";
    EXPECT_EQ(TAV_ExtCfgRecordVerify(MakeRecord(99, {}).get()), TAV_OK);
    // Fields are ordered by id, length and value; of a type without comparer, values of one length are equal.
    const Record rising =
        MakeRecord(13, {{14, Host32(2)}, {14, Host32(0x100)}, {15, Host16(1)}, {99, {9}}, {99, {8}}, {99, {7, 7}}});
    std::vector<const TAV_ExtCfgFieldNode *> fields = {nullptr, TAV_ExtCfgRecordFirstField(rising.get())};
    while (const TAV_ExtCfgFieldNode *const next = TAV_ExtCfgRecordNextField(rising.get(), fields.back())) {
        fields.push_back(next);
    }
    for (size_t i = 0; i < fields.size(); ++i) {
        for (size_t j = 0; j < fields.size(); ++j) {
            const bool isOpen = i > 3 && j > 3 && (i < 6) == (j < 6);
            const int order = i == 0 ? -1 : isOpen || i == j ? 0 : i < j ? -1 : 1;
            EXPECT_EQ(Sign(TAV_ExtCfgFieldCompare(fields[i], fields[j])), order) << i << " " << j;
            const std::vector<LogEntry> entries = log.Take();
            const bool isReported = i == 0 || j == 0 || isOpen;
            ASSERT_EQ(!entries.empty(), isReported) << i << " " << j;
            const std::string shown = i == 0 ? "0xffffffff" : j == 0 ? "0x1" : "0x0";
            EXPECT_TRUE(!isReported ||
                        entries.back() == LogEntry({"TAV_ExtCfgFieldCompare", "Null pointer, return " + shown}));
        }
    }

    Record record = MakeRecord(13, {{14, Host32(5)}, {15, Host16(1)}, {12, Text("ab")}});
    EXPECT_EQ(TAV_ExtCfgRecordMatchCond(record.get(), nullptr), 1u);
    const auto matches = [&](const std::vector<Field> &condition) {
        return TAV_ExtCfgRecordMatchCond(record.get(), MakeRecord(7, condition).get());
    };
    EXPECT_EQ(matches({}), 1u) << "whatever the class";
    EXPECT_EQ(matches({{12, Text("ab")}, {14, Host32(5)}}), 1u);
    EXPECT_EQ(matches({{12, Text("ab")}, {14, Host32(6)}}), 0u);
    EXPECT_EQ(matches({{12, Text("abc")}}), 0u);
    EXPECT_EQ(matches({{16, Host16(1)}}), 0u);
}

TEST_F(Model, ReadingAddingAndDeletingFields) {
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
        interposer::FailNth(call, 1);
        EXPECT_NE(TAV_ParseExtCfgFieldNode(15, buffer.data(), 2, record.get()), TAV_OK);
        interposer::Reset();
    }
    EXPECT_EQ(Encode(record.get()), before) << "a value that cannot be added leaves the record as it was";
    for (uint32_t fid : {12u, 14u, 12u}) {
        TAV_ExtCfgFieldNodeDel(record.get(), TAV_ExtCfgFieldNodeFind(&record->fields, fid));
    }
    EXPECT_EQ(Encode(record.get()), Tlv(13, Bytes{}));
    TAV_ExtCfgRecordAddFieldValue(record.get(), 15, 2, Host16(7).data());
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(15, Be16(7))})) << "an emptied list can be filled again";
}

TEST_F(Model, FieldsThatAreNotTheRecordsOwn) {
    const Record record = Class13(5, 1), other = Class13(6);
    const std::unique_ptr<TAV_ExtCfgFieldNode, decltype(&TAV_ExtCfgFieldNodeFree)> loose(
        TAV_ExtCfgFieldNodeCreate(1000, 300), TAV_ExtCfgFieldNodeFree);
    for (TAV_ExtCfgFieldNode *field : {TAV_ExtCfgFieldNodeFind(&other->fields, 14), loose.get()}) {
        TAV_ExtCfgFieldNodeDel(record.get(), field);
    }
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(1))}));
    EXPECT_EQ(Encode(other.get()), Tlv(13, Tlv(14, Be32(6))));
}

TEST_F(Model, AFieldIsInOneRecordAndOnce) {
    const Record record = Class13(5), other = Class13(6);
    TAV_ExtCfgRecordAddFieldNode(record.get(), TAV_ExtCfgFieldNodeCreate(15, 2));
    for (const uint32_t fid : {14, 15}) {
        for (TAV_ExtCfgRecordNode *to : {record.get(), other.get()}) {
            DebugLog log;
            TAV_ExtCfgRecordAddFieldNode(to, TAV_ExtCfgFieldNodeFind(&record->fields, fid));
            log.Expect({{"TAV_ExtCfgRecordAddFieldNode", "Field is in a record already, fid " + std::to_string(fid)}});
        }
    }
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(0))}));
    EXPECT_EQ(Encode(other.get()), Tlv(13, Tlv(14, Be32(6))));
}

TEST_F(Model, ANewFieldIsZero) {
    const Record record = MakeRecord(13, {});
    for (uint32_t size : {0u, 1u, 4u, 300u, 0xFFFFu}) {
        MakeRecord(13, {{1000, Filled(size, 0xEE)}});  // leaves its block to the next who asks for this size
        TAV_ExtCfgRecordAddFieldNode(record.get(), TAV_ExtCfgFieldNodeCreate(size, size));
        EXPECT_EQ(ValueOf(record.get(), size), size == 0 ? Bytes{} : Filled(size, 0)) << size;
    }
}

/** Lengths for which there is hardly any memory: the sum stops at the greatest number, and comes back from it. */
TEST_F(Model, RecordLengthsDoNotWrap) {
    const Record record = Class13(5, 1);  // 22 bytes
    for (uint32_t length : {0xFFFFFFE0u, 0xFFFFFFE1u, 0xFFFFFFE2u, 0xFFFFFFF7u, 0xFFFFFFF8u, 0xFFFFFFFFu}) {
        TAV_ExtCfgFieldNode *huge = TAV_ExtCfgFieldNodeCreate(1000, 4);
        huge->length = length;
        TAV_ExtCfgRecordAddFieldNode(record.get(), huge);
        EXPECT_EQ(record->recordLength, std::min<uint64_t>(uint64_t{length} + 30, 0xFFFFFFFF)) << length;
        TAV_ExtCfgFieldNodeDel(record.get(), huge);
        EXPECT_EQ(record->recordLength, 22u) << length;
    }
    // Likewise those of a class, of a VS and of a body, each with one other thing in it.
    const Store store = Open(2, path);
    for (const auto &[vsId, cid, key] : {std::tuple(0u, 13u, 1u), {0u, 13u, 2u}, {0u, 26u, 1u}, {1u, 13u, 1u}}) {
        ASSERT_EQ(Add(store, vsId, MakeRecord(cid, {{14, Host32(key)}})), TAV_OK);
    }
    TAV_ExtCfgRecordNode *const stored = TAV_ExtCfgGetRecord(0, Class13(1).get(), store.get());
    TAV_ExtCfgVsNode *const vs = TAV_ExtCfgVsNodeFind(store.get(), 0);
    for (uint32_t length = 0xFFFFFF80; stored->recordLength = length, length != 0; ++length) {
        EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), std::min<uint64_t>(length + uint64_t{108}, 0xFFFFFFFF));
        EXPECT_EQ(TAV_ExtCfgVsNodeCalcSize(vs), std::min<uint64_t>(length + uint64_t{60}, 0xFFFFFFFF)) << length;
        EXPECT_EQ(vs->dataLength, TAV_ExtCfgVsNodeCalcSize(vs));
    }
}

TEST_F(Model, Overwriting) {
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
}

/** The functions of virtual systems in a store, or of classes in a VS. */
template <typename Node, typename Owner>
struct Kind {
    Node *(*create)(uint32_t);
    void (*free)(Node *);
    Node *(*find)(Owner *, uint32_t);
    Node *(*getInstance)(Owner *, uint32_t);
    uint32_t Node::*id;
};

/** Has others work on a list with the platform's calls as well: what is found is what a walk finds. Returns what they
 * took out of it and have not freed. */
template <typename Node, typename Owner>
std::vector<Node *> WorkOnList(const Kind<Node, Owner> &kind, Owner *owner, SLL_List *list, Random &random) {
    std::vector<Node *> kept;
    Node gone = {};
    const uint32_t ids = 8;
    const unsigned ownSteps = random() % 6, steps = ownSteps + random() % 6;
    for (unsigned step = 0; step < steps; ++step) {
        SLL_Node *at = &list->head.link;
        for (uint32_t skip = random() % (list->count + 1); skip > 0; --skip) {
            at = at->next;
        }
        switch (step < ownSteps ? 0 : random() % 4) {
            case 0:
                EXPECT_EQ(kind.getInstance(owner, step)->*kind.id, step);
                break;
            case 1:
                SLL_Insert_In_Middle(list, at, &kind.create(random() % ids)->link);
                break;
            case 2:
                SLL_Insert_In_Middle(list, list->tail, &kind.create(random() % ids)->link);
                [[fallthrough]];
            default:  // one goes, alone or while another one comes
                if (at != &list->head.link) {
                    SLL_Delete(list, at);
                    kept.push_back(reinterpret_cast<Node *>(at));
                    if (random() % 2 == 0) {
                        kind.free(kept.back());
                        kept.pop_back();
                    }
                }
        }
        SLL_Delete(list, &list->head.link);  // no element
        SLL_Delete(list, &gone.link);        // likewise
        std::map<uint32_t, Node *> first;
        const SLL_Node *last = &list->head.link;
        uint32_t count = 0;
        for (SLL_Node *link = list->head.link.next; link != &list->head.link; last = link, link = link->next, ++count) {
            first.emplace(reinterpret_cast<Node *>(link)->*kind.id, reinterpret_cast<Node *>(link));
        }
        EXPECT_EQ(list->count, count);
        EXPECT_EQ(list->tail, last);
        for (uint32_t id = 0; id < ids; ++id) {
            EXPECT_EQ(kind.find(owner, id), first.count(id) != 0 ? first[id] : nullptr) << "step " << step;
        }
    }
    return kept;
}

TEST_F(Model, ListsThatOthersWorkOn) {
    const Kind<TAV_ExtCfgVsNode, CfgLocal> systems = {TAV_ExtCfgVsNodeCreate, TAV_ExtCfgVsNodeFree,
                                                      TAV_ExtCfgVsNodeFind, TAV_ExtCfgVsNodeGetInstance,
                                                      &TAV_ExtCfgVsNode::vsId};
    const Kind<TAV_ExtCfgClassNode, TAV_ExtCfgVsNode> classes = {
        TAV_ExtCfgClassNodeCreate, TAV_ExtCfgClassNodeFree, TAV_ExtCfgClassNodeFind, TAV_ExtCfgClassNodeGetInstance,
        &TAV_ExtCfgClassNode::cid};
    Random random(5);
    for (unsigned round = 0; round < 500; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Store store(TAV_ExtCfgLocalCreate(2, "/a.dat", nullptr));
        TAV_ExtCfgVsNode *vs = TAV_ExtCfgVsNodeGetInstance(store.get(), 100);
        const auto keptClasses = WorkOnList(classes, vs, &vs->classes, random);
        const auto keptSystems = WorkOnList(systems, store.get(), &store->vsList, random);
        store.reset();
        std::for_each(keptClasses.begin(), keptClasses.end(), TAV_ExtCfgClassNodeFree);  // they outlive their owner
        std::for_each(keptSystems.begin(), keptSystems.end(), TAV_ExtCfgVsNodeFree);
    }
}

TEST_F(Model, CreatingAStore) {
    const std::string here = std::filesystem::current_path().string();
    const Store store(TAV_ExtCfgLocalCreate(2, "cfg/x.dat", "/r.dat"));
    EXPECT_EQ(store->filePath, here + "/cfg/x.dat");
    EXPECT_STREQ(store->referPath, "/r.dat");
    EXPECT_EQ(TAV_CalcExtCfgFileHeadSize(store.get()), kReferHeadSize);
    TAV_ExtCfgClassNodeGetInstance(TAV_ExtCfgVsNodeGetInstance(store.get(), 4), 7);
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(store.get()), 20u) << "an empty class takes no room";

    // A current directory that is gone: the name must not come to mean a file below the root.
    char out[256] = "x";
    {
        const TempFolder gone;
        std::filesystem::current_path(gone.Path());
        std::filesystem::remove(gone.Path());
        EXPECT_EQ(TAV_GetAbsPath("x.dat", out, sizeof(out)), TAV_ERR_COPY);
        std::filesystem::current_path(here);
    }
    EXPECT_STREQ(out, "");
    for (size_t length = 1; length < 300; ++length) {
        std::string name(length, 'p');
        EXPECT_EQ(TAV_GetAbsPath(name.c_str(), out, sizeof(out)), TAV_OK);
        EXPECT_EQ(out, (here + "/" + name).substr(0, 255));
        name[0] = '/';
        EXPECT_EQ(TAV_GetAbsPath(name.c_str(), out, sizeof(out)), TAV_OK);
        EXPECT_EQ(out, name.substr(0, 255));
    }
}

}  // namespace
