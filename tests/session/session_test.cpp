/*
 * Sessions, snapshots, locks and recovery: what they promise for one file, and what they refuse.
 */
#include <fcntl.h>
#include <sys/resource.h>

#include <thread>

#include "file.h"
#include "store.h"
#include "tav/history.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::milliseconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr milliseconds kShort{50};

class SessionTest : public testing::TestWithParam<const char *> {
  protected:
    const TempFolder folder_;
    const std::string path_ = folder_.Path(GetParam());
    const std::string lockFile_ = folder_.Path("." + std::string(GetParam()) + ".lock");
};
INSTANTIATE_TEST_SUITE_P(PlainAndArchive, SessionTest, testing::Values("x.dat", "x.zip"));

TEST_P(SessionTest, CommitsWhatWasChangedAndNothingElse) {
    const NothingLeaks nothingLeaks;
    EXPECT_EQ(ErrorOf([&] { tav::Session session(path_); }).Code(), TAV_ERR_MISSING);
    EXPECT_TRUE(fs::is_empty(folder_.Path())) << "no lock file beside nothing";
    {
        tav::Session session(path_, {.create = true});
        EXPECT_TRUE(session.IsNew());
        EXPECT_FALSE(session.Commit()) << "no file, and no content";
        session.Store().Add(0, Entry(1, 10));
        EXPECT_TRUE(session.Commit("first"));
        EXPECT_FALSE(session.Commit()) << "the same again";
        session.Store().Add(0, Entry(2, 20));
        EXPECT_TRUE(session.Commit()) << "it goes on";
        session.Store().Set(0, Entry(2, 30));  // dropped
    }
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}, {2, 20}}));
    const Bytes before = ReadFile(path_);
    const auto written = fs::last_write_time(path_);
    {
        tav::Session session(path_);
        session.Store().Set(0, Entry(2, 30));
        session.Store().Set(0, Entry(2, 20));
        EXPECT_FALSE(session.Commit());
    }
    EXPECT_EQ(ReadFile(path_), before);
    EXPECT_EQ(fs::last_write_time(path_), written);
    EXPECT_THAT(NamesIn(folder_.Path()), ElementsAre(GetParam()));
    {
        tav::Session session(path_);
        session.Store() = tav::Store::New("");
        EXPECT_TRUE(session.Commit());
        EXPECT_TRUE(session.IsNew());
    }
    EXPECT_FALSE(FileExists(path_)) << "a store without any VS is no file";
}

/** What others rely on: the mode, the owner, the links that lead to it, and the archive member's name. */
TEST_P(SessionTest, KeepsWhatTheFileIs) {
    MakeFile(path_, {{1, 10}});
    const bool isRoot = geteuid() == 0;
    const uid_t owner = isRoot ? 4321 : geteuid();
    ASSERT_EQ(chown(path_.c_str(), owner, isRoot ? 4322 : getegid()), 0);
    ASSERT_EQ(chmod(path_.c_str(), 04600), 0);  // a bit that a change of the owner takes away
    fs::create_directory(folder_.Path("sub"));
    fs::create_symlink(std::string("../") + GetParam(), folder_.Path("sub/second"));
    fs::create_symlink(folder_.Path("sub/second"), folder_.Path("first"));
    SetEntry(folder_.Path("first"), 2, 20);
    struct stat status {};
    ASSERT_EQ(lstat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 04600});
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_gid, isRoot ? 4322 : getegid());
    EXPECT_TRUE(fs::is_symlink(folder_.Path("first")) && fs::is_symlink(folder_.Path("sub/second")));
    EXPECT_EQ(EntriesOf(tav::Store::Open(path_)), (Entries{{1, 10}, {2, 20}}));
    EXPECT_THAT(NamesIn(folder_.Path("sub")), ElementsAre("second"));
    fs::create_symlink("new.dat", folder_.Path("dangling"));
    SetEntry(folder_.Path("dangling"), 1, 1);
    EXPECT_EQ(ReadEntries(folder_.Path("new.dat")), (Entries{{1, 1}}));
    EXPECT_TRUE(fs::is_symlink(folder_.Path("dangling")));
}

