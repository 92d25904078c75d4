// Files: modes, short writes, stable storage, whole log lines; the platform's paths.
#include "platform/bex_vfs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "faults.h"

namespace {

namespace fs = std::filesystem;

class Vfs : public FileTest {
  protected:
    // Writes text into a file opened in a mode. Returns the amount reported, or -1 when it does not open.
    static int64_t Write(const std::string &path, const char *mode, const std::string &text) {
        BEX_VFS_File *const file = BEX_VFS_FOpen(path.c_str(), mode);
        if (file == nullptr) {
            return -1;
        }
        const uint32_t amount = BEX_VFS_FWrite(text.data(), static_cast<uint32_t>(text.size()), 1, file);
        EXPECT_EQ(BEX_VFS_FFlush(file), 0);
        EXPECT_EQ(BEX_VFS_FClose(file), 0);
        return amount;
    }

    const std::string path_ = folder_.Path("file");
};

TEST_F(Vfs, ModesDoWhatTheyAreNamedFor) {
    for (const char *mode : {"rb", "rb+", "w"}) {
        EXPECT_EQ(Write(path_, mode, "text"), -1);
    }
    EXPECT_EQ(BEX_VFS_IsFileExist(path_.c_str()), 0u);
    umask(0);
    EXPECT_EQ(Write(path_, "wb+", "some text to cut"), 16);
    EXPECT_EQ(Write(path_, "wb+", "0123456789"), 10);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0640});
    EXPECT_EQ(Write(path_, "rb+", "ab"), 2);
    EXPECT_EQ(Write(path_, "ab", "yz"), 2);
    EXPECT_EQ(ReadFile(path_), Text("ab23456789yz"));

    const int next = dup(STDIN_FILENO);  // the descriptor that is free next
    close(next);
    BEX_VFS_File *const file = BEX_VFS_FOpen(path_.c_str(), "rb");
    EXPECT_TRUE(fcntl(next, F_GETFD) & FD_CLOEXEC);
    char text[32] = {};
    EXPECT_EQ(BEX_VFS_FSeek(file, -4, BEX_VFS_SEEK_END), 0);
    EXPECT_EQ(BEX_VFS_FTell(file), 8);
    EXPECT_EQ(BEX_VFS_FSeek(file, -6, BEX_VFS_SEEK_CUR), 0);
    EXPECT_EQ(BEX_VFS_FRead(text, 3, 2, file), 6u);
    EXPECT_STREQ(text, "234567");
    EXPECT_EQ(BEX_VFS_FRead(text, sizeof text, 1, file), 4u);  // up to the end
    EXPECT_NE(BEX_VFS_FSeek(file, -1, BEX_VFS_SEEK_SET), 0);
    EXPECT_NE(BEX_VFS_FSeek(file, 0, 3), 0);
    EXPECT_EQ(BEX_VFS_FWrite("x", 1, 1, file), 0u);  // open for reading only
    EXPECT_EQ(BEX_VFS_FRead(text, UINT32_MAX, UINT32_MAX, file), 0u);
    EXPECT_EQ(BEX_VFS_FClose(file), 0);
}

// Each line goes to the end with one call, short or long: so the lines of several writers stay whole.
TEST_F(Vfs, LogLinesStayWhole) {
    BEX_VFS_File *const writers[] = {BEX_VFS_FOpen(path_.c_str(), "ab"), BEX_VFS_FOpen(path_.c_str(), "ab")};
    std::string log;
    for (size_t line = 0; line < 200; ++line) {
        const std::string body(line * 17, static_cast<char>('a' + line % 26));
        log += "<" + body + ">\n";
        EXPECT_EQ(BEX_VFS_FPrintf(writers[line % 2], "<%s>\n", body.c_str()), body.size() + 3);
        EXPECT_EQ(BEX_VFS_FTell(writers[(line + 1) % 2]), log.size());
    }
    EXPECT_EQ(ReadFile(path_), Text(log));
    EXPECT_EQ(faults.writes, 200);

    fs::resize_file(path_, uint64_t{3} << 30);
    EXPECT_EQ(BEX_VFS_FTell(writers[0]), INT32_MAX);
    BEX_VFS_StatInfo info = {};
    EXPECT_EQ(BEX_VFS_Stat(path_.c_str(), &info), 0u);
    EXPECT_EQ(info.size, uint64_t{3} << 30);
    for (BEX_VFS_File *writer : writers) {
        BEX_VFS_FClose(writer);
    }
}

TEST_F(Vfs, OnlyFilesOpen) {
    const std::string fifo = folder_.Path("fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);  // else writers fail for want of a reader
    for (const char *mode : {"rb", "rb+", "wb+", "ab"}) {
        for (const std::string &path : {folder_.Path(), fifo}) {
            EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), mode), nullptr) << path << ' ' << mode;
            EXPECT_EQ(BEX_VFS_IsFileExist(path.c_str()), 0u);
        }
    }
    close(reader);
}

