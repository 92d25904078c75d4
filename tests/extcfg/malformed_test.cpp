/*
 * Files that are not as they should be: every byte changed, every length cut, every named fault. Images lie in heap
 * blocks of just their size, so that the address sanitizer sees a read outside. (Random damage is the fuzzer's.)
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

const Bytes kKey = Tlv(14, Be32(5));
const Bytes kRecord13 = Tlv(13, {kKey, Tlv(15, Be16(1))});
const Bytes kRecord7 = Tlv(7, {Tlv(8, Text("ssh")), Tlv(9, Be16(22))});
const Bytes kLastVs = VsTlv(3, {kRecord13});
const Bytes kBody = Join({VsTlv(0, {kRecord7, kRecord13}), kLastVs});
const Bytes kVersion = Tlv(3, Be32(0x08070001));
const Bytes kTime = Tlv(4, Filled(12, 0));
const Bytes kSum = Tlv(5, Sha256(kBody));

using Malformed = FolderTest;

Store EmptyStore() {
    return Store(TAV_ExtCfgLocalCreate(2, "/nowhere/a.dat", nullptr));
}

/** Checks and parses an image, which stays as it is. */
uint32_t Parse(const Bytes &image, const Store &store = EmptyStore(), const char *refer = nullptr) {
    TAV_ExtCfgFileContext context{};
    context.local = store.get();
    context.referPath = refer;
    const auto block = ExactBlock(image);
    const uint32_t code = TAV_ParseExtCfgFileData(block.get(), static_cast<uint32_t>(image.size()), &context);
    EXPECT_EQ(context.currentVs, nullptr);
    EXPECT_TRUE(std::equal(image.begin(), image.end(), block.get())) << "the image was changed";
    return code;
}

Bytes WithVersion(uint32_t version) {
    return ImageWithHead({Tlv(3, Be32(version)), kTime, kSum}, kBody);
}
Bytes WithSum(const Bytes &sum) {
    return ImageWithHead({kVersion, kTime, Tlv(5, sum)}, kBody);
}

TEST_F(Malformed, EveryChangedByte) {
    const Bytes image = Image(kBody);
    ASSERT_EQ(Parse(image), TAV_OK);
    for (size_t at = 0; at < image.size(); ++at) {
        // The version's lower bytes and the modify time mean nothing to a reader; all else is covered.
        bool tolerated = (at > kVersionAt && at < kVersionAt + 4) || (at >= kTimeAt && at < kTimeAt + 12);
        for (uint8_t flip : Bytes{0x01, 0x04, 0x80, 0xFF}) {
            Bytes changed = image;
            changed[at] = static_cast<uint8_t>(changed[at] ^ flip);
            EXPECT_EQ(Parse(changed), tolerated ? TAV_OK : TAV_ERR_INVALID) << "byte " << at << " flip " << int{flip};
        }
    }
}

TEST_F(Malformed, EveryTruncationAndAppendedBytes) {
    const Bytes image = Image(kBody);
    for (size_t size = 0; size < image.size(); ++size) {
        EXPECT_EQ(Parse(Slice(image, 0, size)), TAV_ERR_INVALID) << size;
        // The same with a digest that fits what is left, so that the walk decides: the cut at the end of a VS is whole.
        if (size > kHeadSize) {
            bool wholeVs = size == image.size() - kLastVs.size();
            EXPECT_EQ(Parse(Image(Slice(image, kHeadSize, size))), wholeVs ? TAV_OK : TAV_ERR_INVALID) << size;
        }
    }
    for (size_t more = 1; more <= 24; ++more) {
        EXPECT_EQ(Parse(Join({image, Filled(more, 0)})), TAV_ERR_INVALID) << more;
        EXPECT_EQ(Parse(Image(Join({kBody, Filled(more, 0xFF)}))), TAV_ERR_INVALID) << more;
        // Zeros make empty TLVs of an unknown type, which a reader passes over; only whole ones.
        EXPECT_EQ(Parse(Image(Join({kBody, Filled(more, 0)}))), more % 8 == 0 ? TAV_OK : TAV_ERR_INVALID) << more;
    }
}

