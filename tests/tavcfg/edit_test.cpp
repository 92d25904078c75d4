/*
 * get, show, add, set, del, patch: records and values.
 */
#include <cstdlib>

#include "tav/session.h"
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
        {12, "hex:c29b", "c29b", "hex:c29b", R"("\u009b")"},  // a terminal's control character
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
    const struct {
        const char *arguments, *why;
    } rows[] = {
        {"", "no command is given"},
        {"history", "history: give one of start, stop, show"},
        {"shwo x.dat", "'shwo' is no command; did you mean show?"},
        {"chekcpiont x.dat", "did you mean checkpoint?"},
        {"frobnicate", "'frobnicate' is no command (see tavcfg --help)"},
        {"history strt x.dat", "'strt' is no command of history; did you mean start?"},
        {"show x.dat --formt csv", "'--formt' is no option of show; did you mean --format?"},
        {"--names n show x.dat", "'--names' is no option here; those of a command stand behind it"},
        {"show x.dat y.dat", "'y.dat' is one word too many"},
        {"passwd hash s3cret", "there is a word too many; passwords"},
        {"show x.dat --vs", "--vs: its value is missing"},
        {"show x.dat --vs 0 --vs 1", "--vs is given twice"},
        {"show x.dat --format foo", "'foo' is none of table, csv, json, jsonl"},
        {"show x.dat --limit -1", "'-1' is no whole number from 1 to"},
        {"set x.dat --wait nan", "'nan' is no number of seconds from 0 to 86400"},
        {"show x.dat --json --format csv", "--json and --format exclude each other"},
        {"count x.dat --where foo=1", "'foo' is no known field"},
        {"show x.dat --sort 9x", "--sort: '9x' is no known field"},
        {"show x.dat --names ''", "--names: its value is empty"},
        {"verify x.dat --refer ''", "--refer: its value is empty"},
        {"rollback x.dat ''", "STATE: its value is empty"},
    };
    for (const auto &row : rows) {
        Refused(2, row.why, row.arguments);
    }
    EXPECT_EQ(Out("--version"), "tavcfg " TAVCFG_VERSION "\n");
    EXPECT_THAT(Out("add --help"), HasSubstr("FIELD=VALUE"));
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
    Refused(2, "neither x.dat nor x.dat has a VS 9", "diff x.dat x.dat --vs 9");
    EXPECT_THAT(Out("show x.dat --class 7"), Not(HasSubstr("VS 3")));  // which is not asked for
}

TEST_F(EditTest, PatchWritesInPlaceOrNotAtAll) {
    // A VS may stand in a file in pieces.
    const auto image = [](uint32_t value) {
        return Image(Join({VsTlv(0, {Rec13(5, 1)}), VsTlv(0, {Rec13(7, value), Rec13(9, 2)})}));
    };
    Put("x.dat", image(2));
    for (const std::string how : {"", " --safe"}) {
        const uint32_t value = how.empty() ? 9 : 10;
        const std::string patch = "patch" + kIn13 + "14=7 15=" + std::to_string(value) + how;
        EXPECT_EQ(Out(patch + " --dry-run"), "set 0 13 14=7 15=" + std::to_string(value) + "\n");
        EXPECT_EQ(Out(patch), "patched VS 0 class 13 14=7 in x.dat\n");
        const Bytes patched = Content("x.dat");
        EXPECT_EQ(WithoutTime(patched), image(value));
        EXPECT_EQ(Out(patch), "nothing to write: x.dat holds the same already\n");
        EXPECT_EQ(Content("x.dat"), patched);
    }
    Refused(1, "no field 16", "patch" + kIn13 + "14=7 15=8 16=1");
    Refused(1, "field 15 has 2 bytes in the file, the new value 1", "patch" + kIn13 + "14=7 15=hex:01");
    Refused(1, "no such record", "patch" + kIn13 + "14=8 15=1");
    Refused(1, "no such record", "patch x.dat --vs 1 --class 13 14=7 15=1");
    Out("convert x.dat y.zip");
    Refused(1, "only a plain file whose name ends in .dat", "patch y.zip --vs 0 --class 13 14=7 15=1");
    Out("patch --safe y.zip --vs 0 --class 13 14=7 15=1");
    EXPECT_EQ(Out("diff x.dat y.zip --script || true"), "set 0 13 14=7 15=1\n");
    Put("y.dat", Image(VsTlv(0, {Rec13(5, 1), Tlv(13, Be32(1))})));
    Refused(1, "malformed at offset 138", "patch y.dat --vs 0 --class 13 14=7 15=1");
}

/** Nor a missing file beside a backup, which may be all that is left; beside one that loads, it stays as it is. */
TEST_F(EditTest, BrokenFilesAndMissingOnesWithABackupAreNotWritten) {
    Put("bad.dat", Damaged(SmallImage(), kChecksumAt));
    Put("x.dat.bak", "precious");
    Put("gone.dat.bak", "precious");
    Put("x.json", R"({"vs":[{"id":0,"records":[]}]})");
    const std::string record = " --vs 0 --class 13 14=5";
    for (const std::string command : {"add", "set", "del", "patch"}) {
        Refused(1, "checksum mismatch", command + " bad.dat" + record);
    }
    for (const std::string &arguments :
         {"add gone.dat" + record, std::string("import gone.dat x.json"), std::string("import --merge gone.dat x.json"),
          std::string("convert x.dat gone.dat"), std::string("convert --rewrite x.dat gone.dat")}) {
        Refused(1, "tavcfg recover gone.dat", arguments + " --wait 0");
    }
    for (const std::string command : {"checkpoint --wait 0 gone.dat a", "watch --wait 0 gone.dat", "info gone.dat",
                                      "history show gone.dat", "convert --salvage gone.dat y.dat"}) {
        Refused(1, "tavcfg recover gone.dat", command);
    }
    Out("set x.dat" + record + " 15=9");
    EXPECT_EQ(Content("x.dat.bak"), Text("precious"));
}

