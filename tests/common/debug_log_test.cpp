/*
 * The debug log: the form of an entry, the switch, rotation to the byte, and quiet failures.
 */
#include "debug_log.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "interposer.h"
#include "platform/mel_clock.h"
#include "store.h"
#include "tav_common.h"

extern "C" void MEL_GMT_SystimeGet(BEX_SysTime *time) {
    *time = {2024, 3, 5, 7, 8, 9, 2, 12};
}

namespace {

std::string LogOf(const std::string &name) {
    return LogFolder() + "/" + name + ".log";
}

/** The one entry that a log holds; the log is removed. */
std::string TakeEntry(const std::string &name) {
    const Bytes bytes = ReadFile(LogOf(name));
    std::filesystem::remove(LogOf(name));
    return std::string(bytes.begin(), bytes.end());
}

const std::string kTime = "\r\n[2024-03-05 07:08:09.012]";

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
    for (uint32_t flag : {0u, 1u, 1u}) {
        EXPECT_EQ(TAV_GetDebugFlag(), flag);
        EXPECT_EQ(TAV_GetExtTlvDataType(29), 0x8000) << "the same result with the log on";
        EXPECT_EQ(FileExists(LogPath()), flag == 1);
        TAV_SetDebugFlag();
    }
}

TEST_F(Log, EntryForm) {
    for (size_t length : {0u, 1u, 998u, 999u, 1000u, 5000u}) {
        const std::string text(length, 'm');
        TAV_DEBUG_Log("form", "F", 7, "%s", text.c_str());
        EXPECT_EQ(TakeEntry("form"), kTime + ": [F: 7] " + text.substr(0, 999));
    }
    TAV_DEBUG_WriteLogFile("form", "F", 4294967295u, "100% as it %s");
    EXPECT_EQ(TakeEntry("form"), kTime + ": [F: 4294967295] 100% as it %s");
    const char *noFormat = nullptr;
    TAV_DEBUG_Log("nulls", nullptr, 1, "x");
    TAV_DEBUG_Log("nulls", "F", 1, noFormat, 5);
    EXPECT_FALSE(FileExists(LogOf("nulls")));
}

TEST_F(Log, RotatesAt32MiB) {
    const std::string path = LogOf("big"), old = path + ".old";
    const uintmax_t entry = kTime.size() + std::string_view(": [F: 1] x").size();
    for (uint64_t size : {uint64_t{33554431}, uint64_t{33554432}, uint64_t{3} << 30}) {
        WriteFile(old, Text("older"));
        MakeSparseFile(path, size);
        TAV_DEBUG_Log("big", "F", 1, "x");
        EXPECT_EQ(std::filesystem::file_size(path), size > 33554431 ? entry : size + entry) << size;
        EXPECT_EQ(std::filesystem::file_size(old), size > 33554431 ? size : 5) << size;
    }
    // A move that fails is ignored, and a position that is not told counts as small: writing goes on in the large file.
    for (const auto &[call, nth] : {std::pair(interposer::Call::kMove, 1u), {interposer::Call::kUnlisted, 2u}}) {
        MakeSparseFile(path, 33554432);
        interposer::FailNth(call, nth);
        TAV_DEBUG_Log("big", "F", 1, "x");
        EXPECT_EQ(std::filesystem::file_size(path), 33554432 + entry);
    }
}

TEST_F(Log, EveryCallFailsInTurn) {
    for (const uint32_t size : {0u, 33554432u}) {
        uint32_t nth = 0;
        do {
            MakeSparseFile(LogOf("big"), size);
            interposer::Reset();
            interposer::FailNth(interposer::Call::kAny, ++nth);
            const int32_t code = TAV_DEBUG_WriteLogFile("big", "F", 1, "x");
            EXPECT_TRUE(code == 0 || (code == -1 && interposer::Failed() == "BEX_VFS_FClose")) << interposer::Failed();
        } while (!interposer::Failed().empty());
        EXPECT_GT(nth, 3u);
    }
}

TEST_F(Log, FailsQuietly) {
    std::filesystem::remove_all(LogFolder());
    EXPECT_EQ(TAV_DEBUG_WriteLogFile("tav_debug", "F", 1, "x"), 0);
    EXPECT_FALSE(std::filesystem::exists(LogFolder())) << "the folder is never made";
    std::filesystem::create_directories(LogFolder());
    interposer::FailNth(interposer::Call::kLogClose, 1);
    EXPECT_EQ(TAV_DEBUG_WriteLogFile("tav_debug", "F", 1, "x"), -1) << "what closing gave";
    TAV_DEBUG_Log(std::string(400, 'n').c_str(), "F", 1, "x");
    EXPECT_TRUE(FileExists(LogOf(std::string(400, 'n')).substr(0, 255))) << "a path is cut at 255 characters";
}

}  // namespace
