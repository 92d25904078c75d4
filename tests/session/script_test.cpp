/*
 * Scripts as people write them, and names.
 */
#include "tav/script.h"

#include <sys/stat.h>

#include "random_store.h"
#include "tav/names.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

constexpr const char *kNames = R"({"13": {"name": "route", "fields": {"14": "id", "18": "address", "12": "text"}},
                                  "7": {"name": "service", "fields": {"8": "name"}}, "26": {"fields": {"14": "key"}}})";

TEST(Script, IsReadAsPeopleWriteIt) {
    const tav::Names names = tav::Names::Parse(kNames, "names.json");
    const struct {
        const char *written, *read;  // the second as a script of one form; empty when there is no change
    } rows[] = {
        {"", ""},
        {"  # only a comment", ""},
        {"\tset  0 13 14=0x5 15=1\t# why\r", "set 0 13 14=5 15=1"},
        {"set 0 route id=5 address=192.0.2.1", "set 0 13 14=5 18=192.0.2.1"},
        {"unset 0 route id=5 address 15", "unset 0 13 14=5 18 15"},
        {"del 0 service name=\"a b\"", "del 0 7 8=\"a b\""},
        {"add 0 26 key=1", "add 0 26 14=1"},
        {"add 0 7 8=a#b\\c=d", "add 0 7 8=a#b\\c=d"},
        {"add 0 7 \"8=say \\\"no\\\" \\\\ #1\"", "add 0 7 8=\"say \\\"no\\\" \\\\ #1\""},
        {"add 0 7 8= 12=\"\"", "add 0 7 8=\"\" 12=\"\""},
        {"add 0 7 8=\"a\tb\"", "add 0 7 8=hex:610962"},
        {"add 0 7 8=hex:ff", "add 0 7 8=hex:ff"},
        {"add 0 13 14=1 4=2024-05-06T07:08:09.123 5=00fF 999=hex:",
         "add 0 13 14=1 4=2024-05-06T07:08:09.123Z 5=00ff 999=hex:"},
        {"add 4294967295", "add 4294967295"},
    };
    for (const auto &row : rows) {
        const tav::Changes changes = tav::ParseScript(row.written, names);
        ASSERT_EQ(changes.size(), *row.read == '\0' ? 0u : 1u) << row.written;
        if (!changes.empty()) {
            EXPECT_EQ(tav::WriteChange(changes[0]), row.read);
            EXPECT_EQ(tav::ParseScript(tav::WriteChange(changes[0], names), names), changes);
        }
    }
    const tav::Change change = tav::ParseScript("unset 0 13 14=5 18 19")[0];
    EXPECT_EQ(tav::WriteChange(change, names), "unset 0 route id=5 address 19");
    EXPECT_EQ(tav::ChangeToJson(change, names),
              R"({"verb":"unset","vs":0,"class":"route","fields":[["id",5]],"unset":["address",19]})");
    EXPECT_EQ(tav::ChangeToJson(tav::ParseScript("del 3")[0]), R"({"verb":"del","vs":3})");
}

TEST(Script, RefusalsNameLineAndReason) {
    const std::pair<const char *, const char *> rows[] = {
        {"replace 0 13", "'replace' is none of add, set, unset, del"},
        {"set", "the VS is missing"},
        {"set x 13", "VS: 'x' is not a number"},
        {"set 4294967296 13", "out of range"},
        {"set 0", "the class is missing"},
        {"add 0 12 12=x", "12 is no class of records"},
        {"add 0 route 14=5", "'route' is no known class"},
        {"add 0 13 id=5", "'id' is no known field of class 13"},
        {"add 0 13 14", "'14' is not of the form FIELD=VALUE"},
        {"del 0 13 14=5 15=1", "field 15 is no key field of class 13"},
        {"add 0 13 14=5 15=65536", "field 15: 65536 is out of range, at most 65535"},
        {"add 0 7 8=\"open", "a quote is left open"},
        {"add 0 7 8=\"a\\n\"", "in quotes only"},
        {"add 0 7 8=\"a\\", "in quotes only"},
    };
    for (const auto &[line, why] : rows) {
        const auto [code, text] = ErrorOf([&] { tav::ParseScript(std::string("add 3\n\n") + line + "\nadd 4\n"); });
        EXPECT_EQ(code, TAV_ERR_INVALID);
        EXPECT_THAT(text, StartsWith("line 3: ")) << line;
        EXPECT_THAT(text, HasSubstr(why));
    }
    const tav::Change tooLong{tav::Verb::kAdd, 0, 13, {{14, "12345"}}, {}};
    EXPECT_EQ(ErrorOf([&] { tav::WriteChange(tooLong); }).first, TAV_ERR_INVALID);
}

TEST(Names, RefusalsNameFileAndPlace) {
    const TempFolder folder;
    const std::pair<const char *, const char *> rows[] = {
        {"{\"13\": {\"name\": \"a\",}}", ": \"13\" \"name\": parse error at line 1, column 21: this is no JSON"},
        {"", ": parse error at line 1, column 1: the text ends too early"},
        {R"({"x": {}})", ": \"x\": 'x' is not a number"},
        {R"({"14": {}})", ": \"14\": 14 is no class of records"},
        {R"({"13": 5})", ": \"13\": an object must stand here"},
        {R"({"13": {"nam": "x"}})", ": \"13\" \"nam\": only \"name\" and \"fields\""},
        {R"({"13": {"name": 5}})", ": \"13\" \"name\": 5 is no name"},
        {R"({"13": {"name": "5a"}})", ": \"13\" \"name\": '5a' is no name"},
        {R"({"13": {"name": "a=b"}})", ": \"13\" \"name\": 'a=b' is no name"},
        {R"({"13": {"name": "a"}, "7": {"name": "a"}})",
         ": \"7\" \"name\": class 7 has a name already, or 'a' is taken"},
        {R"({"13": {"fields": {"14": "a", "15": "a"}}})", ": \"13\" \"fields\" \"15\": field 15 has a name already"},
        {R"({"13": {"fields": []}})", ": \"13\" \"fields\": no array may stand here"},
        {R"({"13": {"fields": {"14": {}}}})", ": \"13\" \"fields\" \"14\": a name must stand here"},
        {"[]", ": no array may stand here"},
    };
    const std::string path = folder.Path("n.json");
    for (const auto &[text, why] : rows) {
        WriteFile(path, Text(text));
        EXPECT_THAT(ErrorOf([&] { tav::Names::Load(path); }).second, StartsWith(path + why));
    }
    EXPECT_THAT(ErrorOf([&] { tav::Names::Load(folder.Path("none")); }).second,
                HasSubstr("none: it cannot be read: No"));
    EXPECT_THAT(ErrorOf([&] { tav::Names::Load(folder.Path(".")); }).second, HasSubstr("is not a regular file"));
    ASSERT_EQ(mkfifo(folder.Path("fifo").c_str(), 0600), 0);
    EXPECT_THAT(ErrorOf([&] { tav::Names::Load(folder.Path("fifo")); }).second, HasSubstr("is not a regular file"));
    WriteFile(path, Text(kNames));
    EXPECT_EQ(tav::Names::Load(path).FindField(13, "address"), 18u);
}

}  // namespace
