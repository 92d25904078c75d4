/*
 * Files that are not as they should be: every byte changed, every length cut, every named fault, random damage behind a
 * right checksum. Images lie in heap blocks of just their size, so that the address sanitizer sees a read outside.
 */
#include <gtest/gtest.h>

#include <algorithm>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

const Bytes kKey = Tlv(14, Be32(5));
const Bytes kRecord13 = Tlv(13, {kKey, Tlv(15, Be16(1))});
const Bytes kRecord7 = Tlv(7, {Tlv(8, Text("ssh")), Tlv(9, Be16(22))});
const Bytes kBody = Join({VsTlv(0, {kRecord7, kRecord13}), VsTlv(3, {kRecord13})});
const Bytes kVersion = Tlv(3, Be32(0x08070001));
const Bytes kTime = Tlv(4, Filled(12, 0));
const Bytes kSum = Tlv(5, Sha256(kBody));

Store EmptyStore() {
    return Store(TAV_ExtCfgLocalCreate(2, "/nowhere/a.dat", nullptr));
}

/** Checks and parses an image into a store, or, with a condition, looks for a record without one. */
uint32_t Parse(const Bytes &image, CfgLocal *local, const char *refer = nullptr,
               TAV_ExtCfgRecordNode *condition = nullptr) {
    auto block = ExactBlock(image);
    TAV_ExtCfgFileContext context{};
    context.local = local;
    context.referPath = refer;
    context.recordCond = condition;
    uint32_t code = TAV_ParseExtCfgFileData(block.get(), static_cast<uint32_t>(image.size()), &context);
    if (context.foundValue != nullptr) {
        EXPECT_EQ(code, 1u);
        EXPECT_GE(context.foundValue, block.get());
        EXPECT_LE(context.foundLength, static_cast<size_t>(block.get() + image.size() - context.foundValue));
    }
    EXPECT_TRUE(std::equal(image.begin(), image.end(), block.get())) << "the image was changed";
    return code;
}

uint32_t Parse(const Bytes &image, const char *refer = nullptr) {
    return Parse(image, EmptyStore().get(), refer);
}

Bytes BodyOf(CfgLocal *local) {
    Bytes body(TAV_CalcExtCfgFileBodySize(local));
    EXPECT_EQ(TAV_BuildExtCfgFileBody(local, body.data(), static_cast<uint32_t>(body.size())),
              body.empty() ? TAV_ERR_NULL : TAV_OK);
    return body;
}

TEST(Malformed, EveryChangedByte) {
    const Bytes image = Image(kBody);
    ASSERT_EQ(Parse(image), TAV_OK);
    NothingLeaks leaks;
    for (size_t at = 0; at < image.size(); ++at) {
        // The version's lower bytes and the modify time mean nothing to a reader; all else is covered.
        bool tolerated = (at > kVersionAt && at < kVersionAt + 4) || (at >= kTimeAt && at < kTimeAt + 12);
        for (uint8_t flip : Bytes{0x01, 0x04, 0x80, 0xFF}) {
            Bytes changed = image;
            changed[at] = static_cast<uint8_t>(changed[at] ^ flip);
            uint32_t code = Parse(changed);
            EXPECT_EQ(code == TAV_OK, tolerated) << "byte " << at << " flip " << int{flip};
            EXPECT_TRUE(code == TAV_OK || code == TAV_ERR_INVALID) << "byte " << at << " code " << code;
        }
    }
}

