/*
 * get, show, add, set, del, patch: records and values.
 */
#include "tool.h"

using EditTest = ToolTest;

static const std::string kIn13 = " x.dat --vs 0 --class 13 ";

TEST_F(EditTest, AddGetSetDeleteInPlainFilesAndArchives) {
    for (const std::string file : {"new.dat", "new.zip"}) {
        const std::string at = " " + file + " --vs 2 --class 13 ";
        EXPECT_EQ(Out("add" + at + "14=9 15=1 18=192.0.2.1"), "added VS 2 class 13 14=9 in " + file + "\n");
        Refused(1, "already", "add" + at + "14=9 15=2");
        EXPECT_EQ(Out("set" + at + "14=9 15=3 16=4"), "set VS 2 class 13 14=9 in " + file + "\n");
        EXPECT_EQ(Out("get" + at + "14=9"), "14=9\n15=3\n18=192.0.2.1\n16=4\n");
        Refused(1, "no such field", "get" + at + "14=9 --field 19");
        EXPECT_EQ(Out("set" + at + "14=0x9 15=3"), "nothing to write: " + file + " holds the same already\n");
        Out("del" + at + "14=9");
        for (const std::string command : {"get", "set", "del"}) {
            Refused(1, "no such record", command + at + "14=9");
        }
        EXPECT_EQ(Out("export " + file), "{\"vs\":[{\"id\":2,\"records\":[]}]}\n");
        EXPECT_FALSE(Has(file + ".bak"));
    }
    EXPECT_EQ(Content("new.zip").at(0), 'P');
}

TEST_F(EditTest, ValuesByDataType) {
    const std::string v4 = "04c0000201" + std::string(32, '0');
    const std::string both = "04c0000201" + std::string(30, '0') + "01";  // an address of each family
    const std::string v6 = "0600000000" + std::string("20010db8000000000000000000000001");
    const std::string monday = "07e80506070809010000007b", tuesday = "07e80506070809020000007b";
    const std::string time = "2024-05-06T07:08:09.123";
    const struct {
        uint32_t fid;
        std::string typed, hex, shown;
        std::string json = {};  // in an export; empty for the bytes in hexadecimal
    } rows[] = {
        {19, "4294967295", "ffffffff", "4294967295", "4294967295"},
        {19, "0x10", "00000010", "16", "16"},
        {19, "hex:00000007", "00000007", "7", "7"},
        {19, "hex:", "", "hex:"},
        {11, "255", "ff", "255", "255"},
        {12, "", "", "", "\"\""},
        {12, "'a \"b=c'", "612022623d63", "a \"b=c", R"("a \"b=c")"},
        {12, "hex:ff", "ff", "hex:ff"},
        {12, "hex:6100", "6100", "hex:6100"},
        {12, "\"$(printf 'a\\tb')\"", "610962", "hex:610962", R"("a\tb")"},
        {12, "hex:6865783a", "6865783a", "hex:6865783a", R"("hex:")"},
        {12, "hex:c29b", "c29b", "hex:c29b", "\"\xc2\x9b\""},  // a terminal's control character
        {12, "é", "c3a9", "é", "\"é\""},
        {5, "00fF", "00ff", "00ff"},
        {18, "192.0.2.1", v4, "192.0.2.1", R"("192.0.2.1")"},
        {18, "2001:db8::1", v6, "2001:db8::1", R"("2001:db8::1")"},
        {18, "hex:" + both, both, "hex:" + both},
        {4, time, monday, time + "Z", "\"" + time + "Z\""},
        {4, "hex:" + tuesday, tuesday, "hex:" + tuesday},
        {999, "hex:0102", "0102", "hex:0102"},
    };
    std::vector<Bytes> records;
    for (const auto &row : rows) {
        const auto key = static_cast<uint32_t>(records.size());
        records.push_back(Tlv(13, {Tlv(14, Be32(key)), Tlv(row.fid, Hex(row.hex))}));
        const std::string at = " y.dat --vs 0 --class 13 14=" + std::to_string(key), fid = std::to_string(row.fid);
        Out("add" + at + " " + fid + "=" + row.typed);
        EXPECT_EQ(Out("get" + at + " --field " + fid), row.shown + "\n");
        // What is shown can be typed in again.
        EXPECT_THAT(Out("set" + at + " '" + fid + "=" + row.shown + "'"), StartsWith("nothing to write"));
        const std::string json = row.json.empty() ? "{\"hex\":\"" + row.hex + "\"}" : row.json;
        EXPECT_THAT(Out("export y.dat"), HasSubstr("],[" + fid + "," + json + "]]}]}]}"));
    }
    EXPECT_EQ(WithoutTime(Content("y.dat")), Image(VsTlv(0, records)));
    Out("export y.dat >y.json");
    EXPECT_EQ(Out("import y.dat y.json"), "nothing to write: y.dat holds the same already\n");
}

