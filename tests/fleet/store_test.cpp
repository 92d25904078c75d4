/*
 * Files published and followed by the tool, over a real server: what arrives, who may publish, what is refused.
 */
#include <sys/stat.h>

#include <chrono>
#include <filesystem>

#include "fleet/store_bucket.h"
#include "fleet/store_content.h"
#include "fleet/store_head.h"
#include "fleet/store_writer.h"
#include "session/file.h"
#include "session/random_store.h"
#include "store_tool.h"
#include "tav/changes.h"
#include "tav/diff.h"
#include "tav/history.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::MatchesRegex;

constexpr int kGenerations = 12;

/** A user who may follow bucket b, and nothing else: docs/fleet-store.md has the same. */
const std::string kReader =
    "{ user: otto, password: secret, permissions: { publish: [\"$JS.API.STREAM.INFO.KV_b\","
    " \"$JS.API.STREAM.MSG.GET.KV_b\", \"$JS.API.DIRECT.GET.KV_b\", \"$JS.API.CONSUMER.*.KV_b.>\","
    " \"$JS.API.CONSUMER.CREATE.KV_b\", \"$JS.FC.>\"], subscribe: [\"_INBOX.>\"] } }";

class StoreTest : public testing::Test {
  protected:
    std::string Path(const std::string &name) const { return folder_.Path(name); }

    /** Makes a file hold what a store does. */
    static void Put(const std::string &path, tav::Store &&store) {
        tav::Session session(path, {.create = true});
        session.Store() = std::move(store);
        session.Commit();
    }

    /** Runs the tool to its end, which must be a good one. */
    void Do(const std::string &command, const std::string &name, const std::vector<std::string> &more = {}) const {
        Tool tool = server_.Start(command, Path(name), more);
        EXPECT_EQ(tool.End(), 0) << command << " " << name;
        EXPECT_EQ(tool.error.Rest(), "") << command << " " << name;
    }

    /** Runs the tool, which must refuse in one line. */
    static void Refuses(Tool tool, const std::string &why) {
        EXPECT_EQ(tool.End(), 1) << why;
        const std::string error = tool.error.Rest();
        EXPECT_THAT(error, MatchesRegex("tavcfg: [^\n]+\n"));
        EXPECT_THAT(error, HasSubstr(why));
    }
    void Refuses(const std::string &command, const std::string &name, const std::vector<std::string> &more,
                 const std::string &why) const {
        Refuses(server_.Start(command, Path(name), more), why);
    }

    /** How many messages the bucket keeps that delete something. */
    size_t CountDeletions() const {
        const fleet::Bucket bucket(server_.server.Url(), "b", false);
        fleet::Feed feed(bucket, ">", 1);
        size_t count = 0;
        for (bool isOver = false; !isOver;) {
            const std::optional<fleet::Entry> entry = feed.Next(seconds(5));
            count += entry && entry->isDeleted && entry->name.starts_with("vs.") ? 1 : 0;
            isOver = !entry || entry->pending == 0;
        }
        return count;
    }

    const TempFolder folder_;
    const StoreServer server_;
};

/**
 * Generations of every kind, with copies now and then. One follows all the time; others were away from each of them on,
 * or come anew.
 */
TEST_F(StoreTest, ArrivesWhoeverWasAwayForHowLong) {
    Maker maker(5);
    const auto name = [](int i) { return std::to_string(i) + (i % 4 == 3 ? ".zip" : ".dat"); };
    const auto checksum = [this](const std::string &file) { return tav::Snapshot(Path(file)).Checksum(); };
    tav::Store some = maker.Store();
    std::optional<Tool> live;
    for (int i = 0; i < kGenerations; ++i) {
        some = i % 2 == 0 ? maker.Store() : maker.Changed(some);
        tav::Store store = tav::Store::New("");
        tav::Apply(tav::Merge(some, store), &store);
        for (uint32_t key = i % 3 == 0 ? 0 : 1500; key < 3000; ++key) {  // enough for copies, and deletions behind them
            store.Add(99, Entry(key, static_cast<uint32_t>(i / 3)));
        }
        const auto content = ContentOf(store);
        const std::string expected = fleet::Content::Of(store).Seal();
        Put(Path("source.dat"), std::move(store));
        Do("publish", "source.dat");
        Do("follow", name(i), {"--once"});
        EXPECT_EQ(ContentOf(tav::Snapshot(Path(name(i))).Store()), content) << i;
        EXPECT_EQ(checksum(name(i)), expected) << i;
        if (!live) {
            live.emplace(server_.Start("follow", Path("live.dat")));
        }
        EXPECT_THAT(live->out.Line(), HasSubstr("generation " + std::to_string(i + 1) + " of bucket b now"));
        EXPECT_EQ(checksum("live.dat"), expected) << i;
    }
    for (int i = 0; i < kGenerations; ++i) {
        Do("follow", name(i), {"--once"});
        EXPECT_EQ(checksum(name(i)), checksum("live.dat")) << i;
    }
    EXPECT_EQ(live->End(SIGTERM), 0);
    EXPECT_LT(CountDeletions(), 200u) << "those before the copy are not kept";
}

