/*
 * Many processes at one file: writers, of which one is killed now and then, and readers. Whatever was reported as
 * committed is there, no read fails, and every read sees whole commits.
 */
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <chrono>
#include <random>
#include <thread>

#include "file.h"
#include "store.h"
#include "tav/history.h"
#include "tav/watch.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::ElementsAre;

constexpr uint32_t kWriters = 8, kReaders = 4;
constexpr uint32_t kSum = 0;  // key of the record that all writers count up

/** What the processes tell each other. */
struct Shared {
    std::atomic<bool> isOver;
    std::array<std::atomic<uint64_t>, kWriters> reported;  // steps that a writer was told are committed
    std::atomic<uint64_t> reads;
};

/** How long the writers go on, in seconds. */
uint32_t Seconds() {
    const char *const seconds = getenv("TAV_TEST_SECONDS");
    return seconds != nullptr ? static_cast<uint32_t>(std::stoul(seconds)) : 5;
}

/** The first key of a writer: its step count. Behind it there are three more records. */
uint32_t KeysOf(uint32_t writer) {
    return 10 * (writer + 1);
}

/** The key of the record that a step of a writer is about. */
uint32_t KeyOf(uint32_t writer, uint64_t step) {
    return KeysOf(writer) + 1 + static_cast<uint32_t>(step % 3);
}

/** What a writer's records must be after so many of its steps: each step sets, adds or deletes one. */
Entries ExpectedOf(uint32_t writer, uint64_t steps) {
    Entries entries;
    for (uint64_t step = 1; step <= steps; ++step) {
        const uint32_t key = KeyOf(writer, step);
        if (step % 5 == 0) {
            entries.erase(key);
        } else {
            entries[key] = step;
        }
    }
    return entries;
}

/** Checks that a store holds whole commits only. Returns the steps of each writer. */
std::array<uint64_t, kWriters> StepsIn(const tav::Store &store) {
    Entries entries = EntriesOf(store), expected;
    std::array<uint64_t, kWriters> steps{};
    uint64_t sum = 0;
    for (uint32_t writer = 0; writer < kWriters; ++writer) {
        steps[writer] = entries[KeysOf(writer)];
        sum += steps[writer];
        expected[KeysOf(writer)] = steps[writer];
        expected.merge(ExpectedOf(writer, steps[writer]));
    }
    expected[kSum] = sum;
    EXPECT_EQ(entries, expected);
    return steps;
}

void Put(tav::Store *store, uint32_t key, uint64_t value) {
    tav::Record record = Entry(key, static_cast<uint32_t>(value));
    store->Find(0, record) ? store->Set(0, record) : store->Add(0, std::move(record));
}

/** One step of a writer, in one session. Returns the number of steps that are committed then. */
uint64_t TakeStep(const std::string &path, uint32_t writer) {
    tav::Session session(path, {.wait = std::chrono::minutes(1)});
    tav::Store &store = session.Store();
    const Entries entries = EntriesOf(store);
    const uint64_t step = entries.at(KeysOf(writer)) + 1;
    const uint32_t key = KeyOf(writer, step);
    if (step % 5 != 0) {
        Put(&store, key, step);
    } else if (entries.contains(key)) {
        store.Remove(0, tav::Record(13).With(14, key));
    }
    Put(&store, KeysOf(writer), step);
    Put(&store, kSum, entries.at(kSum) + 1);
    EXPECT_TRUE(session.Commit("step " + std::to_string(step)));
    return step;
}

class SharingTest : public testing::TestWithParam<std::tuple<const char *, bool>> {};
INSTANTIATE_TEST_SUITE_P(Files, SharingTest, testing::Values(std::tuple("x.dat", false), std::tuple("x.zip", true)));

