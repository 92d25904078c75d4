/*
 * verify, info: what is said of files, sound and damaged.
 */
#include <nlohmann/json.hpp>

#include "store.h"
#include "tool.h"

class VerifyTest : public ToolTest {};

namespace {

Bytes Version() {
    return Tlv(3, Be32(0x08070001));
}
Bytes Time() {
    return Tlv(4, Filled(12, 0));
}
Bytes ChecksumOf(const Bytes &body) {
    return Tlv(5, Sha256(body));
}

}  // namespace

TEST_F(VerifyTest, SaysPreciselyWhatIsWrong) {
    const Bytes body = SmallBody();
    const Bytes good = SmallImage();
    const auto changed = [&](size_t offset, uint8_t value) {
        Bytes image = good;
        image[offset] = value;
        return image;
    };
    const auto inVs = [](const Bytes &content) { return Image(VsTlv(0, {content})); };
    const struct {
        Bytes image;
        const char *why;
    } rows[] = {
        {{}, "it is empty"},
        {Slice(good, 0, 7), "the first TLV is not complete in its 7 bytes"},
        {Tlv(2, Be32(0)), "the first TLV is of type 2, not a head"},
        {Join({good, {0}}), "its TLVs end at byte"},
        {Slice(good, 0, good.size() - 1), "its TLVs end at byte"},
        {changed(15, 1), "the head is malformed at offset"},
        {changed(kVersionAt, 7), "version 0x07070001"},
        {ImageWithHead({Time(), ChecksumOf(body)}, body), "the head has no version"},
        {ImageWithHead({Version(), ChecksumOf(body)}, body), "the head has no modify time"},
        {ImageWithHead({Version(), Time()}, body), "the head has no checksum"},
        {ImageWithHead({Tlv(3, Be16(0x0807)), Time(), ChecksumOf(body)}, body), "version is 2 bytes long"},
        {ImageWithHead({Version(), Tlv(4, Filled(11, 0)), ChecksumOf(body)}, body), "modify time is 11 bytes long"},
        {ImageWithHead({Version(), Time(), Tlv(5, Filled(33, 0))}, body), "checksum is 33 bytes long"},
        {ImageWithHead({Version(), Time(), ChecksumOf(body), Tlv(9, Be16(1))}, body), "a field of type 9"},
        {changed(good.size() - 1, 9), "checksum mismatch: the head says"},
        {Image(body, Filled(32, 7)), "must be given with --refer"},
        {Image({}), "nothing follows the head"},
        {Image(Tlv(2, Bytes{})), "the VS at offset 80 has no id"},
        {Image(Tlv(2, {Tlv(6, Be16(1))})), "an id that is not 4 bytes long"},
        {Image(Tlv(2, {Tlv(6, Be32(4)), Be16(0)})), "VS 4 at offset 80 is malformed at offset 100"},
        {inVs(Tlv(13, Bytes{})), "VS 0: the record of class 13 at offset 100 is empty"},
        {inVs(Tlv(13, Be32(1))), "VS 0: the record of class 13 at offset 100 is malformed at offset 108"},
        {inVs(Tlv(13, {Tlv(15, Be16(1))})), "VS 0 class 13 at offset 100: key field 14 is missing"},
        {inVs(Join({Rec13(5, 1), Rec13(5, 2)})),
         "VS 0 class 13 14=5 at offset 130: a record with this key came before"},
        {inVs(Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Filled(3, 0))})), "field 15: the value has 3 bytes, at most 2"},
    };
    for (const auto &row : rows) {
        Put("x.dat", row.image);
        Refused(1, row.why, "verify x.dat");
        Refused(1, row.why, "show x.dat");
        ASSERT_EQ(Open(TAV_EXT_MODE_READ_ONLY, Path("x.dat")), nullptr) << row.why;
    }
    Put("x.dat", good);
    EXPECT_EQ(Out("verify x.dat"), "");
    Refused(1, "No such file", "verify none.dat");
    Refused(1, "it is a directory", "verify .");
    MakeSparseFile(Path("big.dat"), TAV_EXT_MAX_FILE_SIZE + 1);
    Refused(1, "more than 100 MiB", "verify big.dat");
    Refused(1, "at most 251", "verify " + std::string(250, 'a'));
    Refused(1, "cannot read a?b", "verify \"$(printf 'a\\nb')\"");
}

