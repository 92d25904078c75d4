// Files: modes, short writes, stable storage, whole log lines; the platform's paths.
#include "platform/bex_vfs.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>
#include <thread>
#include <vector>

#include "faults.h"
#include "temp_folder.h"

namespace {

class Vfs : public TempFolderTest {
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

    const ScopedFaults scopedFaults_;
};

TEST_F(Vfs, ModesDoWhatTheyAreNamedFor) {
    const std::string path = PathOf("file");
    EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), "rb"), nullptr);
    EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), "rb+"), nullptr);
    EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), "w"), nullptr);
    EXPECT_EQ(FileCount(), 0);

    umask(0);
    EXPECT_EQ(Write(path, "wb+", "0123456789"), 10);
    EXPECT_EQ(ModeOf(path), 0640u);
    EXPECT_EQ(Write(path, "rb+", "ab"), 2);
    EXPECT_EQ(Write(path, "ab", "yz"), 2);
    EXPECT_EQ(Content(path), "ab23456789yz");

    const int next = dup(STDIN_FILENO);  // the descriptor that is free next
    close(next);
    BEX_VFS_File *const file = BEX_VFS_FOpen(path.c_str(), "rb");
    ASSERT_NE(file, nullptr);
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

    EXPECT_EQ(Write(path, "wb+", "new"), 3);
    EXPECT_EQ(Content(path), "new");
}

TEST_F(Vfs, PositionsOfLogsAndOfLargeFiles) {
    const std::string path = PathOf("log");
    SetContent(path, "12345");
    BEX_VFS_File *file = BEX_VFS_FOpen(path.c_str(), "ab");
    EXPECT_EQ(BEX_VFS_FTell(file), 5);
    EXPECT_EQ(BEX_VFS_FPrintf(file, "%s-%d", "six", 7), 5);
    EXPECT_EQ(BEX_VFS_FTell(file), 10);
    ASSERT_EQ(truncate(path.c_str(), off_t{3} << 30), 0);
    EXPECT_EQ(BEX_VFS_FTell(file), INT32_MAX);
    EXPECT_EQ(BEX_VFS_FClose(file), 0);
    BEX_VFS_StatInfo info = {};
    EXPECT_EQ(BEX_VFS_Stat(path.c_str(), &info), 0u);
    EXPECT_EQ(info.size, uint64_t{3} << 30);
}

TEST_F(Vfs, OnlyFilesOpen) {
    const std::string fifo = PathOf("fifo");
    const std::string socketPath = PathOf("socket");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);  // else writers fail for want of a reader
    sockaddr_un address = {AF_UNIX, {}};
    socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
    const int listener = socket(AF_UNIX, SOCK_DGRAM, 0);
    ASSERT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    for (const char *mode : {"rb", "rb+", "wb+", "ab"}) {
        for (const std::string &path : {folder_, fifo, socketPath}) {
            EXPECT_EQ(BEX_VFS_FOpen(path.c_str(), mode), nullptr) << path << ' ' << mode;
            EXPECT_EQ(BEX_VFS_IsFileExist(path.c_str()), 0u);
        }
    }
    close(reader);
    close(listener);
}

TEST_F(Vfs, AFullDiskIsAShortAmount) {
    EXPECT_EQ(Write("/dev/full", "rb+", "text"), 0);
    EXPECT_EQ(Write("/dev/full", "ab", "text"), 0);
    BEX_VFS_File *const full = BEX_VFS_FOpen("/dev/full", "ab");
    EXPECT_LT(BEX_VFS_FPrintf(full, "text"), 0);
    BEX_VFS_FClose(full);

    const std::string text(1000, 't');
    faults.maxWrite = 7;
    faults.interrupt = true;
    EXPECT_EQ(Write(PathOf("slow"), "wb+", text), 1000);
    EXPECT_EQ(Content(PathOf("slow")), text);
    faults.room = 100;
    EXPECT_EQ(Write(PathOf("short"), "wb+", text), 100);
    EXPECT_EQ(Content(PathOf("short")), text.substr(0, 100));
}

TEST_F(Vfs, RewritingReportsWhatIsOnStableStorage) {
    const std::string path = PathOf("file");
    EXPECT_EQ(Write(path, "wb+", "text"), 4);
    EXPECT_EQ(faults.dataSyncs, 1);
    EXPECT_EQ(faults.fsyncs, 1);  // of the directory, for the new name
    EXPECT_EQ(Write(path, "wb+", "text"), 4);
    EXPECT_EQ(Write(path, "rb+", "text"), 4);
    EXPECT_EQ(faults.dataSyncs, 3);
    EXPECT_EQ(faults.fsyncs, 1);
    EXPECT_EQ(Write(PathOf("log"), "ab", "line"), 4);
    EXPECT_EQ(faults.dataSyncs, 3);
    EXPECT_EQ(faults.fsyncs, 1);

    faults.failDataSync = true;
    EXPECT_EQ(Write(path, "wb+", "text"), 0);
    EXPECT_EQ(Write(path, "rb+", "text"), 0);
    EXPECT_EQ(Write(PathOf("log"), "ab", "line"), 4);
    faults.failDataSync = false;
    faults.failFsync = true;
    EXPECT_EQ(Write(PathOf("fresh"), "wb+", "text"), -1);
    EXPECT_EQ(BEX_VFS_IsFileExist(PathOf("fresh").c_str()), 0u);
}

