/*
 * convert, recover, refer files, the debug log, and output that cannot be written.
 */
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tav/session.h"
#include "tool.h"

using FilesTest = ToolTest;

TEST_F(FilesTest, ConvertKeepsEveryByte) {
    EXPECT_EQ(Out("convert --dry-run x.dat x.zip"),
              "add 0\nadd 0 13 14=5 15=1\nadd 0 13 14=7 15=2\nadd 0 7 8=ssh 9=22\nadd 3\n");
    EXPECT_FALSE(Has("x.zip"));
    EXPECT_EQ(Out("convert x.dat x.zip"), "converted x.dat to x.zip\n");
    Put("y.dat", "what was there before");
    Refused(1, "no configuration file", "convert --force x.zip y.dat");
    Put("y.dat", Image(VsTlv(0, {Rec13(1, 1)})));
    Refused(1, "y.dat is there and holds something else: --force", "convert x.zip y.dat");
    Refused(1, "y.dat is there and holds something else: --force", "convert --rewrite x.zip y.dat");
    Refused(1, "y.dat is there and holds something else: --force", "convert --dry-run x.zip y.dat");
    EXPECT_THAT(Out("convert --force --dry-run x.zip y.dat"), HasSubstr("del 0 13 14=1\n"));
    Out("convert --force x.zip y.dat");
    EXPECT_EQ(Content("y.dat"), SmallImage());
    EXPECT_FALSE(Has("y.dat.bak"));
    EXPECT_EQ(Out("convert --rewrite x.dat y.dat"), "nothing to write: y.dat holds the same already\n");
    std::filesystem::create_hard_link(Path("x.dat"), Path("same.dat"));
    Refused(1, "they are the same file", "convert x.dat same.dat");
    Refused(1, "no/y.dat: its folder no cannot be used: No such file", "convert x.dat no/y.dat");
    std::filesystem::create_directory(Path("dir.dat"));
    Refused(1, "it is a folder", "convert x.dat dir.dat");
    std::filesystem::rename(Path("x.zip"), Path("renamed.zip"));
    Refused(1, "not named renamed.zip.dat", "convert renamed.zip z.dat");
    Out("convert --any-member renamed.zip z.dat");
    EXPECT_EQ(Content("z.dat"), SmallImage());
}

/** Whatever is changed or cut off: what is still whole comes out, and nothing that was not there. */
TEST_F(FilesTest, SalvageTakesWhatCanBeRead) {
    const auto salvaged = [this](const Bytes &image) {
        Put("bad.dat", image);
        const std::string said = Out("convert --salvage --force bad.dat y.dat");
        const size_t end = said.find(" of bad.dat"), losses = said.find('\n') + 1;
        return said.substr(0, end) + (losses < said.size() ? ", " + said.substr(losses) : "") + "|" +
               Out("export --format jsonl y.dat");
    };
    const std::string r5 = "{\"vs\":0,\"class\":13,\"fields\":[[14,5],[15,1]]}\n";
    const std::string r7 = "{\"vs\":0,\"class\":13,\"fields\":[[14,7],[15,2]]}\n";
    const std::string ssh = "{\"vs\":0,\"class\":7,\"fields\":[[8,\"ssh\"],[9,22]]}\n", vs3 = "{\"vs\":3}\n";
    const Bytes good = SmallImage();
    EXPECT_EQ(salvaged(Damaged(good, kChecksumAt)), "salvaged 3 records|" + r5 + r7 + ssh + vs3);
    const Bytes cut = Slice(good, 0, good.size() - 25);  // VS 3, and the end of the last record
    EXPECT_EQ(salvaged(cut),
              "salvaged 2 records, lost: VS 0 class 7 8=ssh: a record that is cut off at offset 160\n"
              "lost: VS 0: the end, which was cut off, of what stands at offset 80\n|" +
                  r5 + r7);
    EXPECT_EQ(
        salvaged(Image(VsTlv(0, {Rec13(5, 1), Tlv(13, {Tlv(15, Be16(1))}), Tlv(99, Text("x")), Rec13(5, 2)}))),
        "salvaged 1 record, lost: VS 0 class 13: VS 0 class 13: it cannot be added: a key field is missing, or there "
        "is a record with"
        " this key already at offset 130\n"
        "lost: VS 0: what is of type 99 and no record at offset 148\n"
        "lost: VS 0 class 13: VS 0 class 13 14=5: it cannot be added: a key field is missing, or there is a record"
        " with this key already at offset 157\n|" +
            r5);
    Put("bad.dat", Text("nothing of the kind, nothing at all"));
    Refused(1, "no record in it can be read", "convert --salvage bad.dat z.dat");
    for (size_t i = 0; i < good.size(); ++i) {
        Put("bad.dat", i % 2 == 0 ? Damaged(good, i) : Slice(good, 0, i));
        EXPECT_LE(Run("convert --salvage --force bad.dat y.dat").code, 1) << i;
    }
}