/** A file that one commit deletes and another makes again; not where the lock file may be anybody's. */
TEST_P(SessionTest, AFileThatIsMadeAgainIsWhatItWas) {
    const uid_t owner = geteuid() == 0 ? 4321 : geteuid();
    const auto modeAfter = [&](mode_t folderMode) {
        SetEntry(path_, 1, 10);
        EXPECT_EQ(chown(path_.c_str(), owner, getegid()) + chmod(path_.c_str(), 0604), 0);
        chmod(folder_.Path().c_str(), folderMode);
        tav::Session session(path_);
        const tav::Store store = std::exchange(session.Store(), tav::Store::New(""));
        EXPECT_TRUE(session.Commit());
        session.Store().Add(0, Entry(1, 10));
        EXPECT_TRUE(session.Commit());
        struct stat status {};
        EXPECT_EQ(stat(path_.c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, folderMode == 0755 ? owner : geteuid());
        fs::remove(path_);
        return status.st_mode & 07777;
    };
    const mode_t umaskBefore = umask(077);
    SetEntry(path_, 1, 10);
    EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0640}) << "a new one is as the product makes it";
    EXPECT_EQ(modeAfter(0755), 0604u);
    EXPECT_EQ(modeAfter(01777), 0640u);
    umask(umaskBefore);
}

TEST_P(SessionTest, TellsWhyADraftCannotBeWritten) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer needs descriptors of its own";
#endif
    tav::Session session(path_, {.create = true});
    session.Store().AddVs(0);
    const int next = dup(0);
    close(next);
    struct rlimit limit {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t before = std::exchange(limit.rlim_cur, next);
    setrlimit(RLIMIT_NOFILE, &limit);
    const tav::Error error = ErrorOf([&] { session.Commit(); });
    limit.rlim_cur = before;
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_THAT(error.what(), HasSubstr("cannot be written: Too many open files"));
}

TEST_P(SessionTest, OneAfterTheOtherAndTheHolderIsNamed) {
    MakeFile(path_, {{1, 10}});
    WriteFile(lockFile_, Text("4194304 a program of a longer name, which had it before"));
    auto session = std::make_optional<tav::Session>(path_);
    for (const auto &open : fs::directory_iterator("/proc/self/fd")) {  // programs that are started share no lock
        const bool isOurs = fs::read_symlink(open).string().starts_with(folder_.Path());
        EXPECT_TRUE(!isOurs || fcntl(std::stoi(open.path().filename()), F_GETFD) == FD_CLOEXEC) << open;
    }
    const auto start = std::chrono::steady_clock::now();
    const tav::Error error = ErrorOf([&] { tav::Lock lock(path_, kShort); });
    EXPECT_EQ(ErrorOf([&] { tav::Lock lock(path_, milliseconds::min()); }).Code(), TAV_ERR_LOCKED);
    EXPECT_EQ(error.Code(), TAV_ERR_LOCKED);
    EXPECT_THAT(error.what(),
                HasSubstr("process " + std::to_string(getpid()) + " (" + program_invocation_short_name + ") is"));
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}})) << "readers are not held up";
    std::thread later([&] {
        std::this_thread::sleep_for(kShort);
        session->Store().Set(0, Entry(1, 11));
        session->Commit();
        session.reset();
    });
    tav::Session next(path_, {.wait = milliseconds::max()});
    EXPECT_EQ(EntriesOf(next.Store()), (Entries{{1, 11}}));
    later.join();
}

/** A process that is stopped, or killed, while it holds the lock. */
TEST_P(SessionTest, AHolderThatHangsOrDies) {
    MakeFile(path_, {{1, 10}});
    const pid_t holder = Start([&] {
        const tav::Session session(path_);
        raise(SIGSTOP);
    });
    int status = 0;
    ASSERT_EQ(waitpid(holder, &status, WUNTRACED), holder);
    const tav::Error error = ErrorOf([&] { tav::Session session(path_, {.wait = kShort}); });
    EXPECT_EQ(error.Code(), TAV_ERR_LOCKED);
    EXPECT_THAT(error.what(), HasSubstr("process " + std::to_string(holder)));
    fs::create_directory(folder_.Path("." + std::string(GetParam()) + ".draft"));  // what its commit would leave
    WriteFile(folder_.Path("." + std::string(GetParam()) + ".draft/" + GetParam()), Text("half"));
    kill(holder, SIGKILL);
    Await(holder);
    SetEntry(path_, 2, 20);
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}, {2, 20}}));
    EXPECT_THAT(NamesIn(folder_.Path()), ElementsAre(GetParam()));
}

