/*
 * Whole files written out by hand: the library writes them byte for byte, but for the modify time, and reads them back.
 */
#include <gtest/gtest.h>

#include <chrono>

#include "debug_log.h"
#include "store.h"
#include "tav_extcfg_nodes.h"

namespace {

const Bytes kPlain =
    Hex("00000001 00000048"                             // head, 72 bytes
        "00000003 00000004 08070001"                    // version
        "00000004 0000000c 00000000 00000000 00000000"  // modify time
        "00000005 00000020"                             // SHA-256 of the 208 bytes of the body
        "11422ba5 9034994e 0c91a11f 5f124cba caddab6f 42a958fd 7827df51 ee676cbc"
        "00000002 000000c8"                 // VS, 200 bytes
        "00000006 00000004 00000000"        // its id
        "00000007 00000037"                 // record of class 7, 55 bytes
        "00000008 00000007 7373682f746370"  // "ssh/tcp"
        "00000009 00000002 0016"            // 22
        "0000000a 00000002 0003"
        "0000000b 00000001 01"
        "0000000c 00000003 535348"  // "SSH"
        "0000000d 0000004b"         // record of class 13, 75 bytes
        "0000000e 00000004 00000005"
        "0000000f 00000002 0001"
        "00000012 00000015 04 c0000201 00000000000000000000000000000000"
        "00000013 00000004 01020304"
        "00000019 00000004 00000002"
        "0000001a 00000022"  // record of class 26, 34 bytes
        "0000000e 00000004 00000009"
        "0000001b 00000004 0a0b0c0d"
        "0000001c 00000002 1234");

const Bytes kReferred =
    Hex("00000001 00000048 00000003 00000004 08070001 00000004 0000000c 00000000 00000000 00000000 00000005 00000020"
        "3c7c955e 19888fd7 a73cc279 2e32a9ae f84c910a 2383f608 1b10adb0 d4c0904b"
        "00000002 00000020 00000006 00000004 00000007 0000000d 0000000c 0000000e 00000004 00000001");

const Bytes kReferring =
    Hex("00000001 00000070 00000003 00000004 08070001 00000004 0000000c 00000000 00000000 00000000 00000005 00000020"
        "859a9fc3 59e9faa7 e045fa60 501244dc 9e661682 144d829a 8970a431 d238752a"
        "00000014 00000020"  // the checksum that the referred file states
        "3c7c955e 19888fd7 a73cc279 2e32a9ae f84c910a 2383f608 1b10adb0 d4c0904b"
        "00000002 00000020 00000006 00000004 ffffffff 0000001a 0000000c 0000000e 00000004 00000100");

const Bytes kAddress = Join({{4}, Host32(0xC0000201), Filled(16, 0)});

/** The records of kPlain, in its order, fields in host order. */
const std::vector<std::pair<uint32_t, std::vector<Field>>> kRecords = {
    {7, {{8, Text("ssh/tcp")}, {9, Host16(22)}, {10, Host16(3)}, {11, {1}}, {12, Text("SSH")}}},
    {13, {{14, Host32(5)}, {15, Host16(1)}, {18, kAddress}, {19, Host32(0x01020304)}, {25, Host32(2)}}},
    {26, {{14, Host32(9)}, {27, Host32(0x0a0b0c0d)}, {28, Host16(0x1234)}}},
};

using Golden = FolderTest;

TEST_F(Golden, PlainFile) {
    setenv("TZ", "XYZ-9:30", 1);  // times are GMT all the same
    tzset();
    Store store = Open(0, path);
    for (const auto &[cid, fields] : kRecords) {
        ASSERT_EQ(Add(store, 0, MakeRecord(cid, fields)), TAV_OK);
    }
    const std::time_t before = Now();
    ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
    const Bytes written = ReadFile(path);
    ASSERT_EQ(WithoutTime(written), kPlain);

    // The moment of writing: big-endian year, month, day, hour, minute, second, week day, big-endian milliseconds.
    const uint8_t *time = &written[kTimeAt];
    using namespace std::chrono;
    const sys_days date = year(time[0] * 256 + time[1]) / time[2] / time[3];
    const auto stated = system_clock::to_time_t(date + hours(time[4]) + minutes(time[5]) + seconds(time[6]));
    EXPECT_LE(before, stated);
    EXPECT_LE(stated, Now());
    EXPECT_EQ(time[7], weekday(date).c_encoding());
    EXPECT_LT(time[8] << 24 | time[9] << 16 | time[10] << 8 | time[11], 1000);
}

TEST_F(Golden, FileThatRefersToAnother) {
    WriteFile(folder.Path("r.dat"), kReferred);
    Store store = Open(0, path, folder.Path("r.dat"));
    ASSERT_EQ(Add(store, 0xFFFFFFFF, MakeRecord(26, {{14, Host32(0x100)}})), TAV_OK);
    ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
    EXPECT_EQ(WithoutTime(ReadFile(path)), kReferring);

    WriteFile(folder.Path("b.dat"), kReferring);
    EXPECT_TRUE(Open(1, folder.Path("b.dat"), folder.Path("r.dat")));
    EXPECT_FALSE(Open(1, folder.Path("b.dat"))) << "the refer file must be named";
    EXPECT_FALSE(Open(1, folder.Path("r.dat"), folder.Path("r.dat"))) << "no refer checksum in the file";
    EXPECT_FALSE(Open(1, folder.Path("b.dat"), folder.Path("b.dat"))) << "chains are one level deep";
    Bytes checksum(32);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(folder.Path("b.dat").c_str(), checksum.data(), 32), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(folder.Path("r.dat").c_str(), checksum.data(), 32), TAV_OK);
    EXPECT_EQ(checksum, Slice(kReferred, kChecksumAt, kHeadSize));
}