/** Likewise with a right checksum: what loads all the same can be written, and then loads as the same. */
TEST_F(Malformed, EveryChangedByteBehindARightChecksum) {
    for (size_t at = 0; at < kBody.size(); ++at) {
        for (const int change : {-4, -1, 1, 4, 8, 0x7F, 0x80}) {
            SCOPED_TRACE(std::to_string(at) + " by " + std::to_string(change));
            Bytes body = kBody;
            body[at] = static_cast<uint8_t>(body[at] + change);
            const Store store = EmptyStore(), again = EmptyStore();
            const uint32_t code = Parse(Image(body), store);
            if (code == TAV_OK) {
                EXPECT_EQ(Parse(Image(*BodyOf(store)), again), BodyOf(store)->empty() ? TAV_ERR_INVALID : TAV_OK);
                EXPECT_EQ(BodyOf(again), BodyOf(store));
            } else {
                EXPECT_EQ(code, code == TAV_ERR_NO_MEMORY ? code : TAV_ERR_INVALID);
            }
        }
    }
}

/** The fields of a head have one length each, but for a checksum that is read, which may be padded. */
TEST_F(Malformed, HeadFieldsOfEveryLength) {
    const DebugLog log;
    const struct {
        const char *name;
        TAV_ExtTlvProcFunc function;
        uint32_t refusal;
        std::set<uint32_t> lengths;
    } functions[] = {{"TAV_FillExtCfgFileVersion", TAV_FillExtCfgFileVersion, TAV_ERR_COPY, {4}},
                     {"TAV_FillExtCfgFileModifyTime", TAV_FillExtCfgFileModifyTime, TAV_ERR_COPY, {12}},
                     {"TAV_FillExtCfgFileChecksum", TAV_FillExtCfgFileChecksum, TAV_ERR_COPY, {32}},
                     {"TAV_FillExtCfgFileReferChecksum", TAV_FillExtCfgFileReferChecksum, TAV_ERR_COPY, {32}},
                     {"TAV_CheckExtCfgFileVersion", TAV_CheckExtCfgFileVersion, TAV_ERR_INVALID, {4}},
                     {"TAV_CheckExtCfgFileModifyTime", TAV_CheckExtCfgFileModifyTime, TAV_ERR_INVALID, {12}},
                     {"TAV_CheckExtCfgFileChecksum", TAV_CheckExtCfgFileChecksum, TAV_ERR_INVALID, {32, 36}},
                     {"TAV_CheckExtCfgFileReferChecksum", TAV_CheckExtCfgFileReferChecksum, TAV_ERR_INVALID, {32}}};
    for (const auto &[name, function, refusal, lengths] : functions) {
        for (uint32_t length = 0; length < 40; ++length) {
            SCOPED_TRACE(std::string(name) + " " + std::to_string(length));
            Bytes image = Image(kBody), value = Filled(40, 8);
            TAV_ExtCfgFileContext context{};
            context.image = image.data();
            context.imageSize = static_cast<uint32_t>(image.size());
            context.headSize = kHeadSize;
            const uint32_t code = function(0, value.data(), length, &context);
            const bool isRefused =
                log.Take() == std::vector<LogEntry>({{name, "Invalid size " + std::to_string(length)}});
            EXPECT_EQ(isRefused, !lengths.contains(length));
            EXPECT_EQ(code, isRefused ? refusal : code);
            EXPECT_TRUE(!isRefused || value == Filled(40, 8));
        }
    }
}

