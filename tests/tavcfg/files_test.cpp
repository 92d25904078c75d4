/*
 * convert, diff, refer files, the debug log, and output that cannot be written.
 */
#include <filesystem>

#include "tool.h"

using FilesTest = ToolTest;

TEST_F(FilesTest, ConvertKeepsEveryByte) {
    EXPECT_EQ(Out("convert x.dat x.zip"), "converted x.dat to x.zip\n");
    Put("y.dat", "what was there before");
    Out("convert x.zip y.dat");
    EXPECT_EQ(Content("y.dat"), SmallImage());
    EXPECT_FALSE(Has("y.dat.bak"));
    EXPECT_EQ(Out("convert --rewrite x.dat y.dat"), "nothing to write: y.dat holds the same already\n");
    std::filesystem::create_hard_link(Path("x.dat"), Path("same.dat"));
    Refused(1, "they are the same file", "convert x.dat same.dat");
    Refused(1, "cannot write no/y.dat", "convert x.dat no/y.dat");
    std::filesystem::create_directory(Path("dir.dat"));
    Refused(1, "not a regular file", "convert x.dat dir.dat");
    Refused(1, "not a regular file", "convert --rewrite x.dat dir.dat");
}

// A limit on the size of files stands for a full disk; the message gets past it through a pipe.
TEST_F(FilesTest, AFailedWriteLeavesTheOldFile) {
    Out("add y.dat --vs 0 --class 13 14=6");
    Out("convert y.dat y.zip");
    Out("export x.dat >x.json");
    for (const std::string file : {"y.dat", "y.zip", "new.dat", "new.zip"}) {
        for (const std::string &arguments :
             {"convert x.dat " + file, "import " + file + " x.json", "add " + file + " --vs 0 --class 13 14=9"}) {
            const std::string limited = "(trap '' 25; ulimit -f 0; exec '" TAVCFG_PROGRAM "' " + arguments + " 2>&1)";
            Refused(1, "cannot write " + file + ": ", "verify x.dat; " + limited + " | cat >&2; false");
        }
    }
}

TEST_F(FilesTest, DiffNamesRecordsAndFields) {
    Out("convert x.dat y.zip");
    EXPECT_EQ(Out("diff x.dat y.zip"), "");
    Put("y.json", R"({"vs":[{"id":0,"records":[{"class":13,"fields":[[14,5],[15,4],[12,""]]},
        {"class":13,"fields":[[15,2],[14,7]]}, {"class":13,"fields":[[14,8]]}]}, {"id":9,"records":[]}]})");
    Out("import y.dat y.json");
    const Result result = Run("diff x.dat y.dat");
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.out,
              "~ VS 0 class 13 14=5: 15: 1 -> 4\n"
              "~ VS 0 class 13 14=5: 12: (none) -> \"\"\n"
              "~ VS 0 class 13 14=7: the order of the fields\n"
              "- VS 0 class 7: 8=ssh 9=22\n"
              "+ VS 0 class 13: 14=8\n"
              "- VS 3\n"
              "+ VS 9\n");
    Put("z.dat", Image(Join({SmallBody(), Tlv(99, Text("foreign"))})));
    EXPECT_EQ(Run("diff x.dat z.dat").out, "~ the order of records, or what is no record\n");
    Refused(2, "No such file", "diff x.dat none.dat");
}

TEST_F(FilesTest, ReferFiles) {
    Out("convert x.dat r.dat");
    Out("export x.dat >x.json");
    Out("import y.dat x.json --refer r.dat");
    EXPECT_EQ(Content("y.dat").size(), SmallImage().size() + kReferHeadSize - kHeadSize);
    Refused(1, "must be given with --refer", "verify y.dat");
    Refused(1, "yet a refer file was given", "verify x.dat --refer r.dat");
    Refused(1, "refer file none.dat cannot serve: cannot read none.dat: No such file", "verify y.dat --refer none.dat");
    Refused(1, "it carries a refer checksum itself", "import z.dat x.json --refer y.dat");
    Refused(1, "its own refer file", "import r.dat x.json --refer r.dat");
    Out("verify y.dat --refer r.dat");
    Out("set y.dat --refer r.dat --vs 0 --class 13 14=5 15=9");
    Out("patch y.dat --refer r.dat --vs 0 --class 13 14=5 15=1");
    Out("convert y.dat y.zip --refer r.dat");
    EXPECT_EQ(Out("diff x.dat y.zip --refer r.dat"), "");
    Out("add r.dat --vs 0 --class 13 14=99");
    Refused(1, "refer checksum mismatch", "verify y.zip --refer r.dat");
    EXPECT_NE(Out("info y.dat --refer r.dat").find("NO: refer checksum mismatch"), std::string::npos);
}

TEST_F(FilesTest, OutputThatCannotBeWrittenIsAFailure) {
    for (const std::string command : {"show x.dat", "export x.dat", "info x.dat", "--help"}) {
        Refused(1, "cannot write", command + " >/dev/full");
        Refused(1, "cannot write", command + " >&-");
    }
    // No file that is opened may take the place of a closed stream: the message would end up in it.
    Run("set x.dat --vs 0 --class 13 14=5 15=7 <&- >&-");
    EXPECT_EQ(Out("get x.dat --vs 0 --class 13 14=5 --field 15"), "7\n");
}

TEST_F(FilesTest, DebugLog) {
    const std::string logging =
        "verify x.dat; TAV_WORK_PATH='" + Path("work") + "' '" TAVCFG_PROGRAM "' verify --log x.dat";
    std::filesystem::create_directories(Path("work/var/log"));
    Out(logging);
    EXPECT_TRUE(Has("work/var/log/tav_debug.log"));
    std::filesystem::remove_all(Path("work/var"));
    EXPECT_NE(Out(logging + " 2>&1").find("goes to " + Path("work") + "/var/log/tav_debug.log"), std::string::npos);
}
