/*
 * Contents and keys against stores: random ones of everything that a file can hold.
 */
#include "fleet/store_content.h"

#include <gmock/gmock.h>

#include <ranges>

#include "session/random_store.h"
#include "store.h"

namespace {

using fleet::Content;

/** The store that a content's file is loaded into. */
tav::Store Load(Content content) {
    content.Seal();
    tav::Store store = tav::Store::New("/loaded.dat");
    Bytes image(content.Image().begin(), content.Image().end());
    TAV_ExtCfgFileContext context = {};
    context.local = store.Get();
    EXPECT_EQ(TAV_ParseExtCfgFileData(image.data(), static_cast<uint32_t>(image.size()), &context), TAV_OK);
    return store;
}

/** The same virtual systems and records, the systems and classes first used in the opposite order. */
tav::Store Reversed(const tav::Store &store) {
    std::vector<uint32_t> systems;
    std::vector<std::pair<uint32_t, tav::RecordView>> records;
    for (const tav::VsView vs : store) {
        systems.push_back(vs.Id());
        for (const tav::ClassView some : vs) {
            for (const tav::RecordView record : some) {
                records.emplace_back(vs.Id(), record);
            }
        }
    }
    tav::Store reversed = tav::Store::New("/reversed.dat");
    for (const uint32_t vsId : systems | std::views::reverse) {
        reversed.AddVs(vsId);
    }
    for (const auto &[vsId, record] : records | std::views::reverse) {
        reversed.Add(vsId, tav::Record(record));
    }
    return reversed;
}

/** What takes one content to another, through the names that a bucket has for it. */
fleet::Edits EditsOf(const Content &before, const Content &after) {
    fleet::Edits edits;
    fleet::Key last;
    Content::Compare(before, after, [&](const fleet::Key &key, std::optional<std::string_view> tlv) {
        EXPECT_LT(last, key) << "in order";
        last = key;
        const std::string name = fleet::NameOf(key);
        EXPECT_THAT(name, testing::MatchesRegex("vs(\\.[-A-Za-z0-9_/=]+)+"));
        EXPECT_EQ(fleet::ParseName(name), key) << name;
        EXPECT_TRUE(!tlv || fleet::ClassOf(key) == 0 || fleet::IsRecord(key, *tlv)) << name;
        edits[key] = tlv ? std::optional(std::string(*tlv)) : std::nullopt;
    });
    return edits;
}

TEST(StoreContent, IsWhatStoresHoldWhateverTheirOrder) {
    Maker maker(7);
    for (int i = 0; i < 1000; ++i) {
        const tav::Store store = maker.Store();
        const Content content = Content::Of(store);
        const tav::Store loaded = Load(content);
        EXPECT_EQ(ContentOf(loaded), ContentOf(store));
        EXPECT_EQ(Content::Of(Reversed(store)).Body(), content.Body());
        EXPECT_EQ(Content::FromBody(content.Body()).Body(), content.Body());
        EXPECT_EQ(Text(content.Body()), BodyOf(loaded)) << "as a session would write it";
        const auto [systems, records] = content.Count();
        EXPECT_EQ(systems + records, ContentOf(store).size());
    }
}

TEST(StoreContent, EditsTakeOneToAnother) {
    Maker maker(8);
    Content current;
    for (int i = 0; i < 1000; ++i) {
        const tav::Store store = maker.Store();
        for (const Content &next : {Content::Of(store), Content::Of(maker.Changed(store)), Content()}) {
            current.Apply(EditsOf(current, next));
            EXPECT_EQ(current.Body(), next.Body());
            EXPECT_TRUE(EditsOf(current, next).empty());
        }
    }
}

/** Whatever arrives, what is taken loads. */
TEST(StoreContent, TakesNothingThatDoesNotLoad) {
    Maker maker(9);
    int taken = 0;
    for (int i = 0; i < 3000; ++i) {
        std::string body(Content::Of(maker.Store()).Body());
        body[maker.Below(static_cast<uint32_t>(body.size()))] ^= static_cast<char>(1 << maker.Below(8));
        body.resize(body.size() - (maker.Below(4) == 0 ? maker.Below(9) : 0));
        try {
            const Content content = Content::FromBody(body);
            EXPECT_EQ(Content::Of(Load(content)).Body(), body);
            ++taken;
        } catch (const tav::Error &error) {
            EXPECT_EQ(error.Code(), TAV_ERR_INVALID);
        }
    }
    EXPECT_GT(taken, 300);
    const Bytes record = Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be16(1))});
    const fleet::Key key = *fleet::ParseName("vs.0.13.5");
    const auto isRecord = [&](const Bytes &tlv) {
        return fleet::IsRecord(key, {reinterpret_cast<const char *>(tlv.data()), tlv.size()});
    };
    EXPECT_TRUE(isRecord(record));
    EXPECT_FALSE(isRecord(Join({record, record})));
    EXPECT_FALSE(isRecord(Slice(record, 0, record.size() - 1)));
    EXPECT_FALSE(isRecord(Tlv(13, {Tlv(14, Be32(6))}))) << "another key";
    EXPECT_FALSE(isRecord(Tlv(13, {Tlv(14, Be32(5)), Tlv(15, Be32(1))}))) << "too long a value";
    EXPECT_FALSE(isRecord(Tlv(13, Tlv(15, Be16(1))))) << "no key";
    EXPECT_FALSE(isRecord({}));
}

/** The names are the format: other programs read them. */
TEST(StoreContent, NamesAreWrittenInOneWay) {
    const auto name = [](tav::Record record) {
        tav::Store store = tav::Store::New("/one.dat");
        store.Add(3, std::move(record));
        std::string found;
        Content::Compare({}, Content::Of(store), [&](const fleet::Key &key, auto) { found = fleet::NameOf(key); });
        return found;
    };
    const auto bytes = [](const Bytes &value) { return tav::Record(13).With(14, tav::Bytes(value)); };
    EXPECT_EQ(fleet::NameOf(fleet::KeyOfVs(0)), "vs.0");
    EXPECT_EQ(name(tav::Record(13).With(14, 4294967295u)), "vs.3.13.4294967295");
    EXPECT_EQ(name(bytes({0, 5})), "vs.3.13.=00=05");
    EXPECT_EQ(name(bytes({})), "vs.3.13.=");
    EXPECT_EQ(name(tav::Record(7).With(8, "ssh/tcp-2_x")), "vs.3.7.ssh/tcp-2_x");
    EXPECT_EQ(name(tav::Record(7).With(8, "a.b =\xc3\xbc")), "vs.3.7.a=2eb=20=3d=c3=bc");
    EXPECT_EQ(name(tav::Record(7).With(8, "")), "vs.3.7.=");
    for (const char *const other : {"head",          "vs",          "vs.",
                                    "vs.0.",         "vs.00",       "vs.+1",
                                    "vs.4294967296", "vs.1.0",      "vs.0.13",
                                    "vs.0.13.",      "vs.0.13.05",  "vs.0.13.4294967296",
                                    "vs.0.13.5.",    "vs.0.13.5.6", "vs.0.13.=00=00=00=05",
                                    "vs.0.7.a=2Eb",  "vs.0.7.=41",  "vs.0.7.a=",
                                    "vs.0.7.a=2",    "vs.0.7.a b",  "vs.0.013.5",
                                    "record.0.13.5"}) {
        EXPECT_EQ(fleet::ParseName(other), std::nullopt) << other;
    }
}

}  // namespace
