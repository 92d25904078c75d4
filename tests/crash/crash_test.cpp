/*
 * What a crash leaves of files: processes killed at each call that changes files, and power lost after each.
 */
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iostream>
#include <map>
#include <set>

#include "file_calls.h"
#include "store.h"
#include "tav_common.h"

namespace fs = std::filesystem;

namespace {

using testing::AnyOf;
using testing::Eq;
using Body = std::optional<Bytes>;           // what a file holds; nothing when it does not load, or is not there
using Files = std::map<std::string, Bytes>;  // the content of a folder

const Bytes kOld = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(0x0102)), Tlv(19, Be32(7))})});
const Bytes kNew = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(0x0304)), Tlv(19, Be32(0x05060708))})});

Record NewRecord() {
    return MakeRecord(13, {{14, Host32(1)}, {15, Host16(0x0304)}, {19, Host32(0x05060708)}});
}

Body BodyOf(const std::string &path) {
    const Store store = Open(TAV_EXT_MODE_READ_ONLY, path);
    Bytes body(store ? TAV_CalcExtCfgFileBodySize(store.get()) : 0);
    const auto size = static_cast<uint32_t>(body.size());
    return store && TAV_BuildExtCfgFileBody(store.get(), body.data(), size) == TAV_OK ? Body(body) : std::nullopt;
}

Files ReadFolder(const std::string &folder) {
    Files files;
    for (const auto &entry : fs::directory_iterator(folder)) {
        files[entry.path().filename()] = ReadFile(entry.path());
    }
    return files;
}

// How a child process ends that is not killed at a turn.
constexpr char kDone[] = "done", kFailed[] = "failed";

/** Runs something in a child process. Returns the name of the turn at which it was killed, else kDone or kFailed. */
std::string RunChild(unsigned lastTurn, const std::function<int()> &run) {
    const TempFolder folder;
    const std::string link = folder.Path("turn");
    if (fork() == 0) {
        setenv(kTurn, (std::to_string(lastTurn) + link).c_str(), 1);
        _exit(run());
    }
    int status = -1;
    wait(&status);
    return WIFSIGNALED(status) ? fs::read_symlink(link).string() : status == 0 ? kDone : kFailed;
}

/** Becomes the tool, after a command of the shell. */
int BecomeTool(const std::string &arguments, const std::string &first = ":") {
    const std::string start =
        "; LD_PRELOAD=" FILE_CALLS " ASAN_OPTIONS=verify_asan_link_order=0 exec " TAVCFG_PROGRAM " ";
    const std::string command = first + start + arguments + " >/dev/null 2>&1";
    return execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
}

/** Runs the tool as RunChild does. */
std::string RunTool(const std::string &arguments, unsigned lastTurn = 0, const std::string &first = ":") {
    return RunChild(lastTurn, [&] { return BecomeTool(arguments, first); });
}

/** Runs the tool and looks on after each of its turns. Returns whether it has succeeded. */
bool WatchTool(const std::string &arguments, const std::function<void(ino_t synced)> &watch) {
    const TempFolder folder;
    const std::string link = folder.Path("turn");
    const pid_t tool = fork();
    if (tool == 0) {
        setenv(kStops, link.c_str(), 1);
        _exit(BecomeTool(arguments));
    }
    int status = -1;
    while (waitpid(tool, &status, WUNTRACED) == tool && WIFSTOPPED(status)) {
        watch(std::stoul(fs::read_symlink(link).string()));
        fs::remove(link);
        kill(tool, SIGCONT);
    }
    return status == 0;
}

void WriteFolder(const TempFolder &folder, const Files &files) {
    for (const auto &[name, content] : files) {
        WriteFile(folder.Path(name), content);
    }
}

/** What a file holds once `tavcfg recover` has settled what a crash has left. Nothing but drafts may lie beside it. */
Body Recovered(const Files &left, const std::string &name) {
    const TempFolder folder;
    WriteFolder(folder, left);
    const bool isDone = RunTool("recover " + folder.Path(name)) == kDone;
    const Body body = BodyOf(folder.Path(name));
    EXPECT_EQ(isDone, body.has_value());
    for (const auto &[each, content] : ReadFolder(folder.Path())) {
        const std::string draft = name == "x.zip" ? "x\\.zip\\......." : name;
        EXPECT_THAT(each, AnyOf(name, name + ".broken", testing::MatchesRegex(draft)));
    }
    return body;
}

/**
 * A model of a folder on a disk that loses power. Until a file is synced, any content that it has had since the last
 * time may be found, whole, in part, or as zeros; until the folder is synced, each change of names or not, a rename as
 * a whole. What becomes of one says nothing about the others.
 */
class Disk {
  public:
    /** Begins with what is in a folder, all of it on stable storage. */
    explicit Disk(const std::string &folder) : folder_(folder) {
        Look(InodeOf(folder));
        for (auto &[inode, contents] : contents_) {
            contents = {contents.back()};
        }
    }

