// Clocks, assertions, directories, and archives read piece by piece.
#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <zip.h>

#include <set>

#include "bytes.h"
#include "platform/bex_crypt.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/mel_assert.h"
#include "platform/mel_clock.h"
#include "platform/mel_environment.h"
#include "tav_posix.h"

static bool frozen = false;  // the clocks stand still

#ifdef SYS_clock_gettime64  // a 32-bit host, on which the other one's seconds are 32 bits
#undef SYS_clock_gettime
#define SYS_clock_gettime SYS_clock_gettime64
#endif

extern "C" int clock_gettime(clockid_t clock, timespec *time) noexcept {
    return frozen ? (*time = {7, 987654321}, 0) : static_cast<int>(syscall(SYS_clock_gettime, clock, time));
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
    MEL_CpuTick first, second;
    BEX_SysTime system = {};
    frozen = true;
    MEL_Local_SystimeGet(&day, &time);
    EXPECT_EQ(MEL_SystimeGet(&system), 0u);
    EXPECT_EQ(
        (Codes{day.year, day.month, day.day, time.hour, time.minute, time.second, time.weekDay, time.millisecond}),
        (Codes{1970, 1, 1, 5, 45, 7, 4, 987}));
    EXPECT_EQ((Codes{system.year, system.month, system.day, system.hour, system.minute, system.second, system.weekDay,
                     system.millisecond}),
              (Codes{1970, 1, 1, 0, 0, 7, 4, 987}));
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
    std::filesystem::create_directory(folder.Path("tx"));  // not where /mnt/tmpfsx is
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

/** What is asked of nothing, or of what cannot be, is refused with its code, and outputs stay as they are. */
TEST(Refusals, OfFilesAndServices) {
    const TempFolder folder;
    const std::string path = folder.Path("file"), missing = folder.Path("none/file"), all = folder.Path("none/*");
    WriteFile(path, Text("text"));
    const char *const name = path.c_str(), *const none = missing.c_str(), *const null = nullptr;
    BEX_VFS_File *const file = BEX_VFS_FOpen(name, "rb+");
    BEX_VFS_StatInfo info = {7};
    BEX_VFS_Find *search = nullptr;
    BEX_VFS_FindEntry entry;
    char text[16] = "";
    const auto code = [](int32_t result) { return static_cast<uint32_t>(result); };
    EXPECT_EQ((Codes{code(BEX_VFS_FSeek(nullptr, 0, 0)),
                     code(BEX_VFS_FSeek(file, 0, -1)),
                     code(BEX_VFS_FSeek(file, 0, 3)),
                     code(BEX_VFS_FSeek(file, -1, 0)),
                     code(BEX_VFS_FFlush(nullptr)),
                     code(BEX_VFS_FClose(nullptr)),
                     BEX_VFS_Stat(null, &info),
                     BEX_VFS_Stat(name, nullptr),
                     BEX_VFS_MoveFile(null, name),
                     BEX_VFS_MoveFile(name, null),
                     BEX_VFS_DeleteFile(null),
                     BEX_VFS_SetFileModeEx(null, 0),
                     P_MEL_Mkdir(null, 0),
                     P_MEL_Mkdir("", 0),
                     BEX_DeleteDir(null),
                     BEX_VFS_FindFirst(null, &search, &entry),
                     BEX_VFS_FindFirst(name, nullptr, &entry),
                     BEX_VFS_FindFirst(name, &search, nullptr),
                     BEX_VFS_FindNext(nullptr, &entry),
                     MEL_GetProcessCurrentPath(nullptr, 1),
                     MEL_GetProcessCurrentPath(text, 0),
                     MEL_SystimeGet(nullptr),
                     MEL_GetEnvValue(1, nullptr),
                     CRYPT_random(nullptr, 1),
                     BEX_CRYPT_Salt(nullptr, 1)}),
              Codes(25, EINVAL));
    EXPECT_EQ((Codes{BEX_VFS_Stat(none, &info), BEX_VFS_MoveFile(none, name), BEX_VFS_DeleteFile(none),
                     BEX_VFS_SetFileModeEx(none, 0600), BEX_DeleteDir(none),
                     BEX_VFS_FindFirst(all.c_str(), &search, &entry)}),
              Codes(6, ENOENT));
    EXPECT_EQ((Codes{BEX_VFS_FRead(nullptr, 1, 1, file), BEX_VFS_FRead(text, 1, 1, nullptr),
                     BEX_VFS_FRead(text, 1 << 16, 1 << 16, file), BEX_VFS_FWrite(nullptr, 1, 1, file),
                     BEX_VFS_FWrite(text, 1, 1, nullptr), BEX_VFS_FWrite(text, 1 << 16, 1 << 16, file),
                     BEX_VFS_IsFileExist(null), BEX_VFS_IsDirExist(null), BEX_VFS_IsDirExist(name)}),
              Codes(9, 0));
    EXPECT_EQ(
        (Codes{code(BEX_VFS_FTell(nullptr)), code(BEX_VFS_FPrintf(nullptr, "x")), code(BEX_VFS_FPrintf(file, null))}),
        Codes(3, UINT32_MAX));
    EXPECT_EQ(info.size, 7u);
    EXPECT_EQ(BEX_VFS_Stat(name, &info), 0u);
    EXPECT_EQ(info.size, 4u);
    EXPECT_EQ(BEX_VFS_FClose(file), 0);
}

TEST(Refusals, OfArchives) {
    const TempFolder folder;
    const std::string path = folder.Path("zip"), missing = folder.Path("none"), other = folder.Path("text");
    WriteFile(other, Text("no archive"));
    const char *const zip = path.c_str(), *const none = missing.c_str(), *const null = nullptr;
    uint32_t size = 7;
    uint16_t count = 7;
    char text[4] = "";
    void *chunk = text;
    EXPECT_EQ((Codes{BEX_ZipBuffer(1, nullptr, "m", zip, 0, 6), BEX_ZipBuffer(1, "x", null, zip, 0, 6),
                     BEX_ZipBuffer(1, "x", "m/", zip, 0, 6), BEX_ZipBuffer(1, "x", "m", null, 0, 6),
                     BEX_ZipBuffer(1, "x", "m", zip, 0, 0), BEX_ZipBuffer(1, "x", "m", zip, 0, 10),
                     BEX_UnzipGetNumofFiles(null, &count), BEX_UnzipGetNumofFiles(zip, nullptr),
                     ZIP_GetUncompressSize(null, zip, &size), ZIP_GetUncompressSize("m", null, &size),
                     ZIP_GetUncompressSize("m", zip, nullptr), BEX_UnzipToBuffer(1, nullptr, "m", zip),
                     BEX_Unzip(null, none), BEX_Unzip(zip, null), BEX_UnzipFileRead(nullptr, &chunk, &size)}),
              Codes(15, ZIP_ER_INVAL));
    EXPECT_EQ((Codes{BEX_UnzipGetNumofFiles(zip, &count), ZIP_GetUncompressSize("m", zip, &size),
                     BEX_UnzipToBuffer(1, text, "m", zip), BEX_Unzip(zip, none),
                     BEX_UnzipGetNumofFiles(folder.Path().c_str(), &count)}),
              Codes(5, ZIP_ER_NOENT));
    EXPECT_EQ((Codes{BEX_ZipBuffer(1, "x", "m", zip, 0, 1), BEX_ZipBuffer(1, "x", "m", zip, 0, 9)}), Codes(2, 0));
    EXPECT_EQ((Codes{BEX_UnzipGetNumofFiles(other.c_str(), &count), ZIP_GetUncompressSize("n", zip, &size),
                     BEX_UnzipToBuffer(2, text, "m", zip), BEX_Unzip(zip, none),
                     BEX_ZipBuffer(1, "x", "m", (missing + "/zip").c_str(), 0, 6)}),
              (Codes{ZIP_ER_NOZIP, ZIP_ER_NOENT, ZIP_ER_INCONS, ZIP_ER_OPEN, ZIP_ER_TMPOPEN}));
    EXPECT_EQ(BEX_UnzipFileOpen("n", zip, 0), nullptr);
    EXPECT_EQ((Codes{size, count}), Codes(2, 7));
}

void Pack(const std::string &path, const std::string &name, const Bytes &content, zip_int32_t method, int more = 0) {
    zip_t *const zip = zip_open(path.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
    zip_file_add(zip, name.c_str(), zip_source_buffer(zip, content.data(), content.size(), 0), 0);
    zip_set_file_compression(zip, 0, method, 1);
    for (; more > 0; --more) {
        zip_dir_add(zip, std::to_string(more).c_str(), 0);
    }
    ASSERT_EQ(zip_close(zip), 0);
}

TEST(Archives, HoldAsManyMembersAsCanBeTold) {
    const TempFolder folder;
    for (const int more : {0, 65533, 65534, 65535, 65536}) {
        uint16_t count = 7;
        Pack(folder.Path("zip"), "m", {}, ZIP_CM_STORE, more);
        EXPECT_EQ(BEX_UnzipGetNumofFiles(folder.Path("zip").c_str(), &count), 0u);
        EXPECT_EQ(count, std::min(more + 1, 65535));
    }
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