/** What becomes of a lock whose file somebody deletes, and of one that a child has been forked with. */
TEST_P(SessionTest, ALockIsOneWhateverBecomesOfItsFile) {
    MakeFile(path_, {{1, 10}});
    auto first = std::make_optional<tav::Lock>(path_);
    uint32_t code = 0;
    std::thread waiting([&] { code = ErrorOf([&] { tav::Lock lock(path_, 10 * kShort); }).Code(); });
    std::this_thread::sleep_for(kShort);
    fs::remove(lockFile_);
    auto second = std::make_optional<tav::Lock>(path_);
    const pid_t child = Start([] { pause(); });
    first.reset();
    waiting.join();
    EXPECT_EQ(code, TAV_ERR_LOCKED) << "the lock of a file that is gone is none";
    second.reset();
    EXPECT_NO_THROW(tav::Lock(path_, kShort)) << "released, though a child has a copy of it";
    kill(child, SIGKILL);
    Await(child);
}

/** A program that flushes without a session, stopped in the middle. */
TEST_P(SessionTest, WaitsForAFlushAndTellsItFromALeftover) {
    MakeFile(path_, {{1, 10}});
    const std::string backup = path_ + ".bak";
    fs::rename(path_, backup);
    for (const char *half : {"", "half"}) {
        if (*half != '\0') {
            WriteFile(path_, Text(half));
        }
        const tav::Error error = ErrorOf([&] { ReadEntries(path_, kShort); });
        EXPECT_EQ(error.Code(), TAV_ERR_BACKUP);
        EXPECT_THAT(error.what(), AllOf(HasSubstr(backup), HasSubstr("recover")));
        EXPECT_EQ(ErrorOf([&] { tav::Session session(path_, {.wait = kShort, .create = true}); }).Code(),
                  TAV_ERR_BACKUP);
    }
    std::thread later([&] {
        std::this_thread::sleep_for(kShort);
        fs::rename(backup, path_);
    });
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}})) << "waited for";
    later.join();
    const Bytes whole = ReadFile(path_);
    WriteFile(path_, {});
    std::thread writer([&] {
        for (size_t part = 1; part <= 10; ++part) {
            std::this_thread::sleep_for(kShort / 2);
            WriteFile(path_, Slice(whole, 0, whole.size() * part / 10));
        }
    });
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}})) << "while it grows";
    writer.join();
    fs::copy(path_, backup);
    SetEntry(path_, 2, 20);
    EXPECT_TRUE(FileExists(backup)) << "a backup is no business of a session";
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}, {2, 20}}));
}

/** Programs that flush without a session beside one: nothing of theirs is overwritten, whatever the moment. */
TEST_P(SessionTest, NeverOverwritesWhatItHasNotSeen) {
    MakeFile(path_, {{1, 10}});
    tav::Session session(path_);
    session.Store().Set(0, Entry(1, 11));
    MakeFile(path_, {{1, 10}, {2, 20}});
    EXPECT_EQ(ErrorOf([&] { session.Commit(); }).Code(), TAV_ERR_CHANGED);
    session.Store() = tav::Store::New("");
    EXPECT_EQ(ErrorOf([&] { session.Commit(); }).Code(), TAV_ERR_CHANGED);
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}, {2, 20}}));
    EXPECT_THAT(NamesIn(folder_.Path()), ElementsAre(GetParam()));
}

