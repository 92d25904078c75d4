/*
 * Changes: what tells two stores apart, applied as a whole or not at all, taken back, and as a script.
 */
#include "tav/changes.h"

#include "random_store.h"
#include "store.h"
#include "tav/diff.h"
#include "tav/script.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string ScriptOf(const tav::Changes &changes) {
    std::string text;
    for (const tav::Change &change : changes) {
        text += tav::WriteChange(change) + "\n";
    }
    return text;
}

tav::Store StoreOf(const char *script) {
    tav::Store store = tav::Store::New("/scripted.dat");
    tav::Apply(tav::ParseScript(script), &store);
    return store;
}

/** Brings one store to another and back, by way of a script, and expects a failure to leave it untouched. */
void ExpectWayThereAndBack(const tav::Store &from, const tav::Store &to, tav::Store *store) {
    const tav::Changes changes = tav::Diff(from, to);
    ASSERT_EQ(tav::ParseScript(ScriptOf(changes)), changes) << ScriptOf(changes);
    const Bytes body = BodyOf(*store);
    tav::Changes failing = changes;
    failing.push_back({tav::Verb::kDelete, 99, {}, {}, {}});
    EXPECT_EQ(ErrorOf([&] { tav::Apply(failing, store); }).first, TAV_ERR_NOT_FOUND);
    EXPECT_EQ(BodyOf(*store), body) << "after a change that failed";
    const tav::Changes inverse = tav::Apply(changes, store);
    EXPECT_EQ(ContentOf(*store), ContentOf(to)) << ScriptOf(changes);
    EXPECT_EQ(ScriptOf(tav::Diff(*store, to)), "");
    tav::Apply(inverse, store);
    EXPECT_EQ(ContentOf(*store), ContentOf(from)) << ScriptOf(inverse);
}

TEST(Changes, LeadFromAnyStoreToAnyOtherAndBack) {
    const NothingLeaks nothingLeaks;
    size_t setAndUnset = 0;
    for (uint32_t seed = 1; seed <= 300; ++seed) {
        SCOPED_TRACE(seed);
        tav::Store a = Maker(seed).Store(), same = Maker(seed).Store();
        Maker maker(~seed);
        const tav::Store b = seed % 4 == 0 ? maker.Store() : maker.Changed(a);
        ExpectWayThereAndBack(a, b, &same);
        const std::string script = ScriptOf(tav::Diff(a, b));
        setAndUnset += script.find("\nset ") != std::string::npos && script.find("\nunset ") != std::string::npos;
    }
    EXPECT_GT(setAndUnset, 30u) << "fields should often be changed one by one";
}

TEST(Changes, SayWhatIsNeededAndNoMore) {
    const tav::Store a = StoreOf("add 0 13 14=5 15=1 16=2 12=ab\nadd 0 13 14=6\nadd 0 7 8=x 999=hex:01 5=0102\nadd 3");
    const struct {
        const char *edits, *changes;
        tav::ChangeCounts counts;
    } rows[] = {
        {"", "", {}},
        {"set 0 13 14=5 15=7", "set 0 13 14=5 15=7\n", {0, 1, 0}},
        {"set 0 13 14=5 12=abc 18=192.0.2.1", "set 0 13 14=5 12=abc 18=192.0.2.1\n", {0, 1, 0}},
        {"unset 0 13 14=5 15 12", "unset 0 13 14=5 15 12\n", {0, 1, 0}},
        {"unset 0 13 14=5 16\nset 0 13 14=5 15=2", "set 0 13 14=5 15=2\nunset 0 13 14=5 16\n", {0, 1, 0}},
        // What no type is known of is not compared by the library; it is set all the same.
        {"set 0 7 8=x 999=hex:02", "set 0 7 8=x 999=hex:02\n", {0, 1, 0}},
        // Another order of the same fields.
        {"unset 0 7 8=x 999\nset 0 7 8=x 999=hex:01", "del 0 7 8=x\nadd 0 7 8=x 5=0102 999=hex:01\n", {0, 1, 0}},
        {"del 0 13 14=5\ndel 3", "del 0 13 14=5\ndel 3\n", {0, 0, 1}},
        {"add 4\nadd 0 26 14=1 27=9\nadd 3 13 14=1", "add 0 26 14=1 27=9\nadd 3 13 14=1\nadd 4\n", {2, 0, 0}},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.edits);
        tav::Store b = StoreOf("add 0 13 14=5 15=1 16=2 12=ab\nadd 0 13 14=6\nadd 0 7 8=x 999=hex:01 5=0102\nadd 3");
        tav::Apply(tav::ParseScript(row.edits), &b);
        const tav::Changes changes = tav::Diff(a, b);
        EXPECT_EQ(ScriptOf(changes), row.changes);
        EXPECT_EQ(tav::CountChanges(changes), row.counts);
    }
    tav::Store b = StoreOf("add 0 13 14=5 15=9 16=2 12=ab\nadd 0 13 14=6 15=1\nadd 9");
    EXPECT_EQ(ScriptOf(tav::Diff(a, b, {0, 13, {15}})), "");
    EXPECT_EQ(ScriptOf(tav::Diff(a, b, {3, {}, {}})), "del 3\n");
    EXPECT_EQ(ScriptOf(tav::Merge(a, b)),
              "set 0 13 14=5 15=1 16=2 12=ab\nset 0 13 14=6\nadd 0 7 8=x 999=hex:01 5=0102\nadd 3\n");
    tav::Clear(&b);
    EXPECT_EQ(ContentOf(b), ContentOf(tav::Store::New("/empty.dat")));
}