TEST_F(VerifyTest, SaysWhatIsWrongWithArchives) {
    Put("x.dat", SmallImage());
    Out("convert x.dat x.zip");
    Put("y.zip", Content("x.zip"));
    Refused(1, "the archive's member is not named y.zip.dat", "verify y.zip");
    Put("y.zip", SmallImage());
    Refused(1, "it is not an archive", "verify y.zip");
    Put("y.zip", Bytes{});
    Refused(1, "it is empty", "verify y.zip");
    Bytes damaged = Content("x.zip");
    damaged[60] ^= 0xFF;
    Put("x.zip", damaged);
    Refused(1, "cannot read x.zip: the archive's member is damaged", "verify x.zip");
}

// Whatever is changed or cut off: the tool agrees with the library, says one line, and no command falls over it.
TEST_F(VerifyTest, EveryChangeAndEveryTruncation) {
    const Bytes good = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(5)), Tlv(18, Filled(21, 4))})}));
    const auto check = [this](const Bytes &image, size_t place) {
        Put("x.dat", image);
        const bool loads = Open(TAV_EXT_MODE_READ_ONLY, Path("x.dat")) != nullptr;
        EXPECT_EQ(Run("verify x.dat").code, loads ? 0 : 1) << place;
        EXPECT_EQ(Run("show x.dat").code, loads ? 0 : 1) << place;
        const Result info = Run("info --json x.dat");
        EXPECT_TRUE(info.code == 1 || (info.code == 0 && nlohmann::json::parse(info.out)["loads"] == loads)) << place;
    };
    for (size_t i = 0; i < good.size(); i++) {
        Bytes image = good;
        image[i] ^= 0x15;
        check(image, i);
    }
    // The same again in the body with the checksum made right, so that the walk goes all the way in.
    for (size_t i = kHeadSize; i < good.size(); i++) {
        Bytes body = Slice(good, kHeadSize, good.size());
        body[i - kHeadSize] ^= 0x15;
        check(Image(body), i);
    }
    for (size_t size = 0; size < good.size(); size += 3) {
        check(Slice(good, 0, size), size);
    }
}

TEST_F(VerifyTest, InfoTellsOfSoundAndOfBrokenFiles) {
    Put("x.dat", SmallImage());
    Out("convert x.dat x.zip");
    const nlohmann::json plain = nlohmann::json::parse(Out("info --json x.dat"));
    nlohmann::json archive = nlohmann::json::parse(Out("info --json x.zip"));
    EXPECT_EQ(plain["imageSize"], SmallImage().size());
    EXPECT_EQ(plain["headSize"], kHeadSize);
    EXPECT_EQ(plain["version"], "0x08070001");
    EXPECT_EQ(plain["checksum"]["match"], true);
    EXPECT_EQ(plain["vs"], nlohmann::json::parse(R"([
        {"id":0,"classes":[{"class":7,"records":1},{"class":13,"records":2}]}, {"id":3,"classes":[]}])"));
    EXPECT_EQ(archive["archive"], true);
    EXPECT_NE(archive["fileSize"], plain["fileSize"]);
    for (const char *same : {"imageSize", "bodySize", "modifyTime", "checksum", "vs", "loads"}) {
        EXPECT_EQ(archive[same], plain[same]);
    }
    EXPECT_NE(Out("info x.dat").find("records of class 7: 1, class 13: 2"), std::string::npos);

    Bytes broken = SmallImage();
    broken.back() ^= 1;  // the id of VS 3
    Put("x.dat", broken);
    const nlohmann::json info = nlohmann::json::parse(Out("info --json x.dat"));
    EXPECT_EQ(info["loads"], false);
    EXPECT_EQ(info["checksum"]["match"], false);
    EXPECT_EQ(info["checksum"]["stored"], plain["checksum"]["stored"]);
    EXPECT_EQ(info["vs"][1]["id"], 2);
    EXPECT_NE(Out("info x.dat").find("(DIFFERS)"), std::string::npos);
}
