// Files, archives and paths: on real files, with faults in the system below.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "bytes.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"

namespace {

namespace fs = std::filesystem;
using Codes = std::vector<int64_t>;  // of several calls, in their order

struct {
    size_t maxWrite = SIZE_MAX;                         // a write moves at most so many bytes
    size_t room = SIZE_MAX;                             // then the disk is full
    bool interrupt = false;                             // every other call is interrupted by a signal
    bool failDataSync = false;                          // files do not reach stable storage
    bool failDirectorySync = false;                     // names do not
    int writes = 0, dataSyncs = 0, directorySyncs = 0;  // calls so far
} faults;

/** Counts a call. Tells whether it fails: interrupted, or with the code given when `fail` is set. */
bool Fails(int &calls, bool fail, int code) {
    const bool interrupted = ++calls % 2 == 1 && faults.interrupt;
    errno = interrupted ? EINTR : fail ? code : errno;
    return interrupted || fail;
}

/** The system's function behind this program's own. */
template <typename Function>
Function *Next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" ssize_t write(int fd, const void *buffer, size_t length) {
    if (Fails(faults.writes, faults.room == 0, ENOSPC)) {
        return -1;
    }
    const size_t part = std::min({length, faults.maxWrite, faults.room});
    faults.room -= part;
    return Next<ssize_t(int, const void *, size_t)>("write")(fd, buffer, part);
}

extern "C" int fsync(int fd) {
    return Fails(faults.directorySyncs, faults.failDirectorySync, EIO) ? -1 : Next<int(int)>("fsync")(fd);
}

extern "C" int fdatasync(int fd) {
    return Fails(faults.dataSyncs, faults.failDataSync, EIO) ? -1 : Next<int(int)>("fdatasync")(fd);
}

namespace {

class Files : public testing::Test {
  protected:
    void SetUp() override { faults = {}; }
    void TearDown() override { faults = {}; }

    // Writes text into a file opened in a mode. Returns the amount reported, or -1 when it does not open.
    static int64_t Write(const std::string &path, const char *mode, const std::string &text) {
        BEX_VFS_File *const file = BEX_VFS_FOpen(path.c_str(), mode);
        const auto size = static_cast<uint32_t>(text.size());
        const int64_t amount = file != nullptr ? int64_t{BEX_VFS_FWrite(text.data(), size, 1, file)} : -1;
        EXPECT_EQ(BEX_VFS_FClose(file) == 0, file != nullptr);
        return amount;
    }

    const TempFolder folder_;
    const std::string path_ = folder_.Path("file");
};

/** What is no file must neither open nor make the caller wait for a writer that never comes. */
TEST_F(Files, PipesAndFoldersAreRefusedAtOnce) {
    const std::string pipe = folder_.Path("pipe.zip");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string &path : {pipe, folder_.Path()}) {
        for (const char *mode : {"rb", "rb+", "wb+", "ab"}) {
            EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), mode), nullptr) << path << " " << mode;
        }
        uint16_t count = 0;
        EXPECT_NE(BEX_UnzipGetNumofFiles(path.c_str(), &count), 0u) << path;
        EXPECT_EQ(BEX_VFS_IsFileExist(path.c_str()), 0u) << path;
    }
}

TEST_F(Files, ModesDoWhatTheyAreNamedFor) {
    umask(0);
    EXPECT_EQ((Codes{Write(path_, "rb", ""), Write(path_, "rb+", ""), Write(path_, "w", "")}), Codes(3, -1));
    EXPECT_EQ((Codes{Write(path_, "wb+", "some text to cut"), Write(path_, "wb+", "0123456789"),
                     Write(path_, "rb+", "ab"), Write(path_, "ab", "yz")}),
              (Codes{16, 10, 2, 2}));
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0640});
    for (const auto &[mode, code] : {std::pair(07777u, 0u), {010000u, uint32_t{EINVAL}}, {0600u, 0u}}) {
        EXPECT_EQ(BEX_VFS_SetFileModeEx(path_.c_str(), mode), code);
        EXPECT_EQ(fs::status(path_).permissions(), fs::perms{code == 0 ? mode : 07777u});
    }
    EXPECT_EQ(ReadFile(path_), Text("ab23456789yz"));
    BEX_VFS_File *const file = BEX_VFS_FOpen(path_.c_str(), "rb");
    char text[32] = {};
    EXPECT_EQ((Codes{BEX_VFS_FSeek(file, -4, BEX_VFS_SEEK_END), BEX_VFS_FSeek(file, -6, BEX_VFS_SEEK_CUR),
                     BEX_VFS_FRead(text, 3, 2, file)}),
              (Codes{0, 0, 6}));
    EXPECT_STREQ(text, "234567");
    EXPECT_EQ((Codes{BEX_VFS_FRead(text, sizeof(text), 1, file), BEX_VFS_FClose(file)}), (Codes{4, 0}));  // to the end
}

