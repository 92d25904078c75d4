// Clocks, assertions, directories, and archives read piece by piece.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <zip.h>

#include <set>

#include "bytes.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/mel_assert.h"
#include "platform/mel_clock.h"
#include "tav_posix.h"

static bool frozen = false;  // the clocks stand still

#ifdef SYS_clock_gettime64  // a 32-bit host, on which the other one's seconds are 32 bits
#undef SYS_clock_gettime
#define SYS_clock_gettime SYS_clock_gettime64
#endif

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    return frozen ? (*time = {7, 0}, 0) : static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

namespace {

using Names = std::set<std::string>;
using Codes = std::vector<uint32_t>;  // of several calls, in their order
uint32_t asserted = 0;                // the line that the handler was told

TEST(Clocks, TellLocalTimeAndNeverTheSameTick) {
    setenv("TZ", "XYZ-5:45", 1);
    tzset();
    MEL_Date day;
    MEL_DayTime time;
    MEL_Local_SystimeGet(&day, &time);
    std::tm local = {time.second, time.minute, time.hour, day.day, day.month - 1, day.year - 1900, 0, 0, 0, 0, {}};
    EXPECT_LT(std::abs(timegm(&local) - 20700 - Now()), 3);
    EXPECT_EQ(local.tm_wday, time.weekDay);
    EXPECT_LT(time.millisecond, 1000u);
    MEL_CpuTick first, second;
    frozen = true;
    MEL_GetCpuTick(&first);
    MEL_GetCpuTick(&second);
    frozen = false;
    EXPECT_EQ(first.low + 1, second.low);
}

TEST(AssertDeathTest, AbortsUnlessAHandlerDecides) {
    TAV_Posix_SetAssertHandler([](const char *, uint32_t line) { asserted = line; });
    MEL_Assert("tav_common", 144);
    EXPECT_EQ(asserted, 144u);
    EXPECT_NE(TAV_Posix_SetAssertHandler(nullptr), nullptr);
    EXPECT_DEATH(MEL_Assert("tav_common", 175), "assertion failed: tav_common line 175\n");
}

Names Search(const std::string &pattern) {
    Names names;
    BEX_VFS_Find *search = nullptr;
    BEX_VFS_FindEntry entry;
    uint32_t code = BEX_VFS_FindFirst(pattern.c_str(), &search, &entry);
    for (; code == 0; code = BEX_VFS_FindNext(search, &entry)) {
        names.insert(entry.name);
    }
    BEX_VFS_FindClose(search);
    return code == ENOENT ? names : Names{"failed"};
}

TEST(Directories, AreMadeSearchedAndDeletedInTheMappedFolder) {
    const TempFolder folder;
    setenv("TAV_TMPFS_PATH", folder.Path("t").c_str(), 1);
    EXPECT_EQ((Codes{P_MEL_Mkdir("/mnt/tmpfs/a/b//", 0755), P_MEL_Mkdir("/mnt/tmpfs/a/b", 0755),
                     BEX_VFS_IsDirExist("/mnt/tmpfs/a/b"), BEX_VFS_IsDirExist("/mnt/tmpfsx"),
                     BEX_ZipBuffer(1, "x", "m", "/mnt/tmpfs/x", 0, 6), BEX_VFS_MoveFile("/mnt/tmpfs/x", "/mnt/tmpfs/y"),
                     BEX_Unzip("/mnt/tmpfs/y", "/mnt/tmpfs/a/b")}),
              (Codes{0, EEXIST, 1, 0, 0, 0, 0}));
    std::filesystem::create_directories(folder.Path("t/a/.c/d"));
    std::filesystem::create_directory_symlink(folder.Path("t"), folder.Path("t/a/b/link"));
    EXPECT_EQ(Search("/mnt/tmpfs/a/*"), (Names{".", "..", ".c", "b"}));
    EXPECT_EQ(Search("/mnt/tmpfs/a/b/l?nk"), Names{"link"});
    EXPECT_EQ(Search("/mnt/tmpfs/none/*"), Names());
    EXPECT_NE(BEX_DeleteDir("/mnt/tmpfs/a/b/link/"), 0u);
    EXPECT_EQ(BEX_DeleteDir("/mnt/tmpfs/a/"), 0u);
    EXPECT_EQ(Search(folder.Path("t/*")), (Names{".", "..", "y"}));
}

void Pack(const std::string &path, const std::string &name, const Bytes &content, zip_int32_t method) {
    zip_t *const zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    zip_file_add(zip, name.c_str(), zip_source_buffer(zip, content.data(), content.size(), 0), 0);
    zip_set_file_compression(zip, 0, method, 1);
    ASSERT_EQ(zip_close(zip), 0);
}

TEST(Archives, AreReadInPiecesOrRefused) {
    const TempFolder folder;
    const std::string path = folder.Path("zip");
    Bytes content(200000), read;
    std::generate(content.begin(), content.end(), [random = Random()]() mutable { return random() % 16; });
    const Names descriptors = Search("/proc/self/fd/*");
    for (int round = 0; round < 10; ++round, read.clear()) {
        Pack(path, "some/m", content, round % 2 != 0 ? ZIP_CM_STORE : ZIP_CM_DEFLATE);
        Bytes image = ReadFile(path);
        const size_t entry = image.size() - 22 - 46 - 6;  // in the directory at the archive's end
        const size_t damaged[] = {0, 5000, entry + 16, entry + 24, entry + 25};  // content, checksum, size up and down
        image[damaged[round / 2]] ^= round < 2 ? 0 : 1;
        WriteFile(path, image);
        BEX_UnzipFile *const file = BEX_UnzipFileOpen("folder/m", path.c_str(), 0);
        void *chunk = nullptr;
        uint32_t length = 1;
        while (length != 0 && BEX_UnzipFileRead(file, &chunk, &length) == 0) {
            read.insert(read.end(), static_cast<uint8_t *>(chunk), static_cast<uint8_t *>(chunk) + length);
        }
        BEX_UnzipFileClose(file);
        const bool unzipped = BEX_Unzip(path.c_str(), folder.Path().c_str()) == 0;
        EXPECT_EQ(unzipped, round < 2) << round;
        EXPECT_EQ(length == 0, round < 2) << round;
        if (round < 2) {
            EXPECT_EQ(read, content) << round;
            EXPECT_EQ(ReadFile(folder.Path("m")), content) << round;
        }
    }
    EXPECT_EQ(Search("/proc/self/fd/*"), descriptors);
}

TEST(Archives, NoNameLeadsOutOfTheFolder) {
    const TempFolder folder;
    std::filesystem::create_directories(folder.Path("a/b"));
    std::filesystem::create_symlink(folder.Path("victim"), folder.Path("a/b/up"));
    for (int place = 0; const std::string name : {"../../up", "/up2", "dir/", "x/..", ".", ""}) {
        Pack(folder.Path("zip"), name, Text("data"), ZIP_CM_STORE);
        EXPECT_EQ(BEX_Unzip(folder.Path("zip").c_str(), folder.Path("a/b").c_str()) == 0, place++ < 3) << name;
    }
    EXPECT_EQ(Search(folder.Path("a/b/*")), (Names{".", "..", "up", "up2"}));
    EXPECT_EQ(Search(folder.Path("*")), (Names{".", "..", "a", "zip"}));
}

}  // namespace