TEST_P(SessionTest, TellsAFileByItsNumberSizeAndTime) {
    const auto setTime = [&](const struct stat &before, long difference) {
        const timespec times[]{before.st_atim, {before.st_mtim.tv_sec, before.st_mtim.tv_nsec ^ difference}};
        EXPECT_EQ(utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
    };
    const std::function<void()> changes[] = {
        [&] { fs::copy(path_, path_ + ".other"), fs::rename(path_ + ".other", path_); },
        [&] {
            WriteFile(path_, Join({ReadFile(path_), {0}}));
        },
        [] {},
    };
    for (const auto &change : changes) {
        fs::remove(path_);
        MakeFile(path_, {{1, 10}});
        struct stat before {};
        ASSERT_EQ(stat(path_.c_str(), &before), 0);
        tav::Session session(path_);
        session.Store().Set(0, Entry(1, 11));
        change();
        setTime(before, &change == std::end(changes) - 1 ? 1 : 0);
        EXPECT_EQ(ErrorOf([&] { session.Commit(); }).Code(), TAV_ERR_CHANGED) << &change - changes;
    }
}

TEST(Session, BindsToARefersFileAnew) {
    const TempFolder folder;
    const std::string path = folder.Path("x.dat"), refer = folder.Path("r.dat");
    MakeFile(refer, {{1, 1}});
    {
        tav::Session session(path, {.refer = refer, .create = true});
        session.Store().Add(0, Entry(1, 10));
        EXPECT_TRUE(session.Commit());
        EXPECT_FALSE(session.Commit());
    }
    EXPECT_THAT(ErrorOf([&] { ReadEntries(path); }).what(), HasSubstr("refer file, which must be given"));
    SetEntry(refer, 1, 2);
    EXPECT_THAT(ErrorOf([&] { tav::Snapshot(path, {.refer = refer}); }).what(), HasSubstr("has changed"));
    EXPECT_EQ(EntriesOf(tav::Snapshot(path, {.ignoreRefer = true}).Store()), (Entries{{1, 10}}));
    const Bytes bound = ReadFile(path);
    const auto loads = [&] {
        try {
            tav::Snapshot(path, {.ignoreRefer = true, .wait = {}});
            return true;
        } catch (const tav::Error &) {
            return false;
        }
    };
    for (size_t i = 0; i < bound.size(); ++i) {
        Bytes changed = bound;
        changed[i] ^= 0x15;
        WriteFile(path, changed);
        const bool isForgiven = i >= 88 && i < 120;  // the refer checksum; all else is looked at
        const bool isFree = i > 16 && i < 20;        // the lower bytes of the version
        const bool isTime = i >= 28 && i < 40;       // of which any is fine
        EXPECT_EQ(loads(), isForgiven || isFree || isTime) << i;
    }
    WriteFile(path, bound);
    EXPECT_TRUE(tav::Session(path, {.refer = refer, .ignoreRefer = true}).Commit()) << "bound anew";
    EXPECT_EQ(EntriesOf(tav::Snapshot(path, {.refer = refer}).Store()), (Entries{{1, 10}}));
    EXPECT_TRUE(tav::Session(path, {.ignoreRefer = true}).Commit()) << "no longer bound";
    EXPECT_EQ(ReadEntries(path), (Entries{{1, 10}}));
}

TEST_P(SessionTest, ReplacesWhatDoesNotLoadWhenTold) {
    for (const bool isEmpty : {false, true}) {
        WriteFile(path_, Text("no configuration file"));
        chmod(path_.c_str(), 0604);
        EXPECT_EQ(ErrorOf([&] { tav::Session session(path_); }).Code(), TAV_ERR_INVALID);
        tav::Session session(path_, {.replace = true});
        EXPECT_FALSE(session.IsNew());
        if (!isEmpty) {
            session.Store().Add(0, Entry(1, 10));
        }
        EXPECT_TRUE(session.Commit());
        EXPECT_EQ(fs::status(path_).permissions(), isEmpty ? fs::perms::unknown : fs::perms{0604});
    }
    MakeFile(path_, {{1, 10}});
    tav::Session session(path_, {.replace = true});
    session.Store().Add(0, Entry(1, 10));
    EXPECT_FALSE(session.Commit()) << "the same";
    session.Store().Add(0, Entry(2, 20));
    EXPECT_TRUE(session.Commit());
    EXPECT_EQ(ReadEntries(path_), (Entries{{1, 10}, {2, 20}}));
}

TEST(Session, RefusesClearly) {
    const NothingLeaks nothingLeaks;
    const TempFolder folder;
    const std::string path = folder.Path("x.dat");
    MakeFile(path, {{1, 10}});
    const Bytes image = ReadFile(path);
    WriteFile(folder.Path("damaged.dat"), Join({Slice(image, 0, image.size() - 1), Text("?")}));
    WriteFile(folder.Path("text.dat"), Text("no configuration file at all"));
    WriteFile(folder.Path("empty.dat"), {});
    WriteFile(folder.Path("text.zip"), Text("no archive"));
    MakeFile(folder.Path("a.zip"), {{1, 10}});
    fs::rename(folder.Path("a.zip"), folder.Path("b.zip"));
    fs::create_directories(folder.Path("dir.dat"));
    fs::create_directories(folder.Path(".locked.dat.lock"));
    fs::copy(path, folder.Path("locked.dat"));
    fs::create_symlink("circle", folder.Path("circle"));
    fs::copy(path, folder.Path("linked.dat"));
    fs::create_hard_link(path, folder.Path(".linked.dat.lock"));
    fs::copy(path, folder.Path("symlinked.dat"));
    fs::create_symlink("damaged.dat", folder.Path(".symlinked.dat.lock"));
    std::this_thread::sleep_for(milliseconds(260));  // what has just been written may still be going to be whole
    const struct {
        const char *name;
        uint32_t code;
        const char *text;
    } cases[] = {
        {"none.dat", TAV_ERR_MISSING, "none.dat: there is no such file"},
        {"none/x.dat", TAV_ERR_OPEN, "No such file or directory"},
        {"damaged.dat", TAV_ERR_INVALID, "checksum mismatch"},
        {"text.dat", TAV_ERR_INVALID, "no configuration file"},
        {"empty.dat", TAV_ERR_INVALID, "it is empty"},
        {"text.zip", TAV_ERR_INVALID, "not an archive"},
        {"b.zip", TAV_ERR_INVALID, "member is named a.zip.dat, not b.zip.dat"},
        {"dir.dat", TAV_ERR_INVALID, "it is a folder"},
        {"locked.dat", TAV_ERR_OPEN, ".locked.dat.lock cannot be opened: Is a directory"},
        {"linked.dat", TAV_ERR_OPEN, ".linked.dat.lock is another kind of file"},
        {"symlinked.dat", TAV_ERR_OPEN, ".symlinked.dat.lock cannot be opened: Too many levels of symbolic links"},
        {"circle", TAV_ERR_OPEN, "Too many levels of symbolic links"},
        {"", TAV_ERR_INVALID, ""},
        {"x.dat/", TAV_ERR_INVALID, "this names a folder"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.name);
        const std::string name = *each.name == '\0' ? "" : folder.Path(each.name);
        const tav::Error error = ErrorOf([&] { tav::Session session(name); });
        EXPECT_EQ(error.Code(), each.code);
        EXPECT_THAT(error.what(), HasSubstr(each.text));
    }
    EXPECT_THAT(ErrorOf([&] { tav::Session session(path + std::string("\0y", 2)); }).what(), HasSubstr("zero byte"));
    EXPECT_THAT(ErrorOf([&] { tav::Session session(folder.Path(std::string(120, 'x'))); }).what(),
                HasSubstr("too long"));
}

TEST(Session, NoUmaskLocksItsUserOut) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    for (const char *name : {"x.dat", "x.zip"}) {
        for (const mode_t mask : {0777u, 0277u}) {
            const TempFolder folder;
            chmod(folder.Path().c_str(), 0777);
            const std::string path = folder.Path(name);
            EXPECT_EQ(Await(Start([&] {
                          ASSERT_EQ(setgid(4322) + setuid(4321), 0);
                          umask(mask);
                          SetEntry(path, 1, 10);
                          tav::History::Start(path);
                          umask(022);
                          SetEntry(path, 1, 11);
                          EXPECT_EQ(ReadEntries(path), (Entries{{1, 11}}));
                      })),
                      0)
                << name << ' ' << mask;
        }
    }
}