/** A file is its follower's own, unless others have made something else of it. */
TEST_F(StoreTest, OverwritesNothingUnasked) {
    MakeFile(Path("source.dat"), {{1, 10}});
    Refuses("follow", "x.dat", {"--once", "--wait", "0.2"}, "there is no such bucket");
    Do("publish", "source.dat");
    MakeFile(Path("x.dat"), {{5, 50}});
    Refuses("follow", "x.dat", {"--once"}, "x.dat: it is there and was not made by following");
    Do("follow", "x.dat", {"--once", "--on-conflict", "overwrite"});
    tav::History::Start(Path("x.dat"));
    MakeFile(Path("same.dat"), {{1, 10}});
    Do("follow", "same.dat", {"--once"});

    SetEntry(Path("x.dat"), 1, 11);
    Refuses("follow", "x.dat", {"--once"}, "x.dat: others have changed it since it was made generation 1");
    SetEntry(Path("x.dat"), 1, 10);
    SetEntry(Path("source.dat"), 2, 20);
    Do("publish", "source.dat");
    Do("follow", "x.dat", {"--once"});
    EXPECT_EQ(ReadEntries(Path("x.dat")), (Entries{{1, 10}, {2, 20}}));
    EXPECT_EQ(tav::History(Path("x.dat")).Commits().back().note.comment, "generation 2 of bucket b");

    Tool strict = server_.Start("follow", Path("x.dat")),
         lenient = server_.Start("follow", Path("same.dat"), {"--on-conflict", "overwrite"});
    EXPECT_THAT(strict.out.Line(), HasSubstr("are the same"));
    EXPECT_THAT(lenient.out.Line(), HasSubstr("is generation 2"));
    fs::remove(Path("x.dat"));
    EXPECT_THAT(strict.out.Line(), HasSubstr("is generation 2")) << "made again";
    SetEntry(Path("same.dat"), 3, 30);
    EXPECT_THAT(lenient.out.Line(), HasSubstr("is generation 2")) << "made again";
    SetEntry(Path("x.dat"), 3, 30);
    Refuses(std::move(strict), "others have changed it");
    EXPECT_EQ(ReadEntries(Path("x.dat")).at(3), 30u);

    Bytes broken = ReadFile(Path("same.dat"));
    broken.back() ^= 1;
    WriteFile(Path("same.dat"), broken);
    EXPECT_THAT(lenient.out.Line(), HasSubstr("is generation 2")) << "though the head was right";
    EXPECT_EQ(lenient.End(SIGTERM), 0);
    WriteFile(Path("same.dat"), broken);
    Refuses("follow", "same.dat", {"--once"}, "others have changed it");

    const tav::Lock lock(Path("same.dat"));
    Tool once = server_.Start("follow", Path("same.dat"), {"--once", "--wait", "0.1"});
    EXPECT_EQ(once.End(), 3) << "as for all that writes";
}

/** One publishes; a second one is told who. The claim of one that hangs, or is dead, ends; it can do no harm later. */
TEST_F(StoreTest, OnePublishesAtATime) {
    MakeFile(Path("first.dat"), {{1, 10}});
    MakeFile(Path("second.dat"), {{2, 20}});
    Tool first = server_.Start("publish", Path("first.dat"), {"--watch"});
    EXPECT_THAT(first.out.Line(), HasSubstr("generation 1 of bucket b, records 1"));
    Refuses("publish", "second.dat", {}, "somebody else publishes to it: user ");
    first.Signal(SIGSTOP);
    Tool second = server_.Start("publish", Path("second.dat"), {"--watch"});
    EXPECT_THAT(second.out.Line(), HasSubstr("generation 2 of bucket b, records 1"));
    SetEntry(Path("first.dat"), 1, 11);
    first.Signal(SIGCONT);
    EXPECT_EQ(first.End(), 1);
    EXPECT_THAT(first.error.Line(), HasSubstr("somebody else has written to it; trying again"));
    EXPECT_THAT(first.error.Rest(), HasSubstr("somebody else publishes to it: user "));
    SetEntry(Path("second.dat"), 2, 21);
    EXPECT_THAT(second.out.Line(), HasSubstr("generation 3"));
    EXPECT_EQ(second.End(SIGTERM), 0);
    Do("follow", "x.dat", {"--once"});
    EXPECT_EQ(ReadEntries(Path("x.dat")), (Entries{{2, 21}}));
    const auto begin = steady_clock::now();
    Do("publish", "first.dat");
    EXPECT_LT(steady_clock::now() - begin, seconds(5)) << "the claim was given back";
}

