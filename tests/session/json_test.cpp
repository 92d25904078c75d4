/*
 * JSON out of stores and into them.
 */
#include "tav/json.h"

#include "random_store.h"
#include "store.h"

namespace {

using testing::HasSubstr;

std::string JsonOf(const tav::Store &store, tav::JsonForm form, const tav::Names &names = {}) {
    std::string text;
    tav::WriteJson(
        store, form, [&](std::string_view piece) { text += piece; }, names);
    return text;
}

tav::Store Read(const std::string &text, tav::JsonForm form, const tav::Names &names = {}) {
    tav::Store store = tav::Store::New("/read.dat");
    tav::ReadJson(text, form, &store, names);
    return store;
}

TEST(Json, BothFormsGiveBackTheSameBody) {
    const NothingLeaks nothingLeaks;
    const tav::Names names = tav::Names::Parse(
        R"({"13": {"name": "route", "fields": {"14": "id"}}, "1": {"fields": {"14": "x", "0": "zero"}}})", "");
    for (uint32_t seed = 1; seed <= 200; ++seed) {
        SCOPED_TRACE(seed);
        const tav::Store store = Maker(seed).Store();
        for (const tav::JsonForm form : {tav::JsonForm::kTree, tav::JsonForm::kLines}) {
            EXPECT_EQ(BodyOf(Read(JsonOf(store, form), form)), BodyOf(store)) << JsonOf(store, form);
            EXPECT_EQ(BodyOf(Read(JsonOf(store, form, names), form, names)), BodyOf(store));
        }
    }
}

TEST(Json, MembersMayStandInAnyOrder) {
    const tav::Names names = tav::Names::Parse(R"({"13": {"name": "route", "fields": {"14": "id"}}})", "");
    const tav::Store store =
        Read(R"({"vs":[{"records":[{"fields":[["id",5],[12,"\u00e9"]],"class":"route"},{"class":13,"fields":[[14,4]]}],
             "id":7}, {"id":3,"records":[]}]})",
             tav::JsonForm::kTree, names);
    const std::string lines =
        "{\"vs\":7,\"class\":13,\"fields\":[[14,4]]}\n"
        "{\"vs\":7,\"class\":13,\"fields\":[[14,5],[12,\"\xc3\xa9\"]]}\n{\"vs\":3}\n";
    EXPECT_EQ(JsonOf(store, tav::JsonForm::kLines), lines);
    EXPECT_EQ(JsonOf(Read("\n" + lines + "  \r\n", tav::JsonForm::kLines), tav::JsonForm::kLines), lines);
}

/** The tool's tests hold what is wrong with trees. */
TEST(Json, RefusalsNameTheirPlace) {
    const auto late = [](const std::string &record) {
        return R"({"vs":[{"records":[{"class":13,"fields":[[14,1]]},)" + record + R"(],"id":0}]})";
    };
    const struct {
        tav::JsonForm form;
        std::string text, why;
    } rows[] = {
        {tav::JsonForm::kTree, late(R"({"class":13,"fields":[[14,1]]})"),
         "vs[0].records[1]: VS 0 class 13 14=1: a record"},
        {tav::JsonForm::kTree, late(R"({"fields":[["id",1]]})"),
         "vs[0].records[1].fields[0]: the field id is no whole"},
        {tav::JsonForm::kTree, R"({"vs":[{"records":[]}]})", "vs[0]: \"id\" is missing"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":1,"records":[{"class":13,"fields":[[15,{}]]}]}]})",
         "fields[0]: an object must be"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":1,"records":[{"class":13,"fields":[[15,[]]]}]}]})",
         "an array is no value"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":1,"records":[{"class":13,"fields":[[15,1,2]]}]}]})",
         "a pair of field id"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":1,"records":[{"class":13,"fields":[[15,-1]]}]}]})", "-1 does not suit"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":1,"records":[{"class":13,"fields":[[15,1.5]]}]}]})",
         "1.5 does not suit"},
        {tav::JsonForm::kTree, R"({"vs":[{"id":null,"records":[]}]})", "vs[0]: \"id\" is no whole number"},
        {tav::JsonForm::kLines, "{\"vs\":3}\n{\"class\":13,\"fields\":[]}", "line 2: \"vs\" is missing"},
        {tav::JsonForm::kLines, "{\"vs\":3,\"class\":13}", "line 1: \"fields\" is missing"},
        {tav::JsonForm::kLines, "{\"vs\":3,\"class\":13,\"fields\":[[14]]}", "line 1: fields[0]: a pair"},
        {tav::JsonForm::kLines, "{\"vs\":3}\n\n[]", "line 3: an object with \"vs\""},
        {tav::JsonForm::kLines, "{\"vs\":3}{", "line 1: parse error at line 1, column 9"},
    };
    for (const auto &row : rows) {
        EXPECT_THAT(ErrorOf([&] { Read(row.text, row.form); }).second, HasSubstr(row.why)) << row.text;
    }
}

}  // namespace