/** What a user may not do, root may: so another user tries. */
TEST(Session, RefusesWithoutPermissionBeforeAnythingIsDone) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const TempFolder folder;
    const std::string path = folder.Path("x.dat");
    MakeFile(path, {{1, 10}});
    chmod(path.c_str(), 0644);
    const auto tryAsUser = [&](mode_t folderMode, const char *text) {
        chmod(folder.Path().c_str(), folderMode);
        EXPECT_EQ(Await(Start([&] {
                      ASSERT_EQ(setegid(4322) + seteuid(4321), 0);  // what counts is who it acts as
                      EXPECT_EQ(ReadEntries(path), (Entries{{1, 10}}));
                      const tav::Error error = ErrorOf([&] { SetEntry(path, 2, 20); });
                      EXPECT_EQ(error.Code(), TAV_ERR_OPEN);
                      EXPECT_THAT(error.what(), AllOf(HasSubstr(text), HasSubstr("Permission denied")));
                  })),
                  0);
        chmod(folder.Path().c_str(), 0755);
        EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("x.dat"));
    };
    tryAsUser(0755, "it may not be changed");
    chown(path.c_str(), 4321, 4322);
    tryAsUser(0755, "nothing can be written in its folder");
    EXPECT_FALSE(FileExists(folder.Path(".x.dat.lock")));
    SetEntry(path, 1, 10);  // leaves a lock file, as open as the file
    EXPECT_EQ(fs::status(folder.Path(".x.dat.lock")).permissions(), fs::perms{0644});
    chmod(path.c_str(), 0660);
    SetEntry(path, 1, 10);
    EXPECT_EQ(fs::status(folder.Path(".x.dat.lock")).permissions(), fs::perms{0660});
    chmod(path.c_str(), 0644);
    tryAsUser(0755, "nothing can be written in its folder");
    chown(path.c_str(), 0, 0);
    chmod(path.c_str(), 0666);
    chmod(folder.Path().c_str(), 0777);
    fs::remove(folder.Path(".x.dat.lock"));
    EXPECT_EQ(Await(Start([&] {
                  ASSERT_EQ(setgid(4322) + setuid(4321), 0);
                  const tav::Error error = ErrorOf([&] { SetEntry(path, 2, 20); });
                  EXPECT_EQ(error.Code(), TAV_ERR_NOT_SAVED);
                  EXPECT_THAT(error.what(), HasSubstr("its owner cannot be kept: Operation not permitted"));
              })),
              0);
    EXPECT_EQ(ReadEntries(path), (Entries{{1, 10}}));
    EXPECT_THAT(NamesIn(folder.Path()), ElementsAre("x.dat"));
}

