/*
 * Overwriting a record inside a file without loading it.
 */
#include <gtest/gtest.h>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;

/** A file of two VS with records of the same keys, so that a wrong VS, class or record shows. */
class InPlace : public testing::Test {
  protected:
    void SetUp() override {
        interposer::Reset();
        WriteFile(path_, original_);
    }
    void TearDown() override { interposer::Reset(); }

    static Bytes Body(const Bytes &record) {
        Bytes other = Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(1)), Tlv(12, Text("text"))});
        return Join({VsTlv(0, {other, Tlv(26, {Tlv(14, Be32(7)), Tlv(27, Be32(1))})}),
                     VsTlv(9, {Tlv(26, {Tlv(14, Be32(5)), Tlv(27, Be32(1))}), other, record})});
    }
    static Bytes Target(uint16_t number, std::string_view text, uint32_t word) {
        return Tlv(13, {Tlv(15, Be16(number)), Tlv(14, Be32(7)), Tlv(12, Text(text)), Tlv(19, Be32(word))});
    }
    uint32_t Set(const Record &record, uint32_t vsId = 9, const char *refer = nullptr) {
        return TAV_ExtCfgSetRecordToFile(vsId, record.get(), path_.c_str(), refer);
    }

    TempFolder folder_;
    const std::string path_ = folder_.Path("a.dat");
    const Bytes original_ = Image(Body(Target(3, "hello", 0x11223344)));
    const std::vector<Field> change_ = {
        {19, Host32(0xAABBCCDD)}, {14, Host32(7)}, {12, Text("world")}, {15, Host16(0x0405)}};
    const Bytes changed_ = Image(Body(Target(0x0405, "world", 0xAABBCCDD)));
    NothingLeaks leaks_;
};

TEST_F(InPlace, WritesValuesAtTheirOffsetsThenTheHead) {
    Record record = MakeRecord(13, change_);
    ASSERT_EQ(Set(record), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path_)), changed_) << "as if written whole";
    EXPECT_NE(ReadFile(path_), changed_) << "the modify time is renewed";
    EXPECT_EQ(Encode(record.get()), Tlv(13, {Tlv(19, Be32(0xAABBCCDD)), Tlv(12, Text("world")), Tlv(15, Be16(0x0405))}))
        << "the key fields are consumed, the others are not";

    const size_t target = original_.size() - Target(3, "hello", 0).size();
    auto offset = [](size_t at) { return "FSeek " + std::to_string(at); };
    const std::string size = std::to_string(original_.size()), body = std::to_string(original_.size() - kHeadSize);
    auto write = [](const std::string &seek, const char *amount) {
        return std::vector<std::string>{"FOpen a.dat rb+", seek, amount, "FFlush", "FClose"};
    };
    std::vector<std::string> expected = {"Stat a.dat", "FOpen a.dat rb", "FRead " + size, "FClose", "Digest " + body};
    for (const auto &part : {write(offset(target + 8 + 10 + 12 + 13 + 8), "FWrite 4"),
                             write(offset(target + 8 + 10 + 12 + 8), "FWrite 5"),
                             write(offset(target + 8 + 8), "FWrite 2"),
                             {"Digest " + body},
                             write(offset(0), "FWrite 80")}) {
        expected.insert(expected.end(), part.begin(), part.end());
    }
    EXPECT_EQ(interposer::Listed(), expected);

    // The same edits through a store find nothing left to write.
    Store store = Open(0, path_);
    ASSERT_TRUE(store);
    EXPECT_EQ(TAV_ExtCfgSetRecord(9, MakeRecord(13, change_).get(), store.get()), TAV_OK);
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_UNCHANGED);
}

TEST_F(InPlace, PassesOverFieldsThatDoNotFit) {
    DebugLog log;
    Record record = MakeRecord(13, {{14, Host32(7)}, {12, Text("longer")}, {16, Host16(1)}, {15, Host16(0x0405)}});
    EXPECT_EQ(Set(record), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path_)), Image(Body(Target(0x0405, "hello", 0x11223344))));
    log.ExpectAmong({{"TAV_ExtCfgSetRecordToFile", "Set " + path_ + " VS 9 start"},
                     {"TAV_ExtCfgSetRecordToFile", "Field 12 not exist or len error"},
                     {"TAV_ExtCfgSetRecordToFile", "Field 16 not exist or len error"},
                     {"TAV_ExtCfgSetRecordToFile", "Set VS 9 class 13 to " + path_ + " return 0x0"}});
    EXPECT_EQ(Set(MakeRecord(13, {{14, Host32(7)}, {12, Text("abc")}})), TAV_OK)
        << "a shorter value does not fit either";
    EXPECT_EQ(Set(Class13(7)), TAV_OK) << "a key alone renews the head";
    EXPECT_EQ(WithoutTime(ReadFile(path_)), Image(Body(Target(0x0405, "hello", 0x11223344))));
}

