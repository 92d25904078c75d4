/*
 * Stores, records and fields as C++ objects.
 */
#include "tav/store.h"

#include <gmock/gmock.h>

#include <functional>
#include <iterator>

#include "bytes.h"
#include "store.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

static_assert(std::ranges::forward_range<tav::Store> && std::ranges::forward_range<tav::RecordView>);
static_assert(!std::is_copy_constructible_v<tav::Store> && std::is_nothrow_move_constructible_v<tav::Record>);

constexpr tav::Time kTime{2024, 5, 6, 7, 8, 9, 1, 123};

TEST(Handles, ValuesOfEachTypeReachTheFileAndComeBack) {
    const NothingLeaks nothingLeaks;
    const TempFolder folder;
    const std::string path = folder.Path("x.dat");
    const std::string v6 = "2001:db8::1";
    tav::Store store = tav::Store::New(path);
    store.Add(7, tav::Record(13)
                     .With(14, 0x01020304)
                     .With(15, uint16_t{0x0506})
                     .With(11, 7)
                     .With(12, "text")
                     .With(18, tav::Address::Parse("192.0.2.1"))
                     .With(18, tav::Address::Parse(v6))
                     .With(4, kTime)
                     .With(5, tav::Bytes()));
    ASSERT_EQ(TAV_ExtCfgFlush(store.Get()), TAV_OK);
    const Bytes record = Tlv(13, {Tlv(14, Be32(0x01020304)), Tlv(15, Be16(0x0506)), Tlv(11, Hex("07")),
                                  Tlv(12, Text("text")), Tlv(18, Hex("04 c0000201 00000000000000000000000000000000")),
                                  Tlv(18, Hex("06 00000000 20010db8000000000000000000000001")),
                                  Tlv(4, Hex("07e8 05 06 07 08 09 01 0000007b")), Tlv(5, Bytes())});
    EXPECT_EQ(WithoutTime(ReadFile(path)), WithoutTime(Image(VsTlv(7, {record}))));

    const tav::Store read = tav::Store::Open(path);
    const tav::RecordView back = read.Find(7, tav::Record(13).With(14, 0x01020304u)).value();
    EXPECT_EQ(back.Number(14), 0x01020304u);
    EXPECT_EQ(back.Number(15), 0x0506u);
    EXPECT_EQ(back.Number(11), 7u);
    EXPECT_EQ(back.Text(12), "text");
    EXPECT_EQ(back.Address(18)->ToText(), "192.0.2.1");
    EXPECT_EQ((*std::next(back.begin(), 5)).Address()->ToText(), v6);
    EXPECT_EQ(back.Time(4)->millisecond, 123u);
    EXPECT_EQ(back.Value(5)->size(), 0u);
    EXPECT_EQ(back.Number(12), std::nullopt) << "a text is no number";
    EXPECT_EQ(back.Number(16), std::nullopt);
    EXPECT_EQ(Encode(tav::Record(back).Get()), record);
    EXPECT_EQ(Encode(tav::Record::KeyOf(back).Get()), Tlv(13, Tlv(14, Be32(0x01020304))));
}

TEST(Handles, WalkEverythingInOrder) {
    const TempFolder folder;
    tav::Store store = tav::Store::New(folder.Path("x.dat"));
    for (const uint32_t key : {3u, 1u, 2u}) {
        store.Add(8, tav::Record(13).With(14, key));
    }
    store.Add(8, tav::Record(7).With(8, "name"));
    store.AddVs(4);
    std::vector<std::string> seen;
    for (const tav::VsView vs : store) {
        seen.push_back("VS " + std::to_string(vs.Id()));
        for (const tav::ClassView records : vs) {
            for (const tav::RecordView record : records) {
                seen.push_back(tav::Describe(vs.Id(), record));
            }
        }
    }
    EXPECT_THAT(seen, ElementsAre("VS 8", "VS 8 class 13 14=1", "VS 8 class 13 14=2", "VS 8 class 13 14=3",
                                  "VS 8 class 7 8=name", "VS 4"));
    EXPECT_FALSE(store.FindVs(5));
    EXPECT_FALSE(store.FindVs(8)->Find(26));
}

TEST(Handles, RefusalsNameTheirPlace) {
    const NothingLeaks nothingLeaks;
    const TempFolder folder;
    tav::Store store = tav::Store::New(folder.Path("x.dat"));
    store.Add(0, tav::Record(13).With(14, 5));
    const struct {
        std::function<void()> call;
        uint32_t code;
        const char *text;
    } cases[] = {
        {[&] { tav::Record(13).With(15, 0x10000); }, TAV_ERR_INVALID, "field 15: 65536 is out of range"},
        {[&] { tav::Record(13).With(14, -1); }, TAV_ERR_INVALID, "field 14: -1 is out of range"},
        {[&] { tav::Record(13).With(14, "5"); }, TAV_ERR_INVALID, "field 14: it is no field of text"},
        {[&] { tav::Record(7).With(8, std::string(255, 'x')); }, TAV_ERR_INVALID, "field 8: the value has 255 bytes"},
        {[&] { tav::Address::Parse("192.0.2.256"); }, TAV_ERR_INVALID, "192.0.2.256: "},
        {[&] { store.Add(0, tav::Record(13).With(14, 5)); }, TAV_ERR_INVALID, "VS 0 class 13 14=5: it cannot be added"},
        {[&] { store.Add(0, tav::Record(13)); }, TAV_ERR_INVALID, "VS 0 class 13: a record without fields"},
        {[&] { store.Set(0, tav::Record(13).With(14, 6)); }, TAV_ERR_NOT_FOUND, "there is no such record"},
        {[&] { store.Remove(1, tav::Record(13).With(14, 5)); }, TAV_ERR_NOT_FOUND, "VS 1 class 13 14=5: it cannot"},
        {[&] { tav::Store::Open(folder.Path("none")); }, TAV_ERR_OPEN, "none: it cannot be opened"},
    };
    for (const auto &each : cases) {
        try {
            each.call();
            ADD_FAILURE() << each.text;
        } catch (const tav::Error &error) {
            EXPECT_EQ(error.Code(), each.code) << each.text;
            EXPECT_THAT(error.what(), HasSubstr(each.text));
        }
    }
}

}  // namespace