TEST_F(Malformed, EachNamedFaultWithItsReports) {
    const std::string refer = folder.Path("r.dat"), chain = folder.Path("chain.dat");
    const Bytes referred = Image(VsTlv(9, {})), referSum = Slice(referred, kChecksumAt, kHeadSize);
    WriteFile(refer, referred);
    WriteFile(chain, Image(kBody, referSum));
    const std::string data = "TAV_CheckExtCfgFileData", version = "TAV_CheckExtCfgFileVersion",
                      sum = "TAV_CheckExtCfgFileChecksum", sum2 = "TAV_CheckExtCfgFileReferChecksum",
                      vs = "TAV_ParseExtCfgVsNode", record = "TAV_ParseExtCfgRecordNode";
    const std::string missing = "Null pointer, return 0x801618",
                      notParsed = "Parse record failed, cid=13, return 0x801617";
    const Bytes whole = Image(kBody), digest = Sha256(kBody);
    /** An image and what is reported of its fault; `refer` names the refer file, if any. */
    struct Fault {
        Bytes image;
        std::string function, message;
        std::string refer = {};
    };
    const std::vector<Fault> headFaults = {
        {{}, data, "First TLV is invalid"},
        {Join({kBody, whole}), data, "First TLV must be HDR TLV, now is 2"},
        {Join({whole, {0}}), data, "File size 210, TLV total len is 209"},
        {Slice(whole, 0, 208), data, "File size 208, TLV total len is 159"},
        {ImageWithHead({kTime, kSum}, kBody), data, missing},
        {ImageWithHead({kVersion, kSum}, kBody), data, missing},
        {ImageWithHead({kVersion, kTime}, kBody), data, missing},
        {ImageWithHead({kVersion, kTime, kSum, kKey}, kBody), "TAV_CheckExtCfgFileHeadEachField",
         "Null pointer, return 0x801617"},
        {WithVersion(0x07070001), version, "Invalid version 0x7070001"},
        {WithVersion(0x09070001), version, "Invalid version 0x9070001"},
        {WithSum(Filled(36, 1)), sum, "Checksum mismatch"},
        {Image(kBody, referSum), sum2, "Error code 0x801619, return 0x801617"},
        {whole, data, missing, refer},
        {Image(kBody, digest), sum2, "Refer checksum mismatch", refer},
        {Image(kBody, digest), sum2, "Error code 0x801617, return 0x801617", chain},
    };
    const std::vector<Fault> bodyFaults = {
        {Image({}), "TAV_ExtTlvProcForEach", "First TLV is invalid"},
        {Image(Tlv(2, Bytes{})), vs, "Error code 0x801618, return 0x801617"},
        {Image(Tlv(2, {kRecord13})), vs, "Error code 0x801618, return 0x801617"},
        {Image(Tlv(2, {Tlv(6, Filled(8, 0))})), vs, "Error code 0x801617, return 0x801617"},
        {Image(VsTlv(0, {kRecord13, Filled(3, 0)})), vs, "Report error: 0x801617"},
        {Image(VsTlv(0, {Tlv(13, Bytes{})})), record, notParsed},
        {Image(VsTlv(0, {Tlv(13, {kKey, Filled(5, 0)})})), record, notParsed},
        {Image(VsTlv(0, {Tlv(7, Tlv(9, Be16(22)))})), record, "Verify record failed, cid=7, return 0x801617"},
        {Image(VsTlv(0, {kRecord13, kRecord13})), record, "Add record failed, cid=13, return 0x801617"},
    };
    DebugLog log;
    for (const auto &[faults, lastReport] :
         {std::pair(headFaults, "File data is invalid"), {bodyFaults, "Report error: 0x801617"}}) {
        for (const auto &[image, function, message, referPath] : faults) {
            SCOPED_TRACE(message);
            EXPECT_EQ(Parse(image, EmptyStore(), referPath.empty() ? nullptr : referPath.c_str()), TAV_ERR_INVALID);
            log.ExpectAmong({{function, message}, {"TAV_ParseExtCfgFileData", lastReport}});
        }
    }
    EXPECT_EQ(Parse(Image(VsTlv(0, {Tlv(7, {Tlv(8, Filled(255, 'x'))})}))), TAV_ERR_NO_MEMORY) << "over its limit";
    log.ExpectAmong({{"TAV_ExtCfgFieldNodeCreate", "Too large for fid 8, len=255"},
                     {"TAV_ParseExtCfgFieldNode", "Null pointer, return 0x801611"},
                     {record, "Parse record failed, cid=7, return 0x801611"},
                     {vs, "Report error: 0x801611"},
                     {"TAV_ParseExtCfgFileData", "Report error: 0x801611"}});
}

