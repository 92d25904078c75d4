/*
 * get, show, add, set, del, patch: records and values.
 */
#include <algorithm>

#include "tool.h"

class EditTest : public ToolTest {
  protected:
    void SetUp() override { Put("x.dat", SmallImage()); }
};

TEST_F(EditTest, AddGetSetDeleteInPlainFilesAndArchives) {
    for (const std::string file : {"new.dat", "new.zip"}) {
        const std::string at = " " + file + " --vs 2 --class 13 ";
        EXPECT_EQ(Out("add" + at + "14=9 15=1 18=192.0.2.1"), "added VS 2 class 13 14=9 in " + file + "\n");
        Refused(1, "already", "add" + at + "14=9 15=2");
        EXPECT_EQ(Out("get" + at + "14=9"), "14=9\n15=1\n18=192.0.2.1\n");
        EXPECT_EQ(Out("set" + at + "14=9 15=3 16=4"), "set VS 2 class 13 14=9 in " + file + "\n");
        EXPECT_EQ(Out("get" + at + "14=9 --field 15"), "3\n");
        Refused(1, "no such field", "get" + at + "14=9 --field 19");
        const Bytes before = Content(file);
        EXPECT_EQ(Out("set" + at + "14=0x9 15=3"), "nothing to write: " + file + " holds the same already\n");
        EXPECT_EQ(Content(file), before);
        Out("del" + at + "14=9");
        for (const std::string command : {"get", "set", "del"}) {
            Refused(1, "no such record", command + at + "14=9");
        }
        EXPECT_EQ(Out("export " + file), "{\"vs\":[{\"id\":2,\"records\":[]}]}\n");
        EXPECT_FALSE(Has(file + ".bak"));
    }
    EXPECT_EQ(Content("new.zip").at(0), 'P');
}

// A value, the bytes that it makes in the file, and how it is shown.
TEST_F(EditTest, ValuesByDataType) {
    const std::string v4 = "04c0000201" + std::string(32, '0');
    const std::string v6 =
        "0600000000"
        "20010db8000000000000000000000001";
    const std::string time = "07e80506070809010000007b";  // a Monday
    const struct {
        const char *fid;
        std::string value, hex, shown;
    } rows[] = {
        {"19", "4294967295", "ffffffff", "4294967295"},
        {"19", "0x10", "00000010", "16"},
        {"19", "hex:0001", "0001", "hex:0001"},
        {"19", "hex:00000007", "00000007", "7"},
        {"19", "hex:", "", "hex:"},
        {"11", "255", "ff", "255"},
        {"12", "", "", ""},
        {"12", "'a b=c'", "6120623d63", "a b=c"},
        {"12", "hex:ff", "ff", "hex:ff"},
        {"12", "\"$(printf 'a\\tb')\"", "610962", "hex:610962"},
        {"12", "hex:6865783a", "6865783a", "hex:6865783a"},        // the text "hex:"
        {"12", "\"$(printf '\\302\\233')\"", "c29b", "hex:c29b"},  // a terminal's control character
        {"12", "é", "c3a9", "é"},
        {"5", "00fF", "00ff", "00ff"},
        {"18", "192.0.2.1", v4, "192.0.2.1"},
        {"18", "2001:db8::1", v6, "2001:db8::1"},
        {"18", "hex:" + v4.substr(0, 40) + "01", v4.substr(0, 40) + "01", "hex:" + v4.substr(0, 40) + "01"},
        {"4", "2024-05-06T07:08:09.123", time, "2024-05-06T07:08:09.123Z"},
        {"4", "hex:07e80506070809020000007b", "07e80506070809020000007b", "hex:07e80506070809020000007b"},
        {"999", "hex:0102", "0102", "hex:0102"},
        {"13", "hex:0102", "0102", "hex:0102"},
    };
    const std::string at = " x.dat --vs 0 --class 13 14=";
    int key = 100;
    for (const auto &row : rows) {
        const std::string record = at + std::to_string(++key);
        Out("add" + record + " " + row.fid + "=" + row.value);
        EXPECT_EQ(Out("get" + record + " --field " + row.fid), row.shown + "\n") << row.value;
        const Bytes stored = Join(
            {Tlv(14, Be32(static_cast<uint32_t>(key))), Tlv(static_cast<uint32_t>(std::stoul(row.fid)), Hex(row.hex))});
        const Bytes image = Content("x.dat");
        EXPECT_NE(std::search(image.begin(), image.end(), stored.begin(), stored.end()), image.end()) << row.value;
        // What is shown can be typed in again.
        EXPECT_EQ(Out("set" + record + " '" + row.fid + "=" + row.shown + "'"),
                  "nothing to write: x.dat holds the same already\n");
    }
}