TEST(Malformed, EveryTruncationAndAppendedBytes) {
    const Bytes image = Image(kBody);
    NothingLeaks leaks;
    for (size_t size = 0; size < image.size(); ++size) {
        EXPECT_EQ(Parse(Slice(image, 0, size)), TAV_ERR_INVALID) << size;
        // The same with a digest that fits what is left, so that the walk decides: the cut at the end of a VS is whole.
        if (size > kHeadSize) {
            Bytes whole = Image(Slice(image, kHeadSize, size));
            EXPECT_EQ(Parse(whole) == TAV_OK, size == image.size() - Tlv(2, {Tlv(6, Be32(3)), kRecord13}).size())
                << size;
        }
    }
    for (size_t more = 1; more <= 24; ++more) {
        for (uint8_t fill : Bytes{0x00, 0xFF}) {
            EXPECT_EQ(Parse(Join({image, Filled(more, fill)})), TAV_ERR_INVALID) << more;
            // Zeros make empty TLVs of an unknown type, which a reader passes over; only whole ones.
            bool wholeTlvs = fill == 0 && more % 8 == 0;
            EXPECT_EQ(Parse(Image(Join({kBody, Filled(more, fill)}))), wholeTlvs ? TAV_OK : TAV_ERR_INVALID) << more;
        }
    }
}

/** A length so large that adding the header's 8 bytes wraps, at every level. */
TEST(Malformed, LengthsThatWrap) {
    NothingLeaks leaks;
    Record condition = Class13(5);
    for (uint32_t length = 0xFFFFFFF0; length != 0; ++length) {
        Bytes head = Join({Be32(13), Be32(length)});
        Bytes body[] = {Join({Be32(2), Be32(length), Filled(24, 0)}),
                        Join({kBody, head, Filled(8, 0)}),
                        VsTlv(0, {head, Filled(8, 0)}),
                        VsTlv(0, {kRecord7, head}),
                        VsTlv(0, {Tlv(13, {Join({Be32(14), Be32(length)}), Be32(5)})}),
                        VsTlv(0, {Tlv(13, {Tlv(15, Be16(1)), Join({Be32(14), Be32(length)}), Be32(5)})}),
                        Tlv(2, Join({Be32(6), Be32(length), Be32(0)}))};
        for (const Bytes &test : body) {
            EXPECT_EQ(Parse(Image(test)), TAV_ERR_INVALID) << length;
            EXPECT_NE(Parse(Image(test), nullptr, nullptr, condition.get()), 1u) << length;
        }
        Bytes wholeHead = Join({Be32(1), Be32(length), Slice(Image(kBody), 8, kHeadSize), kBody});
        EXPECT_EQ(Parse(wholeHead), TAV_ERR_INVALID);
        EXPECT_NE(Parse(ImageWithHead({kVersion, kTime, kSum, Be32(9), Be32(length)}, kBody)), TAV_OK);
        EXPECT_NE(Parse(ImageWithHead({Be32(3), Be32(length), kTime, kSum}, kBody)), TAV_OK);
    }
}

/** An image and what is reported of its fault; `refer` names the refer file, if any. */
struct Fault {
    const char *name;
    Bytes image;
    LogEntry report;
    const char *refer = nullptr;
};

Bytes WithVersion(uint32_t version) {
    return ImageWithHead({Tlv(3, Be32(version)), kTime, kSum}, kBody);
}
Bytes WithSum(const Bytes &sum) {
    return ImageWithHead({kVersion, kTime, Tlv(5, sum)}, kBody);
}