/** A limit on the size of files stands for a full disk; the message gets past it through a pipe. */
TEST_F(FilesTest, AFailedWriteLeavesTheOldFile) {
    Out("add y.dat --vs 0 --class 13 14=6");
    Out("convert y.dat y.zip");
    Out("export x.dat >x.json");
    for (const std::string file : {"y.dat", "y.zip", "new.dat", "new.zip"}) {
        for (const std::string &arguments : {"convert --force x.dat " + file, "import --force " + file + " x.json",
                                             "add " + file + " --vs 0 --class 13 14=9"}) {
            const std::string limited = "(trap '' 25; ulimit -f 0; exec '" TAVCFG_PROGRAM "' " + arguments + " 2>&1)";
            Refused(1, file + ": cannot be written: File too large", "verify x.dat; " + limited + " | cat >&2; false");
        }
    }
}

TEST_F(FilesTest, WhatAFileHeldBeforeComesBack) {
    const std::string at = " x.dat --vs 0 --class 13 14=5";
    Refused(1, "none.dat: No such file", "history show none.dat");
    const std::string start = "the last 3 commits of x.dat are kept ";
    EXPECT_EQ(Out("history start x.dat --keep 3 --dry-run"), "dry run: " + start + "from now on\n");
    EXPECT_EQ(Out("checkpoint x.dat first --dry-run"), "dry run: made checkpoint first of x.dat\n");
    EXPECT_FALSE(Has(".x.dat.history"));
    Refused(1, "no commit of it is kept", "rollback x.dat 1");
    EXPECT_EQ(Out("history start x.dat --keep 3"), start + "from now on\n");
    EXPECT_EQ(Out("history start x.dat --keep 3"), "nothing to write: " + start + "already\n");
    Out("checkpoint x.dat first --comment 'as it came'");
    Out("set" + at + " 15=2 --comment two");
    Out("set" + at + " 15=3");
    Out("convert --force --comment copied x.dat y.dat");
    EXPECT_EQ(Out("rollback x.dat 1 --dry-run"), "set 0 13 14=5 15=2\n");
    EXPECT_EQ(Out("rollback x.dat first"), "rolled x.dat back to first: records added 0, changed 1, deleted 0\n");
    EXPECT_EQ(Run("diff x.dat@1 x.dat").out, "~ VS 0 class 13 14=5: 15: 3 -> 1\n");
    EXPECT_EQ(Out("diff x.dat@first x.dat"), "");
    EXPECT_THAT(Out("rollback x.dat 1"),
                StartsWith("rolled x.dat back by 1 commit: "));  // which takes the rollback back
    EXPECT_EQ(Out("get" + at + " --field 15"), "3\n");
    const nlohmann::json history = nlohmann::json::parse(Out("history show x.dat --json"));
    ASSERT_EQ(history["commits"].size(), 3u);
    EXPECT_EQ(history["commits"][1]["comment"], "rollback first");
    EXPECT_EQ(history["commits"][2]["back"], 1);
    EXPECT_EQ(history["checkpoints"][0]["comment"], "as it came");
    EXPECT_THAT(Out("history show x.dat"), HasSubstr("rollback first\n"));
    Out("convert x.dat z.dat; mkdir .z.dat.history; echo {} >.z.dat.history/index");
    Refused(1, "move its folder aside: its \"version\" is missing", "history show z.dat");
    Out("checkpoint x.dat first --remove --dry-run");
    Out("checkpoint x.dat first --remove");
    Out("history stop x.dat --dry-run");
    EXPECT_EQ(Out("history stop x.dat"), "commits of x.dat are no longer kept\n");
    EXPECT_EQ(Out("history stop x.dat"), "nothing to write: commits of x.dat are not kept\n");
    for (const char *arguments :
         {"rollback x.dat first", "rollback x.dat 9", "diff x.dat@9 x.dat", "checkpoint x.dat 5"}) {
        EXPECT_NE(Run(arguments).code, 0) << arguments;
    }
}

