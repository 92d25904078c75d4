/*
 * The history of a file: what it keeps, how far back it goes, checkpoints, and the way back.
 */
#include "tav/history.h"

#include <sys/stat.h>

#include "file.h"
#include "store.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class HistoryTest : public testing::TestWithParam<const char *> {
  protected:
    std::string Hidden(const std::string &name = {}) const {
        return folder_.Path("." + std::string(GetParam()) + ".history") + (name.empty() ? "" : "/" + name);
    }

    const TempFolder folder_;
    const std::string path_ = folder_.Path(GetParam());
};
INSTANTIATE_TEST_SUITE_P(PlainAndArchive, HistoryTest, testing::Values("x.dat", "x.zip"));

TEST_P(HistoryTest, EachCommitCanBeUndoneAndTheUndoing) {
    const NothingLeaks nothingLeaks;
    EXPECT_EQ(ErrorOf([&] { tav::History::Start(path_); }).Code(), TAV_ERR_MISSING);
    SetEntry(path_, 1, 10);
    EXPECT_FALSE(FileExists(Hidden())) << "off until it is switched on";
    tav::History::Start(path_);
    SetEntry(path_, 1, 11, "changed");
    SetEntry(path_, 1, 11);  // nothing
    SetEntry(path_, 2, 20, "add\ned \xFF");
    {
        tav::Session session(path_);
        session.Store() = tav::Store::New("");
        session.Commit("all gone");
    }
    SetEntry(path_, 3, 30);
    const tav::History history(path_);
    EXPECT_TRUE(history.IsOn());
    EXPECT_EQ(history.Keep(), 20u);
    std::vector<std::string> seen;
    for (const tav::HistoryCommit &commit : history.Commits()) {
        seen.push_back(std::to_string(commit.number) + " " + commit.note.comment + " " +
                       commit.note.program.substr(0, 12) + (commit.hadFile ? " +" : " new +") +
                       std::to_string(commit.counts.added) + " ~" + std::to_string(commit.counts.changed) + " -" +
                       std::to_string(commit.counts.deleted));
    }
    EXPECT_THAT(seen, ElementsAre("1 changed session_test +0 ~1 -0", "2 add\ned \uFFFD session_test +1 ~0 -0",
                                  "3 all gone session_test +0 ~0 -2", "4  session_test new +1 ~0 -0"));
    EXPECT_EQ(history.Commits().back().checksum, tav::Snapshot(path_).Checksum());
    EXPECT_EQ(EntriesOf(history.Before(1)), Entries());
    EXPECT_EQ(EntriesOf(history.Before(2)), (Entries{{1, 11}, {2, 20}}));
    EXPECT_EQ(EntriesOf(history.Before(3)), (Entries{{1, 11}}));
    EXPECT_EQ(EntriesOf(history.Before(4)), (Entries{{1, 10}}));
    for (const size_t count : {0, 5}) {
        EXPECT_EQ(ErrorOf([&] { history.Before(count); }).Code(), TAV_ERR_NOT_FOUND);
    }
    const auto rollBack = [&](size_t count) {
        tav::Session session(path_);
        session.Store() = tav::History(path_).Before(count);
        session.Commit("rollback");
    };
    rollBack(3);
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 11}}));
    rollBack(1);
    EXPECT_EQ(ReadEntries(path_), (Entries{{3, 30}})) << "the rollback is undone";
}

TEST_P(HistoryTest, KeepsTheNewestAndCheckpointsStay) {
    MakeFile(path_, {{1, 0}});
    ASSERT_EQ(chmod(path_.c_str(), 0604), 0);
    tav::History::AddCheckpoint(path_, "first.try", "as delivered");
    tav::History::Start(path_, 3);
    for (uint32_t value = 1; value <= 7; ++value) {
        SetEntry(path_, 1, value);
    }
    EXPECT_THAT(NamesIn(Hidden()), ElementsAre("5.zst", "6.zst", "7.zst", "checkpoint-first.try.zst", "index"));
    for (const auto &entry : fs::directory_iterator(Hidden())) {
        EXPECT_EQ(entry.status().permissions(), fs::perms{0604}) << entry.path();
    }
    EXPECT_EQ(fs::status(Hidden()).permissions(), fs::perms{0705});
    EXPECT_EQ(EntriesOf(tav::History(path_).Before(3)), (Entries{{1, 4}}));
    tav::History::Start(path_, 1);
    tav::History::Stop(path_);
    SetEntry(path_, 1, 8);
    EXPECT_FALSE(tav::History(path_).IsOn());
    EXPECT_EQ(tav::History(path_).Commits().size(), 1u);
    EXPECT_EQ(EntriesOf(tav::History(path_).At("first.try")), (Entries{{1, 0}}));
    EXPECT_EQ(tav::History(path_).Checkpoints().at(0).note.comment, "as delivered");
    EXPECT_EQ(ErrorOf([&] { tav::History::AddCheckpoint(path_, "first.try"); }).Code(), TAV_ERR_INVALID);
    for (const char *name : {"", "12", "a/b", "a b"}) {
        EXPECT_EQ(ErrorOf([&] { tav::History::AddCheckpoint(path_, name); }).Code(), TAV_ERR_INVALID) << name;
    }
    tav::History::RemoveCheckpoint(path_, "first.try");
    EXPECT_EQ(ErrorOf([&] { tav::History::RemoveCheckpoint(path_, "first.try"); }).Code(), TAV_ERR_NOT_FOUND);
    EXPECT_THAT(NamesIn(Hidden()), ElementsAre("7.zst", "index"));
}