TEST(Malformed, EachNamedFaultWithItsReports) {
    TempFolder folder;
    const std::string refer = folder.Path("r.dat"), chain = folder.Path("chain.dat");
    const Bytes referred = Image(VsTlv(9, {}));
    WriteFile(refer, referred);
    const Bytes referSum = Slice(referred, kChecksumAt, kHeadSize);
    WriteFile(chain, Image(kBody, referSum));
    const std::string data = "TAV_CheckExtCfgFileData", version = "TAV_CheckExtCfgFileVersion",
                      time = "TAV_CheckExtCfgFileModifyTime", sum = "TAV_CheckExtCfgFileChecksum",
                      referSumCheck = "TAV_CheckExtCfgFileReferChecksum", vs = "TAV_ParseExtCfgVsNode",
                      record = "TAV_ParseExtCfgRecordNode";
    const std::string missing = "Null pointer, return 0x801618", invalid = "return 0x801617";
    const size_t total = Image(kBody).size(), lastVs = VsTlv(3, {kRecord13}).size();
    auto sizes = [](size_t size, size_t found) {
        return "File size " + std::to_string(size) + ", TLV total len is " + std::to_string(found);
    };
    Bytes almost = referSum;
    almost.back() ^= 1;
    const Fault headFaults[] = {
        {"nothing", {}, {data, "First TLV is invalid"}},
        {"other first TLV", Join({kBody, Image(kBody)}), {data, "First TLV must be HDR TLV, now is 2"}},
        {"one byte more", Join({Image(kBody), {0}}), {data, sizes(total + 1, total)}},
        {"one byte less", Slice(Image(kBody), 0, total - 1), {data, sizes(total - 1, total - lastVs)}},
        {"no version", ImageWithHead({kTime, kSum}, kBody), {data, missing}},
        {"no time", ImageWithHead({kVersion, kSum}, kBody), {data, missing}},
        {"no checksum", ImageWithHead({kVersion, kTime}, kBody), {data, missing}},
        {"foreign head field",
         ImageWithHead({kVersion, kTime, kSum, Tlv(9, Be16(1))}, kBody),
         {"TAV_CheckExtCfgFileHeadEachField", "Null pointer, " + invalid}},
        {"old version", WithVersion(0x07070001), {version, "Invalid version 0x7070001"}},
        {"new version", WithVersion(0x09070001), {version, "Invalid version 0x9070001"}},
        {"long version", ImageWithHead({Tlv(3, Filled(5, 8)), kTime, kSum}, kBody), {version, "Invalid size 5"}},
        {"long time", ImageWithHead({kVersion, Tlv(4, Filled(13, 0)), kSum}, kBody), {time, "Invalid size 13"}},
        {"checksum of 33", WithSum(Join({Sha256(kBody), {0}})), {sum, "Invalid size 33"}},
        {"checksum of 28", WithSum(Slice(Sha256(kBody), 0, 28)), {sum, "Invalid size 28"}},
        {"other checksum", WithSum(Filled(36, 1)), {sum, "Checksum mismatch"}},
        {"no refer file", Image(kBody, referSum), {referSumCheck, "Error code 0x801619, " + invalid}},
        {"no refer checksum", Image(kBody), {data, missing}, refer.c_str()},
        {"other refer checksum", Image(kBody, almost), {referSumCheck, "Refer checksum mismatch"}, refer.c_str()},
        {"refer checksum of 36",
         Image(kBody, Join({referSum, Filled(4, 0)})),
         {referSumCheck, "Invalid size 36"},
         refer.c_str()},
        {"refer file that refers",
         Image(kBody, Sha256(kBody)),
         {referSumCheck, "Error code 0x801617, " + invalid},
         chain.c_str()},
    };
    const Fault bodyFaults[] = {
        {"no body", Image({}), {"TAV_ExtTlvProcForEach", "First TLV is invalid"}},
        {"VS without content", Image(Tlv(2, Bytes{})), {vs, "Error code 0x801618, " + invalid}},
        {"VS without id", Image(Tlv(2, {kRecord13})), {vs, "Error code 0x801618, " + invalid}},
        {"VS id of 8", Image(Tlv(2, {Tlv(6, Filled(8, 0))})), {vs, "Error code 0x801617, " + invalid}},
        {"stray bytes in a VS", Image(VsTlv(0, {kRecord13, Filled(3, 0)})), {vs, "Report error: 0x801617"}},
        {"record without fields",
         Image(VsTlv(0, {Tlv(13, Bytes{})})),
         {record, "Parse record failed, cid=13, " + invalid}},
        {"cut record",
         Image(VsTlv(0, {Tlv(13, {kKey, Filled(5, 0)})})),
         {record, "Parse record failed, cid=13, " + invalid}},
        {"record without key",
         Image(VsTlv(0, {Tlv(7, {Tlv(9, Be16(22))})})),
         {record, "Verify record failed, cid=7, " + invalid}},
        {"the same key twice",
         Image(VsTlv(0, {kRecord13, kRecord13})),
         {record, "Add record failed, cid=13, " + invalid}},
    };
    DebugLog log;
    NothingLeaks leaks;
    for (const Fault &fault : headFaults) {
        SCOPED_TRACE(fault.name);
        log.Take();
        EXPECT_EQ(Parse(fault.image, fault.refer), TAV_ERR_INVALID);
        std::vector<LogEntry> reports = {fault.report};
        if (fault.report.function != data) {
            reports.push_back({data, "Error code 0x801617, " + invalid});
        }
        reports.push_back({"TAV_ParseExtCfgFileData", "File data is invalid"});
        log.ExpectAmong(reports);
        // The check itself knows a missing head field from a wrong one.
        TAV_ExtCfgFileContext context{};
        context.referPath = fault.refer;
        auto block = ExactBlock(fault.image);
        EXPECT_EQ(TAV_CheckExtCfgFileData(block.get(), static_cast<uint32_t>(fault.image.size()), &context),
                  fault.report.message == missing ? TAV_ERR_NOT_FOUND : TAV_ERR_INVALID);
    }
    for (const Fault &fault : bodyFaults) {
        SCOPED_TRACE(fault.name);
        log.Take();
        EXPECT_EQ(Parse(fault.image), TAV_ERR_INVALID);
        log.ExpectAmong({fault.report, {"TAV_ParseExtCfgFileData", "Report error: 0x801617"}});
    }
    EXPECT_EQ(Parse(Image(VsTlv(0, {Tlv(7, {Tlv(8, Filled(255, 'x'))})}))), TAV_ERR_NO_MEMORY) << "over its limit";
    log.ExpectAmong({{"TAV_ExtCfgFieldNodeCreate", "Too large for fid 8, len=255"},
                     {"TAV_ParseExtCfgFieldNode", "Null pointer, return 0x801611"},
                     {record, "Parse record failed, cid=7, return 0x801611"},
                     {vs, "Report error: 0x801611"},
                     {"TAV_ParseExtCfgFileData", "Report error: 0x801611"}});
    uint8_t byte = 0;
    TAV_ExtCfgFileContext context{};
    log.Take();
    EXPECT_EQ(TAV_CheckExtCfgFileData(nullptr, 1, &context), TAV_ERR_NULL);
    EXPECT_EQ(TAV_CheckExtCfgFileData(&byte, 1, nullptr), TAV_ERR_NULL);
    log.Expect({{"TAV_CheckExtCfgFileData", "Null pointer, return 0x801619"},
                {"TAV_CheckExtCfgFileData", "Null pointer, return 0x801619"}});
    EXPECT_EQ(TAV_ParseExtCfgVsNode(2, nullptr, 0, &context), TAV_ERR_NULL);
    EXPECT_EQ(TAV_ParseExtCfgVsNode(2, &byte, 1, nullptr), TAV_ERR_NULL);
}