TEST_F(EditTest, MalformedCommandLinesAreUsageErrors) {
    const std::string at = " x.dat --vs 0 --class 13 ";
    const Bytes before = Content("x.dat");
    for (const std::string &arguments : std::vector<std::string>{"",
                                                                 "frobnicate",
                                                                 "info",
                                                                 "info x.dat --frob",
                                                                 "show x.dat --vs",
                                                                 "show none.dat --vs -1",
                                                                 "show x.dat --vs x",
                                                                 "show x.dat --vs 4294967296",
                                                                 "get x.dat --vs 0 14=5",
                                                                 "add x.dat --vs 0 --class 13",
                                                                 "add x.dat --vs 0 --class 8 8=a",
                                                                 "add x.dat --vs 0 --class 99 14=5",
                                                                 "add" + at + "15=1",
                                                                 "add" + at + "14",
                                                                 "add" + at + "x=1",
                                                                 "add" + at + "14=",
                                                                 "add" + at + "14=-1",
                                                                 "add" + at + "14=4294967296",
                                                                 "add" + at + "14=1x",
                                                                 "add" + at + "14=9 15=65536",
                                                                 "add" + at + "14=9 18=1.2.3",
                                                                 "add" + at + "14=9 18=::g",
                                                                 "add" + at + "14=9 18=hex:0",
                                                                 "add" + at + "14=9 12=hex:0x",
                                                                 "add" + at + "14=9 15=hex:010203",
                                                                 "add" + at + "14=9 4=2024-02-30T00:00:00.000",
                                                                 "add" + at + "14=9 '4=2024-05-06 07:08:09.123'",
                                                                 "add" + at + "14=9 4=2024-5-6T7:8:9.123",
                                                                 "add" + at + "14=9 999=1",
                                                                 "add" + at + "14=9 12=" + std::string(434, 'a'),
                                                                 "set" + at + "14=5 15=1 15=2",
                                                                 "get" + at + "14=5 15=1",
                                                                 "del" + at + "15=1",
                                                                 "get" + at + "14=5 --field x",
                                                                 "info ''"}) {
        EXPECT_EQ(Run(arguments).code, 2) << arguments;
    }
    EXPECT_EQ(Content("x.dat"), before);
    Out("add" + at + "14=9 12=" + std::string(433, 'a'));
    EXPECT_NE(Out("add --help").find("FID=VALUE"), std::string::npos);
}

TEST_F(EditTest, ShowPrintsAlignedTables) {
    Out("add x.dat --vs 0 --class 13 14=1000 15=hex: 16=3 16=4 12=é");
    EXPECT_EQ(Out("show x.dat"),
              "VS 0, class 13: 3 records\n"
              "   14*    15  16  16 (2)  12\n"
              "     5     1   -       -  -\n"
              "     7     2   -       -  -\n"
              "  1000  hex:   3       4  é\n"
              "\n"
              "VS 0, class 7: 1 record\n"
              "  8*    9\n"
              "  ssh  22\n"
              "\n"
              "VS 3: no records\n");
    EXPECT_EQ(Out("show x.dat --vs 0 --class 7"), "VS 0, class 7: 1 record\n  8*    9\n  ssh  22\n");
    EXPECT_EQ(Out("show x.dat --vs 0 --class 7 --json"),
              "{\"vs\":[{\"id\":0,\"records\":[\n{\"class\":7,\"fields\":[[8,\"ssh\"],[9,22]]}]}]}\n");
    Refused(1, "no VS 9", "show x.dat --vs 9");
}