TEST_P(HistoryTest, DamageIsSeen) {
    MakeFile(path_, {{1, 0}});
    tav::History::Start(path_);
    SetEntry(path_, 1, 1);
    WriteFile(path_, Text("no configuration file"));
    {
        tav::Session session(path_, {.replace = true});
        session.Store() = tav::History(path_).Before(1);
        session.Commit();
    }
    EXPECT_FALSE(tav::History(path_).Commits().back().hadFile);
    EXPECT_EQ(EntriesOf(tav::History(path_).Before(2)), (Entries{{1, 0}}));
    Bytes copy = ReadFile(Hidden("1.zst"));
    for (const size_t at : {size_t{5}, copy.size() / 2, copy.size() - 1}) {
        Bytes damaged = copy;
        damaged[at] ^= 0x10;
        WriteFile(Hidden("1.zst"), damaged);
        EXPECT_EQ(ErrorOf([&] { tav::History(path_).Before(2); }).Code(), TAV_ERR_INVALID) << at;
    }
    tav::History::AddCheckpoint(path_, "now");
    SetEntry(path_, 1, 7);
    SetEntry(path_, 1, 8);
    for (const char *name : {"1.zst", "checkpoint-now.zst"}) {
        fs::copy_file(Hidden("4.zst"), Hidden(name), fs::copy_options::overwrite_existing);
    }
    EXPECT_EQ(EntriesOf(tav::History(path_).Before(1)), (Entries{{1, 7}}));
    EXPECT_EQ(ErrorOf([&] { tav::History(path_).Before(4); }).Code(), TAV_ERR_INVALID) << "another copy";
    EXPECT_EQ(ErrorOf([&] { tav::History(path_).At("now"); }).Code(), TAV_ERR_INVALID) << "another copy";
    for (const char *index : {"", "{", "{}", R"({"version":2})", R"({"version":1,"on":5})", "[]",
                              R"({"version":1,"on":true,"keep":-1,"next":1,"commits":[],"checkpoints":[]})",
                              R"({"version":1,"on":true,"keep":4294967296,"next":1,"commits":[],"checkpoints":[]})",
                              R"({"version":1,"on":true,"keep":1,"next":0,"commits":[],"checkpoints":[]})",
                              R"({"version":1,"on":true,"keep":1,"next":1.5,"commits":[],"checkpoints":[]})",
                              R"({"version":1,"on":false,"keep":0,"next":1,"commits":[],"checkpoints":[{"name":"x",
                                  "time":9223372036855,"user":"","program":"","comment":"","checksum":""}]})",
                              R"({"version":1,"on":true,"keep":0,"next":1,"commits":[],"checkpoints":[]})",
                              R"({"version":1,"on":false,"keep":0,"next":1,"commits":[],"checkpoints":[{"name":"../x",
                                  "time":0,"user":"","program":"","comment":"","checksum":""}]})"}) {
        WriteFile(Hidden("index"), Text(index));
        const tav::Error error = ErrorOf([&] { SetEntry(path_, 1, 2); });
        EXPECT_EQ(error.Code(), TAV_ERR_INVALID) << index;
        EXPECT_THAT(error.what(), HasSubstr("move its folder aside")) << index;
    }
    fs::remove(Hidden("index"));
    ASSERT_EQ(mkfifo(Hidden("index").c_str(), 0600), 0);
    EXPECT_THAT(ErrorOf([&] { SetEntry(path_, 1, 2); }).what(), HasSubstr("index: is not a regular file"));
    fs::remove(Hidden("index"));
    const auto kept = NamesIn(Hidden());
    EXPECT_THAT(ErrorOf([&] { SetEntry(path_, 1, 2); }).what(), HasSubstr("lost; move its folder aside"));
    EXPECT_EQ(ErrorOf([&] { tav::History history(path_); }).Code(), TAV_ERR_INVALID);
    EXPECT_EQ(NamesIn(Hidden()), kept);
    fs::remove_all(Hidden());
    fs::create_directory(folder_.Path("other"));
    WriteFile(folder_.Path("other/1.zst"), Text("somebody else's"));
    fs::create_directory_symlink("other", Hidden());
    EXPECT_EQ(ErrorOf([&] { SetEntry(path_, 1, 2); }).Code(), TAV_ERR_INVALID);
    EXPECT_TRUE(FileExists(folder_.Path("other/1.zst")));
}

}  // namespace