TEST(Malformed, WhatIsTolerated) {
    const Bytes unknown = Tlv(0x7000, Text("from a later version"));
    const std::pair<const char *, Bytes> images[] = {
        {"lowest version", WithVersion(0x08000000)},
        {"highest version", WithVersion(0x08FFFFFF)},
        {"checksum of 36", WithSum(Join({Sha256(kBody), Filled(4, 0xEE)}))},
        {"head in another order", ImageWithHead({kSum, kTime, kVersion}, kBody)},
        {"unknown TLVs at the top", Image(Join({unknown, kBody, Tlv(1, Text("x")), unknown}))},
        {"unknown TLVs and fields in a VS", Image(Join({VsTlv(0, {unknown, kRecord7, Tlv(9, Be16(1)), kRecord13}),
                                                        VsTlv(3, {kRecord13, Tlv(9, Bytes{})})}))},
        {"a VS in two parts", Image(Join({VsTlv(0, {kRecord7}), VsTlv(3, {kRecord13}), VsTlv(0, {kRecord13})}))},
        {"VS id behind the records",
         Image(Join({Tlv(2, {kRecord7, kRecord13, Tlv(6, Be32(0))}), VsTlv(3, {kRecord13})}))},
    };
    for (const auto &[name, image] : images) {
        SCOPED_TRACE(name);
        Store store = EmptyStore();
        EXPECT_EQ(Parse(image, store.get()), TAV_OK);
        EXPECT_EQ(BodyOf(store.get()), kBody);
    }
}