TEST_F(Malformed, WhatIsTolerated) {
    const Bytes unknown = Tlv(0x7000, Text("from a later version"));
    const std::pair<const char *, Bytes> images[] = {
        {"lowest version", WithVersion(0x08000000)},
        {"highest version", WithVersion(0x08FFFFFF)},
        {"checksum of 36", WithSum(Join({Sha256(kBody), Filled(4, 0xEE)}))},
        {"head in another order", ImageWithHead({kSum, kTime, kVersion}, kBody)},
        {"unknown TLVs at the top", Image(Join({unknown, kBody, Tlv(1, Text("x")), unknown}))},
        {"unknown TLVs in a VS", Image(Join({VsTlv(0, {unknown, kRecord7, Tlv(9, Bytes{}), kRecord13}), kLastVs}))},
        {"a VS in two parts", Image(Join({VsTlv(0, {kRecord7}), kLastVs, VsTlv(0, {kRecord13})}))},
        {"VS id behind the records", Image(Join({Tlv(2, {kRecord7, kRecord13, Tlv(6, Be32(0))}), kLastVs}))},
    };
    for (const auto &[name, image] : images) {
        Store store = EmptyStore();
        EXPECT_EQ(Parse(image, store), TAV_OK) << name;
        EXPECT_EQ(BodyOf(store), kBody) << name;
    }
}

/** A checksum that is stated again is right when the first one was, without being computed again; else it is wrong. */
TEST_F(Malformed, ChecksumsStatedAgain) {
    using interposer::Call;
    const std::string refer = folder.Path("r.dat");
    const Bytes referred = Image(VsTlv(9, {})), padded = Tlv(5, Join({Sha256(kBody), Filled(4, 7)})),
                other = Tlv(20, Slice(referred, kChecksumAt, kHeadSize));
    WriteFile(refer, referred);
    const std::vector<Bytes> fields = {kVersion, kTime, kSum, other, padded, other, kSum, other, padded};
    struct Outcome {
        uint32_t code, digests, reads;
        size_t stated;
        bool operator==(const Outcome &) const = default;
    };
    const auto check = [&](const std::vector<Bytes> &head) {
        Bytes image = ImageWithHead(head, kBody);
        TAV_ExtCfgFileContext context{};
        context.referPath = refer.c_str();
        interposer::Reset();
        const uint32_t code = TAV_CheckExtCfgFileData(image.data(), static_cast<uint32_t>(image.size()), &context);
        const size_t stated =
            context.storedChecksum == nullptr ? 0 : static_cast<size_t>(context.storedChecksum - image.data());
        return Outcome{code, interposer::Count(Call::kDigest), interposer::Count(Call::kOpen), stated};
    };
    const size_t last = ImageWithHead(fields, {}).size() - 36;
    EXPECT_EQ(check(fields), (Outcome{TAV_OK, 2, 1, last}));
    for (size_t at = 2; at < fields.size(); ++at) {
        for (const size_t byte : {size_t{7}, size_t{8}, size_t{39}}) {  // of its length, and of its value
            std::vector<Bytes> changed = fields;
            changed[at][byte] ^= 1;
            const Outcome outcome = check(changed);
            EXPECT_NE(outcome.code, TAV_OK) << at;
            EXPECT_LE(outcome.digests, 4u) << at;
        }
    }
    DebugLog log;  // with the log on each is checked, for that reports
    EXPECT_EQ(check(fields), (Outcome{TAV_OK, 4 + 3, 3, last}));
}

}  // namespace
