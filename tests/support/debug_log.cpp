#include "debug_log.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "bytes.h"
#include "tav_common.h"

std::ostream &operator<<(std::ostream &out, const LogEntry &entry) {
    return out << entry.function << ": " << entry.message;
}

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
    std::vector<LogEntry> entries;
    if (!FileExists(LogPath())) {
        return entries;
    }
    Bytes content = ReadFile(LogPath());
    std::string text(content.begin(), content.end());
    std::filesystem::remove(LogPath());
    for (size_t at = 0; at < text.size();) {
        size_t end = std::min(text.find("\r\n", at + 1), text.size());
        std::string line = text.substr(at, end - at);
        char function[128] = "";
        int messageAt = 0;
        std::sscanf(line.c_str(), "\r\n[%*4u-%*2u-%*2u %*2u:%*2u:%*2u.%*3u]: [%127[^:]: %*u]%n", function, &messageAt);
        if (!line.starts_with("\r\n[") || messageAt == 0) {
            ADD_FAILURE() << "no log entry: " << line;
            break;
        }
        entries.push_back({function, line.substr(static_cast<size_t>(messageAt) + 1)});
        at = end;
    }
    return entries;
}

void DebugLog::Expect(const std::vector<LogEntry> &entries) {
    EXPECT_EQ(Take(), entries);
}

void DebugLog::ExpectAmong(const std::vector<LogEntry> &entries) {
    std::vector<LogEntry> all = Take();
    auto at = all.begin();
    for (const LogEntry &entry : entries) {
        auto found = std::find(at, all.end(), entry);
        if (found == all.end()) {
            ADD_FAILURE() << "missing: " << entry << "\nin: " << testing::PrintToString(all);
            return;
        }
        at = found + 1;
    }
}