TEST_F(Files, LogLinesAreWrittenAtOnce) {
    BEX_VFS_File *const log = BEX_VFS_FOpen(path_.c_str(), "ab");
    EXPECT_EQ((Codes{BEX_VFS_FPrintf(log, "%050d", 1), BEX_VFS_FPrintf(log, "%05000d", 1), BEX_VFS_FTell(log)}),
              (Codes{50, 5000, 5050}));
    EXPECT_EQ(faults.writes, 2);  // one call a line, so that the lines of several writers stay whole
    EXPECT_EQ(BEX_VFS_FClose(log), 0);
    BEX_VFS_File *const again = BEX_VFS_FOpen(path_.c_str(), "ab");
    EXPECT_EQ((Codes{BEX_VFS_FTell(again), BEX_VFS_FFlush(again), BEX_VFS_FClose(again)}), (Codes{5050, 0, 0}));
}

TEST_F(Files, AFullDiskIsAShortAmount) {
    EXPECT_EQ(Write("/dev/full", "rb+", "text"), 0);
    const std::string text(1000, 't');
    faults.maxWrite = 7;
    faults.interrupt = true;
    for (const size_t room : {size_t{2000}, size_t{100}}) {
        faults.room = room;
        EXPECT_EQ(Write(path_, "wb+", text), std::min(room, text.size()));
        EXPECT_EQ(ReadFile(path_), Text(text.substr(0, room)));
    }
}

TEST_F(Files, DataAndNamesReachStableStorage) {
    const std::string log = folder_.Path("log");
    const std::string fresh = folder_.Path("sub/fresh");
    fs::create_directory(folder_.Path("sub"));
    // A new name, an old one, and a log, which need not last.
    EXPECT_EQ((Codes{Write(path_, "wb+", "text"), Write(path_, "wb+", "text"), Write(path_, "rb+", "text"),
                     Write(log, "ab", "line")}),
              Codes(4, 4));
    // A move replaces; between two directories, both are synced; then the name is gone.
    EXPECT_EQ((Codes{BEX_VFS_MoveFile(path_.c_str(), log.c_str()), BEX_VFS_MoveFile(log.c_str(), fresh.c_str()),
                     BEX_VFS_MoveFile(path_.c_str(), log.c_str())}),
              (Codes{0, 0, ENOENT}));
    EXPECT_EQ((Codes{faults.dataSyncs, faults.directorySyncs}), (Codes{3, 4}));
    EXPECT_EQ(ReadFile(fresh), Text("text"));
    faults.failDataSync = true;
    EXPECT_EQ(Write(fresh, "rb+", "text"), 0);
    faults.failDirectorySync = true;
    EXPECT_EQ(Write(path_, "wb+", "text"), -1);
    EXPECT_FALSE(FileExists(path_));
    EXPECT_EQ((Codes{BEX_VFS_MoveFile(fresh.c_str(), path_.c_str()), BEX_VFS_DeleteFile(path_.c_str())}),
              Codes(2, EIO));
    EXPECT_FALSE(FileExists(path_));
}

TEST_F(Files, Paths) {
    char path[256];
    for (const auto &[variable, expected] :
         {std::pair("/some/where", "/some/where/"), {"/", "/"}, {"", "/var/lib/tav/"}}) {
        setenv("TAV_WORK_PATH", variable, 1);
        MEL_GetSysWorkPath(path, sizeof(path));
        EXPECT_STREQ(path, expected);
    }
    const fs::path before = fs::current_path();
    fs::current_path(folder_.Path());
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, sizeof(path)), 0u);
    EXPECT_EQ(path, fs::current_path());
    fs::current_path(before);
}

uint32_t Zip(const std::string &path, const std::string &data) {
    return BEX_ZipBuffer(static_cast<uint32_t>(data.size()), data.data(), "folder/a.dat", path.c_str(), 0, 6);
}

/** Reads the member at the size that the archive states; none when anything fails. */
std::optional<std::string> Unzip(const std::string &path) {
    uint32_t size = 0;
    if (ZIP_GetUncompressSize("elsewhere/a.dat", path.c_str(), &size) != 0 || size > 1u << 24) {
        return std::nullopt;
    }
    std::string data(size, '\0');
    const bool read = BEX_UnzipToBuffer(size, data.data(), "elsewhere/a.dat", path.c_str()) == 0;
    return read ? std::optional(data) : std::nullopt;
}

/** Little-endian number of so many bytes. */
std::string Word(uint64_t value, int size) {
    return size == 0 ? "" : static_cast<char>(value & 0xFF) + Word(value >> 8, size - 1);
}

/** An archive by another hand, whose members are the text "12345", plain or as deflated, of the size stated. */
Bytes Forge(const std::vector<std::string> &names, bool deflated, uint64_t stated) {
    const std::string content = (deflated ? std::string("\1\5\0\xFA\xFF", 5) : "") + "12345";
    const std::string extra = Word(1, 2) + Word(16, 2) + Word(stated, 8) + Word(content.size(), 8);
    std::string locals, centrals;
    for (const std::string &name : names) {
        // Version, flags and method; time, date and checksum; sizes; lengths of name and extra field.
        const std::string common = Word(45, 4) + Word(deflated ? 8 : 0, 2) + Word(0xCBF53A1C00210000, 8) +
                                   Word(~0ull, 8) + Word(name.size() | extra.size() << 16, 4);
        centrals += "PK\1\2" + Word(45, 2) + common + Word(0, 10) + Word(locals.size(), 4) + name + extra;
        locals += "PK\3\4" + common + name + extra + content;
    }
    return Text(locals + centrals + "PK\5\6" + Word(0, 4) + Word(0x10001 * names.size(), 4) + Word(centrals.size(), 4) +
                Word(locals.size(), 4) + Word(0, 2));
}

