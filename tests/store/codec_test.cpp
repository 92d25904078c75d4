/*
 * The TLV codec against a plain second reading of the format, and its reports.
 */
#include <gtest/gtest.h>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

constexpr uint32_t kNearTop = 0xFFFFFFF0;

uint32_t HeadWord(const Bytes &bytes, size_t at) {
    return static_cast<uint32_t>(bytes[at]) << 24 | static_cast<uint32_t>(bytes[at + 1]) << 16 |
           static_cast<uint32_t>(bytes[at + 2]) << 8 | bytes[at + 3];
}

/** Offsets of the complete TLVs of a sequence, and what is left behind the last of them. */
struct Walk {
    std::vector<size_t> offsets;
    size_t left;
};

Walk WalkOf(const Bytes &bytes) {
    Walk walk{{}, bytes.size()};
    while (walk.left >= 8) {
        size_t at = bytes.size() - walk.left;
        uint64_t size = uint64_t{8} + HeadWord(bytes, at + 4);
        if (size > walk.left) {
            break;
        }
        walk.offsets.push_back(at);
        walk.left -= size;
    }
    return walk;
}

TEST(Codec, VerifyAtEveryBound) {
    std::vector<uint32_t> sizes = {0, 1, 3, 4, 7, 8, 9, 100, 0x7FFFFFF8, 0x80000000};
    for (uint32_t low = 0; low < 16; ++low) {
        sizes.push_back(kNearTop + low);
    }
    for (uint32_t length : sizes) {
        auto head = ExactBlock(Join({Be32(13), Be32(length)}));
        for (uint64_t delta = 0; delta < 24; ++delta) {
            for (uint64_t maxLen : {delta, length + delta, kNearTop + delta}) {
                if (maxLen <= 0xFFFFFFFF) {
                    EXPECT_EQ(TAV_ExtTlvVerify(head.get(), static_cast<uint32_t>(maxLen)),
                              maxLen < uint64_t{length} + 8 ? 1u : 0u)
                        << "length " << length << " in " << maxLen;
                }
            }
        }
    }
}

uint32_t NoteVisit(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    Bytes &seen = *static_cast<Bytes *>(context);
    seen = Join({seen, Be32(type), Be32(length), Bytes(value, value + length)});
    return 0;
}

/** Walks, finds and reads random sequences, some with stray bytes, a cut end, or lengths that would wrap. */
TEST(Codec, WalksAgreeWithAPlainReading) {
    Random random(20240305);
    for (unsigned round = 0; round < 4000; ++round) {
        Bytes bytes;
        for (unsigned count = random() % 5; count > 0; --count) {
            uint32_t lengths[] = {0, 4, 4, random() % 20};
            bytes = Join({bytes, Tlv(random() % 6 + 1, Filled(lengths[random() % 4], static_cast<uint8_t>(round)))});
        }
        unsigned damage = random() % 4;
        if (damage == 0) {
            bytes.resize(bytes.size() + random() % 12);
        } else if (damage == 1 && !bytes.empty()) {
            bytes.resize(bytes.size() - random() % std::min<size_t>(bytes.size(), 14));
        } else if (damage == 2) {
            bytes = Join({bytes, Be32(random() % 6 + 1), Be32(kNearTop + random() % 16), Filled(random() % 30, 7)});
        }
        SCOPED_TRACE("round " + std::to_string(round));
        auto block = ExactBlock(bytes);
        auto maxLen = static_cast<uint32_t>(bytes.size());
        Walk walk = WalkOf(bytes);

        Bytes seen;
        uint32_t expected = walk.offsets.empty() || walk.left > 0 ? TAV_ERR_INVALID : TAV_OK;
        ASSERT_EQ(TAV_ExtTlvProcForEach(NoteVisit, block.get(), maxLen, &seen), expected);
        ASSERT_EQ(seen, Slice(bytes, 0, bytes.size() - walk.left));

        for (size_t at = 0; at < walk.offsets.size(); ++at) {
            auto offset = static_cast<uint32_t>(walk.offsets[at]);
            uint8_t *next = at + 1 < walk.offsets.size() ? block.get() + walk.offsets[at + 1] : nullptr;
            ASSERT_EQ(TAV_ExtTlvGetNext(block.get() + offset, maxLen - offset), next);
        }
        for (uint32_t type = 0; type < 8; ++type) {
            uint8_t *first = nullptr;
            for (size_t offset : walk.offsets) {
                if (HeadWord(bytes, offset) == type) {
                    first = block.get() + offset;
                    break;
                }
            }
            ASSERT_EQ(TAV_ExtTlvFind(block.get(), maxLen, type), first);
            uint32_t value = 0x5A5A5A5A;
            uint32_t code = TAV_ExtTlvGetValue_UINT32(block.get(), maxLen, type, &value);
            size_t at = first == nullptr ? 0 : static_cast<size_t>(first - block.get());
            if (first == nullptr || HeadWord(bytes, at + 4) != 4) {
                ASSERT_EQ(code, first == nullptr ? TAV_ERR_NOT_FOUND : TAV_ERR_INVALID);
                ASSERT_EQ(value, 0x5A5A5A5Au);
            } else {
                ASSERT_EQ(code, TAV_OK);
                ASSERT_EQ(value, HeadWord(bytes, at + 8));
            }
        }
    }
}

