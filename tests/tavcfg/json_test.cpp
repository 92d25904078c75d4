/*
 * import, export.
 */
#include <algorithm>
#include <map>

#include "tool.h"

class JsonTest : public ToolTest {
  protected:
    /** Exports a file, imports that as plain file and archive, and expects the very same body each time. */
    void ExpectRoundTrip(const Bytes &image) {
        Put("a.dat", image);
        Put("a.json", Out("export a.dat"));
        Out("import b.dat a.json");
        EXPECT_EQ(WithoutTime(Content("b.dat")), WithoutTime(image));
        Out("import c.zip - <a.json");
        Out("convert c.zip c.dat");
        EXPECT_EQ(WithoutTime(Content("c.dat")), WithoutTime(image));
        EXPECT_EQ(Out("export c.zip"), Out("export a.dat"));
        EXPECT_EQ(Out("import a.dat a.json"), "nothing to write: a.dat holds the same already\n");
        EXPECT_EQ(Content("a.dat"), image);
    }
};

namespace {

size_t Below(Random &random, size_t bound) {
    return random() % bound;
}

Bytes RandomBytes(Random &random, size_t size) {
    Bytes bytes(size);
    for (uint8_t &byte : bytes) {
        byte = static_cast<uint8_t>(random() % 3 == 0 ? random() % 7 : random());
    }
    return bytes;
}

/** A value for any field: of the right size more often than not, and with a plausible content now and then. */
Bytes RandomValue(Random &random, uint32_t fid) {
    static const std::map<uint32_t, size_t> sizes = {{3, 4},  {4, 12}, {5, 32}, {6, 4},  {9, 2},   {10, 2}, {11, 1},
                                                     {14, 4}, {15, 2}, {16, 2}, {17, 2}, {18, 21}, {19, 4}, {20, 32},
                                                     {21, 2}, {22, 2}, {23, 2}, {24, 2}, {25, 4},  {27, 4}, {28, 2}};
    const auto size = sizes.find(fid);
    const size_t limit = size == sizes.end() ? 40 : size->second;
    const size_t length = size != sizes.end() && Below(random, 4) != 0 ? limit : Below(random, limit + 1);
    Bytes value = RandomBytes(random, length);
    if (fid == 18 && length == 21 && Below(random, 3) != 0) {
        value[0] = Below(random, 2) == 0 ? 4 : 6;
        const size_t begin = value[0] == 4 ? 5 : 1;  // what the family leaves unused is zero, most of the time
        std::fill(value.begin() + static_cast<long>(begin), value.begin() + (value[0] == 4 ? 21 : 5), uint8_t{0});
    }
    if (fid == 4 && length == 12 && Below(random, 2) == 0) {
        value = Hex("07e8 05 06 07 08 09 01 0000007b");
    }
    if ((fid == 8 || fid == 12) && Below(random, 2) == 0) {
        value = Text(Below(random, 2) == 0 ? "hex:\"\\\n\x7f" : "\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80");
    }
    return value;
}

Bytes RandomRecord(Random &random, uint32_t cid, uint32_t keyFid, const Bytes &key) {
    std::vector<Bytes> fields = {Tlv(keyFid, key)};
    for (size_t i = Below(random, 8); i > 0; i--) {
        const auto fid = static_cast<uint32_t>(Below(random, 20) == 0 ? random() : Below(random, 30));
        const Bytes field = Tlv(fid, RandomValue(random, fid));
        const bool isFirst = fid != keyFid && Below(random, 2) == 0;
        fields.insert(isFirst ? fields.begin() : fields.end(), field);
    }
    return Tlv(cid, fields);
}

/** Keys in the order in which a tree has them: the shorter first. */
struct ShorterFirst {
    bool operator()(const Bytes &a, const Bytes &b) const { return a.size() != b.size() ? a.size() < b.size() : a < b; }
};

Bytes RandomVs(Random &random, uint32_t vsId) {
    std::vector<uint32_t> classes = {7, 13, 26};
    std::shuffle(classes.begin(), classes.end(), random);
    std::vector<Bytes> records;
    for (const uint32_t cid : classes) {
        const uint32_t keyFid = cid == 7 ? 8 : 14;
        std::map<Bytes, Bytes, ShorterFirst> sorted;
        for (size_t i = Below(random, 12); i > 0; i--) {
            const Bytes key = RandomValue(random, keyFid);
            sorted[key] = RandomRecord(random, cid, keyFid, key);
        }
        for (const auto &[key, record] : sorted) {
            records.push_back(record);
        }
    }
    return VsTlv(vsId, records);
}

}  // namespace