TEST_F(Files, ArchivesAreRead) {
    for (const size_t size : {size_t{0}, size_t{1}, size_t{1} << 20}) {
        ASSERT_EQ(Zip(path_, std::string(size, 'x')), 0u);
        EXPECT_EQ(Unzip(path_), std::string(size, 'x'));
        EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0640});
    }
    for (const bool deflated : {false, true}) {
        WriteFile(path_, Forge({"b.dat", "some/folder/a.dat"}, deflated, 5));
        EXPECT_EQ(Unzip(path_), "12345");
        uint16_t count = 0;
        EXPECT_EQ(BEX_UnzipGetNumofFiles(path_.c_str(), &count), 0u);
        EXPECT_EQ(count, 2);
    }
}

/** Whatever byte is changed, the content comes out unchanged or not at all; cut short, it never comes out. */
TEST_F(Files, DamagedArchivesNeverYieldOtherContent) {
    ASSERT_EQ(Zip(path_, "The quick brown fox jumps over the lazy dog."), 0u);
    for (const Bytes &whole : {ReadFile(path_), Forge({"a.dat"}, false, 5)}) {
        WriteFile(path_, whole);
        const std::string data = Unzip(path_).value();
        for (size_t i = 0; i < whole.size(); ++i) {
            for (const int change : {0x01, 0x80, 0xFF}) {
                Bytes image = whole;
                image[i] = static_cast<uint8_t>(image[i] ^ change);
                WriteFile(path_, image);
                ASSERT_EQ(Unzip(path_).value_or(data), data) << "byte " << i;
            }
            WriteFile(path_, Slice(whole, 0, i));
            ASSERT_FALSE(Unzip(path_).has_value()) << "cut at " << i;
        }
    }
}

/** The size asked for, the size stated and the size that comes out must be one, beyond 32 bits too. */
TEST_F(Files, WrongSizesInArchivesAreRefused) {
    for (const bool deflated : {false, true}) {
        for (const uint64_t stated : {0ull, 4ull, 5ull, 6ull, 0xFFFFFFFFull, 0x100000000ull, 0x100000005ull}) {
            WriteFile(path_, Forge({"a.dat"}, deflated, stated));
            char buffer[8];
            for (const uint32_t asked : {4u, 5u, 6u, static_cast<uint32_t>(stated)}) {
                const bool read = BEX_UnzipToBuffer(asked, buffer, "a.dat", path_.c_str()) == 0;
                EXPECT_EQ(read, asked == 5 && stated == 5) << asked << " of " << stated;
            }
        }
    }
}

/** An archive that would fill the file system is refused before there is a file, by what it states. */
TEST_F(Files, UnpackingHasALimit) {
    const uint64_t limit = 104857600;
    const struct {
        size_t members;
        uint64_t stated;
        int64_t code;  // ZIP_ER_INCONS when the limit lets it pass: there is less in it than stated
    } archives[] = {{1, limit, 21},         {1, limit + 1, 28}, {2, limit / 2, 21}, {2, limit / 2 + 1, 28},
                    {2, ~0ull / 2 + 1, 28}, {25600, 5, 0},      {25601, 5, 28}};
    for (const auto &[members, stated, code] : archives) {
        WriteFile(path_, Forge(std::vector<std::string>(members, "a.dat"), true, stated));
        EXPECT_EQ(BEX_Unzip(path_.c_str(), folder_.Path().c_str()), code) << members << " of " << stated;
        EXPECT_EQ(fs::remove(folder_.Path("a.dat")), code != 28) << members << " of " << stated;
    }
}

/**
 * A write that fails, for want of room or of stable storage, leaves the old archive and nothing else. Here the writes
 * of an archive are cut to pieces and interrupted, and the disk becomes full at every byte.
 */
TEST_F(Files, AFailedWriteLeavesTheOldArchive) {
    ASSERT_EQ(Zip(path_, "old"), 0u);
    faults.failDataSync = true;
    EXPECT_NE(Zip(path_, "new"), 0u);
    faults = {.maxWrite = 7, .interrupt = true};
    size_t room = 0;
    for (; faults.room = room, Zip(path_, "new") != 0; ++room) {
        ASSERT_EQ(Unzip(path_), "old") << "after " << room << " bytes";
        ASSERT_EQ(std::distance(fs::directory_iterator(folder_.Path()), {}), 1);
    }
    EXPECT_GE(room, fs::file_size(path_));
    EXPECT_EQ(Unzip(path_), "new");
}

}  // namespace