TEST_F(Vfs, NamesReachStableStorage) {
    const std::string from = PathOf("from");
    const std::string to = PathOf("sub/to");
    std::filesystem::create_directory(PathOf("sub"));
    SetContent(from, "new");
    SetContent(to, "old");
    EXPECT_EQ(BEX_VFS_MoveFile(from.c_str(), to.c_str()), 0u);  // replaces
    EXPECT_EQ(Content(to), "new");
    EXPECT_EQ(faults.fsyncs, 2);  // two directories
    EXPECT_EQ(BEX_VFS_MoveFile(to.c_str(), PathOf("sub/other").c_str()), 0u);
    EXPECT_EQ(faults.fsyncs, 3);
    EXPECT_EQ(BEX_VFS_DeleteFile(PathOf("sub/other").c_str()), 0u);
    EXPECT_EQ(faults.fsyncs, 4);
    EXPECT_EQ(BEX_VFS_MoveFile(from.c_str(), to.c_str()), uint32_t{ENOENT});
    EXPECT_EQ(BEX_VFS_DeleteFile(from.c_str()), uint32_t{ENOENT});
    EXPECT_EQ(faults.fsyncs, 4);

    faults.failFsync = true;
    SetContent(from, "new");
    EXPECT_EQ(BEX_VFS_MoveFile(from.c_str(), to.c_str()), uint32_t{EIO});
    EXPECT_EQ(BEX_VFS_IsFileExist(to.c_str()), 1u);
    EXPECT_EQ(BEX_VFS_DeleteFile(to.c_str()), uint32_t{EIO});
    EXPECT_EQ(BEX_VFS_IsFileExist(to.c_str()), 0u);
}

TEST_F(Vfs, LinesOfSeveralWritersStayWhole) {
    constexpr int kLines = 200;
    const std::string path = PathOf("log");
    const auto write = [&](int writer) {
        for (int line = 1; line <= kLines; ++line) {
            const std::string body(static_cast<size_t>(line * 17), static_cast<char>('a' + writer));
            BEX_VFS_File *const file = BEX_VFS_FOpen(path.c_str(), "ab");
            const auto length = static_cast<int32_t>(body.size()) + 3;
            EXPECT_EQ(BEX_VFS_FPrintf(file, "<%s>\n", body.c_str()), length);
            EXPECT_EQ(BEX_VFS_FClose(file), 0);
        }
    };
    std::vector<std::thread> writers;
    for (int writer = 0; writer < 4; ++writer) {
        writers.emplace_back(write, writer);
    }
    for (std::thread &writer : writers) {
        writer.join();
    }
    std::istringstream log(Content(path));
    std::string line;
    int count = 0;
    for (; std::getline(log, line); ++count) {
        ASSERT_TRUE(line.size() >= 2 && line.front() == '<' && line.back() == '>');
        ASSERT_EQ(line.find_first_not_of(line[1], 1), line.size() - 1) << "two writers in one line";
    }
    EXPECT_EQ(count, 4 * kLines);
    EXPECT_EQ(faults.writes, count);  // one call a line, short or long
}

TEST_F(Vfs, FilesAreDescribedAndTheirModeSet) {
    BEX_VFS_StatInfo info = {77};
    EXPECT_EQ(BEX_VFS_Stat(PathOf("none").c_str(), &info), uint32_t{ENOENT});
    EXPECT_EQ(info.size, 77u);
    EXPECT_EQ(BEX_VFS_IsFileExist(PathOf("none").c_str()), 0u);
    SetContent(PathOf("file"), "four");
    EXPECT_EQ(BEX_VFS_Stat(PathOf("file").c_str(), &info), 0u);
    EXPECT_EQ(info.size, 4u);
    EXPECT_EQ(BEX_VFS_IsFileExist(PathOf("file").c_str()), 1u);
    EXPECT_EQ(BEX_VFS_SetFileModeEx(PathOf("file").c_str(), 0600), 0u);
    EXPECT_EQ(ModeOf(PathOf("file")), 0600u);
    EXPECT_NE(BEX_VFS_SetFileModeEx(PathOf("file").c_str(), 0100000), 0u);
    EXPECT_EQ(P_MEL_Chown2MEL(PathOf("file").c_str(), 0), 0u);
}

TEST_F(Vfs, Paths) {
    char path[256];
    setenv("TAV_WORK_PATH", "/some/where", 1);
    MEL_GetSysWorkPath(path, sizeof path);
    EXPECT_STREQ(path, "/some/where/");
    MEL_GetSysWorkPath(path, 6);
    EXPECT_STREQ(path, "/some");
    setenv("TAV_WORK_PATH", "/", 1);
    MEL_GetSysWorkPath(path, sizeof path);
    EXPECT_STREQ(path, "/");
    for (const bool empty : {true, false}) {
        empty ? setenv("TAV_WORK_PATH", "", 1) : unsetenv("TAV_WORK_PATH");
        MEL_GetSysWorkPath(path, sizeof path);
        EXPECT_STREQ(path, "/var/lib/tav/");
    }

    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::create_directory(PathOf("gone"));
    std::filesystem::current_path(folder_);
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, sizeof path), 0u);
    EXPECT_EQ(std::string(path), std::filesystem::canonical(folder_).string());
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, 4), 0u);
    EXPECT_EQ(std::string(path).size(), 3u);
    std::filesystem::current_path("/");
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, sizeof path), 0u);
    EXPECT_STREQ(path, "/");
    std::filesystem::current_path(PathOf("gone"));
    std::filesystem::remove(PathOf("gone"));
    EXPECT_EQ(MEL_GetProcessCurrentPath(path, sizeof path), uint32_t{ENOENT});
    EXPECT_STREQ(path, "");
    std::filesystem::current_path(before);
}

}  // namespace