TEST_F(EditTest, PatchWritesInPlaceOrNotAtAll) {
    const std::string at = " x.dat --vs 0 --class 13 ";
    EXPECT_EQ(Out("patch" + at + "14=7 15=9"), "patched VS 0 class 13 14=7 in x.dat\n");
    const Bytes patched = Content("x.dat");
    EXPECT_EQ(
        WithoutTime(patched),
        WithoutTime(Image(Join(
            {VsTlv(0, {Rec13(5, 1), Rec13(7, 9), Tlv(7, {Tlv(8, Text("ssh")), Tlv(9, Be16(22))})}), VsTlv(3, {})}))));
    Out("convert x.dat y.zip");
    Put("bad.dat", Image(SmallBody()));
    Bytes bad = Content("bad.dat");
    bad.back() ^= 1;
    Put("bad.dat", bad);
    Refused(1, "no field 16", "patch" + at + "14=7 15=8 16=1");
    Refused(1, "field 15 has 2 bytes in the file, the new value 1", "patch" + at + "14=7 15=hex:01");
    Refused(1, "no such record", "patch" + at + "14=8 15=1");
    Refused(1, "no such record", "patch x.dat --vs 1 --class 13 14=7 15=1");
    Refused(1, "only a plain file whose name ends in .dat", "patch y.zip --vs 0 --class 13 14=7 15=1");
    Refused(1, "checksum mismatch", "patch bad.dat --vs 0 --class 13 14=7 15=1");
    Refused(2, "twice", "patch" + at + "14=7 15=1 15=2");
    EXPECT_EQ(Content("x.dat"), patched);
    EXPECT_EQ(Content("bad.dat"), bad);
}

TEST_F(EditTest, BrokenFilesAreNotEdited) {
    Bytes bad = SmallImage();
    bad[kChecksumAt] ^= 1;
    Put("x.dat", bad);
    for (const std::string command : {"add", "set", "del"}) {
        Refused(1, "checksum mismatch", command + " x.dat --vs 0 --class 13 14=5");
    }
    for (const std::string command : {"set", "del"}) {
        Refused(1, "No such file", command + " none.dat --vs 0 --class 13 14=5");
    }
    EXPECT_EQ(Content("x.dat"), bad);
    EXPECT_FALSE(Has("none.dat"));
}

// The library would replace a backup, and delete it in the end; after a crash it may be all that is left.
TEST_F(EditTest, NothingIsWrittenBesideABackup) {
    Put("x.dat.bak", std::string("precious"));
    Put("gone.dat.bak", std::string("precious"));
    Put("x.json", std::string(R"({"vs":[{"id":0,"records":[]}]})"));
    const Bytes before = Content("x.dat");
    for (const std::string &arguments : std::vector<std::string>{
             "add x.dat --vs 0 --class 13 14=6", "set x.dat --vs 0 --class 13 14=5 15=2",
             "del x.dat --vs 0 --class 13 14=5", "import x.dat x.json", "import --merge gone.dat x.json",
             "add gone.dat --vs 0 --class 13 14=6", "patch x.dat --vs 0 --class 13 14=5 15=2", "convert x.dat gone.dat",
             "convert --rewrite x.dat gone.dat"}) {
        Refused(1, "tavcfg recover", arguments);
    }
    EXPECT_EQ(Content("x.dat"), before);
    EXPECT_EQ(Content("x.dat.bak"), Text("precious"));
    EXPECT_EQ(Content("gone.dat.bak"), Text("precious"));
    EXPECT_FALSE(Has("gone.dat"));
}
