/*
 * The folder of a history on the disk.
 */
#include "session/history_folder.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>

#include "session/compress.h"
#include "session/errors.h"

namespace fs = std::filesystem;

namespace session {

namespace {

constexpr char kIndex[] = "index", kNext[] = "index.next", kDraft[] = "index.draft";
constexpr char kCopyEnding[] = ".zst";

/** Returns whether an index that was stored before a commit has come true. */
bool HasComeTrue(const Index &next, const std::string &checksum) {
    return !next.commits.empty() && next.commits.back().checksum == checksum;
}

/** The checksum that a file's head states; empty when there is no file, or none that can be read. */
std::string StatedChecksum(const Place &place) {
    try {
        const auto read = ReadImageOf(place);
        const std::optional<Digest> stated = read ? BodyChecksum(read->image) : std::nullopt;
        return stated ? ToHex(*stated) : "";
    } catch (const tav::Error &) {
        return "";
    }
}

}  // namespace

Index HistoryFolder::Read() const {
    // The next one first: what replaces the other meanwhile is seen then.
    const std::optional<Index> next = ReadIndex(Path(kNext));
    return next && HasComeTrue(*next, StatedChecksum(place_)) ? *next : ReadSettled();
}

Index HistoryFolder::ReadSettled() const {
    if (std::optional<Index> index = ReadIndex(Path(kIndex))) {
        return *std::move(index);
    }
    std::error_code error;
    for (const auto &entry : fs::directory_iterator(place_.History(), error)) {
        if (entry.path().extension() == kCopyEnding) {  // an index comes before the first copy
            throw tav::Error(TAV_ERR_INVALID, place_.given,
                             "the index of the history is lost; move its folder aside: " + place_.History());
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        FailOfSystem(TAV_ERR_OPEN, place_.History(), "cannot be read", error.value());
    }
    return {};
}

Index HistoryFolder::Settle(const std::string &checksum) const {
    const std::optional<struct stat> folder = StatusOf(place_.History());
    if (!folder) {
        return {};
    }
    if (!S_ISDIR(folder->st_mode)) {
        throw tav::Error(TAV_ERR_INVALID, place_.given,
                         place_.History() + " is no folder with a history; move it aside");
    }
    const std::optional<Index> next = ReadIndex(Path(kNext));
    if (next && HasComeTrue(*next, checksum)) {
        TakeNext();
    }
    Index index = ReadSettled();
    if (next) {
        DropNext();
    }
    RemoveUnnamed(index);
    return index;
}

void HistoryFolder::RemoveUnnamed(const Index &index) const {
    std::set<std::string> named;
    for (const tav::HistoryCommit &commit : index.commits) {
        named.insert(CopyOf(commit));
    }
    for (const tav::Checkpoint &checkpoint : index.checkpoints) {
        named.insert(CopyOf(checkpoint));
    }
    std::error_code error;
    std::set<fs::path> unnamed;
    for (const auto &entry : fs::directory_iterator(place_.History(), error)) {
        const std::string name = entry.path().filename();
        const bool isOurs = name.ends_with(kCopyEnding) || name == kDraft;
        if (isOurs && !named.contains(name)) {
            unnamed.insert(entry.path());
        }
    }
    for (const fs::path &path : unnamed) {
        fs::remove(path, error);  // what does not go now may go later; nobody reads it
    }
}

void HistoryFolder::Create(const struct stat &like) const {
    MakeFolder(like);
    if (!Exists(Path(kIndex))) {
        Write({}, like);
    }
}

void HistoryFolder::MakeFolder(const struct stat &like) const {
    const std::string path = place_.History();
    if (!MakeOwnFolder(path)) {
        if (errno == EEXIST) {
            return;
        }
        FailOfSystem(TAV_ERR_NOT_SAVED, place_.given, "the folder of its history, " + path + ", cannot be made");
    }
    struct stat folderLike = like;  // who may read the file may enter, and list
    folderLike.st_mode = (like.st_mode & 0777) | (like.st_mode & 0444) >> 2 | S_IRWXU;
    const Descriptor folder = OpenFile(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
    if (!folder) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place_.given, "the folder of its history, " + path + ", cannot be opened");
    }
    MakeLike(folder.Get(), folderLike, path);
    SyncFolder(place_.folder);
}

void HistoryFolder::WriteAs(const std::string &name, const Index &index, const struct stat &like) const {
    const std::string text = FormatIndex(index);
    WriteNewFile(Path(kDraft), {reinterpret_cast<const uint8_t *>(text.data()), text.size()}, like);
    Rename(Path(kDraft), Path(name));
    SyncFolder(place_.History());
}

void HistoryFolder::Write(const Index &index, const struct stat &like) const {
    WriteAs(kIndex, index, like);
}

void HistoryFolder::WriteNext(const Index &index, const struct stat &like) const {
    WriteAs(kNext, index, like);
}

void HistoryFolder::TakeNext() const {
    Rename(Path(kNext), Path(kIndex));
    SyncFolder(place_.History());
}

void HistoryFolder::DropNext() const {
    Remove(Path(kNext));
}

void HistoryFolder::Keep(const std::string &copy, const Block &image, const struct stat &like) const {
    WriteNewFile(Path(copy), Compress(image.View()).View(), like);
}

tav::Store HistoryFolder::Load(const std::string &copy, const std::string &checksum) const {
    const std::string path = Path(copy);
    const Descriptor file = OpenRegular(path, O_NOFOLLOW);
    if (!file) {
        FailOfSystem(TAV_ERR_OPEN, path, "this copy cannot be read");
    }
    Block image = Decompress(ReadAll(file, path), path);
    if (!checksum.empty() && checksum != ActualChecksum(image)) {
        throw tav::Error(TAV_ERR_INVALID, path, "this copy holds something else than its entry in the index says");
    }
    return ParseBody(image, path);
}

tav::Store HistoryFolder::LoadFormer(const tav::HistoryCommit &commit) const {
    const Index index = Read();
    const auto found = std::ranges::find(index.commits, commit.number, &IndexedCommit::number);
    return Load(CopyOf(commit), found != index.commits.end() ? found->former : "");
}

void HistoryFolder::Drop(const std::string &copy) const {
    Remove(Path(copy));
}

}  // namespace session
