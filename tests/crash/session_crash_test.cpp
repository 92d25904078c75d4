/*
 * What a crash leaves of a session's commit, with a history and without: the process killed at each call that changes
 * files, power lost after each, and readers that look in between.
 */
#include <gmock/gmock.h>

#include <iostream>
#include <set>

#include "crash.h"
#include "store.h"
#include "tav/history.h"
#include "tav/patch.h"
#include "tav/session.h"

namespace {

using testing::AnyOf;
using testing::Eq;
using Value = std::optional<uint64_t>;  // of the file's only record; nothing when there is no file

struct Scenario {
    const char *name, *file;
    bool hasHistory;
    Value before, after;
    bool isPatched = false;  // instead of committed by a session
};

const Scenario kCommits[] = {
    {"new file", "x.dat", false, {}, 1},
    {"changed file", "x.dat", false, 1, 2},
    {"deleted file", "x.dat", false, 1, {}},
    {"new archive", "x.zip", false, {}, 1},
    {"changed archive", "x.zip", false, 1, 2},
    {"changed file with a history", "x.dat", true, 1, 2},
    {"deleted file with a history", "x.dat", true, 1, {}},
    {"new file with a history", "x.dat", true, {}, 1},
    {"changed archive with a history", "x.zip", true, 1, 2},
    {"patched file", "x.dat", false, 1, 2, true},
    {"patched archive with a history", "x.zip", true, 1, 2, true},
};
constexpr uint64_t kEarlier = 77;  // what the file held before that, as its history knows
constexpr uint32_t kKept = 2;      // so that each commit drops the oldest

/** A number in host order. */
std::string Number(uint64_t number) {
    const auto word = static_cast<uint32_t>(number);
    return {reinterpret_cast<const char *>(&word), sizeof(word)};
}

int Commit(const std::string &path, Value value) {
    tav::Session session(path, {.create = true});
    session.Store() = tav::Store::New("");
    if (value) {
        session.Store().Add(0, tav::Record(13).With(14, 1).With(19, *value));
    }
    return session.Commit() ? 0 : 1;
}

/** Makes what comes after of what was before. */
int Change(const Scenario &scenario, const std::string &path) {
    if (!scenario.isPatched) {
        return Commit(path, scenario.after);
    }
    const tav::Change set{tav::Verb::kSet, 0, 13, {{14, Number(1)}, {19, Number(*scenario.after)}}, {}};
    return tav::Patch(path, set) ? 0 : 1;
}

Value ValueIn(const tav::Store &store) {
    for (const tav::RecordView record : store.Records(0, 13)) {
        return record.Number(19);
    }
    return {};
}

/** What a reader sees, who takes no lock. Throws when it sees neither a file nor none. */
Value Read(const std::string &path) {
    try {
        return ValueIn(tav::Snapshot(path, {.wait = {}}).Store());
    } catch (const tav::Error &error) {
        if (error.Code() == TAV_ERR_MISSING) {
            return {};
        }
        throw;
    }
}

/** A folder with a file, and with its history. */
struct Stage : TempFolder {
    explicit Stage(const Scenario &scenario) : path(Path(scenario.file)) {
        if (scenario.hasHistory) {
            Commit(path, 5);
            tav::History::Start(path, kKept);
            Commit(path, 6);
            Commit(path, kEarlier);
        }
        if (scenario.before || scenario.hasHistory) {
            Commit(path, scenario.before);
        }
    }
    const std::string path;
};

/** What of a scenario is true of a folder as a crash may have left it, for readers and for the next session. */
void ExpectConsistent(const Scenario &scenario, const std::string &path, bool isDone) {
    const Value value = Read(path);
    EXPECT_THAT(value, AnyOf(Eq(scenario.after), Eq(isDone ? scenario.after : scenario.before)));
    for (const bool isSettled : {false, true}) {
        SCOPED_TRACE(isSettled ? "after the next session" : "before the next session");
        if (scenario.hasHistory) {
            const tav::History history(path);
            const bool isNew = value == scenario.after;
            EXPECT_EQ(history.Commits().back().number, isNew ? 4u : 3u);
            EXPECT_EQ(ValueIn(history.Before(1)), isNew ? scenario.before : Value(kEarlier));
            EXPECT_EQ(ValueIn(history.Before(2)), isNew ? Value(kEarlier) : Value(6));
        }
        if (!isSettled) {
            tav::Session(path, {.create = true});
        }
    }
    EXPECT_EQ(Read(path), value) << "the next session changes nothing";
    const std::string folder = std::filesystem::path(path).parent_path(), hidden = "." + std::string(scenario.file);
    std::set<std::string> expected{hidden + ".lock"};
    if (value) {
        expected.insert(scenario.file);
    }
    if (scenario.hasHistory) {
        expected.insert(hidden + ".history");
        for (const auto &[name, content] : ReadFolder(folder + "/" + hidden + ".history")) {
            EXPECT_THAT(name, AnyOf("index", "2.zst", "3.zst", "4.zst"));
        }
    }
    std::set<std::string> found;
    for (const auto &entry : std::filesystem::directory_iterator(folder)) {
        found.insert(entry.path().filename());
    }
    EXPECT_EQ(found, expected);
    EXPECT_EQ(Commit(path, 99), 0) << "and the one after that works";
    EXPECT_EQ(Read(path), Value(99));
}

TEST(SessionCommit, KilledAtEachTurn) {
    for (const Scenario &scenario : kCommits) {
        SCOPED_TRACE(scenario.name);
        Sweep([&](unsigned turn) {
            const Stage stage(scenario);
            const std::string end = RunChild(turn, [&] { return Change(scenario, stage.path); });
            ExpectConsistent(scenario, stage.path, end == kDone);
            return end;
        });
    }
}

TEST(SessionCommit, PowerLostAfterEachCallAndReadersInBetween) {
    for (const Scenario &scenario : kCommits) {
        SCOPED_TRACE(scenario.name);
        const Stage stage(scenario);
        Disk disk(stage.Path());
        std::set<Files> known;
        size_t tried = 0;
        const auto tryAll = [&](bool isDone) {
            disk.VisitStates([&](const Files &found) {
                ++tried;
                if (isDone || known.insert(found).second) {
                    const TempFolder folder;
                    WriteFolder(folder, found);
                    SCOPED_TRACE(testing::PrintToString(found));
                    ExpectConsistent(scenario, folder.Path(scenario.file), isDone);
                }
            });
        };
        g_watch = [&](ino_t synced) {
            disk.Look(synced);
            EXPECT_THAT(Read(stage.path), AnyOf(Eq(scenario.before), Eq(scenario.after))) << "a reader in between";
            if (scenario.hasHistory) {
                EXPECT_NO_THROW(tav::History(stage.path).Before(1)) << "a reader of the history in between";
            }
            tryAll(false);
        };
        EXPECT_EQ(Change(scenario, stage.path), 0);
        g_watch = nullptr;
        tryAll(true);  // what was reported as committed lasts
        EXPECT_GT(tried, 2u) << "calls are not seen";
        std::cout << scenario.name << ": " << tried << " states, " << known.size() << " of them different\n";
    }
}

/** Tries a commit of which one call may fail. Returns whether there was no such call. */
bool TryToCommit(const Scenario &scenario, const Stage &stage) {
    bool isDone = false;
    std::string text;
    try {
        isDone = Change(scenario, stage.path) == 0;
    } catch (const tav::Error &error) {
        text = error.what();
        EXPECT_THAT(error.Code(), AnyOf(TAV_ERR_NOT_SAVED, TAV_ERR_OPEN));
        EXPECT_THAT(text,
                    AnyOf(testing::HasSubstr("Input/output error"), testing::HasSubstr("platform reports an error")));
    }
    const bool isOver = std::exchange(g_failingTurn, 0) != 0;
    const bool isChanged = isDone || text.find("it has been changed") != std::string::npos;
    EXPECT_EQ(Read(stage.path), isChanged ? scenario.after : scenario.before);
    ExpectConsistent(scenario, stage.path, isChanged);
    return isOver;
}

TEST(SessionCommit, EachCallFailsInTurn) {
    for (const Scenario &scenario : kCommits) {
        SCOPED_TRACE(scenario.name);
        unsigned turn = 0;
        for (bool isOver = false; !isOver && !HasFailure();) {
            SCOPED_TRACE("turn " + std::to_string(++turn));
            const Stage stage(scenario);
            g_failingTurn = turn;
            isOver = TryToCommit(scenario, stage);
        }
        EXPECT_GT(turn, 2u) << "calls are not seen";
    }
}

/** A disk that is full after each number of bytes: the old file stays, nothing is left, and the reason is told. */
TEST(SessionCommit, DiskFullAtEachByte) {
    for (const Scenario &scenario : kCommits) {
        SCOPED_TRACE(scenario.name);
        const Stage stage(scenario);
        const Files before = ReadFolder(stage.Path());
        size_t room = 0;
        for (bool isDone = false; !isDone && !HasFailure();) {
            SCOPED_TRACE("room for " + std::to_string(room) + " bytes");
            g_room = room;
            room += scenario.hasHistory ? 3 : 1;
            try {
                isDone = Change(scenario, stage.path) == 0;
            } catch (const tav::Error &error) {
                g_room = {};
                EXPECT_EQ(error.Code(), TAV_ERR_NOT_SAVED);
                EXPECT_THAT(error.what(), testing::HasSubstr("No space left on device; make room"));
                EXPECT_EQ(ReadFolder(stage.Path()), before);
            }
        }
        g_room = {};
        ExpectConsistent(scenario, stage.path, true);
        EXPECT_EQ(room > 100, scenario.after || scenario.hasHistory) << room;
    }
}

}  // namespace