TEST_F(FilesTest, WatchPrintsEachCommit) {
    Put("writer",
        "sleep 0.3\n"
        "'" TAVCFG_PROGRAM
        "' set x.dat --vs 0 --class 13 14=5 15=2 >>said\n"
        "sleep 0.3\n"
        "'" TAVCFG_PROGRAM "' del x.dat --vs 0 --class 13 14=7 >>said\n");
    EXPECT_EQ(Out("verify x.dat; sh writer & '" TAVCFG_PROGRAM "' watch x.dat --limit 2; wait"),
              "set 0 13 14=5 15=2\n\ndel 0 13 14=7\n\n");
    Put("writer", "sleep 0.3; '" TAVCFG_PROGRAM "' add x.dat --vs 0 --class 13 14=7 >>said; sleep 0.3; kill $1");
    EXPECT_EQ(Out("verify x.dat; '" TAVCFG_PROGRAM "' watch x.dat --json --exec 'cat >>seen' & sh writer $!; wait $!"),
              "");
    EXPECT_EQ(Content("seen"), Text("{\"verb\":\"add\",\"vs\":0,\"class\":13,\"fields\":[[14,7]]}\n"));
}

TEST_F(FilesTest, ReferFiles) {
    Out("convert x.dat r.dat");
    Out("export x.dat >x.json");
    Out("import y.dat x.json --refer r.dat");
    EXPECT_EQ(Content("y.dat").size(), SmallImage().size() + kReferHeadSize - kHeadSize);
    Refused(2, "must be given with --refer", "verify y.dat");
    Out("verify y.dat --ignore-refer");
    Refused(1, "yet a refer file was given", "verify x.dat --refer r.dat");
    Refused(2, "refer file none.dat cannot serve: cannot read none.dat: No such file", "verify y.dat --refer none.dat");
    Refused(1, "it carries a refer checksum itself", "import z.dat x.json --refer y.dat");
    Refused(1, "its own refer file", "import r.dat x.json --refer r.dat");
    Out("set y.dat --refer r.dat --vs 0 --class 13 14=5 15=9");
    Out("patch y.dat --refer r.dat --vs 0 --class 13 14=5 15=1");
    Out("convert y.dat y.zip --refer r.dat");
    EXPECT_EQ(Out("diff x.dat y.zip --refer r.dat"), "");
    Out("add r.dat --vs 0 --class 13 14=99");
    Refused(1, "(see refer rebind, and --ignore-refer)", "verify y.zip --refer r.dat");
    Refused(1, "refer checksum mismatch", "set y.zip --refer r.dat --vs 0 --class 13 14=5 15=9");
    EXPECT_EQ(Out("count y.zip --ignore-refer"), "3\n");
    const std::string bound = "y.zip refers to r.dat as it is now\n";
    EXPECT_EQ(Out("refer rebind y.zip --refer r.dat --dry-run"), "dry run: " + bound);
    EXPECT_EQ(Out("refer rebind y.zip --refer r.dat"), "y.zip refers to r.dat as it is now\n");
    Out("verify y.zip --refer r.dat");
    EXPECT_EQ(Out("refer drop y.zip"), "y.zip refers to no file any more\n");
    EXPECT_EQ(Out("diff x.dat y.zip"), "");
}

