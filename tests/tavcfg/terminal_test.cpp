/*
 * What is shown on a terminal, and what does not depend on where and when the tool runs.
 */
#include <pty.h>
#include <sys/wait.h>

#include <filesystem>
#include <functional>

#include "tav/session.h"
#include "tool.h"

class TerminalTest : public ToolTest {
  protected:
    /** Runs the tool on a terminal of its own and returns what that shows. Each time it shows more, `look` is told. */
    std::string OnTerminal(const std::string &arguments, const std::function<void(const std::string &)> &look = {}) {
        const std::string command = "cd '" + folder_.Path() + "' && TERM=xterm exec " + arguments;
        int terminal = -1, status = -1;
        if (forkpty(&terminal, nullptr, nullptr, nullptr) == 0) {
            _exit(execl("/bin/sh", "sh", "-c", command.c_str(), nullptr));
        }
        std::string shown;
        for (char c; read(terminal, &c, 1) == 1;) {
            shown += c;
            if (look) {
                look(shown);
            }
        }
        close(terminal);
        wait(&status);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) <= 1) << arguments;
        return shown;
    }
};

const std::string kTool = "'" TAVCFG_PROGRAM "' ";

/** It sees nothing of it in the end, and the line does not get into the output. */
TEST_F(TerminalTest, SeesProgress) {
    auto lock = std::make_optional<tav::Lock>(Path("x.dat"));
    const std::string shown = OnTerminal(kTool + "del x.dat --vs 0 --class 13 14=5", [&](const std::string &soFar) {
        if (soFar.ends_with(", 2 s")) {
            lock.reset();
        }
    });
    EXPECT_EQ(shown,
              "\rtavcfg: opening x.dat, 1 s\rtavcfg: opening x.dat, 2 s\r\x1b[K"
              "deleted VS 0 class 13 14=5 in x.dat\r\n");
}

TEST_F(TerminalTest, SeesColoursUnlessNoneAreWanted) {
    Put("y.dat", Image(Join({VsTlv(0, {Rec13(5, 3), Rec13(6, 1)}), VsTlv(3, {})})));
    const std::string plain =
        "~ VS 0 class 13 14=5: 15: 1 -> 3\n"
        "- VS 0 class 13: 14=7 15=2\n"
        "- VS 0 class 7: 8=ssh 9=22\n"
        "+ VS 0 class 13: 14=6 15=1\n";
    const std::string diff = kTool + "diff x.dat y.dat", show = kTool + "show y.dat --class 13";
    EXPECT_EQ(Run("diff x.dat y.dat").out, plain);
    EXPECT_EQ(OnTerminal(diff),
              "\x1b[33m~ VS 0 class 13 14=5: 15: 1 -> 3\x1b[0m\r\n"
              "\x1b[31m- VS 0 class 13: 14=7 15=2\x1b[0m\r\n"
              "\x1b[31m- VS 0 class 7: 8=ssh 9=22\x1b[0m\r\n"
              "\x1b[32m+ VS 0 class 13: 14=6 15=1\x1b[0m\r\n");
    EXPECT_THAT(OnTerminal(show), HasSubstr("\x1b[1m  14*  15\x1b[0m\r\n    5   3\r\n"));
    for (const std::string off : {"env NO_COLOR=1 ", "env TERM=dumb "}) {
        EXPECT_THAT(OnTerminal(off + diff), Not(HasSubstr("\x1b"))) << off;
        EXPECT_THAT(OnTerminal(off + show), Not(HasSubstr("\x1b"))) << off;
    }
    EXPECT_THAT(OnTerminal(diff + " --script"), Not(HasSubstr("\x1b")));
}

/** Characters take two columns, one or none, whatever the locale says. */
TEST_F(TerminalTest, TablesAlign) {
    const auto named = [](const char *name) { return Tlv(7, {Tlv(8, Text(name)), Tlv(9, Be16(1))}); };
    Put("x.dat", Image(VsTlv(0, {named("\u8def\u7531"), named("e\u0301a"), named("abcde")})));
    EXPECT_EQ(Out("show x.dat"),
              "VS 0, class 7: 3 records\n"
              "  8*     9\n"
              "  e\u0301a     1\n"
              "  abcde  1\n"
              "  \u8def\u7531   1\n");
}

/** Neither by control characters, of whichever encoding, nor by those that turn the direction of writing. */
TEST_F(TerminalTest, NothingSteersIt) {
    const std::string hex = "611b5b33316d7fc29b9be280ae0a", bad = "a\x1b[31m\x7f\xc2\x9b\x9b\xe2\x80\xae\n",
                      shown = "a?[31m??\ufffd??";
    Put("x.dat", Image(VsTlv(0, {Tlv(7, {Tlv(8, Text(bad)), Tlv(9, Be16(1))})})));
    Out("history start x.dat");
    Out("set x.dat --vs 0 --class 7 --all 9=2 --comment \"$(printf '" + bad + "x')\"");
    Put("y\x1b\x9b.dat", SmallImage());
    EXPECT_THAT(Out("history show x.dat"), HasSubstr("  " + shown + "x\n"));
    EXPECT_THAT(Out("history show x.dat --json"), HasSubstr(R"("a\u001b[31m\u007f\u009b\ufffd\u202e\nx")"));
    EXPECT_EQ(Out("del y*.dat --vs 0 --class 13 14=5"), "deleted VS 0 class 13 14=5 in y??.dat\n");
    EXPECT_THAT(Run("show y*.dat --vs 9").error, HasSubstr("into y??.dat"));
    EXPECT_EQ(Out("get x.dat --vs 0 --class 7 8=hex:" + hex + " --field 8"), "hex:" + hex + "\n");
    EXPECT_EQ(Out("get x.dat --vs 0 --class 7 8=hex:" + hex + " --field 8 --raw"), bad);
    Put("x.dat", Image(VsTlv(0, {Tlv(7, {Tlv(8, Text("a\x1b\x7f\u009b")), Tlv(9, Be16(1))})})));
    EXPECT_THAT(Out("export x.dat --format jsonl"), HasSubstr(R"([8,"a\u001b\u007f\u009b"])"));
    Out("export x.dat --output x.json; '" TAVCFG_PROGRAM "' import y.dat x.json");
    EXPECT_EQ(WithoutTime(Content("y.dat")), WithoutTime(Content("x.dat")));
}

TEST_F(TerminalTest, FilesAreTheSameWheneverAndWhereverTheyAreMade) {
    const auto make = [this](const std::string &environment, const std::string &name) {
        Out("export x.dat >x.json; " + environment + " SOURCE_DATE_EPOCH=1700000001 " + kTool + "import " + name +
            " x.json");
        const Bytes content = Content(name);
        std::filesystem::remove(Path(name));
        return content;
    };
    for (const std::string name : {"y.dat", "y.zip"}) {
        EXPECT_EQ(make("TZ=Asia/Kolkata", name), make("TZ=America/Lima LC_ALL=de_DE.UTF-8", name)) << name;
    }
    Put("y.dat", make("", "y.dat"));
    EXPECT_THAT(Out("info y.dat"), HasSubstr("2023-11-14T22:13:21.000Z"));
    for (const std::string wrong : {"-1", "1e9", "253402300800"}) {
        Refused(2, "SOURCE_DATE_EPOCH: '" + wrong + "'",
                "verify x.dat; SOURCE_DATE_EPOCH=" + wrong + " " + kTool + "verify x.dat");
    }
}