TEST(Changes, RefusalsNameLineRecordAndReason) {
    const std::string first = "# the first line\nset 0 13 14=5 15=9\n";
    const struct {
        const char *line;
        uint32_t code;
        const char *why;
    } rows[] = {
        {"add 0 13 14=5", TAV_ERR_INVALID, "line 3: VS 0 class 13 14=5: there is a record with this key already"},
        {"add 0 26 14=1", TAV_ERR_INVALID, "line 3: VS 0 class 26 14=1: there is a record with this key already"},
        {"add 0 13 15=5", TAV_ERR_INVALID, "key field 14 is missing"},
        {"add 0 1", TAV_ERR_INVALID, "without fields"},
        {"set 0 13 14=6 15=1", TAV_ERR_NOT_FOUND, "VS 0 class 13 14=6: there is no such record"},
        {"set 0 13 14=5 15=1 15=2", TAV_ERR_INVALID, "field 15 is given twice"},
        {"set 0 13 14=5 14=5", TAV_ERR_INVALID, "key field 14 is given twice"},
        {"unset 0 13 14=5 15 17", TAV_ERR_NOT_FOUND, "the record has no field 17"},
        {"unset 0 13 14=5 14", TAV_ERR_INVALID, "key field 14 cannot be taken out"},
        {"unset 0 1 15", TAV_ERR_INVALID, "would be without any field"},
        {"del 1 13 14=5", TAV_ERR_NOT_FOUND, "VS 1 class 13 14=5: there is no such record"},
        {"del 0", TAV_ERR_INVALID, "VS 0: it still has records"},
        {"add 0", TAV_ERR_INVALID, "VS 0: it is there already"},
        {"del 9", TAV_ERR_NOT_FOUND, "there is no such VS"},
    };
    tav::Store store = StoreOf("add 0 13 14=5 15=1\nadd 0 26 14=1\nadd 0 1 15=2\nadd 2");
    const Bytes body = BodyOf(store);
    for (const auto &row : rows) {
        const auto [code, text] = ErrorOf([&] { tav::Apply(tav::ParseScript(first + row.line), &store); });
        EXPECT_EQ(code, row.code) << row.line;
        EXPECT_THAT(text, StartsWith("line 3: "));
        EXPECT_THAT(text, HasSubstr(row.why));
        EXPECT_EQ(BodyOf(store), body) << row.line;
    }
    tav::Change overlong{tav::Verb::kSet, 0, 13, {{14, std::string("\5\0\0\0", 4)}, {15, "abc"}}, {}};
    EXPECT_THAT(ErrorOf([&] { tav::Apply({overlong}, &store); }).second,
                HasSubstr("change 1: field 15: the value has 3"));
    store.Get()->mode = TAV_EXT_MODE_READ_ONLY;
    EXPECT_EQ(ErrorOf([&] { tav::Apply({}, &store); }).first, TAV_ERR_REFUSED);
}

}  // namespace
