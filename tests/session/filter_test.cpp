/*
 * Terms over fields, and the order of records.
 */
#include "tav/filter.h"

#include <algorithm>

#include "random_store.h"
#include "tav/changes.h"
#include "tav/script.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

class FilterTest : public testing::Test {
  protected:
    FilterTest() {
        tav::Apply(tav::ParseScript(R"(
            add 0 13 14=1 15=9 12=alpha 18=192.0.2.1 4=2024-05-06T07:08:09.123
            add 0 13 14=2 15=10 12="b c" 18=10.0.0.1 4=2023-12-31T00:00:00.000
            add 0 13 14=3 15=hex:ff 12="" 18=2001:db8::1 16=1 16=2
            add 0 13 14=4 999=hex:0102
            add 0 7 8=alpha 15=9)"),
                   &store_);
    }

    /** The keys of the records that match. */
    std::string Matching(const std::vector<std::string> &terms) const {
        const tav::Filter filter(terms, names_);
        std::string keys;
        const tav::VsView vs = *store_.FindVs(0);
        for (const tav::ClassView records : vs) {
            for (const tav::RecordView record : records) {
                if (filter.Matches(record)) {
                    keys += record.Cid() == 13 ? std::to_string(*record.Number(14)) : "a";
                }
            }
        }
        return keys;
    }

    tav::Names names_ =
        tav::Names::Parse(R"({"13": {"fields": {"14": "id", "12": "name"}}, "7": {"fields": {"8": "name"}}})", "");
    tav::Store store_ = tav::Store::New("/filter.dat");
};

TEST_F(FilterTest, ComparesByType) {
    const std::pair<std::vector<std::string>, const char *> rows[] = {
        {{}, "1234a"},
        {{"14=2"}, "2"},
        {{"15=9"}, "1a"},
        {{"15=0x9", "14<5"}, "1"},
        {{"15<10"}, "1a"},  // as numbers, and without what has another length
        {{"15<=10"}, "12a"},
        {{"15>9"}, "2"},
        {{"15>=9"}, "12a"},
        {{"15!=9"}, "234"},
        {{"15=hex:ff"}, "3"},
        {{"18<192.0.2.1"}, "2"},
        {{"18>192.0.2.1"}, "3"},
        {{"4<2024-01-01T00:00:00.000"}, "2"},
        {{"12<b"}, "13"},
        {{"12="}, "3"},
        {{"12=b c"}, "2"},
        {{"16=1"}, "3"},
        {{"16=2"}, ""},  // the first one counts
        {{"999>hex:01"}, "4"},
        {{"12~^a"}, "1"},
        {{"15~^(9|hex:)"}, "13a"},
        {{"name=alpha"}, "1a"},  // another field in each class
        {{"name!=alpha"}, "234"},
        {{"id>=2", "id<=3"}, "23"},
    };
    for (const auto &[terms, keys] : rows) {
        EXPECT_EQ(Matching(terms), keys) << testing::PrintToString(terms);
    }
    const std::pair<std::string, const char *> refused[] = {
        {"14", "not of the form"},
        {"", "not of the form"},
        {"14!5", "not of the form"},
        {"=5", "no known field"},
        {"who=5", "'who' is no known field"},
        {"15=x", "'x' is not a number"},
        {"id=4294967296", "out of range"},
        {"12~(", "'(' is no pattern: missing )"},
        {"12~(a)\\1", "invalid escape"},
        {"12~" + std::string(30'000, '('), "no pattern"},  // which must not take stack or memory
        {"12~(((a{1,255}){1,255}){1,255})", "invalid repetition size"},
    };
    for (const auto &[term, why] : refused) {
        const std::string text = ErrorOf([&, each = term] { Matching({each}); }).second;
        EXPECT_THAT(text, StartsWith(term + (term.empty() ? "" : ": ")));
        EXPECT_THAT(text, HasSubstr(why));
    }
}

TEST_F(FilterTest, OrderGoesByType) {
    const auto sorted = [&](const std::vector<std::string> &fields) {
        std::vector<tav::RecordView> records;
        const tav::ClassView all = *store_.FindVs(0)->Find(13);
        std::ranges::copy(all, std::back_inserter(records));
        std::stable_sort(records.begin(), records.end(), tav::Order(13, fields, names_));
        std::string keys;
        for (const tav::RecordView record : records) {
            keys += std::to_string(*record.Number(14));
        }
        return keys;
    };
    EXPECT_EQ(sorted({"15"}), "1234") << "a value of another length behind the others, a record without one last";
    EXPECT_EQ(sorted({"18"}), "2134");
    EXPECT_EQ(sorted({"4"}), "2134");
    EXPECT_EQ(sorted({"name"}), "3124");
    EXPECT_EQ(sorted({"999", "18"}), "4213");
}

}  // namespace
