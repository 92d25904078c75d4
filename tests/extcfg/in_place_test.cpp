/*
 * Overwriting a record inside a file without loading it.
 */
#include <gtest/gtest.h>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

/** What changing the record of InPlace calls: the values in the order of the change, then the head. */
const std::vector<std::string> kCalls = {
    "Stat a.dat",      "FOpen a.dat rb", "FRead 323", "FClose", "Digest 243 33",                   // read and checked
    "FOpen a.dat rb+", "FSeek 319 0",    "FWrite 4",  "FFlush", "FClose",                          // field 19
    "FOpen a.dat rb+", "FSeek 306 0",    "FWrite 5",  "FFlush", "FClose",                          // field 12
    "FOpen a.dat rb+", "FSeek 284 0",    "FWrite 2",  "FFlush", "FClose",        "Digest 243 33",  // field 15
    "FOpen a.dat rb+", "FSeek 0 0",      "FWrite 80", "FFlush", "FClose"};

/** A file of two VS with records of the same keys, so that a wrong VS, class or record shows. */
struct InPlace : FolderTest {
    InPlace() { Put(original); }

    static Bytes Body(const Bytes &record) {
        Bytes other = Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(1)), Tlv(12, Text("text"))});
        return Join({VsTlv(0, {other, Tlv(26, {Tlv(14, Be32(7)), Tlv(27, Be32(1))})}),
                     VsTlv(9, {Tlv(26, {Tlv(14, Be32(5)), Tlv(27, Be32(1))}), other, record})});
    }
    static Bytes Target(uint16_t number, std::string_view text, uint32_t word) {
        return Tlv(13, {Tlv(15, Be16(number)), Tlv(14, Be32(7)), Tlv(12, Text(text)), Tlv(19, Be32(word))});
    }
    static Record Change() {
        return MakeRecord(13, {{19, Host32(0xAABBCCDD)}, {14, Host32(7)}, {12, Text("world")}, {15, Host16(0x0405)}});
    }
    void Put(const Bytes &image) {
        WriteFile(path, image);
        interposer::Reset();
    }
    uint32_t Set(const Record &record, uint32_t vsId = 9, const char *refer = nullptr) {
        return TAV_ExtCfgSetRecordToFile(vsId, record.get(), path.c_str(), refer);
    }

    const Bytes original = Image(Body(Target(3, "hello", 0x11223344)));
    const Bytes changedBody = Body(Target(0x0405, "world", 0xAABBCCDD));
};

TEST_F(InPlace, WritesValuesAtTheirOffsetsThenTheHead) {
    Record record = Change();
    ASSERT_EQ(Set(record), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path)), Image(changedBody)) << "as if written whole";
    EXPECT_NE(ReadFile(path), Image(changedBody)) << "the modify time is renewed";
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(19, Be32(0xAABBCCDD)), Tlv(12, Text("world")), Tlv(15, Be16(0x0405))}))
        << "the key fields are consumed, the others are not";

    EXPECT_EQ(interposer::Listed(), kCalls);
}

TEST_F(InPlace, PassesOverFieldsThatDoNotFit) {
    DebugLog log;
    Record record = MakeRecord(13, {{14, Host32(7)}, {12, Text("longer")}, {16, Host16(1)}, {15, Host16(0x0405)}});
    EXPECT_EQ(Set(record), TAV_OK);
    log.ExpectAmong({{"TAV_ExtCfgSetRecordToFile", "Set " + path + " VS 9 start"},
                     {"TAV_ExtCfgSetRecordToFile", "Field 12 not exist or len error"},
                     {"TAV_ExtCfgSetRecordToFile", "Field 16 not exist or len error"},
                     {"TAV_ExtCfgSetRecordToFile", "Set VS 9 class 13 to " + path + " return 0x0"}});
    EXPECT_EQ(Set(MakeRecord(13, {{14, Host32(7)}, {12, Text("abc")}})), TAV_OK) << "a shorter one does not fit either";
    EXPECT_EQ(WithoutTime(ReadFile(path)), Image(Body(Target(0x0405, "hello", 0x11223344))));
}

