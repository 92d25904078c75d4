/*
 * Files that are given another image as a whole.
 */
#include "tav/image_session.h"

#include "file.h"
#include "store.h"
#include "tav/history.h"

namespace fs = std::filesystem;

namespace {

using testing::ElementsAre;

class ImageSessionTest : public testing::TestWithParam<const char *> {
  protected:
    /** The image of a file with these entries. */
    Bytes ImageOf(const Entries &entries) {
        MakeFile(folder_.Path("other.dat"), entries);
        const Bytes image = ReadFile(folder_.Path("other.dat"));
        fs::remove(folder_.Path("other.dat"));
        return image;
    }

    const TempFolder folder_;
    const std::string path_ = folder_.Path(GetParam());
};
INSTANTIATE_TEST_SUITE_P(PlainAndArchive, ImageSessionTest, testing::Values("x.dat", "x.zip"));

TEST_P(ImageSessionTest, ReplacesWhateverIsThere) {
    const NothingLeaks nothingLeaks;
    {
        tav::ImageSession session(path_);
        EXPECT_EQ(session.Checksum(), std::nullopt);
        session.Replace(ImageOf({{1, 10}}));
        EXPECT_EQ(session.Checksum(), tav::Snapshot(path_).Checksum());
        session.Replace(ImageOf({{1, 11}}));
        EXPECT_EQ(ReadEntries(path_), (Entries{{1, 11}})) << "it goes on";
        EXPECT_EQ(ErrorOf([&] { tav::Session(path_, {.wait = {}}); }).Code(), TAV_ERR_LOCKED);
    }
    tav::History::Start(path_);
    chmod(path_.c_str(), 0604);
    tav::ImageSession(path_).Replace(ImageOf({{1, 12}, {2, 20}}), "from afar");
    const tav::HistoryCommit commit = tav::History(path_).Commits().back();
    EXPECT_EQ(commit.note.comment, "from afar");
    EXPECT_EQ(commit.counts, (tav::ChangeCounts{1, 1, 0}));
    EXPECT_EQ(EntriesOf(tav::History(path_).Before(1)), (Entries{{1, 11}}));
    EXPECT_EQ(ErrorOf([&] { tav::ImageSession(path_).Replace(Image(Text("no body"))); }).Code(), TAV_ERR_INVALID);
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 12}, {2, 20}}));
    WriteFile(path_, Text("something else"));
    EXPECT_EQ(tav::ImageSession(path_).Checksum(), "");
    tav::ImageSession(path_).Replace(ImageOf({{3, 30}}));
    EXPECT_EQ(ReadEntries(path_), (Entries{{3, 30}}));
    struct stat status {};
    EXPECT_EQ(stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0604});
    fs::remove_all(folder_.Path("." + std::string(GetParam()) + ".history"));
    EXPECT_THAT(NamesIn(folder_.Path()), ElementsAre(GetParam()));
}

TEST_P(ImageSessionTest, RefusesWhatASessionWould) {
    const Bytes image = ImageOf({{1, 10}});
    MakeFile(path_, {{1, 1}});
    {
        tav::ImageSession session(path_);
        MakeFile(path_, {{1, 2}});
        EXPECT_EQ(ErrorOf([&] { session.Replace(image); }).Code(), TAV_ERR_CHANGED);
        EXPECT_EQ(ErrorOf([&] { session.Replace(Bytes(3)); }).Code(), TAV_ERR_INVALID) << "no head";
    }
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 2}}));
    fs::rename(path_, path_ + ".bak");
    EXPECT_EQ(ErrorOf([&] { tav::ImageSession session(path_); }).Code(), TAV_ERR_BACKUP);
    fs::remove(path_ + ".bak");
    fs::create_directory(path_);
    EXPECT_EQ(ErrorOf([&] { tav::ImageSession session(path_); }).Code(), TAV_ERR_INVALID);
    EXPECT_EQ(ErrorOf([&] { tav::ImageSession session(path_ + "/none/x.dat"); }).Code(), TAV_ERR_OPEN);
}

}  // namespace
