/*
 * The TLV codec against a plain second reading of the format, and its reports.
 */
#include <gtest/gtest.h>

#include <algorithm>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

constexpr uint32_t kNearTop = 0xFFFFFFF0;

uint32_t WordAt(const Bytes &bytes, size_t at) {
    return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

/** One complete TLV of a sequence, as a second reader sees it. */
struct Seen {
    size_t offset;
    uint32_t type;
    Bytes value;
};

/** The complete TLVs of a sequence; `end` is where the last of them ends. */
std::vector<Seen> PlainReading(const Bytes &bytes, size_t &end) {
    std::vector<Seen> all;
    for (end = 0; bytes.size() - end >= 8 && WordAt(bytes, end + 4) <= bytes.size() - end - 8;) {
        const size_t value = end + 8, next = value + WordAt(bytes, end + 4);
        all.push_back({end, WordAt(bytes, end), Slice(bytes, value, next)});
        end = next;
    }
    return all;
}

uint32_t NoteVisit(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    Bytes &seen = *static_cast<Bytes *>(context);
    seen = Join({seen, Tlv(type, Bytes(value, value + length))});
    return 0;
}

/** Walks, finds and reads random sequences, some with stray bytes, a cut end, or lengths that would wrap. */
TEST(Codec, WalksAgreeWithAPlainReading) {
    Random random(20240305);
    for (unsigned round = 0; round < 4000; ++round) {
        Bytes bytes;
        for (unsigned count = random() % 5; count > 0; --count) {
            const uint32_t lengths[] = {0, 4, 4, random() % 20};
            bytes = Join({bytes, Tlv(random() % 6 + 1, Filled(lengths[random() % 4], uint8_t(round)))});
        }
        const unsigned damage = random() % 4;
        if (damage == 0) {
            bytes.resize(bytes.size() + random() % 12);
        } else if (damage == 1) {
            bytes.resize(bytes.size() - std::min<size_t>(bytes.size(), random() % 14));
        } else if (damage == 2) {
            bytes = Join({bytes, Be32(random() % 6 + 1), Be32(kNearTop + random() % 16), Filled(random() % 30, 7)});
        }
        SCOPED_TRACE("round " + std::to_string(round));
        auto block = ExactBlock(bytes);
        const auto maxLen = static_cast<uint32_t>(bytes.size());
        size_t end = 0;
        const std::vector<Seen> expected = PlainReading(bytes, end);

        Bytes visited;
        const bool isClean = !expected.empty() && end == bytes.size();
        ASSERT_EQ(TAV_ExtTlvProcForEach(NoteVisit, block.get(), maxLen, &visited), isClean ? TAV_OK : TAV_ERR_INVALID);
        ASSERT_EQ(visited, Slice(bytes, 0, end));
        for (size_t at = 0; at < expected.size(); ++at) {
            const auto offset = static_cast<uint32_t>(expected[at].offset);
            uint8_t *next = at + 1 < expected.size() ? block.get() + expected[at + 1].offset : nullptr;
            ASSERT_EQ(TAV_ExtTlvGetNext(block.get() + offset, maxLen - offset), next);
        }
        for (uint32_t type = 0; type < 8; ++type) {
            auto first = std::ranges::find(expected, type, &Seen::type);
            const bool isThere = first != expected.end(), isWord = isThere && first->value.size() == 4;
            ASSERT_EQ(TAV_ExtTlvFind(block.get(), maxLen, type), isThere ? block.get() + first->offset : nullptr);
            uint32_t value = 0x5A5A5A5A;
            const uint32_t code = TAV_ExtTlvGetValue_UINT32(block.get(), maxLen, type, &value);
            ASSERT_EQ(code, isWord ? TAV_OK : isThere ? TAV_ERR_INVALID : TAV_ERR_NOT_FOUND);
            ASSERT_EQ(value, isWord ? WordAt(first->value, 0) : 0x5A5A5A5A);
        }
    }
}

TEST(Codec, Reports) {
    DebugLog log;
    Bytes seen;
    const Bytes two = Join({Tlv(3, Be32(1)), Tlv(9, Be16(2))});  // 12 and 10 bytes
    auto walk = [&](const Bytes &bytes, const std::vector<LogEntry> &reports) {
        auto block = ExactBlock(bytes);
        const uint32_t code = TAV_ExtTlvProcForEach(NoteVisit, block.get(), uint32_t(bytes.size()), &seen);
        EXPECT_EQ(code, reports.empty() ? TAV_OK : TAV_ERR_INVALID);
        log.Expect(reports);
        const bool isFirstBad = !reports.empty() && reports[0].function == "TAV_ExtTlvVerify";
        EXPECT_EQ(TAV_ExtTlvVerify(block.get(), uint32_t(bytes.size())), isFirstBad ? 1u : 0u);
        log.Take();
    };
    walk(two, {});
    walk(Join({two, Filled(3, 0)}),
         {{"TAV_ExtTlvGetNext", "No next TLV head, curTlvType=9, curTlvLen=10, maxLen=13"},
          {"TAV_ExtTlvProcForEach", "Parse cfg tlv failed, left size=3, cur type=9, len=2"}});
    walk(Join({two, Be32(8), Be32(15), Filled(5, 0)}),
         {{"TAV_ExtTlvGetNext", "No next TLV body, curTlvLen=10, nextTlvLen=15, maxLen=23"},
          {"TAV_ExtTlvProcForEach", "Parse cfg tlv failed, left size=13, cur type=9, len=2"}});
    walk(Slice(two, 0, 7),
         {{"TAV_ExtTlvVerify", "Invalid TLV head, maxLen=7"}, {"TAV_ExtTlvProcForEach", "First TLV is invalid"}});
    walk(Slice(two, 0, 11), {{"TAV_ExtTlvVerify", "Invalid TLV body, curTlvLen=12, maxLen=11"},
                             {"TAV_ExtTlvProcForEach", "First TLV is invalid"}});
    auto block = ExactBlock(two);
    const std::pair<uint32_t, std::vector<LogEntry>> rooms[] = {
        {7, {}},
        {8, {{"TAV_ExtTlvGetNext", "No next TLV head, curTlvType=3, curTlvLen=12, maxLen=8"}}},
        {11, {{"TAV_ExtTlvGetNext", "No next TLV head, curTlvType=3, curTlvLen=12, maxLen=11"}}},
        {12, {}},
        {13, {{"TAV_ExtTlvGetNext", "No next TLV head, curTlvType=3, curTlvLen=12, maxLen=13"}}}};
    for (const auto &[room, reports] : rooms) {
        EXPECT_EQ(TAV_ExtTlvGetNext(block.get(), room), nullptr);
        log.Expect(reports);
    }
    uint32_t value = 0;
    EXPECT_EQ(TAV_ExtTlvGetValue_UINT32(block.get(), 22, 8, &value), TAV_ERR_NOT_FOUND);
    log.Expect({{"TAV_ExtTlvFind", "TLV 8 not found"}, {"TAV_ExtTlvGetValue_UINT32", "Null pointer, return 0x801618"}});
    const TAV_ExtTlvProcFunc stop = [](uint32_t type, uint8_t *, uint32_t, void *) { return type == 3 ? 42u : 43u; };
    EXPECT_EQ(TAV_ExtTlvProcForEach(stop, block.get(), 22, nullptr), 42u) << "the visitor's own code";
    log.Expect({{"TAV_ExtTlvProcForEach", "ExtTlvProcFunc of type(3) failed, return 0x2a"}});
}

/** What each type converts shows in the golden files and the random stores; here is what does not convert. */
TEST(Codec, ConversionLimits) {
    DebugLog log;
    Bytes source = Filled(0x10000, 1), target(0x10000);
    auto convert = [&](uint32_t type, uint32_t length) {
        return TAV_ExtTlvConvertEndian(type, length, source.data(), target.data());
    };
    source[0] = 2;
    EXPECT_EQ(convert(14, 2), TAV_OK) << "too short for its converter, which is not a failure";
    EXPECT_EQ(Slice(target, 0, 3), Hex("020100"));
    log.Take();
    EXPECT_EQ(convert(14, 5), TAV_ERR_INVALID);
    log.Expect({{"TAV_ExtTlvConvertEndian", "Invalid len 5, over datatype len 4"}});
    EXPECT_EQ(convert(1000, 0xFFFF), TAV_OK) << "a type that the table does not know";
    EXPECT_EQ(Slice(target, 0, 0xFFFF), Slice(source, 0, 0xFFFF));
    EXPECT_EQ(convert(1000, 0x10000), TAV_ERR_INVALID);
    interposer::FailNth(interposer::Call::kMemCopy, 1);
    EXPECT_EQ(convert(14, 4), TAV_ERR_COPY);
    interposer::Reset();
}

TEST(Codec, SetAndAppendStayInTheirRoom) {
    const Bytes value = Host32(0x01020304), whole = Tlv(14, Be32(0x01020304)), untouched = Filled(64, 0xEE);
    for (uint32_t room = 0; room < 20; ++room) {
        for (size_t written : {size_t{8}, whole.size()}) {  // a header alone asks for the room of its content too
            auto block = ExactBlock(Slice(untouched, 0, room));
            const uint32_t code = TAV_ExtTlvSet(14, 4, written == 8 ? nullptr : value.data(), block.get(), room);
            EXPECT_EQ(code, room < whole.size() ? TAV_ERR_NO_ROOM : TAV_OK);
            const Bytes expected = code == TAV_OK ? Join({Slice(whole, 0, written), untouched}) : untouched;
            EXPECT_EQ(Bytes(block.get(), block.get() + room), Slice(expected, 0, room));
        }
    }
    DebugLog log;
    Bytes block = untouched;
    for (uint32_t length = kNearTop; length != 0; ++length) {
        EXPECT_EQ(TAV_ExtTlvSet(14, length, value.data(), block.data(), 16), TAV_ERR_NO_ROOM) << length;
    }
    EXPECT_EQ(log.Take().back().message, "Set TLV len over max(type=14, len=-1), max size=16");
    EXPECT_EQ(block, untouched);
    EXPECT_EQ(TAV_ExtTlvSet(14, 5, value.data(), block.data(), 64), TAV_ERR_INVALID);
    EXPECT_EQ(Slice(block, 0, 8), Join({Be32(14), Be32(5)})) << "the header is written before the value is refused";

    uint8_t *cursor = block.data();
    auto append = [&](uint32_t type, uint32_t length, const void *from, std::ptrdiff_t cursorAfter) {
        log.Take();
        const uint32_t code = TAV_ExtTlvAppend(type, length, from, &cursor, block.data() + 48);
        EXPECT_EQ(cursor - block.data(), cursorAfter);
        return code;
    };
    EXPECT_EQ(append(2, 40, nullptr, 8), TAV_OK) << "a header alone";
    EXPECT_EQ(append(14, 4, value.data(), 20), TAV_OK);
    EXPECT_EQ(append(8, 20, untouched.data(), 48), TAV_OK);
    EXPECT_EQ(append(2, 0, nullptr, 56), TAV_ERR_NO_ROOM) << "from just the end the cursor moves on, as of any failure";
    log.Expect({{"TAV_ExtTlvSet", "Set TLV len over max(type=2, len=0), max size=0"}});
    cursor = block.data() + 20;
    std::copy_n(untouched.data(), 28, cursor);
    EXPECT_EQ(append(8, 21, untouched.data(), 49), TAV_ERR_NO_ROOM) << "the cursor moves on also when it failed";
    EXPECT_EQ(append(14, 4, value.data(), 49), TAV_ERR_NO_ROOM) << "but not from beyond the end";
    log.Expect({{"TAV_ExtTlvAppend", "pointer over end when write TLV(type=14, len=4)"}});
    EXPECT_EQ(Slice(block, 20, 64), Slice(untouched, 0, 44));
}

}  // namespace