/** What a publisher finds in its bucket that it has not put there goes; what it cannot put is told, and it goes on. */
TEST_F(StoreTest, MendsTheBucketAndWaitsForTheFile) {
    Tool publisher = server_.Start("publish", Path("source.dat"), {"--watch"});
    EXPECT_THAT(publisher.error.Line(), HasSubstr("source.dat: there is no such file"));
    MakeFile(Path("source.dat"), {{1, 10}, {2, 20}});
    EXPECT_THAT(publisher.out.Line(), HasSubstr("generation 1"));
    {
        const fleet::Bucket bucket(server_.server.Url(), "b", false);
        fleet::Writer writer(bucket);
        ASSERT_TRUE(writer.Begin("vs.0.13.1", "garbage", bucket.Last("vs.0.13.1")->sequence));
        writer.Put("vs.0.13.3", "garbage");
        writer.Delete("vs.0.13.2");
        writer.Flush();
    }
    Refuses("follow", "x.dat", {"--once", "--wait", "1"}, "generation 1 is not whole");
    Tool follower = server_.Start("follow", Path("x.dat"));
    SetEntry(Path("source.dat"), 1, 11);
    EXPECT_THAT(publisher.out.Line(), HasSubstr("generation 2 of bucket b, records 2, put or deleted 2"));
    EXPECT_THAT(follower.out.Line(), HasSubstr("x.dat is generation 2"));
    EXPECT_EQ(ReadEntries(Path("x.dat")), (Entries{{1, 11}, {2, 20}}));
    EXPECT_THAT(publisher.error.Line(), HasSubstr("somebody else has written to it; trying again"));

    fs::remove(Path("source.dat"));
    EXPECT_THAT(publisher.error.Line(), HasSubstr("source.dat: there is no such file"));
    WriteFile(Path("source.dat"), Text("something else"));
    EXPECT_THAT(publisher.error.Line(), HasSubstr("source.dat: it is no configuration file"));
    fs::remove(Path("source.dat"));
    MakeFile(Path("source.dat"), {{7, 70}});
    EXPECT_THAT(publisher.out.Line(), HasSubstr("generation 3"));
    EXPECT_EQ(publisher.End(SIGTERM), 0);
}

/** Users, certificates and servers that are not what is needed, each told in one line. */
TEST_F(StoreTest, RefusesWhatIsNotItsServer) {
    MakeFile(Path("source.dat"), {{1, 10}});
    WriteFile(Path("wrong"), Text("anna\nwrong\n"));
    WriteFile(Path("right"), Text("anna\nsecret\n"));
    WriteFile(Path("reader"), Text("otto\nsecret\n"));
    for (const char *const file : {"wrong", "right", "reader"}) {
        chmod(Path(file).c_str(), 0600);
    }
    MakeAuthority(folder_, "good");
    MakeAuthority(folder_, "other");
    const StoreServer closed("tls { cert_file: \"" + Path("good.pem") + "\", key_file: \"" + Path("good.key") +
                             "\" }\nmax_payload: 4096\nauthorization { users: [ { user: anna, password: secret }, " +
                             kReader + " ] }");
    const NatsServer plain;
    const std::string url = closed.server.Url("tls", "localhost");
    const auto run = [&](const char *command, const std::string &urls, const char *user, const char *authority) {
        setenv("TAV_BUS_CREDENTIALS", Path(user).c_str(), 1);
        setenv("TAV_BUS_CA", Path(authority).c_str(), 1);
        Tool tool({command, Path("source.dat"), "--url", urls, "--bucket", "b", "--wait", "1"});
        unsetenv("TAV_BUS_CREDENTIALS");
        unsetenv("TAV_BUS_CA");
        return tool;
    };
    Refuses(run("publish", url, "wrong", "good-ca.pem"), "Authorization Violation");
    Refuses(run("publish", url, "right", "other-ca.pem"), "certificate");
    Refuses(run("publish", url, "right", "none.pem"), "none.pem");
    Refuses(run("publish", "nats://127.0.0.1:1", "right", "good-ca.pem"), "127.0.0.1:1: No server");
    Refuses(run("follow", url, "reader", "good-ca.pem"), "there is no such bucket");
    Refuses(run("publish", "127.0.0.1:1", "right", "good-ca.pem"), "nats://host:port");
    Refuses(Tool({"publish", Path("source.dat"), "--url", plain.Url(), "--bucket", "b"}), "JetStream is off");
    Refuses(Tool({"publish", Path("source.dat"), "--url", plain.Url(), "--bucket", "b.c"}), "letters, digits");
    EXPECT_EQ(run("publish", url, "right", "good-ca.pem").End(), 0);
    Refuses(run("publish", url, "reader", "good-ca.pem"), "Permissions Violation");

    tav::Session session(Path("source.dat"));
    session.Store().Add(0, tav::Record(7).With(8, "large").With(100, tav::Bytes(Filled(4000, 1))));
    session.Commit();
    Refuses(run("publish", url, "right", "good-ca.pem"), "vs.0.7.large has 40");
    Refuses("publish", "none.dat", {}, "none.dat: there is no such file");
}

}  // namespace