    /** Looks at the folder after a change, or after a sync of the file or folder with this number. */
    void Look(ino_t synced) {
        Names names = names_, changed;
        for (auto &[name, inode] : names) {
            inode = 0;  // gone, until it is seen
        }
        for (const auto &[name, content] : ReadFolder(folder_)) {
            std::vector<Bytes> &contents = contents_[names[name] = InodeOf(folder_ + "/" + name)];
            contents.resize(std::max<size_t>(contents.size(), 1));  // a new file is empty
            if (names[name] == synced) {
                contents = {content};
            } else if (contents.back() != content) {
                const size_t size = content.size();
                contents.insert(contents.end(), {Bytes(size), Slice(content, 0, size / 2), content});
            }
        }
        std::set_difference(names.begin(), names.end(), names_.begin(), names_.end(),
                            std::inserter(changed, changed.end()));
        names_ = names;
        changes_.push_back(changed);
        if (synced == InodeOf(folder_)) {
            lastingNames_ = names;
            changes_.clear();
        }
    }

    /** Shows what may be found after a loss of power. */
    void VisitStates(const std::function<void(const Files &)> &visit) const {
        for (size_t number = 0, left = 0; left == 0; ++number) {
            left = number;
            const auto pick = [&left](size_t choices) { return std::exchange(left, left / choices) % choices; };
            Names names = lastingNames_;
            for (const Names &change : changes_) {
                const bool isDone = change.empty() || pick(2) != 0;
                for (const auto &[name, inode] : isDone ? change : Names()) {
                    names[name] = inode;
                }
            }
            std::map<ino_t, Bytes> found;
            for (const auto &[inode, contents] : contents_) {
                found[inode] = contents[pick(contents.size())];
            }
            Files files;
            for (const auto &[name, inode] : names) {
                if (inode != 0) {
                    files[name] = found[inode];
                }
            }
            if (left == 0) {
                visit(files);
            }
        }
    }

  private:
    using Names = std::map<std::string, ino_t>;  // 0 for a name that is gone

    static ino_t InodeOf(const std::string &path) {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
    }

    const std::string folder_;
    Names names_, lastingNames_;                    // as they are, and on stable storage
    std::vector<Names> changes_;                    // of names, since the folder was synced
    std::map<ino_t, std::vector<Bytes>> contents_;  // of each file, the first one on stable storage, the last its own
};

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

/** Tries something that is killed at each turn, and once more to its end, which must be kDone. */
void Sweep(const std::function<std::string(unsigned lastTurn)> &tryOnce) {
    std::string end;
    unsigned turn = 0;
    while (end != kDone && !testing::Test::HasFailure()) {
        SCOPED_TRACE("killed at turn " + std::to_string(++turn));
        end = tryOnce(turn);
        EXPECT_NE(end, kFailed);
    }
    EXPECT_GT(turn, 2u) << "calls are not seen";
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

std::string SafePatch(const std::string &path) {
    return "patch --safe " + path + " --vs 0 --class 13 14=1 15=0x0304 19=0x05060708";
}

/** The way around that: the file is the old or the new one whenever the tool is killed, and a second try succeeds. */
TEST(SafePatch, KilledAtEachTurn) {
    Sweep([&](unsigned turn) {
        const Stage stage("x.dat", kOld);
        fs::permissions(stage.path, fs::perms{0604});
        const std::string end = RunTool(SafePatch(stage.path), turn);
        const Body body = BodyOf(stage.path);
        EXPECT_THAT(body, AnyOf(Eq(kNew), Eq(end == kDone ? kNew : kOld))) << end;
        EXPECT_LE(ReadFolder(stage.Path()).size(), end == kDone ? 1u : 2u);  // a draft may be left
        EXPECT_EQ(RunTool(SafePatch(stage.path)), kDone);
        EXPECT_EQ(BodyOf(stage.path), kNew);
        EXPECT_EQ(fs::status(stage.path).permissions(), fs::perms{0604});
        return end;
    });
}

TEST(SafePatch, PowerLostAfterEachCall) {
    const Stage stage("x.dat", kOld);
    Disk disk(stage.Path());
    size_t tried = 0;
    const auto tryAll = [&](bool isOver) {
        disk.VisitStates([&](const Files &found) {
            const TempFolder folder;
            WriteFolder(folder, found);
            const Body body = BodyOf(folder.Path("x.dat"));
            EXPECT_THAT(body, AnyOf(Eq(kNew), Eq(isOver ? kNew : kOld))) << testing::PrintToString(found);
            ++tried;
        });
    };
    EXPECT_TRUE(WatchTool(SafePatch(stage.path), [&](ino_t synced) {
        disk.Look(synced);
        tryAll(false);
    }));
    tryAll(true);
    EXPECT_GT(tried, 20u) << "calls are not seen";
    std::cout << "patch --safe: " << tried << " states\n";
}

TEST(SafePatch, FailsCleanly) {
    const Bytes brokenBehind = Join({kOld, VsTlv(1, {Tlv(13, Be32(1))})});
    for (const auto &[first, body] : {std::pair("trap '' XFSZ; ulimit -f 0", kOld), {":", brokenBehind}}) {
        const Stage stage("x.dat", body);
        const Files before = ReadFolder(stage.Path());
        EXPECT_EQ(RunTool(SafePatch(stage.path), 0, first), kFailed);
        EXPECT_EQ(ReadFolder(stage.Path()), before);
    }
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