TEST_F(InPlace, ChangesNothingWithoutItsRecord) {
    DebugLog log;
    auto untouched = [&](uint32_t code, uint32_t expected) {
        EXPECT_EQ(code, expected);
        EXPECT_EQ(ReadFile(path_), original_);
    };
    Record missing = Class13(8, 1);
    untouched(Set(missing), TAV_ERR_NOT_FOUND);
    log.ExpectAmong({{"TAV_ExtCfgSetRecordToFile", "Record not exist"}});
    EXPECT_EQ(Encode(missing.get()), Tlv(13, Tlv(15, Be16(1)))) << "the key is consumed all the same";
    untouched(Set(Class13(7, 1), 0), TAV_ERR_NOT_FOUND);
    untouched(Set(Class13(7, 1), 1), TAV_ERR_NOT_FOUND);
    untouched(Set(MakeRecord(7, {{8, Text("x")}})), TAV_ERR_NOT_FOUND);
    untouched(TAV_ExtCfgSetRecordToFile(9, nullptr, path_.c_str(), nullptr), TAV_ERR_NULL);
    untouched(TAV_ExtCfgSetRecordToFile(9, missing.get(), nullptr, nullptr), TAV_ERR_NULL);
    for (const char *name : {"a.zip", "a.DAT", "a.dat.bak", "a"}) {
        WriteFile(folder_.Path(name), original_);
        Record record = MakeRecord(13, change_);
        interposer::Reset();
        EXPECT_EQ(TAV_ExtCfgSetRecordToFile(9, record.get(), folder_.Path(name).c_str(), nullptr), TAV_ERR_READ);
        EXPECT_TRUE(interposer::Listed().empty());
        EXPECT_EQ(Encode(record.get()), Encode(MakeRecord(13, change_).get())) << "nothing is consumed yet";
    }
    EXPECT_EQ(TAV_ExtCfgSetRecordToFile(9, missing.get(), folder_.Path("none.dat").c_str(), nullptr), TAV_ERR_READ);
    Bytes corrupt = original_;
    corrupt[kHeadSize + 20] ^= 1;
    WriteFile(path_, corrupt);
    EXPECT_EQ(Set(MakeRecord(13, change_)), TAV_ERR_NOT_FOUND);
    EXPECT_EQ(ReadFile(path_), corrupt);
}

/** A head that is longer than the one to be built (its checksum field has 36 bytes) has no room for it. */
TEST_F(InPlace, LeavesAFileWithAnotherHeadAlone) {
    const Bytes body = Body(Target(3, "hello", 0x11223344));
    const Bytes other = ImageWithHead(
        {Tlv(3, Be32(0x08070001)), Tlv(4, Filled(12, 0)), Tlv(5, Join({Sha256(body), Filled(4, 0)}))}, body);
    WriteFile(path_, other);
    EXPECT_TRUE(Open(1, path_));
    EXPECT_NE(Set(MakeRecord(13, change_)), TAV_OK);
    EXPECT_EQ(ReadFile(path_), other);
}

/** A record is found before a fault behind it, and the parse's own result does not matter. */
TEST_F(InPlace, FirstMatchEndsTheSearch) {
    Bytes faulty = Join({Body(Target(3, "hello", 1)), VsTlv(9, {Target(4, "again", 2), Tlv(13, Bytes{})})});
    WriteFile(path_, Image(faulty));
    EXPECT_EQ(Set(Class13(7, 0x0405)), TAV_OK);
    Bytes expected = Join({Body(Target(0x0405, "hello", 1)), VsTlv(9, {Target(4, "again", 2), Tlv(13, Bytes{})})});
    EXPECT_EQ(WithoutTime(ReadFile(path_)), Image(expected));
}

TEST_F(InPlace, WithReferFile) {
    const std::string refer = folder_.Path("r.dat");
    const Bytes referred = Image(VsTlv(1, {}));
    WriteFile(refer, referred);
    const Bytes sum = Slice(referred, kChecksumAt, kHeadSize);
    WriteFile(path_, Image(Body(Target(3, "hello", 0x11223344)), sum));
    EXPECT_EQ(Set(MakeRecord(13, change_)), TAV_ERR_NOT_FOUND) << "the refer file must be named";
    EXPECT_EQ(Set(MakeRecord(13, change_), 9, refer.c_str()), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path_)), Image(Body(Target(0x0405, "world", 0xAABBCCDD)), sum));
}

