#include "debug_log.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "bytes.h"
#include "tav_common.h"

std::string LogFolder() {
    return std::string(std::getenv("TAV_WORK_PATH")) + "var/log";
}

std::string LogPath() {
    return LogFolder() + "/tav_debug.log";
}

DebugLog::DebugLog() {
    std::filesystem::create_directories(LogFolder());
    std::filesystem::remove(LogPath());
    g_ucTavDebugFlag = 1;
}

DebugLog::~DebugLog() {
    g_ucTavDebugFlag = 0;
    std::filesystem::remove(LogPath());
}

std::vector<LogEntry> DebugLog::Take() {
    const Bytes content = FileExists(LogPath()) ? ReadFile(LogPath()) : Bytes{};
    const std::string text(content.begin(), content.end());
    std::filesystem::remove(LogPath());
    std::vector<LogEntry> entries;
    for (size_t at = 0, end = 0; at < text.size(); at = end) {
        end = std::min(text.find("\r\n", at + 1), text.size());
        const std::string line = text.substr(at, end - at);
        char function[128] = "";
        int messageAt = 0;
        std::sscanf(line.c_str(), "\r\n[%*4u-%*2u-%*2u %*2u:%*2u:%*2u.%*3u]: [%127[^:]: %*u]%n", function, &messageAt);
        EXPECT_TRUE(line.starts_with("\r\n[") && messageAt > 0) << "no log entry: " << line;
        entries.push_back({function, line.substr(std::min<size_t>(static_cast<size_t>(messageAt) + 1, line.size()))});
    }
    return entries;
}

void DebugLog::ExpectAmong(const std::vector<LogEntry> &entries) {
    const std::vector<LogEntry> all = Take();
    auto at = all.begin();
    for (const LogEntry &entry : entries) {
        at = std::find(at, all.end(), entry);
        ASSERT_NE(at, all.end()) << "missing: " << entry << "\nin: " << testing::PrintToString(all);
        ++at;
    }
}