TEST_F(EditTest, ManyRecordsAreChangedAtOnce) {
    Out("add" + kIn13 + "14=9 15=1 16=3 12='a b'");
    EXPECT_EQ(Out("set" + kIn13 + "--where 15=1 16=8 19=7"), "set 2 records in x.dat\n");
    EXPECT_EQ(Out("show x.dat --class 13 --format csv --fields 14,16,19"),
              "vs,class,14,16,19\n0,13,5,8,7\n0,13,7,,\n0,13,9,8,7\n");
    EXPECT_EQ(Out("unset" + kIn13 + "--all 12 19"), "unset fields of 2 records in x.dat\n");
    EXPECT_EQ(Out("unset" + kIn13 + "14=5 16"), "unset fields of VS 0 class 13 14=5 in x.dat\n");
    EXPECT_EQ(Out("set" + kIn13 + "--where 14\\>99 16=1"), "nothing to write: no record of x.dat matches\n");
    Put("before.dat", Content("x.dat"));
    EXPECT_EQ(Out("del" + kIn13 + "--where 15!=2 --where 16=8 --dry-run"), "del 0 13 14=9\n");
    EXPECT_EQ(Content("x.dat"), Content("before.dat"));
    EXPECT_EQ(Out("del" + kIn13 + "--where '14>5'"), "deleted 2 records in x.dat\n");
    EXPECT_EQ(Out("count x.dat --class 13"), "1\n");
    EXPECT_EQ(Out("count x.dat --where 9=22"), "1\n");
    EXPECT_EQ(Out("del" + kIn13 + "--all"), "deleted 1 record in x.dat\n");
    EXPECT_EQ(Out("count x.dat"), "1\n");
    for (const char *arguments :
         {"del x.dat --vs 0 --class 13", "del x.dat --vs 0 --class 1", "set x.dat --vs 0 --class 13 --all",
          "set x.dat --vs 0 --class 13 --where 14=5 14=6", "unset x.dat --vs 0 --class 13 14=5",
          "del x.dat --vs 0 --class 13 --all 14=5", "count x.dat --where 15", "show x.dat --sort x"}) {
        Refused(2, "", arguments);
    }
}

TEST_F(EditTest, ScriptsAreAppliedAsAWholeOrNotAtAll) {
    Put("names.json", R"({"13": {"name": "route", "fields": {"14": "id", "18": "address"}}})");
    Put("script", "# two changes\nadd 0 route id=9 address=192.0.2.1\ndel 0 13 14=5\nset 0 13 14=7 15=8\n");
    EXPECT_EQ(Out("apply x.dat script --names names.json --dry-run"),
              "del 0 route id=5\nset 0 route id=7 15=8\nadd 0 route id=9 address=192.0.2.1\n");
    setenv("TAV_NAMES", "names.json", 1);
    EXPECT_EQ(Out("apply x.dat - <script"), "wrote x.dat: records added 1, changed 1, deleted 1\n");
    unsetenv("TAV_NAMES");
    EXPECT_EQ(Out("get x.dat --vs 0 --class 13 14=9 --json"),
              "{\"vs\":0,\"class\":13,\"fields\":[[14,9],[18,\"192.0.2.1\"]]}\n");
    EXPECT_EQ(Out("get x.dat --vs 0 --class route id=9 --names - <names.json"), "id=9\naddress=192.0.2.1\n");
    Refused(2, "standard input is named twice", "apply x.dat - --names - <names.json");
    EXPECT_EQ(Out("get x.dat --vs 0 --class 13 14=9 --field 14 --raw | od -An -tx1"), " 00 00 00 09\n");
    Put("x.dat.names.json", Content("names.json"));
    Refused(1, "script: line 2: VS 0 class 13 14=9: there is a record with this key already", "apply x.dat script");
    Refused(1, "script: line 2: 'route' is no known class", "apply new.dat script");
    Put("zero", Join({Text("add 3"), Bytes{0}, Text("x")}));
    Refused(1, "zero: line 1: there is a zero byte", "apply new.dat zero");
    Put("x",
        "\xEF\xBB\xBF"
        "add 3");  // as some editors begin a text
    Put("x.dat.names.json", "{");
    Refused(1, "x.dat.names.json: parse error at line 1, column 2", "count x.dat");
    Put("nothing", "");
    EXPECT_EQ(Out("apply new.dat nothing"), "nothing to write: there is no new.dat, and nothing to put into it\n");
    EXPECT_EQ(Out("apply new.dat - <x"), "wrote new.dat: records added 0, changed 0, deleted 0\n");
    Put("x", "del 3");
    EXPECT_EQ(Out("apply new.dat x"),
              "wrote new.dat: records added 0, changed 0, deleted 0; no virtual system is left, "
              "so the file is gone\n");
    EXPECT_FALSE(Has("new.dat"));
}

TEST_F(EditTest, ALockedFileIsReadAndNotWritten) {
    Put("script", "add 0 13 14=9");
    Out("export x.dat --output x.json");
    const tav::Lock lock(Path("x.dat"));
    for (const std::string &arguments :
         {"set --wait 0.1" + kIn13 + "14=5 15=3", "patch --wait 0" + kIn13 + "14=5 15=3",
          std::string("apply --wait 0 x.dat script"), std::string("import --merge --wait 0 x.dat x.json"),
          std::string("history start --wait 0 x.dat"), std::string("refer drop --wait 0 x.dat")}) {
        Refused(3, "is changing it", arguments);
    }
    EXPECT_EQ(Out("count x.dat"), "3\n");
}