/** Through a link, at a file of another user that nobody else may read. */
TEST_P(SharingTest, NothingIsLost) {
    const char *const name = std::get<0>(GetParam());
    const bool hasHistory = std::get<1>(GetParam());
    const TempFolder folder;
    const std::string path = folder.Path(name), link = folder.Path("link");
    Entries first{{kSum, 0}};
    for (uint32_t writer = 0; writer < kWriters; ++writer) {
        first[KeysOf(writer)] = 0;
    }
    MakeFile(path, first);
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    const uid_t owner = geteuid() == 0 ? 4321 : geteuid();
    ASSERT_EQ(chown(path.c_str(), owner, getegid()), 0);
    fs::create_symlink(name, link);
    if (hasHistory) {
        tav::History::Start(link);
    }
    auto *const shared =
        static_cast<Shared *>(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(shared, MAP_FAILED);

    const auto startWriter = [&](uint32_t writer) {
        return Start([&, writer] {
            while (!shared->isOver) {
                const uint64_t step = TakeStep(link, writer);
                ASSERT_GT(step, shared->reported[writer].exchange(step)) << "a commit is lost";
            }
        });
    };
    std::array<pid_t, kWriters> writers;
    for (uint32_t writer = 0; writer < kWriters; ++writer) {
        writers[writer] = startWriter(writer);
    }
    std::array<pid_t, kReaders> readers;
    for (pid_t &reader : readers) {
        reader = Start([&] {
            std::array<uint64_t, kWriters> last{};
            while (!shared->isOver && !testing::Test::HasFailure()) {
                const auto steps = StepsIn(tav::Snapshot(link, {.wait = {}}).Store());
                for (uint32_t writer = 0; writer < kWriters; ++writer) {
                    EXPECT_GE(steps[writer], last[writer]) << "a read goes back";
                }
                last = steps;
                if (hasHistory && !tav::History(link).Commits().empty()) {
                    StepsIn(tav::History(link).Before(1));
                }
                ++shared->reads;
                std::this_thread::sleep_for(milliseconds(5));
            }
        });
    }
    std::mt19937 random(getpid());
    uint32_t kills = 0;
    const auto end = steady_clock::now() + std::chrono::seconds(Seconds());
    while (steady_clock::now() < end) {
        std::this_thread::sleep_for(milliseconds(500 + random() % 1000));
        const uint32_t victim = random() % kWriters;
        kill(writers[victim], SIGKILL);
        const int status = Await(writers[victim]);
        EXPECT_TRUE(WIFSIGNALED(status)) << "it had failed already";
        ++kills;
        writers[victim] = startWriter(victim);
    }
    shared->isOver = true;
    for (const pid_t child : writers) {
        EXPECT_EQ(Await(child), 0);
    }
    for (const pid_t child : readers) {
        EXPECT_EQ(Await(child), 0);
    }

    const auto steps = StepsIn(tav::Snapshot(path).Store());
    uint64_t all = 0;
    for (uint32_t writer = 0; writer < kWriters; ++writer) {
        EXPECT_GE(steps[writer], shared->reported[writer]) << "a commit is lost";
        all += steps[writer];
    }
    EXPECT_GT(all, kWriters);
    std::cout << name << ": " << all << " commits, " << shared->reads << " reads, " << kills << " writers killed\n";
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
    EXPECT_EQ(status.st_uid, owner);
    tav::Session{path};  // removes what one that was killed has left
    if (hasHistory) {
        const tav::History history(path);
        EXPECT_EQ(history.Commits().back().number, all);
        EXPECT_EQ(history.Commits().size(), 20u);
        StepsIn(history.Before(20));
        const std::string kept = folder.Path("." + std::string(name) + ".history");
        EXPECT_EQ(NamesIn(kept).size(), 21u) << "the copies and the index";
        fs::remove_all(kept);
    }
    EXPECT_THAT(NamesIn(folder.Path()), testing::UnorderedElementsAre("link", name));
    munmap(shared, sizeof(Shared));
}

/** Programs that flush by themselves, under the lock alone, beside sessions and readers. */
TEST(Sharing, FlushesUnderTheLockAlone) {
    for (const char *name : {"x.dat", "x.zip"}) {
        SCOPED_TRACE(name);
        constexpr uint64_t kSteps = 60;
        const TempFolder folder;
        const std::string path = folder.Path(name);
        MakeFile(path, {{0, 0}, {1, 0}});
        const auto isOver = [](const Entries &entries) { return entries.at(0) + entries.at(1) == 2 * kSteps; };
        std::vector<pid_t> children;
        children.push_back(Start([&] {
            for (uint64_t step = 1; step <= kSteps; ++step) {
                const tav::Lock lock(path, std::chrono::minutes(1));
                tav::Store store = tav::Store::Open(path, {}, TAV_EXT_MODE_READ_WRITE);
                Put(&store, 0, step);
                ASSERT_EQ(TAV_ExtCfgFlush(store.Get()), TAV_OK);
            }
        }));
        children.push_back(Start([&] {
            for (uint64_t step = 1; step <= kSteps; ++step) {
                tav::Session session(path, {.wait = std::chrono::minutes(1)});
                Put(&session.Store(), 1, step);
                EXPECT_TRUE(session.Commit());
            }
        }));
        for (uint32_t reader = 0; reader < 2; ++reader) {
            children.push_back(Start([&] {
                Entries last{{0, 0}, {1, 0}};
                while (!isOver(last) && !testing::Test::HasFailure()) {
                    const Entries entries = ReadEntries(path);
                    EXPECT_GE(entries.at(0), last.at(0));
                    EXPECT_GE(entries.at(1), last.at(1));
                    last = entries;
                }
            }));
        }
        children.push_back(Start([&] {
            tav::Watch watch(path);
            while (!isOver(EntriesOf(watch.After())) && !testing::Test::HasFailure()) {
                EXPECT_TRUE(watch.Wait(std::chrono::minutes(1)));
            }
        }));
        for (const pid_t child : children) {
            EXPECT_EQ(Await(child), 0);
        }
        EXPECT_EQ(ReadEntries(path), (Entries{{0, kSteps}, {1, kSteps}}));
        EXPECT_THAT(NamesIn(folder.Path()), ElementsAre(name));
    }
}

}  // namespace
