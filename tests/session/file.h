/*
 * A configuration file in a folder of its own, and what the tests of sessions do with it.
 */
#ifndef TAV_TESTS_SESSION_FILE_H
#define TAV_TESTS_SESSION_FILE_H

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <set>
#include <string>

#include "bytes.h"
#include "tav/session.h"
#include "tav_common.h"

/** A record of class 13 with its key and a value in field 19. */
inline tav::Record Entry(uint32_t key, uint32_t value) {
    return tav::Record(13).With(14, key).With(19, value);
}

/** The values of class 13 in VS 0 by their keys. */
using Entries = std::map<uint64_t, uint64_t>;

inline Entries EntriesOf(const tav::Store &store) {
    Entries entries;
    for (const tav::RecordView record : store.Records(0, 13)) {
        entries[record.Number(14).value()] = record.Number(19).value();
    }
    return entries;
}

inline Entries ReadEntries(const std::string &path, std::chrono::milliseconds wait = std::chrono::seconds(5)) {
    return EntriesOf(tav::Snapshot(path, {.wait = wait}).Store());
}

/** Writes a file as a program without a session would make it. */
inline void MakeFile(const std::string &path, const Entries &entries) {
    tav::Store store = tav::Store::New(path);
    for (const auto &[key, value] : entries) {
        store.Add(0, Entry(static_cast<uint32_t>(key), static_cast<uint32_t>(value)));
    }
    ASSERT_EQ(TAV_ExtCfgFlush(store.Get()), TAV_OK);
}

/** Sets one entry, in a session of its own. */
inline void SetEntry(const std::string &path, uint32_t key, uint32_t value, const std::string &comment = {}) {
    tav::Session session(path, {.create = true});
    if (session.Store().Find(0, tav::Record(13).With(14, key))) {
        session.Store().Set(0, Entry(key, value));
    } else {
        session.Store().Add(0, Entry(key, value));
    }
    session.Commit(comment);
}

/** The names in a folder, but for lock files, which stay. */
inline std::set<std::string> NamesIn(const std::string &folder) {
    std::set<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() != ".lock") {
            names.insert(entry.path().filename());
        }
    }
    return names;
}

/** Runs something in a child process. Returns its process id. */
inline pid_t Start(const std::function<void()> &run) {
    const pid_t child = fork();
    if (child == 0) {
        int status = 0;
        try {
            run();
        } catch (const std::exception &error) {
            fprintf(stderr, "%s\n", error.what());
            status = 1;
        }
        _exit(testing::Test::HasFailure() ? 1 : status);
    }
    return child;
}

/** Waits for a child process. Returns its wait status. */
inline int Await(pid_t child) {
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return status;
}

/** The error of a call; fails the test when there is none. */
template <typename Call>
tav::Error ErrorOf(Call call) {
    try {
        call();
    } catch (const tav::Error &error) {
        return error;
    }
    ADD_FAILURE() << "no error";
    return tav::Error(0, "", "none");
}

#endif