TEST(Malformed, FiltersOfVsAndRecord) {
    Bytes image = Image(Join({kBody, VsTlv(4, {Tlv(13, {Tlv(14, Be32(6))})})}));
    auto bodySize = [&](const uint32_t *vsFilter, TAV_ExtCfgRecordNode *condition) {
        Store store = EmptyStore();
        TAV_ExtCfgFileContext context{};
        context.local = store.get();
        context.vsFilter = vsFilter;
        context.recordCond = condition;
        EXPECT_EQ(TAV_ParseExtCfgFileData(image.data(), static_cast<uint32_t>(image.size()), &context), TAV_OK);
        EXPECT_EQ(context.currentVs, nullptr);
        EXPECT_EQ(context.headSize, kHeadSize);
        EXPECT_EQ(context.storedChecksum, image.data() + kChecksumAt);
        return TAV_CalcExtCfgFileBodySize(store.get());
    };
    uint32_t three = 3, missing = 77;
    Record anyClass13 = MakeRecord(13, {}), key5 = Class13(5), key5value2 = Class13(5, 2);
    EXPECT_EQ(bodySize(&three, nullptr), VsTlv(3, {kRecord13}).size());
    EXPECT_EQ(bodySize(&missing, nullptr), 0u);
    EXPECT_EQ(bodySize(nullptr, anyClass13.get()), 3 * 20 + 2 * kRecord13.size() + 20u);
    EXPECT_EQ(bodySize(nullptr, key5.get()), 3 * 20 + 2 * kRecord13.size());
    EXPECT_EQ(bodySize(nullptr, key5value2.get()), 3 * 20u);
}

/** Damages bodies at random, and looks what the parser makes of them when the checksum is right. */
TEST(Malformed, RandomDamageBehindARightChecksum) {
    NothingLeaks leaks;
    Random random(77);
    Record condition = Class13(5);
    unsigned loaded = 0, refused = 0;
    for (unsigned round = 0; round < 6000; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        Bytes body = kBody;
        for (unsigned count = random() % 3 + 1; count > 0; --count) {
            size_t at = random() % body.size();
            switch (random() % 4) {
                case 0:
                    body[at] = static_cast<uint8_t>(random());
                    break;
                case 1:
                    body[at] = static_cast<uint8_t>(body[at] ^ 1u << random() % 8);
                    break;
                case 2:
                    body.erase(body.begin() + static_cast<std::ptrdiff_t>(at));
                    break;
                default:
                    body[at & ~size_t{3}] = static_cast<uint8_t>(random() % 30);
            }
        }
        Parse(Image(body), nullptr, nullptr, condition.get());
        Store store = EmptyStore();
        uint32_t code = Parse(Image(body), store.get());
        if (code != TAV_OK) {
            ASSERT_TRUE(code == TAV_ERR_INVALID || code == TAV_ERR_NO_MEMORY) << std::hex << code;
            ++refused;
            continue;
        }
        ++loaded;
        // What loads can be written, and then loads again as the same.
        Bytes first = BodyOf(store.get());
        Store again = EmptyStore();
        ASSERT_EQ(Parse(Image(first), again.get()), first.empty() ? TAV_ERR_INVALID : TAV_OK);
        ASSERT_EQ(BodyOf(again.get()), first);
    }
    EXPECT_GT(loaded, 300u) << "the damage is too heavy to tell anything";
    EXPECT_GT(refused, 300u);
}

TEST(Malformed, FailingDigest) {
    DebugLog log;
    interposer::Reset();
    interposer::FailNth(interposer::Call::kDigest, 1);
    EXPECT_EQ(Parse(Image(kBody)), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_CalcChecksum", "Report error: 0x4d"},
                     {"TAV_CheckExtCfgFileChecksum", "Error code 0x1, return 0x801613"},
                     {"TAV_CheckExtCfgFileData", "Error code 0x801613, return 0x801617"}});
    interposer::Reset();
}

}  // namespace