TEST(Session, RefusesWhatCouldNotBeReadBack) {
    const TempFolder folder;
    tav::Session session(folder.Path("x.dat"), {.create = true});
    tav::Record empty(26);
    empty.Add(14, 1);
    session.Store().Add(0, std::move(empty));
    auto *record = TAV_ExtCfgGetRecord(0, tav::Record(26).With(14, 1).Get(), session.Store().Get());
    TAV_ExtCfgFieldNodeDel(record, TAV_ExtCfgFieldNodeFind(&record->fields, 14));
    EXPECT_EQ(ErrorOf([&] { session.Commit(); }).Code(), TAV_ERR_INVALID);
    EXPECT_THAT(NamesIn(folder.Path()), ElementsAre());
}

TEST(Session, AStoreThatWasTakenOutDeletesNoFile) {
    const TempFolder folder;
    const std::string path = folder.Path("x.dat");
    MakeFile(path, {{1, 10}});
    tav::Session session(path);
    const tav::Store mine = std::move(session.Store());
    EXPECT_EQ(ErrorOf([&] { session.Commit(); }).Code(), TAV_ERR_INVALID);
    EXPECT_EQ(ReadEntries(path), (Entries{{1, 10}}));
}

TEST_P(SessionTest, RecoversAndDeletesNothing) {
    const TempFolder made;
    const std::string name = GetParam();
    MakeFile(made.Path(name), {{1, 10}});
    const Bytes old = ReadFile(made.Path(name));
    std::this_thread::sleep_for(milliseconds(2));
    MakeFile(made.Path(name), {{1, 11}});
    const Bytes young = ReadFile(made.Path(name)), bad = Slice(young, 0, young.size() / 2), absent;
    const std::string backup = name + ".bak";
    using Files = std::map<std::string, Bytes>;
    const struct {
        Bytes file, backup;
        Files after;  // empty for a refusal
        const char *text;
    } cases[] = {
        {young, absent, {{name, young}}, "nothing to recover"},
        {absent, old, {{name, old}}, "it was missing"},
        {bad, old, {{name, old}, {name + ".broken", bad}}, "does not load, was moved to"},
        {young, old, {{name, young}, {backup + ".old", old}}, "is not newer"},
        {old, young, {{name, young}, {name + ".old", old}}, "is older"},
        {young, bad, {{name, young}, {backup + ".broken", bad}}, "kept"},
        {bad, bad, {}, "cannot be recovered"},
        {absent, bad, {}, "cannot be recovered"},
        {absent, absent, {}, "no such file"},
    };
    for (const auto &each : cases) {
        SCOPED_TRACE(each.text);
        const TempFolder folder;
        const std::string path = folder.Path(name);
        Files before;
        for (const auto &[file, content] : {std::pair(name, each.file), {backup, each.backup}}) {
            if (!content.empty()) {
                WriteFile(folder.Path(file), before[file] = content);
            }
        }
        const auto files = [&] {
            Files found;
            for (const std::string &file : NamesIn(folder.Path())) {
                found[file] = ReadFile(folder.Path(file));
            }
            return found;
        };
        if (each.after.empty()) {
            EXPECT_THAT(ErrorOf([&] { tav::Recover(path, {.still = {}}); }).what(), HasSubstr(each.text));
            EXPECT_EQ(files(), before);
            continue;
        }
        const tav::Recovery dry = tav::Recover(path, {.still = {}, .dryRun = true});
        EXPECT_EQ(dry.text.starts_with("would "), !dry.moves.empty()) << dry.text;
        EXPECT_EQ(files(), before) << "a dry run";
        const tav::Recovery recovery = tav::Recover(path, {.still = {}});
        EXPECT_THAT(recovery.text, HasSubstr(each.text));
        EXPECT_EQ(files(), each.after);
        EXPECT_EQ(tav::Recover(path, {.still = {}}).moves.size(), 0u) << "nothing is left to do";
    }
}