TEST_F(Vfs, AFullDiskIsAShortAmount) {
    EXPECT_EQ(Write("/dev/full", "rb+", "text"), 0);
    BEX_VFS_File *const full = BEX_VFS_FOpen("/dev/full", "ab");
    EXPECT_LT(BEX_VFS_FPrintf(full, "text"), 0);
    BEX_VFS_FClose(full);

    const std::string text(1000, 't');
    faults.maxWrite = 7;
    faults.interrupt = true;
    for (const size_t room : {size_t{2000}, size_t{100}}) {
        const size_t written = std::min(room, text.size());
        faults.room = room;
        EXPECT_EQ(Write(path_, "wb+", text), written);
        EXPECT_EQ(ReadFile(path_), Text(text.substr(0, written)));
    }
}

TEST_F(Vfs, WritesReportWhatIsOnStableStorage) {
    const struct {
        const char *name, *mode;
        bool failDataSync, failDirectorySync;
        int64_t amount;
        int dataSyncs, directorySyncs;
    } rows[] = {
        {"file", "wb+", false, false, 4, 1, 1},  // the directory for the new name
        {"file", "wb+", false, false, 4, 1, 0}, {"file", "rb+", false, false, 4, 1, 0},
        {"log", "ab", true, true, 4, 0, 0},     {"file", "wb+", true, false, 0, 1, 0},
        {"file", "rb+", true, false, 0, 1, 0},  {"fresh", "wb+", false, true, -1, 0, 1},
    };
    for (const auto &row : rows) {
        faults = {};
        faults.failDataSync = row.failDataSync;
        faults.failDirectorySync = row.failDirectorySync;
        EXPECT_EQ(Write(folder_.Path(row.name), row.mode, "text"), row.amount) << row.name << ' ' << row.mode;
        EXPECT_TRUE(faults.dataSyncs == row.dataSyncs && faults.directorySyncs == row.directorySyncs) << row.mode;
    }
    EXPECT_FALSE(FileExists(folder_.Path("fresh")));
}

TEST_F(Vfs, NamesReachStableStorage) {
    const std::string to = folder_.Path("sub/to");
    const std::string other = folder_.Path("sub/other");
    fs::create_directory(folder_.Path("sub"));
    WriteFile(path_, Text("new"));
    WriteFile(to, Text("old"));
    EXPECT_EQ(BEX_VFS_MoveFile(path_.c_str(), to.c_str()), 0u);  // replaces
    EXPECT_EQ(ReadFile(to), Text("new"));
    EXPECT_EQ(faults.directorySyncs, 2);  // both directories
    EXPECT_EQ(BEX_VFS_MoveFile(to.c_str(), other.c_str()), 0u);
    EXPECT_EQ(faults.directorySyncs, 3);
    EXPECT_EQ(BEX_VFS_MoveFile(path_.c_str(), to.c_str()), uint32_t{ENOENT});
    EXPECT_EQ(BEX_VFS_DeleteFile(path_.c_str()), uint32_t{ENOENT});
    EXPECT_EQ(faults.directorySyncs, 3);
    faults.failDirectorySync = true;
    EXPECT_EQ(BEX_VFS_MoveFile(other.c_str(), to.c_str()), uint32_t{EIO});
    EXPECT_EQ(BEX_VFS_DeleteFile(to.c_str()), uint32_t{EIO});
    EXPECT_FALSE(FileExists(to));
}

TEST_F(Vfs, FilesAreDescribedAndTheirModeSet) {
    BEX_VFS_StatInfo info = {77};
    EXPECT_EQ(BEX_VFS_Stat(path_.c_str(), &info), uint32_t{ENOENT});
    EXPECT_EQ(info.size, 77u);
    WriteFile(path_, Text("four"));
    EXPECT_EQ(BEX_VFS_Stat(path_.c_str(), &info), 0u);
    EXPECT_EQ(info.size, 4u);
    EXPECT_EQ(BEX_VFS_IsFileExist(path_.c_str()), 1u);
    EXPECT_EQ(BEX_VFS_SetFileModeEx(path_.c_str(), 0600), 0u);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0600});
    EXPECT_NE(BEX_VFS_SetFileModeEx(path_.c_str(), 0100000), 0u);
    EXPECT_EQ(P_MEL_Chown2MEL(path_.c_str(), 0), 0u);
}

TEST_F(Vfs, Paths) {
    const struct {
        const char *variable, *expected;
        uint32_t size;
    } rows[] = {
        {"/some/where", "/some/where/", 256}, {"/some/where", "/some", 6}, {"/", "/", 256}, {"", "/var/lib/tav/", 256}};
    char path[256];
    for (const auto &row : rows) {
        setenv("TAV_WORK_PATH", row.variable, 1);
        MEL_GetSysWorkPath(path, row.size);
        EXPECT_STREQ(path, row.expected);
    }
    unsetenv("TAV_WORK_PATH");
    MEL_GetSysWorkPath(path, sizeof path);
    EXPECT_STREQ(path, "/var/lib/tav/");

    const fs::path before = fs::current_path();
    fs::current_path(folder_.Path());
    const std::string here = fs::current_path();
    for (const uint32_t size : {256u, 4u}) {
        EXPECT_EQ(MEL_GetProcessCurrentPath(path, size), 0u);
        EXPECT_EQ(path, here.substr(0, size - 1));
    }
    fs::create_directory("gone");
    fs::current_path("gone");
    fs::remove(folder_.Path("gone"));
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, sizeof path), uint32_t{ENOENT});
    EXPECT_STREQ(path, "");
    fs::current_path(before);
}

}  // namespace