TEST_F(Golden, AHeadFillsItsRoomOrIsRefused) {
    const DebugLog log;
    const Bytes body = Slice(kPlain, kHeadSize, kPlain.size());
    const std::tuple<uint32_t, uint32_t, const char *> rooms[] = {
        {0, TAV_ERR_NO_ROOM, "Report error: 0x80161a"},
        {79, TAV_ERR_NO_ROOM, "Report error: 0x80161a"},
        {80, TAV_OK, "Head size 289 over image size 288"},  // of the call before
        {81, TAV_ERR_INVALID, "Head size 81, but 80 are built"}};
    for (const auto &[headSize, code, report] : rooms) {
        SCOPED_TRACE(headSize);
        const Bytes before = Join({Filled(headSize, 0xEE), body});
        auto image = ExactBlock(before);
        const auto size = static_cast<uint32_t>(before.size());
        EXPECT_EQ(TAV_BuildExtCfgFileHead(image.get(), size + 1, size, nullptr), TAV_ERR_INVALID) << "beyond the image";
        EXPECT_EQ(TAV_BuildExtCfgFileHead(image.get(), headSize, size, nullptr), code);
        log.ExpectAmong({{"TAV_BuildExtCfgFileHead", report}});
        const Bytes after(image.get(), image.get() + size);
        EXPECT_EQ(Slice(after, headSize, size), body);
        EXPECT_TRUE(code != TAV_ERR_INVALID || after == before) << "nothing is written";
        EXPECT_TRUE(code != TAV_OK || Slice(after, kChecksumAt, size) == Slice(kPlain, kChecksumAt, kPlain.size()));
    }
}

/** What is built neither leaves its room nor contradicts the lengths that stand in the nodes, which are public. */
TEST_F(Golden, ABodyFillsItsLengthsOrIsRefused) {
    const DebugLog log;
    const Store store = Open(2, path);
    ASSERT_EQ(Add(store, 5, Class13(1)), TAV_OK);
    TAV_ExtCfgVsNode *const vs = TAV_ExtCfgVsNodeFind(store.get(), 5);
    TAV_ExtCfgRecordNode *const record = TAV_ExtCfgGetRecord(5, Class13(1).get(), store.get());
    const Bytes body = VsTlv(5, {Tlv(13, Tlv(14, Be32(1)))});  // 40 bytes, of which the record takes 20
    for (uint32_t at = 0; at < 42 * 42; ++at) {
        const uint32_t room = at % 42, length = at / 42;
        SCOPED_TRACE(std::to_string(length) + " in " + std::to_string(room));
        const std::string shown = std::to_string(length), noRoom = ", return 0x80161a";
        const auto block = ExactBlock(Filled(room, 0xEE));
        const auto expect = [&](uint32_t code, uint32_t size, uint32_t right, const Bytes &whole,
                                const LogEntry &last) {
            const bool fits = room >= size && room >= length + 8;
            EXPECT_EQ(code, !fits ? TAV_ERR_NO_ROOM : length != right ? TAV_ERR_INVALID : TAV_OK);
            if (code == TAV_OK) {
                EXPECT_EQ(Bytes(block.get(), block.get() + room), Join({whole, Filled(room - size, 0xEE)}));
            } else {
                EXPECT_EQ(log.Take().back(), last);
            }
            log.Take();
        };
        uint8_t *cursor = block.get();
        record->recordLength = length;
        expect(TAV_BuildExtCfgRecordData(record, &cursor, block.get() + room), 20, 12, Slice(body, 20, 40),
               {"TAV_BuildExtCfgRecordData",
                room < length + 8 ? "Set record head TLV failed(cid=13, len=" + shown + ")" + noRoom
                : room < 20       ? "Set record field TLV failed(cid=13, fid=14, len=4)" + noRoom
                            : "Write record TLV total len mismatch(cid=13, recordLen=" + shown + " writeLen=20)"});
        std::fill_n(block.get(), room, uint8_t{0xEE});
        record->recordLength = 12;
        vs->dataLength = length;
        expect(TAV_BuildExtCfgFileBody(store.get(), block.get(), room), 40, 32, body,
               {"TAV_BuildExtCfgFileBody",
                room < length + 8 ? "Set VS head TLV failed(vsId=5, len=" + shown + ")" + noRoom
                : room < 20       ? "Set VS ID TLV failed(vsId=5)" + noRoom
                : room < 40       ? "VS5 set record TLV failed" + noRoom
                                  : "Write VS TLV total len mismatch(vsId=5, vsDataLen=" + shown + " writeLen=40)"});
    }
}

}  // namespace
