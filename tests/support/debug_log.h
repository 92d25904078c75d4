/*
 * Reads what the library reports to the debug log.
 */
#ifndef TAV_TESTS_DEBUG_LOG_H
#define TAV_TESTS_DEBUG_LOG_H

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "bytes.h"
#include "tav_common.h"

/** One entry of the log: who reports what. */
struct LogEntry {
    std::string function;
    std::string message;
    bool operator==(const LogEntry &) const = default;
    friend std::ostream &operator<<(std::ostream &out, const LogEntry &entry) {
        return out << entry.function << ": " << entry.message;
    }
};

/** The folder of the library's log in this process, and the log's path. */
inline std::string LogFolder() {
    return std::string(getenv("TAV_WORK_PATH")) + "var/log";
}
inline std::string LogPath() {
    return LogFolder() + "/tav_debug.log";
}

/** Starts an empty log and switches it on; off again and removed when the object goes. */
class DebugLog {
  public:
    DebugLog() {
        std::filesystem::create_directories(LogFolder());
        std::filesystem::remove(LogPath());
        g_ucTavDebugFlag = 1;
    }
    ~DebugLog() {
        g_ucTavDebugFlag = 0;
        std::filesystem::remove(LogPath());
    }
    DebugLog(const DebugLog &) = delete;
    DebugLog &operator=(const DebugLog &) = delete;

    /** The entries since the last call; a line that has not the form of an entry fails the test. */
    static std::vector<LogEntry> Take() {
        const Bytes content = FileExists(LogPath()) ? ReadFile(LogPath()) : Bytes{};
        const std::string text(content.begin(), content.end());
        std::filesystem::remove(LogPath());
        std::vector<LogEntry> entries;
        for (size_t at = 0, end = 0; at < text.size(); at = end) {
            end = std::min(text.find("\r\n", at + 1), text.size());
            const std::string line = text.substr(at, end - at);
            char name[128] = "";
            int head = 0;
            sscanf(line.c_str(), "\r\n[%*4u-%*2u-%*2u %*2u:%*2u:%*2u.%*3u]: [%127[^:]: %*u]%n", name, &head);
            EXPECT_TRUE(line.starts_with("\r\n[") && head > 0) << "no log entry: " << line;
            entries.push_back({name, line.substr(std::min(static_cast<size_t>(head) + 1, line.size()))});
        }
        return entries;
    }

    /** Takes the entries and expects exactly these. */
    static void Expect(const std::vector<LogEntry> &entries) { EXPECT_EQ(Take(), entries); }

    /** Takes the entries and expects these in this order, with others before, between and behind. */
    static void ExpectAmong(const std::vector<LogEntry> &entries) {
        const std::vector<LogEntry> all = Take();
        auto at = all.begin();
        for (const LogEntry &entry : entries) {
            at = std::find(at, all.end(), entry);
            ASSERT_NE(at, all.end()) << "missing: " << entry << "\nin: " << testing::PrintToString(all);
            ++at;
        }
    }
};

#endif