TEST_F(FilesTest, OutputThatCannotBeWrittenIsAFailure) {
    for (const std::string command : {"show x.dat", "export x.dat", "info x.dat", "--help"}) {
        Refused(1, "cannot write", command + " >/dev/full");
        Refused(1, "cannot write", command + " >&-");
    }
    Put("bad.dat", Slice(SmallImage(), 0, SmallImage().size() - 25));
    Put("x.dat.bak", SmallImage());
    const std::string key = "x.dat --vs 0 --class 13 14=5";
    for (const std::string &arguments :
         {"set " + key + " 15=6", "patch " + key + " 15=7", "patch --safe " + key + " 15=8",
          std::string("convert --salvage --force bad.dat x.dat"), std::string("history start x.dat"),
          std::string("checkpoint x.dat a"), std::string("recover x.dat")}) {
        EXPECT_THAT(Run(arguments + " >/dev/full").error,
                    HasSubstr("x.dat was written, but standard output cannot be: No space left"));
    }
    EXPECT_EQ(Out("show x.dat | head -1"), "VS 0, class 13: 2 records\n");
    Refused(1, "x: No such file or directory",
            "verify x.dat; mkdir gone; cd gone; rmdir ../gone; '" TAVCFG_PROGRAM "' show x");
    // No file that is opened may take the place of a closed stream: the message would end up in it.
    EXPECT_EQ(Run("set x.dat --vs 0 --class 13 14=5 15=7 <&- >&-").code, 1);
    EXPECT_EQ(Out("get x.dat --vs 0 --class 13 14=5 --field 15"), "7\n");
}

TEST_F(FilesTest, SchemaShowsClassesFieldsAndNames) {
    Put("n.json", R"({"13": {"name": "route", "fields": {"14": "id"}}, "26": {"fields": {"14": "key"}}})");
    EXPECT_THAT(Out("schema --names n.json"), HasSubstr("\n     13  14          route\n"));
    EXPECT_THAT(Out("schema --names n.json"), HasSubstr("\n     14  integer              4  route.id 26.key\n"));
    const nlohmann::json schema = nlohmann::json::parse(Out("schema --json"));
    EXPECT_EQ(schema["classes"][2], nlohmann::json::parse(R"({"class": 7, "keys": [8]})"));
    EXPECT_EQ(schema["fields"].size(), 23u);
}

TEST_F(FilesTest, DebugLog) {
    const std::string logging =
        "verify x.dat; TAV_WORK_PATH='" + Path("work") + "' '" TAVCFG_PROGRAM "' verify --log x.dat";
    EXPECT_THAT(Out(logging + " 2>&1"), HasSubstr("goes to " + Path("work") + "/var/log/tav_debug.log"));
    std::filesystem::create_directories(Path("work/var/log"));
    Out(logging);
    EXPECT_TRUE(Has("work/var/log/tav_debug.log"));
}

/** What is found in which state is tested with sessions; the tool waits for a second each time. */
TEST_F(FilesTest, RecoverMovesAndDeletesNothing) {
    const Bytes good = Content("x.dat"), half = Slice(good, 0, good.size() / 2);
    Out("convert x.dat y.zip");  // whose backup still holds the member of y.zip
    const std::string recovered = "recovered x.dat from x.dat.bak: the file, which does not load, was moved to ";
    Put("x.dat.bak", good);
    Put("x.dat", half);
    Put("x.dat.broken", "earlier");
    EXPECT_EQ(Out("recover --dry-run x.dat"),
              "dry run: would recover x.dat from x.dat.bak: the file, which does not load, would be moved to "
              "x.dat.broken.1\n");
    EXPECT_EQ(Content("x.dat"), half);
    EXPECT_EQ(Out("recover x.dat"), recovered + "x.dat.broken.1\n");
    EXPECT_EQ(Content("x.dat"), good);
    EXPECT_EQ(Content("x.dat.broken.1"), half);
    EXPECT_FALSE(Has("x.dat.bak"));
    std::filesystem::rename(Path("y.zip"), Path("y.zip.bak"));
    EXPECT_EQ(Out("recover y.zip"), "recovered y.zip from y.zip.bak: it was missing\n");
    EXPECT_EQ(Out("diff x.dat y.zip"), "");
    Put("y.zip", half);
    Refused(1, "y.zip: it cannot be recovered: " + Path("y.zip") + ": it is not an archive", "recover y.zip");
    const tav::Lock lock(Path("x.dat"));
    Refused(3, "is changing it", "recover --wait 0 x.dat");
}
