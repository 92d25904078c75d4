/*
 * import, export, and what diff tells.
 */
#include <algorithm>
#include <array>

#include "store.h"
#include "tool.h"

class JsonTest : public ToolTest {
  protected:
    /** Exports a file, imports that as plain file and archive, and expects the very same body each time. */
    void ExpectRoundTrip(const Bytes &image) {
        Put("a.dat", image);
        Put("a.json", Out("export a.dat"));
        Out("import --force b.dat a.json");
        EXPECT_EQ(WithoutTime(Content("b.dat")), WithoutTime(image));
        Out("import --force c.zip - <a.json");
        EXPECT_EQ(Out("export c.zip"), Out("export a.dat"));
        EXPECT_EQ(Out("import a.dat a.json"), "nothing to write: a.dat holds the same already\n");
        EXPECT_EQ(Content("a.dat"), image);
    }
};

namespace {

/** Bytes for any field: of the type's full length every other time, many of them small. */
Bytes RandomValue(Random &random, uint32_t fid) {
    const size_t limit = std::min<size_t>(TAV_GetExtTlvDataLen(fid), 40);
    Bytes value(random() % 2 == 0 ? limit : random() % (limit + 1));
    for (uint8_t &byte : value) {
        byte = static_cast<uint8_t>(random() % 3 == 0 ? random() % 7 : random());
    }
    return value;
}

/** Makes a file of random records: any fields in any order, known or not. */
void MakeRandomFile(const std::string &path, Random &random) {
    const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, path);
    for (uint32_t vsId = random() % 4 * 7 + 7; vsId > 0; vsId -= 7) {
        TAV_ExtCfgVsNodeGetInstance(store.get(), vsId);
        for (size_t i = random() % 4 == 0 ? 0 : random() % 36; i > 0; i--) {
            const uint32_t cid = std::array{7u, 13u, 26u}[random() % 3], keyFid = cid == 7 ? 8 : 14;
            std::vector<Field> fields = {{keyFid, RandomValue(random, keyFid)}};
            for (size_t k = random() % 8; k > 0; k--) {
                const uint32_t fid = random() % 20 == 0 ? random() : random() % 30;
                fields.push_back({fid, RandomValue(random, fid)});
            }
            std::shuffle(fields.begin(), fields.end(), random);
            Add(store, vsId, MakeRecord(cid, fields));  // which refuses a key that is there
        }
    }
    ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
}

}  // namespace

TEST_F(JsonTest, ImportOfAnExportGivesTheSameBody) {
    ExpectRoundTrip(SmallImage());
    // Records of the classes of the frame itself, one without a key; fields that are containers; type 0.
    ExpectRoundTrip(Image(VsTlv(4294967295u, {Tlv(1, {Tlv(0, Text("zero")), Tlv(13, Text("inner"))}),
                                              Tlv(2, {Tlv(6, Be32(9)), Tlv(6, Be32(8))})})));
    for (unsigned seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        Random random(seed);
        remove(Path("x.dat").c_str());
        MakeRandomFile(Path("x.dat"), random);
        ExpectRoundTrip(Content("x.dat"));
    }
}

TEST_F(JsonTest, ExportSaysWhenAnImportWouldNotGiveTheSameBytes) {
    const Bytes r5 = Rec13(5, 1), r7 = Rec13(7, 1), other = Tlv(26, {Tlv(14, Be32(1))}), foreign = Tlv(99, Text("x"));
    for (const Bytes &body :
         {foreign, Join({VsTlv(0, {r5}), foreign}), VsTlv(0, {r5, Tlv(15, Be16(1))}), VsTlv(0, {r7, r5}),
          VsTlv(0, {r5, other, r7}), Join({VsTlv(0, {r5}), VsTlv(0, {r7})}), Tlv(2, {r5, Tlv(6, Be32(0))})}) {
        Put("x.dat", Image(body));
        Out("verify x.dat");
        Refused(1, "tavcfg convert --rewrite x.dat OUT", "export --strict x.dat");
        EXPECT_THAT(Out("export --output x.json x.dat 2>&1"), HasSubstr("but not the same bytes"));
        if (body != foreign) {
            Out("convert --rewrite --force x.dat y.dat");
            ExpectRoundTrip(Content("y.dat"));
            EXPECT_EQ(Out("import y.dat x.json"), "nothing to write: y.dat holds the same already\n");
        }
    }
}