uint32_t StopAtType3(uint32_t type, uint8_t *, uint32_t, void *context) {
    ++*static_cast<int *>(context);
    return type == 3 ? 42 : 0;
}

TEST(Codec, Reports) {
    DebugLog log;
    Bytes two = Join({Tlv(3, Be32(1)), Tlv(9, Be16(2))});  // 12 and 10 bytes
    auto check = [&](const Bytes &bytes, const std::vector<LogEntry> &nextReports, uint32_t walkCode,
                     const std::vector<LogEntry> &walkReports) {
        auto block = ExactBlock(bytes);
        auto size = static_cast<uint32_t>(bytes.size());
        EXPECT_EQ(TAV_ExtTlvGetNext(block.get() + 12, size - 12), nullptr);
        log.Expect(nextReports);
        Bytes seen;
        EXPECT_EQ(TAV_ExtTlvProcForEach(NoteVisit, block.get(), size, &seen), walkCode);
        EXPECT_EQ(seen, two);
        log.ExpectAmong(walkReports);
    };
    check(two, {}, TAV_OK, {});
    LogEntry noHead{"TAV_ExtTlvGetNext", "No next TLV head, curTlvType=9, curTlvLen=10, maxLen=13"};
    check(Join({two, Filled(3, 0)}), {noHead}, TAV_ERR_INVALID,
          {noHead, {"TAV_ExtTlvProcForEach", "Parse cfg tlv failed, left size=3, cur type=9, len=2"}});
    LogEntry noBody{"TAV_ExtTlvGetNext", "No next TLV body, curTlvLen=10, nextTlvLen=15, maxLen=23"};
    check(Join({two, Be32(8), Be32(15), Filled(5, 0)}), {noBody}, TAV_ERR_INVALID,
          {noBody, {"TAV_ExtTlvProcForEach", "Parse cfg tlv failed, left size=13, cur type=9, len=2"}});

    auto block = ExactBlock(two);
    EXPECT_EQ(TAV_ExtTlvVerify(block.get(), 7), 1u);
    log.Expect({{"TAV_ExtTlvVerify", "Invalid TLV head, maxLen=7"}});
    EXPECT_EQ(TAV_ExtTlvVerify(block.get(), 11), 1u);
    log.Expect({{"TAV_ExtTlvVerify", "Invalid TLV body, curTlvLen=12, maxLen=11"}});
    EXPECT_EQ(TAV_ExtTlvFind(block.get(), 11, 3), nullptr);
    log.ExpectAmong({{"TAV_ExtTlvFind", "First TLV is invalid"}});
    EXPECT_EQ(TAV_ExtTlvFind(block.get(), 22, 8), nullptr);
    log.Expect({{"TAV_ExtTlvFind", "TLV 8 not found"}});
    uint32_t value = 0;
    EXPECT_EQ(TAV_ExtTlvGetValue_UINT32(block.get(), 22, 3, nullptr), TAV_ERR_NULL);
    log.Expect({{"TAV_ExtTlvGetValue_UINT32", "Null pointer, return 0x801619"}});
    EXPECT_EQ(TAV_ExtTlvGetValue_UINT32(block.get(), 22, 8, &value), TAV_ERR_NOT_FOUND);
    log.ExpectAmong({{"TAV_ExtTlvGetValue_UINT32", "Null pointer, return 0x801618"}});
    EXPECT_EQ(TAV_ExtTlvGetValue_UINT32(block.get(), 22, 9, &value), TAV_ERR_INVALID);
    log.Expect({});

    EXPECT_EQ(TAV_ExtTlvProcForEach(nullptr, block.get(), 22, nullptr), TAV_ERR_NULL);
    log.Expect({{"TAV_ExtTlvProcForEach", "Null pointer, return 0x801619"}});
    EXPECT_EQ(TAV_ExtTlvProcForEach(NoteVisit, nullptr, 22, nullptr), TAV_ERR_NULL);
    log.Expect({{"TAV_ExtTlvProcForEach", "Null pointer, return 0x801619"}});
    EXPECT_EQ(TAV_ExtTlvProcForEach(NoteVisit, block.get(), 11, nullptr), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ExtTlvProcForEach", "First TLV is invalid"}});
    int visits = 0;
    EXPECT_EQ(TAV_ExtTlvProcForEach(StopAtType3, block.get(), 22, &visits), 42u) << "the visitor's own code";
    EXPECT_EQ(visits, 1);
    log.Expect({{"TAV_ExtTlvProcForEach", "ExtTlvProcFunc of type(3) failed, return 0x2a"}});
}

struct Conversion {
    uint32_t type;
    Bytes host;
    Bytes file;
};

const Bytes kV6 = Hex("20010db8 00000000 00000000 00000001");

const Conversion kConversions[] = {
    {9, Host16(0x1234), Hex("1234")},
    {15, Host16(0xFF01), Hex("ff01")},
    {28, Host16(1), Hex("0001")},
    {3, Host32(0x08070001), Hex("08070001")},
    {14, Host32(0xFEDCBA98), Hex("fedcba98")},
    {25, Host32(7), Hex("00000007")},
    {11, {0x81}, {0x81}},
    {8, Text("name"), Text("name")},
    {5, Filled(32, 0xA5), Filled(32, 0xA5)},
    {18, Join({{6}, Host32(0xC0000201), kV6}), Join({{6}, Be32(0xC0000201), kV6})},
    {4, Join({Host16(2024), Hex("0305070809 02"), Host32(12)}), Join({Be16(2024), Hex("0305070809 02"), Be32(12)})},
    {1000, Hex("0102030405"), Hex("0102030405")},  // a type that the table does not know
    {14, Hex("0102"), Hex("0102")},                // too short for its converter, which is not a failure
    {12, {}, {}},
};

TEST(Codec, ConvertsEveryKindOfValueBothWays) {
    for (const Conversion &test : kConversions) {
        SCOPED_TRACE(test.type);
        auto length = static_cast<uint32_t>(test.host.size());
        for (const auto &[from, to] : {std::pair(test.host, test.file), std::pair(test.file, test.host)}) {
            auto source = ExactBlock(Join({{0}, from}));  // unaligned on purpose
            auto target = ExactBlock(Join({{0}, from}));
            EXPECT_EQ(TAV_ExtTlvConvertEndian(test.type, length, source.get() + 1, target.get() + 1), TAV_OK);
            EXPECT_EQ(Bytes(target.get() + 1, target.get() + 1 + length), to);
        }
    }
    DebugLog log;
    Bytes source(0x10000), target(0x10000);
    EXPECT_EQ(TAV_ExtTlvConvertEndian(14, 5, source.data(), target.data()), TAV_ERR_INVALID);
    log.Expect({{"TAV_ExtTlvConvertEndian", "Invalid len 5, over datatype len 4"}});
    EXPECT_EQ(TAV_ExtTlvConvertEndian(1000, 0xFFFF, source.data(), target.data()), TAV_OK);
    EXPECT_EQ(TAV_ExtTlvConvertEndian(1000, 0x10000, source.data(), target.data()), TAV_ERR_INVALID);
    interposer::FailNth(interposer::Call::kMemCopy, 1);
    EXPECT_EQ(TAV_ExtTlvConvertEndian(14, 4, source.data(), target.data()), TAV_ERR_COPY);
    interposer::Reset();
}

TEST(Codec, SetAndAppendStayInTheirRoom) {
    DebugLog log;
    const Bytes value = Host32(0x01020304);
    for (uint32_t room = 0; room < 20; ++room) {
        for (bool header : {true, false}) {
            const uint32_t needed = 12;  // a header alone asks for the room of its content too
            auto block = ExactBlock(Filled(room, 0xEE));
            uint32_t code = TAV_ExtTlvSet(14, 4, header ? nullptr : value.data(), block.get(), room);
            EXPECT_EQ(code, room < needed ? TAV_ERR_NO_ROOM : TAV_OK);
            Bytes written = header ? Slice(Tlv(14, Be32(0)), 0, 8) : Tlv(14, Be32(0x01020304));
            written.resize(room < needed ? 0 : written.size());
            Bytes expected = Join({written, Filled(room - written.size(), 0xEE)});
            EXPECT_EQ(Bytes(block.get(), block.get() + room), expected);
            if (code == TAV_OK) {
                log.Expect({});
            } else {
                log.Expect(
                    {{"TAV_ExtTlvSet", "Set TLV len over max(type=14, len=4), max size=" + std::to_string(room)}});
            }
        }
    }
    for (uint32_t length = kNearTop; length != 0; ++length) {
        auto block = ExactBlock(Filled(16, 0xEE));
        EXPECT_EQ(TAV_ExtTlvSet(14, length, value.data(), block.get(), 16), TAV_ERR_NO_ROOM) << length;
        EXPECT_EQ(Bytes(block.get(), block.get() + 16), Filled(16, 0xEE));
    }
    Bytes block = Filled(64, 0xEE);
    EXPECT_EQ(TAV_ExtTlvSet(14, 5, value.data(), block.data(), 64), TAV_ERR_INVALID);
    EXPECT_EQ(Slice(block, 0, 8), Join({Be32(14), Be32(5)})) << "the header is written before the value is refused";

    uint8_t *cursor = block.data();
    const uint8_t *end = block.data() + 48;
    EXPECT_EQ(TAV_ExtTlvAppend(2, 40, nullptr, &cursor, end), TAV_OK);
    EXPECT_EQ(cursor - block.data(), 8) << "a header alone";
    EXPECT_EQ(TAV_ExtTlvAppend(14, 4, value.data(), &cursor, end), TAV_OK);
    EXPECT_EQ(cursor - block.data(), 20);
    EXPECT_EQ(TAV_ExtTlvAppend(8, 21, Filled(21, 'x').data(), &cursor, end), TAV_ERR_NO_ROOM);
    EXPECT_EQ(cursor - block.data(), 49) << "moves on also when it failed";
    log.Take();
    EXPECT_EQ(TAV_ExtTlvAppend(14, 4, value.data(), &cursor, end), TAV_ERR_NO_ROOM);
    EXPECT_EQ(cursor - block.data(), 49) << "but not from beyond the end";
    log.Expect({{"TAV_ExtTlvAppend", "pointer over end when write TLV(type=14, len=4)"}});
    EXPECT_EQ(Slice(block, 20, 64), Filled(44, 0xEE));
}

}  // namespace
