/*
 * Many followers: how fast they are, and what readers of their files see while servers, followers and a publisher are
 * killed. TAV_TEST_FOLLOWERS and TAV_TEST_RECORDS make both tests as large as they are wanted.
 */
#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "fleet/store_content.h"
#include "session/file.h"
#include "session/random_store.h"
#include "store_tool.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::HasSubstr;

uint32_t Setting(const char *variable, uint32_t value) {
    const char *const wanted = getenv(variable);
    return wanted != nullptr ? static_cast<uint32_t>(std::stoul(wanted)) : value;
}

double SecondsSince(steady_clock::time_point begin) {
    return std::chrono::duration<double>(steady_clock::now() - begin).count();
}

/** The checksum that a file's head states, without a load; nothing when there is no file. */
Bytes StatedChecksum(const std::string &path) {
    Bytes head(kHeadSize);
    FILE *const file = fopen(path.c_str(), "rb");
    const bool isRead = file != nullptr && fread(head.data(), head.size(), 1, file) == 1;
    if (file != nullptr) {
        fclose(file);
    }
    return isRead ? Slice(head, kChecksumAt, kChecksumAt + 32) : Bytes();
}

class FleetTest : public testing::Test {
  protected:
    FleetTest() {
        for (uint32_t i = 0; i < Setting("TAV_TEST_FOLLOWERS", 5); ++i) {
            paths_.push_back(folder_.Path("follower-" + std::to_string(i) + ".dat"));
        }
        tav::Session session(source_, {.create = true});
        for (uint32_t key = 0; key < records_; ++key) {
            session.Store().Add(0, Entry(key, 0).With(18, tav::Address(0xC0000000u + key)));
        }
        session.Commit();
    }

    void StartFollowers() {
        for (const std::string &path : paths_) {
            followers_.push_back(server_.Start("follow", path));
        }
    }

    /** Seconds until all files are what the source is. */
    double AwaitAll(steady_clock::time_point begin) const {
        const Bytes checksum = StatedChecksum(source_);
        for (const std::string &path : paths_) {
            while (StatedChecksum(path) != checksum && SecondsSince(begin) < 60) {
                std::this_thread::sleep_for(milliseconds(1));
            }
        }
        return SecondsSince(begin);
    }

    const uint32_t records_ = Setting("TAV_TEST_RECORDS", 5000);
    const TempFolder folder_;
    const std::string source_ = folder_.Path("source.dat");
    StoreServer server_;
    std::vector<std::string> paths_;
    std::vector<Tool> followers_;
};

TEST_F(FleetTest, HasEveryChangeSoon) {
    auto begin = steady_clock::now();
    Tool publisher = server_.Start("publish", source_, {"--watch"});
    EXPECT_THAT(publisher.out.Line(), HasSubstr("generation 1 "));
    const double published = SecondsSince(begin);
    StartFollowers();
    const double first = AwaitAll(begin);
    std::vector<double> times;
    for (uint32_t i = 1; i <= 20; ++i) {
        std::this_thread::sleep_for(milliseconds(200));
        tav::Session session(source_);
        session.Store().Set(0, Entry(records_ / 21 * i, i));
        begin = steady_clock::now();
        session.Commit();
        times.push_back(AwaitAll(begin));
    }
    std::ranges::sort(times);
    std::cout << paths_.size() << " followers of " << records_ << " records: published after " << published
              << " s, first copy in all after " << first << " s; a change in all after " << times.front() * 1000
              << " to " << times.back() * 1000 << " ms, median " << times[times.size() / 2] * 1000 << " ms\n";
    EXPECT_LT(first, 60);
    EXPECT_LT(times.back(), 60);
}

/** Reads the files at random until it is told to stop; every one it gets is loaded, and its checksum is right. */
std::set<std::string> Observe(const std::vector<std::string> &paths, const std::atomic<bool> &isOver) {
    std::set<std::string> seen;
    Maker random(1);
    while (!isOver) {
        const std::string &path = paths[random.Below(static_cast<uint32_t>(paths.size()))];
        if (fs::exists(path)) {
            seen.insert(tav::Snapshot(path).Checksum());
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    return seen;
}

TEST_F(FleetTest, ShowsWholeGenerationsWhateverIsKilled) {
    constexpr uint32_t kGenerations = 50;
    Tool publisher = server_.Start("publish", source_, {"--watch"});
    EXPECT_THAT(publisher.out.Line(), HasSubstr("generation 1 "));
    StartFollowers();
    std::set<std::string> published{tav::Snapshot(source_).Checksum()}, seen;
    std::atomic<bool> isOver = false;
    std::thread observer([&] { seen = Observe(paths_, isOver); });
    Maker random(static_cast<uint32_t>(getpid()));
    for (uint32_t generation = 2; generation <= kGenerations; ++generation) {
        tav::Session session(source_);
        const uint32_t edits = generation % 10 == 0 ? records_ / 2 : 1 + random.Below(100);
        for (uint32_t i = 0; i < edits; ++i) {
            session.Store().Set(0, Entry(random.Below(records_), generation));
        }
        session.Commit();
        published.insert(fleet::Content::Of(session.Store()).Seal());
        if (generation % 20 == 10) {  // in the middle of a large one
            std::this_thread::sleep_for(milliseconds(random.Below(100)));
            server_.server.Kill();
            std::this_thread::sleep_for(milliseconds(random.Below(500)));
            server_.server.Start();
        }
        if (generation == 40) {
            std::this_thread::sleep_for(milliseconds(random.Below(100)));
            publisher.End(SIGKILL);
            publisher = server_.Start("publish", source_, {"--watch"});
        }
        const uint32_t victim = random.Below(static_cast<uint32_t>(followers_.size()));
        followers_[victim].End(SIGKILL);
        followers_[victim] = server_.Start("follow", paths_[victim]);
        EXPECT_NE(publisher.out.Line(), "") << generation;
    }
    EXPECT_LT(AwaitAll(steady_clock::now()), 60);
    isOver = true;
    observer.join();
    EXPECT_TRUE(std::ranges::includes(published, seen)) << "a file that was never published";
    std::cout << seen.size() << " of " << published.size() << " generations seen\n";
    EXPECT_GT(seen.size(), kGenerations / 4);
    for (Tool &follower : followers_) {
        EXPECT_EQ(follower.End(SIGTERM), 0) << follower.error.Rest();
    }
    EXPECT_EQ(publisher.End(SIGTERM), 0) << publisher.error.Rest();
}

}  // namespace
