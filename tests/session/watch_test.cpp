/*
 * Watching a file: what is seen of it, whoever changes it.
 */
#include "tav/watch.h"

#include <thread>

#include "file.h"
#include "store.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds kShort{50};

class WatchTest : public testing::TestWithParam<const char *> {
  protected:
    /** Expects that one change is seen, and no other. */
    static void Sees(tav::Watch *watch, const Entries &before, const Entries &after) {
        EXPECT_TRUE(watch->Wait(std::chrono::seconds(5)));
        EXPECT_EQ(EntriesOf(watch->Before()), before);
        EXPECT_EQ(EntriesOf(watch->After()), after);
        EXPECT_FALSE(watch->Wait(milliseconds(0)));
    }

    const TempFolder folder_;
    const std::string path_ = folder_.Path(GetParam());
};
INSTANTIATE_TEST_SUITE_P(PlainAndArchive, WatchTest, testing::Values("x.dat", "x.zip"));

TEST_P(WatchTest, SeesEveryKindOfChange) {
    tav::Watch watch(path_);
    EXPECT_FALSE(watch.Wait(milliseconds(0)));
    SetEntry(path_, 1, 10);
    Sees(&watch, {}, {{1, 10}});
    SetEntry(path_, 1, 10);
    SetEntry(folder_.Path("other.dat"), 1, 11);
    EXPECT_FALSE(watch.Wait(kShort)) << "nothing has changed";
    EXPECT_FALSE(watch.Wait(milliseconds::min()));
    SetEntry(path_, 2, 20);
    SetEntry(path_, 2, 21);
    Sees(&watch, {{1, 10}}, {{1, 10}, {2, 21}});  // two at once
    MakeFile(path_, {{3, 30}});
    Sees(&watch, {{1, 10}, {2, 21}}, {{3, 30}});  // without a session
    fs::remove(path_);
    Sees(&watch, {{3, 30}}, {});
}

TEST_P(WatchTest, WaitsForAFlushWithoutASession) {
    MakeFile(path_, {{1, 10}});
    tav::Watch watch(path_, {.wait = kShort});
    fs::rename(path_, path_ + ".bak");
    EXPECT_EQ(ErrorOf([&] { watch.Wait(milliseconds(0)); }).Code(), TAV_ERR_BACKUP) << "not empty, but unknown";
    const pid_t writer = Start([&] {
        std::this_thread::sleep_for(kShort);
        MakeFile(path_, {{2, 20}});
    });
    Sees(&watch, {{1, 10}}, {{2, 20}});
    EXPECT_EQ(Await(writer), 0);
}

TEST(Watch, EndsWithItsFolder) {
    const TempFolder folder;
    fs::create_directory(folder.Path("sub"));
    tav::Watch watch(folder.Path("sub/x.dat"));
    fs::remove(folder.Path("sub"));
    EXPECT_THAT(ErrorOf([&] { watch.Wait(); }).what(), HasSubstr("is gone"));
    EXPECT_EQ(ErrorOf([&] { tav::Watch again(folder.Path("sub/x.dat")); }).Code(), TAV_ERR_OPEN);
}

}  // namespace
