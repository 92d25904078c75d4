/*
 * Reads what the library reports to the debug log.
 */
#ifndef TAV_TESTS_DEBUG_LOG_H
#define TAV_TESTS_DEBUG_LOG_H

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

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
std::string LogFolder();
std::string LogPath();

/** Starts an empty log and switches it on; off again and removed when the object goes. */
class DebugLog {
  public:
    DebugLog();
    ~DebugLog();
    DebugLog(const DebugLog &) = delete;
    DebugLog &operator=(const DebugLog &) = delete;

    /** The entries since the last call; a line that has not the form of an entry fails the test. */
    std::vector<LogEntry> Take();

    /** Takes the entries and expects exactly these. */
    void Expect(const std::vector<LogEntry> &entries) { EXPECT_EQ(Take(), entries); }

    /** Takes the entries and expects these in this order, with others before, between and behind. */
    void ExpectAmong(const std::vector<LogEntry> &entries);
};

#endif