TEST_F(InPlace, ChangesNothingWithoutItsRecord) {
    DebugLog log;
    Record missing = Class13(8, 1);
    EXPECT_EQ(Set(missing), TAV_ERR_NOT_FOUND);
    log.ExpectAmong({{"TAV_ExtCfgSetRecordToFile", "Record not exist"}});
    EXPECT_EQ(Encode(missing.get()), Tlv(13, Tlv(15, Be16(1)))) << "the key is consumed all the same";
    EXPECT_EQ(Set(Class13(7, 1), 0), TAV_ERR_NOT_FOUND) << "another VS";
    EXPECT_EQ(Set(MakeRecord(7, {{8, Text("x")}})), TAV_ERR_NOT_FOUND) << "another class";
    EXPECT_EQ(Set(nullptr), TAV_ERR_NULL);
    EXPECT_EQ(ReadFile(path), original);
    for (const char *name : {"a.zip", "a.DAT", "a.dat.bak", "a"}) {
        interposer::Reset();
        Record record = Change();
        EXPECT_EQ(TAV_ExtCfgSetRecordToFile(9, record.get(), folder.Path(name).c_str(), nullptr), TAV_ERR_READ);
        EXPECT_TRUE(interposer::Listed().empty());
        EXPECT_EQ(Encode(record.get()), Encode(Change().get())) << "nothing is consumed yet";
    }
    // A corrupt file, and one whose head has no room for the one to be built: its checksum field has 36 bytes.
    const Bytes body = Slice(original, kHeadSize, original.size());
    const Bytes longSum = Tlv(5, Join({Sha256(body), Filled(4, 0)}));
    const std::tuple<Bytes, uint32_t, std::string> files[] = {
        {Join({Slice(original, 0, kHeadSize), changedBody}), TAV_ERR_NOT_FOUND, "Record not exist"},
        {ImageWithHead({Tlv(3, Be32(0x08070001)), Tlv(4, Filled(12, 0)), longSum}, body), TAV_ERR_INVALID,
         "Update " + path + " head failed, size=84, return 0x801617"}};
    for (const auto &[image, code, report] : files) {
        Put(image);
        EXPECT_EQ(Set(Change()), code);
        log.ExpectAmong({{"TAV_ExtCfgSetRecordToFile", report}});
        EXPECT_EQ(ReadFile(path), image);
    }
}

/** A record is found before a fault behind it, and the parse's own result does not matter. */
TEST_F(InPlace, FirstMatchEndsTheSearch) {
    const Bytes faulty = VsTlv(9, {Target(4, "again", 2), Tlv(13, Bytes{})});
    Put(Image(Join({Body(Target(3, "hello", 1)), faulty})));
    EXPECT_EQ(Set(Class13(7, 0x0405)), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path)), Image(Join({Body(Target(0x0405, "hello", 1)), faulty})));
}

TEST_F(InPlace, WithReferFile) {
    const std::string refer = folder.Path("r.dat");
    const Bytes referred = Image(VsTlv(1, {})), sum = Slice(referred, kChecksumAt, kHeadSize);
    WriteFile(refer, referred);
    Put(Image(Body(Target(3, "hello", 0x11223344)), sum));
    EXPECT_EQ(Set(Change()), TAV_ERR_NOT_FOUND) << "the refer file must be named";
    EXPECT_EQ(Set(Change(), 9, refer.c_str()), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path)), Image(changedBody, sum));
}

TEST_F(InPlace, EachPlatformCallFailingInTurn) {
    constexpr size_t kCheck = 4, kFirstWrite = 7, kHeadDigest = 20;
    for (size_t at = 0; at < kCalls.size(); ++at) {
        SCOPED_TRACE("call " + std::to_string(at) + ": " + kCalls[at]);
        Put(original);
        interposer::FailListed({at});
        const uint32_t code = Set(Change());
        const bool isWrite = kCalls[at].starts_with("FWrite") || kCalls[at].starts_with("FSeek");
        EXPECT_EQ(code, at < 3                            ? TAV_ERR_READ
                        : at == kCheck                    ? TAV_ERR_NOT_FOUND
                        : at == kHeadDigest               ? TAV_ERR_COPY
                        : kCalls[at] == "FOpen a.dat rb+" ? TAV_ERR_OPEN
                        : isWrite                         ? TAV_ERR_REFUSED
                                                          : TAV_OK);
        const Bytes after = ReadFile(path);
        if (code == TAV_OK) {
            EXPECT_EQ(WithoutTime(after), Image(changedBody));
        } else if (at < kFirstWrite) {
            EXPECT_EQ(after, original) << "nothing is written before the first value";
        } else {
            EXPECT_EQ(after.size(), original.size());
            EXPECT_FALSE(Open(1, path)) << "body and checksum no longer agree";
        }
    }
}

}  // namespace
