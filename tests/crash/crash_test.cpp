/*
 * What a crash leaves of files: processes killed at each call that changes files, and power lost after each.
 */
#include <gmock/gmock.h>

#include <fstream>
#include <iostream>
#include <set>

#include "crash.h"
#include "store.h"
#include "tav/session.h"
#include "tav_common.h"

namespace fs = std::filesystem;

namespace {

using testing::AnyOf;
using testing::Eq;
using Body = std::optional<Bytes>;  // what a file holds; nothing when it does not load, or is not there

const Bytes kOld = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(0x0102)), Tlv(19, Be32(7))})});
const Bytes kNew = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(0x0304)), Tlv(19, Be32(0x05060708))})});

Record NewRecord() {
    return MakeRecord(13, {{14, Host32(1)}, {15, Host16(0x0304)}, {19, Host32(0x05060708)}});
}

Body BodyOf(const std::string &path) {
    return ::BodyOf(Open(TAV_EXT_MODE_READ_ONLY, path));
}

/** Settles what a crash has left. Returns whether there is something that loads. */
bool Recover(const std::string &path) {
    try {
        tav::Recover(path, {.still = {}});
        return true;
    } catch (const tav::Error &error) {
        EXPECT_THAT(error.Code(), AnyOf(TAV_ERR_MISSING, TAV_ERR_INVALID)) << error.what();
        return false;
    }
}

/** What a file holds once that is done. Nothing but drafts, and what was moved aside, may lie beside it then. */
Body Recovered(const Files &left, const std::string &name) {
    const TempFolder folder;
    WriteFolder(folder, left);
    const bool isDone = Recover(folder.Path(name));
    const Body body = BodyOf(folder.Path(name));
    EXPECT_EQ(isDone, body.has_value());
    const Files after = ReadFolder(folder.Path());
    EXPECT_EQ(after.size(), left.size()) << "nothing is deleted";
    EXPECT_TRUE(isDone || after == left);
    for (const auto &[each, content] : isDone ? after : Files()) {
        const std::string draft = name == "x.zip" ? "x\\.zip\\......." : name;
        EXPECT_THAT(each, AnyOf(name, name + ".broken", name + ".bak.old", testing::MatchesRegex(draft)));
    }
    return body;
}

struct Scenario {
    const char *name, *file;
    Body before, after;
};

const Scenario kFlushes[] = {{"new file", "x.dat", {}, kNew},
                             {"changed file", "x.dat", kOld, kNew},
                             {"emptied file", "x.dat", kOld, {}},
                             {"new archive", "x.zip", {}, kNew},
                             {"changed archive", "x.zip", kOld, kNew}};

/** A folder with a file in it. */
struct Stage : TempFolder {
    Stage(const std::string &file, const Body &body) : path(Path(file)) {
        if (body) {
            const Bytes image = Image(*body);
            const auto write = file == "x.zip" ? TAV_ZipBufferToExtCfgFile : TAV_WriteBufferToFile;
            EXPECT_EQ(write(image.data(), static_cast<uint32_t>(image.size()), path.c_str()), TAV_OK);
        }
    }
    const std::string path;
};

int Flush(const std::string &path, const Body &after) {
    const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, path);
    return (after && Add(store, 0, NewRecord()) != TAV_OK) || TAV_ExtCfgFlush(store.get()) != TAV_OK;
}

TEST(Flush, KilledAtEachTurn) {
    for (const Scenario &scenario : kFlushes) {
        SCOPED_TRACE(scenario.name);
        Sweep([&](unsigned turn) {
            const Stage stage(scenario.file, scenario.before);
            const std::string end = RunChild(turn, [&] { return Flush(stage.path, scenario.after); });
            const Body body = Recovered(ReadFolder(stage.Path()), scenario.file);
            EXPECT_THAT(body, AnyOf(Eq(scenario.after), Eq(end == kDone ? scenario.after : scenario.before))) << end;
            return end;
        });
    }
}

TEST(Flush, PowerLostAfterEachCall) {
    for (const Scenario &scenario : kFlushes) {
        SCOPED_TRACE(scenario.name);
        const Stage stage(scenario.file, scenario.before);
        Disk disk(stage.Path());
        std::set<Files> known;
        size_t tried = 0;
        const auto tryAll = [&](const Body &before) {
            disk.VisitStates([&](const Files &found) {
                const Body body = known.insert(found).second ? Recovered(found, scenario.file) : before;
                EXPECT_THAT(body, AnyOf(Eq(before), Eq(scenario.after))) << testing::PrintToString(found);
                ++tried;
            });
        };
        g_watch = [&](ino_t synced) {
            disk.Look(synced);
            tryAll(scenario.before);
        };
        EXPECT_EQ(Flush(stage.path, scenario.after), 0);
        g_watch = nullptr;
        EXPECT_GT(tried, 2u) << "calls are not seen";
        std::cout << scenario.name << ": " << tried << " states, " << known.size() << " of them different\n";
        known.clear();
        tryAll(scenario.after);  // what was reported as written lasts
    }
}

/** Not atomic: from the first value on, until the head is whole, a crash leaves a file that does not load. */
TEST(InPlace, KilledAtEachTurn) {
    std::vector<std::string> found;
    Sweep([&](unsigned turn) {
        const Stage stage("x.dat", kOld);
        const std::string end = RunChild(turn, [&] {
            return TAV_ExtCfgSetRecordToFile(0, NewRecord().get(), stage.path.c_str(), nullptr) != TAV_OK;
        });
        const Body body = BodyOf(stage.path);
        found.push_back(end + (!body          ? ": broken"
                               : body == kOld ? ": old"
                               : body == kNew ? ": new"
                                              : ": something else"));
        return end;
    });
    EXPECT_THAT(found, testing::ElementsAre("write 2: old", "half of write 2: broken", "sync: broken",  //
                                            "write 4: broken", "half of write 4: broken", "sync: broken",
                                            "write 80: broken", "half of write 80: broken", "sync: new", "done: new"));
}

/** At 32 MiB the log is moved away, and no line with it is lost. */
TEST(Log, RotationKilledAtEachTurn) {
    const auto lastLine = [](const std::string &path) {
        std::string line(9, ' ');
        std::ifstream(path).seekg(-9, std::ios::end).read(line.data(), 9);
        return line;
    };
    Sweep([&](unsigned turn) {
        const TempFolder folder;
        const std::string log = folder.Path("var/log/crash.log");
        fs::create_directories(folder.Path("var/log"));
        MakeSparseFile(log, 1 << 25);
        std::ofstream(log, std::ios::app) << "last line";
        const std::string end = RunChild(turn, [&] {
            setenv("TAV_WORK_PATH", folder.Path().c_str(), 1);
            return TAV_DEBUG_WriteLogFile("crash", "test", 1, "next line");
        });
        EXPECT_THAT((std::vector{lastLine(log + ".old"), lastLine(log)}), testing::Contains("last line")) << end;
        EXPECT_EQ(lastLine(log) == "next line", end == kDone) << end;
        return end;
    });
}

}  // namespace
