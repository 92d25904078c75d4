/*
 * verify, info: what is said of files, sound and damaged.
 */
#include <nlohmann/json.hpp>

#include "store.h"
#include "tool.h"

using VerifyTest = ToolTest;

TEST_F(VerifyTest, SaysPreciselyWhatIsWrong) {
    const Bytes body = SmallBody(), good = SmallImage();
    const Bytes version = Tlv(3, Be32(0x08070001)), time = Tlv(4, Filled(12, 0)), checksum = Tlv(5, Sha256(body));
    const auto inVs = [](const Bytes &content) { return Image(VsTlv(0, {content})); };
    Out("convert x.dat x.zip");
    const Bytes archive = Content("x.zip");
    const struct {
        Bytes content;
        const char *why;
        std::string file = "x.dat";
    } rows[] = {
        {archive, "the archive's member is not named y.zip.dat (see convert --any-member)", "y.zip"},
        {good, "it is not an archive", "y.zip"},
        {Damaged(archive, 60), "cannot read x.zip: the archive's member is damaged", "x.zip"},
        {{}, "it is empty"},
        {Slice(good, 0, 7), "the first TLV is not complete in its 7 bytes"},
        {Tlv(2, Be32(0)), "the first TLV is of type 2, not a head"},
        {Join({good, {0}}), "its TLVs end at byte"},
        {Damaged(good, 15), "the head is malformed at offset"},
        {Damaged(good, kVersionAt), "version 0x1d070001"},
        {ImageWithHead({time, checksum}, body), "the head has no version"},
        {ImageWithHead({version, time}, body), "the head has no checksum"},
        {ImageWithHead({version, time, Tlv(5, Filled(33, 0))}, body), "checksum is 33 bytes long"},
        {ImageWithHead({version, time, checksum, Tlv(9, Be16(1))}, body), "a field of type 9"},
        {Damaged(good, good.size() - 1), "checksum mismatch: the head says"},
        {Image({}), "nothing follows the head"},
        {Image(Tlv(2, Bytes{})), "the VS at offset 80 has no id"},
        {Image(Tlv(2, {Tlv(6, Be16(1))})), "an id that is not 4 bytes long"},
        {inVs(Tlv(13, Bytes{})), "VS 0: the record of class 13 at offset 100 is empty"},
        {inVs(Tlv(13, Be32(1))), "VS 0: the record of class 13 at offset 100 is malformed at offset 108"},
        {inVs(Tlv(13, {Tlv(15, Be16(1))})), "VS 0 class 13 at offset 100: key field 14 is missing"},
        {inVs(Join({Rec13(5, 1), Rec13(5, 2)})),
         "VS 0 class 13 14=5 at offset 130: a record with this key came before"},
        {inVs(Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Filled(3, 0))})), "field 15: the value has 3 bytes, at most 2"},
    };
    for (const auto &row : rows) {
        Put(row.file, row.content);
        Refused(1, row.why, "verify --wait 0 " + row.file);
        Refused(1, row.why, "show --wait 0 " + row.file);
        ASSERT_EQ(Open(TAV_EXT_MODE_READ_ONLY, Path(row.file)), nullptr) << row.why;
    }
    for (const std::string option : {"", "--ignore-refer "}) {  // what cannot be asked is no answer
        Refused(2, "none.dat: there is no such file", "verify " + option + "none.dat");
        Refused(2, "it is a directory", "verify " + option + ".");
        Refused(2, "at most 251", "verify " + option + std::string(250, 'a'));
        Refused(2, "a?b: there is no such file", "verify " + option + "\"$(printf 'a\\nb')\"");
    }
    Put("gone.dat.bak", good);
    Refused(2, "it is missing, but a backup lies beside it", "verify --wait 0 gone.dat");
    Put("gone.dat", Slice(good, 0, 9));
    Refused(1, "it does not load, but a backup lies beside it", "verify --wait 0 gone.dat");
    MakeSparseFile(Path("big.dat"), TAV_EXT_MAX_FILE_SIZE + 1);
    const Result big = Run("verify big.dat");
    EXPECT_THAT(big.error, HasSubstr("more than 100 MiB"));
    EXPECT_EQ(big.code, 1);
}

/** Whatever is changed or cut off: the tool agrees with the library, says one line, and no command falls over it. */
TEST_F(VerifyTest, EveryChangeAndEveryTruncation) {
    const Bytes good = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(5)), Tlv(18, Filled(21, 4))})}));
    const auto check = [this](const Bytes &image, size_t place) {
        Put("x.dat", image);
        const bool loads = Open(TAV_EXT_MODE_READ_ONLY, Path("x.dat")) != nullptr;
        EXPECT_EQ(Run("verify --wait 0 x.dat").code, loads ? 0 : 1) << place;
        const Result info = Run("info --json x.dat");
        if (info.code != 1) {  // which says that there is nothing to tell
            EXPECT_EQ(nlohmann::json::parse(info.out)["loads"], loads) << place;
        }
    };
    for (size_t i = 0; i < good.size(); ++i) {
        check(Damaged(good, i), i);
        if (i >= kHeadSize) {  // once more with the checksum made right, so that the walk goes all the way in
            check(Image(Slice(Damaged(good, i), kHeadSize, good.size())), i);
        }
        if (i % 3 == 0) {
            check(Slice(good, 0, i), i);
        }
    }
}

TEST_F(VerifyTest, InfoTellsOfSoundAndOfBrokenFiles) {
    const auto infoOf = [this](const std::string &file) { return nlohmann::json::parse(Out("info --json " + file)); };
    const nlohmann::json plain = infoOf("x.dat"), sum = plain["checksum"]["computed"], time = plain["modifyTime"];
    nlohmann::json expected = nlohmann::json::parse(R"({"file": "x.dat", "archive": false, "headSize": 80,
        "version": "0x08070001", "referChecksum": null, "loads": true, "problem": null, "vs": [
        {"id": 0, "classes": [{"class": 7, "records": 1}, {"class": 13, "records": 2}]}, {"id": 3, "classes": []}]})");
    expected["fileSize"] = expected["imageSize"] = SmallImage().size();
    expected["bodySize"] = SmallBody().size();
    expected["modifyTime"] = time;
    expected["checksum"] = {{"stored", sum}, {"computed", sum}, {"match", true}};
    EXPECT_EQ(plain, expected);
    Out("convert x.dat x.zip");
    expected.update({{"file", "x.zip"}, {"archive", true}, {"fileSize", Content("x.zip").size()}});
    EXPECT_EQ(infoOf("x.zip"), expected);
    Put("bad.dat", Damaged(SmallImage(), SmallImage().size() - 1));  // the id of VS 3
    const nlohmann::json bad = infoOf("bad.dat");
    EXPECT_EQ(bad["loads"], false);
    EXPECT_EQ(bad["checksum"]["match"], false);
    EXPECT_EQ(bad["checksum"]["stored"], sum);
    EXPECT_EQ(bad["vs"][1]["id"], 3 ^ 0x15);
    EXPECT_THAT(Out("info x.dat"), HasSubstr("records of class 7: 1, class 13: 2"));
    EXPECT_THAT(Out("info bad.dat"), HasSubstr("(DIFFERS)"));
}