TEST_F(JsonTest, MalformedJsonIsRefusedWithItsPlace) {
    const auto vs = [](const std::string &text) { return "{\"vs\":[" + text + "]}"; };
    const auto record = [&](const std::string &text) { return vs(R"({"id":0,"records":[)" + text + "]}"); };
    const std::string r1 = R"({"class":13,"fields":[[14,1]]})";
    const auto field = [&](const std::string &text) {
        return record(r1 + R"(,{"class":13,"fields":[[14,2],)" + text + "]}");
    };
    const std::string place = "vs[0].records[1].fields[1]: ";
    const std::pair<std::string, std::string> rows[] = {
        {"", "parse error at line 1, column 1"},
        {"{\"vs\":[\n}", "parse error at line 2, column 1"},
        {R"({"x":1})", "one member \"vs\""},
        {R"({"vs":[{"id":0,"records":[]}],"vs":[]})", "holds \"vs\" twice"},
        {R"({"vs":{}})", "\"vs\" is no array"},
        {vs(""), "there is no VS"},
        {vs(R"({"id":0})"), "vs[0]: \"records\" is missing"},
        {vs(R"({"id":4294967296,"records":[]})"), "vs[0]: \"id\" is no whole number"},
        {vs(R"({"id":0,"records":[]},{"id":0,"records":[]})"), "vs[1]: VS 0 came before"},
        {record("5"), "vs[0].records[0]: an object"},
        {record(R"({"class":13,"fields":[[14,1]],"x":0})"), "vs[0].records[0]: \"x\" is unknown"},
        {record(R"({"class":8,"fields":[[8,"a"]]})"), "vs[0].records[0]: 8 is no class"},
        {record(R"({"class":13,"fields":[]})"), "vs[0].records[0]: VS 0 class 13: a record without fields"},
        {record(R"({"class":13,"fields":[[15,1]]})"), "key field 14 is missing"},
        {record(r1 + "," + r1), "vs[0].records[1]: VS 0 class 13 14=1: a record with this key came before"},
        {field("[15]"), place + "a pair"},
        {field("[15,65536]"), place + "65536 is out of range, at most 65535"},
        {field("[99,\"a\"]"), place + "\"a\" does not suit"},
        {field("[15,{\"hex\":\"0\"}]"), place + "'0' is not a sequence"},
        {field("[15,{\"hex\":\"00\",\"x\":0}]"), place + "an object must be"},
        {field("[12,\"" + std::string(434, 'a') + "\"]"), place + "the value has 434 bytes, at most 433"},
        {field("[18,\"1.2.3.4.5\"]"), place + "'1.2.3.4.5' is not an address"},
        {field("[15,1e999]"), place + "parse error at line 1, column 95: this number is too large"},
        {field("[4,\"2024-13-01T00:00:00.000Z\"]"), place + "'2024-13-01T00:00:00.000Z' is not a time"},
    };
    for (const auto &[text, why] : rows) {
        Put("bad.json", text);
        for (const std::string command : {"import --force x.dat ", "import new.zip ", "import --merge x.dat "}) {
            Refused(1, why, command + "bad.json");
        }
    }
    Refused(1, "cannot read none.json: No such file", "import x.dat none.json");
    Refused(1, "cannot read .: Is a directory", "import x.dat .");
    Put("x.json", Out("export x.dat"));
    const std::string name(125, 'n');
    Refused(1, name + ": its absolute name is", "import " + name + " x.json");
    Refused(1, "x.dat/y: its folder x.dat cannot be used: Not a directory", "import x.dat/y x.json");
    Put("empty.dat", "");
    Refused(1, "it is empty; what does not load is not replaced: move it aside", "import --force empty.dat x.json");
}

TEST_F(JsonTest, MergeAddsAndOverwritesAsDiffTells) {
    Put("m.json", R"({"vs":[{"id":0,"records":[{"class":13,"fields":[[14,5],[15,4],[12,""]]},
        {"class":13,"fields":[[14,6],[15,3],[15,4]]}, {"class":13,"fields":[[15,2],[14,7]]}]}, {"id":9,"records":[]}]})");
    Put("old.dat", SmallImage());
    EXPECT_EQ(Out("import --merge x.dat m.json"), "wrote x.dat: records added 1, changed 1, deleted 0\n");
    const std::string changes =
        "~ VS 0 class 13 14=5: 15: 1 -> 4\n"
        "~ VS 0 class 13 14=5: 12: (none) -> \"\"\n";
    EXPECT_EQ(Run("diff old.dat x.dat").out, changes + "+ VS 0 class 13: 14=6 15=3 15=4\n+ VS 9\n");
    Refused(1, "VS 0 class 13 14=6: field 15 is given twice", "import --merge x.dat m.json");
    Put("x.dat", Damaged(Content("x.dat"), kChecksumAt));
    Refused(1, "checksum mismatch", "import --merge x.dat m.json");
    Refused(1, "checksum mismatch", "import --force x.dat m.json");
    Put("x.dat", SmallImage());
    Refused(1, "x.dat is there and holds something else", "import x.dat m.json");
    const std::string script = Out("import --force --dry-run x.dat m.json");
    Out("import --force x.dat m.json");
    Out("import --merge new.zip m.json");
    EXPECT_EQ(Out("diff x.dat new.zip"), "");
    EXPECT_EQ(Run("diff --script old.dat x.dat").out, script);
    Put("script", script);
    Put("copy.dat", SmallImage());
    Out("apply copy.dat script");
    EXPECT_EQ(Out("diff x.dat copy.dat --exclude 16"), "");
    EXPECT_EQ(Run("diff --json --vs 3 old.dat x.dat").out, "{\"verb\":\"del\",\"vs\":3}\n");
    EXPECT_EQ(Out("diff --class 7 --vs 3 old.dat copy.dat"), "");
    const Result result = Run("diff old.dat x.dat");
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out, changes +
                              "~ VS 0 class 13 14=7: the order of the fields: 14 15 -> 15 14\n"
                              "- VS 0 class 7: 8=ssh 9=22\n"
                              "+ VS 0 class 13: 14=6 15=3 15=4\n"
                              "- VS 3\n"
                              "+ VS 9\n");
    Put("x.dat", Image(Join({SmallBody(), Tlv(99, Text("foreign"))})));
    EXPECT_THAT(Run("diff old.dat x.dat").out, StartsWith("~ the order of records, or what is no record: checksum "));
    Refused(2, "none.dat: there is no such file", "diff x.dat none.dat");
}