TEST_F(InPlace, EachPlatformCallFailingInTurn) {
    ASSERT_EQ(Set(MakeRecord(13, change_)), TAV_OK);
    const std::vector<std::string> calls = interposer::Listed();
    const size_t firstWrite = 5, headDigest = 5 + 3 * 5;
    for (size_t at = 0; at < calls.size(); ++at) {
        SCOPED_TRACE("call " + std::to_string(at) + ": " + calls[at]);
        NothingLeaks leaks;
        WriteFile(path_, original_);
        Record record = MakeRecord(13, change_);
        interposer::Reset();
        interposer::FailListed({at});
        uint32_t code = Set(record);
        interposer::Reset();
        uint32_t expected = TAV_OK;
        bool writes = calls[at].starts_with("FWrite") || calls[at].starts_with("FSeek");
        if (at < 3) {
            expected = TAV_ERR_READ;
        } else if (at == 4) {
            expected = TAV_ERR_NOT_FOUND;
        } else if (at == headDigest) {
            expected = TAV_ERR_COPY;
        } else if (calls[at] == "FOpen a.dat rb+") {
            expected = TAV_ERR_OPEN;
        } else if (writes) {
            expected = TAV_ERR_REFUSED;
        }
        EXPECT_EQ(code, expected);
        Bytes after = ReadFile(path_);
        EXPECT_EQ(after.size(), original_.size());
        if (code == TAV_OK) {
            EXPECT_EQ(WithoutTime(after), changed_);
        } else if (at <= firstWrite + 1) {
            EXPECT_EQ(after, original_) << "nothing is written before the first value";
        } else {
            EXPECT_FALSE(Open(1, path_)) << "body and checksum no longer agree";
        }
    }
    for (Call kind : {Call::kMalloc, Call::kMemCopy}) {
        for (uint32_t nth = 1;; ++nth) {
            WriteFile(path_, original_);
            NothingLeaks leaks;
            Record record = MakeRecord(13, change_);
            interposer::Reset();
            interposer::FailNth(kind, nth);
            uint32_t code = Set(record);
            bool reached = interposer::Count(kind) >= nth;
            interposer::Reset();
            if (!reached) {
                EXPECT_EQ(code, TAV_OK);
                break;
            }
            if (kind == Call::kMalloc) {
                EXPECT_TRUE(code == TAV_ERR_READ || code == TAV_ERR_NOT_FOUND || code == TAV_ERR_NO_MEMORY) << nth;
            }
            EXPECT_EQ(ReadFile(path_).size(), original_.size());
        }
    }
}

TEST_F(InPlace, WriteAtOffset) {
    const Bytes data = Text("XYZ");
    DebugLog log;
    EXPECT_EQ(TAV_WriteFileAtOffset(data.data(), 3, path_.c_str(), 5), TAV_OK);
    Bytes expected = original_;
    std::copy(data.begin(), data.end(), expected.begin() + 5);
    EXPECT_EQ(ReadFile(path_), expected);
    EXPECT_EQ(TAV_WriteFileAtOffset(nullptr, 3, path_.c_str(), 5), TAV_ERR_NULL);
    EXPECT_EQ(TAV_WriteFileAtOffset(data.data(), 3, nullptr, 5), TAV_ERR_NULL);
    log.Take();
    const std::string none = folder_.Path("none.dat");
    EXPECT_EQ(TAV_WriteFileAtOffset(data.data(), 3, none.c_str(), 5), TAV_ERR_OPEN);
    log.Expect({{"TAV_WriteFileAtOffset", "Open " + none + " failed"}});
    EXPECT_FALSE(FileExists(none));
    interposer::Reset();
    interposer::FailNth(Call::kSeek, 1);
    EXPECT_EQ(TAV_WriteFileAtOffset(data.data(), 3, path_.c_str(), 0), TAV_ERR_REFUSED);
    EXPECT_EQ(interposer::Count(Call::kWrite), 0u);
    log.Expect({{"TAV_WriteFileAtOffset", "Report error: 0xffffffff"},
                {"TAV_WriteFileAtOffset", "Write " + path_ + " failed, len=3, return 0xffffffff"}});
    EXPECT_EQ(ReadFile(path_), expected);
}

}  // namespace