TEST_F(EditTest, MalformedCommandLinesAreUsageErrors) {
    for (const char *arguments :
         {"", "frobnicate", "info", "info ''", "info x.dat --frob", "show x.dat --vs", "show none.dat --vs -1",
          "show x.dat --vs 4294967296", "get x.dat --vs 0 14=5", "diff x.dat",
          "get x.dat --vs 0 --class 13 14=5 --field x", "add x.dat --vs 0 --class 13", "add x.dat --vs 0 --class 8 8=a",
          "add x.dat --vs 0 --class 99 14=5"}) {
        Refused(2, "", arguments);
    }
    for (const char *fields :
         {"15=1", "14", "x=1", "14=", "14=-1", "14=4294967296", "14=1x", "14=9 15=65536", "14=9 18=1.2.3",
          "14=9 18=::g", "14=9 18=hex:0", "14=9 12=hex:0x", "14=9 15=hex:010203", "14=9 4=2024-02-30T00:00:00.000",
          "14=9 '4=2024-05-06 07:08:09.123'", "14=9 4=2024-5-6T7:8:9.123", "14=9 999=1"}) {
        Refused(2, "", "add" + kIn13 + fields);
    }
    Refused(2, "twice", "patch" + kIn13 + "14=5 15=1 15=2");
    Refused(2, "key field 14 of class 13 is given twice", "add" + kIn13 + "14=9 14=8");
    Refused(2, "no key field", "get" + kIn13 + "14=5 15=1");
    Refused(2, "key field 14 of class 13 is missing", "del" + kIn13 + "15=1");
    EXPECT_THAT(Out("add --help"), HasSubstr("FID=VALUE"));
}

TEST_F(EditTest, ShowPrintsAlignedTables) {
    Out("add" + kIn13 + "14=1000 15=hex: 16=3 16=4 12=é");
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
    EXPECT_EQ(Out("show x.dat --vs 0 --class 7 --json"),
              "{\"vs\":[{\"id\":0,\"records\":[\n{\"class\":7,\"fields\":[[8,\"ssh\"],[9,22]]}]}]}\n");
    Refused(1, "no VS 9", "show x.dat --vs 9");
}

TEST_F(EditTest, PatchWritesInPlaceOrNotAtAll) {
    // A VS may stand in a file in pieces.
    const auto image = [](uint32_t value) {
        return Image(Join({VsTlv(0, {Rec13(5, 1)}), VsTlv(0, {Rec13(7, value), Rec13(9, 2)})}));
    };
    Put("x.dat", image(2));
    EXPECT_EQ(Out("patch" + kIn13 + "14=7 15=9"), "patched VS 0 class 13 14=7 in x.dat\n");
    EXPECT_EQ(WithoutTime(Content("x.dat")), image(9));
    Refused(1, "no field 16", "patch" + kIn13 + "14=7 15=8 16=1");
    Refused(1, "field 15 has 2 bytes in the file, the new value 1", "patch" + kIn13 + "14=7 15=hex:01");
    Refused(1, "no such record", "patch" + kIn13 + "14=8 15=1");
    Refused(1, "no such record", "patch x.dat --vs 1 --class 13 14=7 15=1");
    Out("convert x.dat y.zip");
    Refused(1, "only a plain file whose name ends in .dat", "patch y.zip --vs 0 --class 13 14=7 15=1");
    Put("y.dat", Image(VsTlv(0, {Rec13(5, 1), Tlv(13, Be32(1))})));
    Refused(1, "malformed at offset 138", "patch y.dat --vs 0 --class 13 14=7 15=1");
}

/**
 * Neither a broken file, nor one beside a backup: the library would replace the backup, and delete it in the end; after
 * a crash it may be all that is left.
 */
TEST_F(EditTest, BrokenFilesAndFilesWithABackupAreNotWritten) {
    Put("bad.dat", Damaged(SmallImage(), kChecksumAt));
    Put("x.dat.bak", "precious");
    Put("gone.dat.bak", "precious");
    const std::string record = " --vs 0 --class 13 14=5";
    for (const std::string command : {"add", "set", "del", "patch"}) {
        Refused(1, "checksum mismatch", command + " bad.dat" + record);
        Refused(1, "tavcfg recover", command + " x.dat" + record);
    }
    for (const char *arguments :
         {"add gone.dat --vs 0 --class 13 14=5", "import x.dat x.json", "import --merge gone.dat x.json",
          "convert x.dat gone.dat", "convert --rewrite x.dat gone.dat"}) {
        Refused(1, "tavcfg recover", arguments);
    }
}
