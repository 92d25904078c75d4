/*
 * The debug log: the form of an entry, the switch, rotation to the byte, and quiet failures.
 */
#include "debug_log.h"

#include <gtest/gtest.h>
#include <time.h>

#include <cstdlib>
#include <filesystem>

#include "interposer.h"
#include "store.h"
#include "tav_common.h"

namespace {

std::string Content(const std::string &path) {
    Bytes bytes = ReadFile(path);
    return std::string(bytes.begin(), bytes.end());
}

std::string LogOf(const std::string &name) {
    return LogFolder() + "/" + name + ".log";
}

/** The part of an entry behind its time. */
std::string BehindTime(const std::string &entry) {
    return entry.substr(std::string("\r\n[2024-03-05 07:08:09.012]").size());
}

class Log : public testing::Test {
  protected:
    void SetUp() override { std::filesystem::create_directories(LogFolder()); }
    void TearDown() override {
        interposer::Reset();
        g_ucTavDebugFlag = 0;
        std::filesystem::remove_all(LogFolder());
    }
};

TEST_F(Log, SwitchedOffByDefaultAndOnForGood) {
    EXPECT_EQ(TAV_GetDebugFlag(), 0u);
    Store none = Open(1, "/nowhere/at/all.dat");
    EXPECT_EQ(TAV_GetExtTlvDataType(29), 0x8000);
    EXPECT_TRUE(std::filesystem::is_empty(LogFolder())) << "nothing is logged while it is off";
    for (int again = 0; again < 2; ++again) {
        TAV_SetDebugFlag();
        EXPECT_EQ(TAV_GetDebugFlag(), 1u);
        EXPECT_EQ(g_ucTavDebugFlag, 1);
    }
    EXPECT_EQ(TAV_GetExtTlvDataType(29), 0x8000) << "the same result with the log on";
    EXPECT_TRUE(FileExists(LogPath()));
    g_ucTavDebugFlag = 200;
    EXPECT_EQ(TAV_GetDebugFlag(), 200u);
}

TEST_F(Log, EntryForm) {
    TAV_DEBUG_Log("other", "Function", 0, "number %d text %s", -5, "x");  // the switch is the caller's affair
    std::string first = Content(LogOf("other"));
    EXPECT_EQ(BehindTime(first), ": [Function: 0] number -5 text x");
    EXPECT_EQ(first.substr(0, 3), "\r\n[");
    EXPECT_EQ(TAV_DEBUG_WriteLogFile("other", "F", 4294967295u, "100% as it stands %s"), 0);
    EXPECT_EQ(BehindTime(Content(LogOf("other")).substr(first.size())), ": [F: 4294967295] 100% as it stands %s");
    for (size_t length : {0u, 1u, 998u, 999u, 1000u, 1200u, 5000u}) {
        std::filesystem::remove(LogOf("other"));
        TAV_DEBUG_Log("other", "F", 7, "%s", std::string(length, 'm').c_str());
        EXPECT_EQ(BehindTime(Content(LogOf("other"))), ": [F: 7] " + std::string(std::min<size_t>(length, 999), 'm'));
    }
    TAV_DEBUG_Log(nullptr, "F", 1, "x");
    TAV_DEBUG_Log("nulls", nullptr, 1, "x");
    const char *noFormat = nullptr;
    TAV_DEBUG_Log("nulls", "F", 1, noFormat, 5);
    EXPECT_FALSE(FileExists(LogOf("nulls")));
}

TEST_F(Log, TimeIsGmtWithThreeDigitsOfMilliseconds) {
    setenv("TZ", "XYZ-9:30", 1);
    tzset();
    for (int entry = 0; entry < 30; ++entry) {
        std::filesystem::remove(LogOf("time"));
        time_t before = Now();
        TAV_DEBUG_Log("time", "F", 1, "x");
        time_t after = Now();
        std::string text = Content(LogOf("time"));
        std::tm moment{};
        const char *rest = strptime(text.c_str(), "\r\n[%Y-%m-%d %H:%M:%S.", &moment);
        ASSERT_NE(rest, nullptr) << text;
        EXPECT_GE(timegm(&moment), before);
        EXPECT_LE(timegm(&moment), after);
        EXPECT_TRUE(isdigit(rest[0]) && isdigit(rest[1]) && isdigit(rest[2]) && rest[3] == ']') << text;
    }
    unsetenv("TZ");
    tzset();
}

TEST_F(Log, RotatesAt32MiB) {
    const std::string path = LogOf("big"), old = path + ".old";
    for (uint64_t size : {uint64_t{33554431}, uint64_t{33554432}, uint64_t{3} << 30}) {
        WriteFile(old, Text("older"));
        MakeSparseFile(path, size);
        TAV_DEBUG_Log("big", "F", 1, "x");
        bool rotates = size > 33554431;
        const uintmax_t entry = std::string("\r\n[2024-03-05 07:08:09.012]: [F: 1] x").size();
        EXPECT_EQ(std::filesystem::file_size(path), rotates ? entry : size + entry) << size;
        EXPECT_EQ(std::filesystem::file_size(old), rotates ? size : 5) << size;
    }
    // A move that fails is ignored: writing goes on in the large file.
    MakeSparseFile(path, 33554432);
    interposer::Reset();
    interposer::FailNth(interposer::Call::kMove, 1);
    TAV_DEBUG_Log("big", "F", 1, "x");
    EXPECT_GT(std::filesystem::file_size(path), 33554432u);
}

TEST_F(Log, FailsQuietly) {
    std::filesystem::remove_all(LogFolder());
    TAV_DEBUG_Log("tav_debug", "F", 1, "x");
    EXPECT_EQ(TAV_DEBUG_WriteLogFile("tav_debug", "F", 1, "x"), 0);
    EXPECT_FALSE(std::filesystem::exists(LogFolder())) << "the folder is never made";
    EXPECT_EQ(TAV_DEBUG_OpenLogFile(nullptr), nullptr);
    EXPECT_EQ(TAV_DEBUG_OpenLogFile(LogPath().c_str()), nullptr);
    std::filesystem::create_directories(LogFolder());
    interposer::Reset();
    interposer::FailNth(interposer::Call::kLogClose, 1);
    EXPECT_EQ(TAV_DEBUG_WriteLogFile("tav_debug", "F", 1, "x"), -1) << "what closing gave";
    interposer::Reset();
    BEX_VFS_File *file = TAV_DEBUG_OpenLogFile(LogPath().c_str());
    ASSERT_NE(file, nullptr);
    EXPECT_GT(BEX_VFS_FTell(file), 0);
    EXPECT_EQ(BEX_VFS_FClose(file), 0);
    TAV_DEBUG_Log(std::string(400, 'n').c_str(), "F", 1, "x");
    EXPECT_TRUE(FileExists(LogOf(std::string(400, 'n')).substr(0, 255))) << "a path is cut at 255 characters";
}

}  // namespace