TEST(Session, RecoveryWaitsForWhatIsStillAtWork) {
    const TempFolder folder;
    const std::string path = folder.Path("x.zip");
    MakeFile(path, {{1, 10}});
    fs::rename(path, path + ".bak");
    std::atomic<bool> isOver = false;
    std::thread writer([&] {
        for (Bytes draft; !isOver; draft.push_back(0)) {
            WriteFile(path + ".Ab12Cd", draft);
            std::this_thread::sleep_for(milliseconds(20));
        }
    });
    EXPECT_EQ(ErrorOf([&] { tav::Recover(path, {.wait = kShort}); }).Code(), TAV_ERR_LOCKED);
    isOver = true;
    writer.join();
    EXPECT_THAT(tav::Recover(path).text, HasSubstr("it was missing"));
    EXPECT_TRUE(FileExists(path + ".Ab12Cd"));
}

/** The same for C: codes and texts, and nothing but them. */
TEST(Session, InC) {
    const NothingLeaks nothingLeaks;
    const TempFolder folder;
    const std::string path = folder.Path("x.dat"), other = folder.Path("none/x.dat");
    TAV_Session *session = nullptr;
    EXPECT_EQ(TAV_SessionOpen(path.c_str(), nullptr, 0, 0, &session), TAV_ERR_MISSING);
    EXPECT_EQ(session, nullptr);
    EXPECT_EQ(TAV_SessionOpen(other.c_str(), nullptr, 0, TAV_SESSION_CREATE, &session), TAV_ERR_OPEN);
    EXPECT_THAT(TAV_SessionErrorText(), AllOf(HasSubstr(other), HasSubstr("No such file or directory")));
    ASSERT_EQ(TAV_SessionOpen(path.c_str(), nullptr, 0, TAV_SESSION_CREATE, &session), TAV_OK);
    EXPECT_STREQ(TAV_SessionErrorText(), "");
    EXPECT_EQ(TAV_ExtCfgAddRecord(0, Entry(1, 10).Release(), TAV_SessionStore(session)), TAV_OK);
    EXPECT_EQ(TAV_SessionCommit(session, "comment"), TAV_OK);
    EXPECT_EQ(TAV_SessionCommit(session, nullptr), TAV_ERR_UNCHANGED);
    TAV_SessionLockHolder *lock = nullptr;
    EXPECT_EQ(TAV_SessionLock(path.c_str(), 0, &lock), TAV_ERR_LOCKED);
    EXPECT_THAT(TAV_SessionErrorText(), HasSubstr("process "));
    TAV_SessionClose(session);
    EXPECT_EQ(TAV_SessionLock(path.c_str(), 0, &lock), TAV_OK);
    EXPECT_EQ(TAV_SessionRecover(path.c_str(), nullptr, 0), TAV_ERR_LOCKED);
    TAV_SessionUnlock(lock);
    EXPECT_EQ(TAV_SessionRecover(path.c_str(), nullptr, 0), TAV_ERR_UNCHANGED);
    EXPECT_THAT(TAV_SessionErrorText(), HasSubstr("nothing to recover"));
    CfgLocal *local = nullptr;
    ASSERT_EQ(TAV_SessionRead(path.c_str(), nullptr, 0, &local), TAV_OK);
    EXPECT_EQ(EntriesOf(tav::Store(local)), (Entries{{1, 10}}));
    EXPECT_EQ(TAV_SessionRead(nullptr, nullptr, 0, &local), TAV_ERR_NULL);
    EXPECT_EQ(TAV_SessionCommit(nullptr, nullptr), TAV_ERR_NULL);
    TAV_SessionClose(nullptr);
    TAV_SessionUnlock(nullptr);
}

}  // namespace