TEST_F(JsonTest, ImportOfAnExportGivesTheSameBody) {
    ExpectRoundTrip(SmallImage());
    // Records of the classes of the frame itself, one without a key; fields that are containers; type 0.
    ExpectRoundTrip(Image(VsTlv(4294967295u, {Tlv(1, {Tlv(0, Text("zero")), Tlv(13, Text("inner"))}),
                                              Tlv(2, {Tlv(6, Be32(9)), Tlv(6, Be32(8))})})));
    for (unsigned seed = 1; seed <= 40; seed++) {
        SCOPED_TRACE(seed);
        Random random(seed);
        std::vector<Bytes> body;
        for (uint32_t vs = 0; vs <= Below(random, 4); vs++) {
            body.push_back(Below(random, 4) == 0 ? VsTlv(vs * 7, {}) : RandomVs(random, vs * 7));
        }
        ExpectRoundTrip(Image(Join(body)));
    }
}

TEST_F(JsonTest, FormOfValues) {
    const Bytes record = Tlv(13, {Tlv(14, Be32(5)), Tlv(12, Text("a\"b")), Tlv(12, Hex("6100")), Tlv(12, Hex("ff")),
                                  Tlv(5, Hex("0a")), Tlv(18, Hex("04c0000201 00000000000000000000000000000000")),
                                  Tlv(4, Hex("07e80506070809010000007b")), Tlv(15, Hex("01")), Tlv(99, Hex("02"))});
    Put("x.dat", Image(VsTlv(1, {record})));
    EXPECT_EQ(Out("export x.dat"),
              "{\"vs\":[{\"id\":1,\"records\":[\n"
              R"({"class":13,"fields":[[14,5],[12,"a\"b"],[12,{"hex":"6100"}],[12,{"hex":"ff"}],[5,{"hex":"0a"}],)"
              R"([18,"192.0.2.1"],[4,"2024-05-06T07:08:09.123Z"],[15,{"hex":"01"}],[99,{"hex":"02"}]]}]}]})"
              "\n");
}

TEST_F(JsonTest, ExportRefusesWhatAnImportCouldNotGiveBack) {
    const Bytes r5 = Rec13(5, 1), r7 = Rec13(7, 1), other = Tlv(26, {Tlv(14, Be32(1))});
    for (const Bytes &body : {Join({VsTlv(0, {r5}), Tlv(99, Text("foreign"))}), VsTlv(0, {r5, Tlv(15, Be16(1))}),
                              VsTlv(0, {r7, r5}), VsTlv(0, {r5, other, r7}), Join({VsTlv(0, {r5}), VsTlv(0, {r7})}),
                              Tlv(2, {r5, Tlv(6, Be32(0))}), Tlv(99, Text("foreign"))}) {
        Put("x.dat", Image(body));
        Out("verify x.dat");
        Refused(1, "tavcfg convert --rewrite x.dat OUT", "export x.dat");
        if (body != Tlv(99, Text("foreign"))) {
            Out("convert --rewrite x.dat y.dat");
            ExpectRoundTrip(Content("y.dat"));
        }
    }
}

TEST_F(JsonTest, MalformedJsonIsRefusedWithItsPlace) {
    const auto record = [](const std::string &text) { return R"({"vs":[{"id":0,"records":[)" + text + "]}]}"; };
    const auto field = [&](const std::string &text) {
        return record(R"({"class":13,"fields":[[14,1]]},{"class":13,"fields":[[14,2],)" + text + "]}");
    };
    const std::string place = "vs[0].records[1].fields[1]: ";
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"", "parse error at line 1, column 1"},
        {"{\"vs\":[\n}", "parse error at line 2, column 1"},
        {R"({"vs":[]} x)", "parse error at line 1"},
        {R"([])", "one member \"vs\""},
        {R"({"vs":[]})", "there is no VS"},
        {R"({"vs":{}})", "\"vs\" is no array"},
        {R"({"vs":[{"id":0,"records":[]}],"x":1})", "one member"},
        {R"({"vs":[{"id":0,"records":[]}],"vs":[]})", "holds \"vs\" twice"},
        {R"({"vs":[{"id":0}]})", "vs[0]: \"records\" is missing"},
        {R"({"vs":[{"id":-1,"records":[]}]})", "vs[0]: \"id\" is no whole number"},
        {R"({"vs":[{"id":4294967296,"records":[]}]})", "vs[0]: \"id\" is no whole number"},
        {R"({"vs":[{"id":0,"records":[]},{"id":0,"records":[]}]})", "vs[1]: VS 0 came before"},
        {record("5"), "vs[0].records[0]: an object"},
        {record(R"({"class":13,"fields":[[14,1]],"x":0})"), "vs[0].records[0]: \"x\" is unknown"},
        {record(R"({"class":8,"fields":[[8,"a"]]})"), "vs[0].records[0]: 8 is no class"},
        {record(R"({"class":13,"fields":[]})"), "vs[0].records[0]: VS 0 class 13: a record without fields"},
        {record(R"({"class":13,"fields":[[15,1]]})"), "key field 14 is missing"},
        {record(R"({"class":13,"fields":[[14,1]]},{"class":13,"fields":[[14,1],[15,2]]})"),
         "vs[0].records[1]: VS 0 class 13 14=1: a record with this key came before"},
        {field("[15]"), place + "a pair"},
        {field("[\"15\",1]"), place + "the field id is no whole number"},
        {field("[15,65536]"), place + "65536 is out of range, at most 65535"},
        {field("[15,-1]"), place + "-1 does not suit"},
        {field("[15,1.5]"), place + "1.5 does not suit"},
        {field("[15,\"1\"]"), place + "\"1\" does not suit"},
        {field("[12,1]"), place + "1 does not suit"},
        {field("[99,\"a\"]"), place + "\"a\" does not suit"},
        {field("[15,{\"hex\":\"0\"}]"), place + "'0' is not a sequence"},
        {field("[15,{\"hex\":\"00\",\"x\":0}]"), place + "an object must be"},
        {field("[15,{\"hex\":\"000102\"}]"), place + "the value has 3 bytes, at most 2"},
        {field("[12,\"" + std::string(434, 'a') + "\"]"), place + "the value has 434 bytes, at most 433"},
        {field("[18,\"1.2.3.4.5\"]"), place + "'1.2.3.4.5' is not an address"},
        {field("[4,\"2024-13-01T00:00:00.000Z\"]"), place + "'2024-13-01T00:00:00.000Z' is not a time"},
    };
    Put("x.dat", SmallImage());
    for (const auto &[text, why] : rows) {
        Put("bad.json", text);
        for (const std::string command : {"import x.dat ", "import new.zip ", "import --merge x.dat "}) {
            Refused(1, why, command + "bad.json");
        }
    }
    Refused(1, "cannot read none.json: No such file", "import x.dat none.json");
    Refused(1, "cannot read .: Is a directory", "import x.dat .");
    EXPECT_EQ(Content("x.dat"), SmallImage());
    EXPECT_FALSE(Has("new.zip"));
}

TEST_F(JsonTest, MergeAddsAndOverwrites) {
    Put("x.dat", SmallImage());
    Put("m.json", std::string(R"({"vs":[{"id":0,"records":[
        {"class":13,"fields":[[14,5],[16,8]]}, {"class":13,"fields":[[14,6],[15,3],[15,4]]}]},
        {"id":9,"records":[]}]})"));
    EXPECT_EQ(Out("import --merge x.dat m.json"), "wrote x.dat: records added 1, overwritten 1\n");
    EXPECT_EQ(Out("export x.dat"),
              "{\"vs\":[{\"id\":0,\"records\":[\n"
              "{\"class\":13,\"fields\":[[14,5],[15,1],[16,8]]},\n"
              "{\"class\":13,\"fields\":[[14,6],[15,3],[15,4]]},\n"
              "{\"class\":13,\"fields\":[[14,7],[15,2]]},\n"
              "{\"class\":7,\"fields\":[[8,\"ssh\"],[9,22]]}]},\n"
              "{\"id\":3,\"records\":[]},\n"
              "{\"id\":9,\"records\":[]}]}\n");
    const Bytes merged = Content("x.dat");
    Refused(1, "vs[0].records[1]: VS 0 class 13 14=6: field 15 is given twice", "import --merge x.dat m.json");
    EXPECT_EQ(Content("x.dat"), merged);
    Out("import --merge new.zip m.json");
    EXPECT_EQ(Out("show new.zip --vs 9"), "VS 9: no records\n");

    Bytes broken = merged;
    broken[kChecksumAt] ^= 1;
    Put("x.dat", broken);
    Refused(1, "checksum mismatch", "import --merge x.dat m.json");
    EXPECT_EQ(Content("x.dat"), broken);
    Out("import x.dat m.json");  // makes the file anew, whatever it was
    EXPECT_EQ(Out("diff x.dat new.zip"), "");
}
