/*
 * passwd, encrypt, decrypt: verdicts, forms, what standard input may hold, and that a terminal shows nothing of it.
 */
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>

#include "tool.h"

struct PasswdTest : ToolTest {
    void SetUp() override {
        setenv("TAV_KEY_FILE", Path("tav.key").c_str(), 1);
        PutKey("tav.key", 'k');
    }
    void PutKey(const std::string &name, char filler) const {
        Put(name, "tavkey1\n" + std::string(32, filler));
        std::filesystem::permissions(Path(name), std::filesystem::perms(0600));
    }
    std::string WithInput(const std::string &input, const std::string &arguments) const {
        Put("in", input);
        return arguments + " <in";
    }
};

TEST_F(PasswdTest, VerdictsOfThePolicy) {
    Out(WithInput("Older 12\n", "passwd hash >old"));
    Out(WithInput("Older 34\n", "encrypt --context ZPT-MOLD-CARDFRAME >>old"));
    Out(WithInput("Secret 1\n", "passwd check --user bob --history old"));
    Out(WithInput("A1!\n", "passwd check --basic --history old"));
    const struct {
        std::string options, password;
        const char *verdict;
    } refusals[] = {{"--basic", "", "0x16f9"},
                    {"", "****", "0x16f9"},
                    {"", "Secre 1", "0x824"},
                    {"--strict --basic", "SECRET 1", "0xefd"},
                    {"--basic", "Secret12", "0xefc"},
                    {"--user bOb", "Secret 1BoB", "0xf01"},
                    {"--user 'a1 TerCes'", "Secret 1", "0xaba0"},
                    {"--history old", "Older 12", "0xefb"},
                    {"--basic --history old", "Older 34", "0xefb"}};
    for (const auto &refusal : refusals) {
        Refused(1, refusal.verdict, WithInput(refusal.password + "\n", "passwd check " + refusal.options));
    }
    Refused(2, "in: line 1: it is no stored form", WithInput("Secret 1\n", "passwd check --history in"));
    Refused(2, "cannot read none: No such file", "passwd check --history none <in");
}

TEST_F(PasswdTest, FormsAndCipherTexts) {
    for (const std::string option : {"", " --legacy"}) {
        Put("form", Out(WithInput(std::string(432, 'x'), "passwd hash" + option)));
        EXPECT_EQ(Content("form").size(), option.empty() ? 89u : 87u);
        Out("passwd verify --from form <in; '" TAVCFG_PROGRAM "' passwd verify \"$(cat form)\" <in");
        Refused(1, "does not match", "passwd verify --from form <form");
    }
    Refused(2, "costs more than", "passwd verify '$scrypt$ln=20,r=8,p=1$c2FsdA$aGFzaA' <in");
    Put("empty", "");
    EXPECT_THAT(Run("passwd verify --from empty <in").error, Not(HasSubstr("FORM stands in")));
    Refused(2, "", "passwd hash Secret1!");
    Refused(2, "either FORM or --from", "passwd verify");
    Put("cipher", Out(WithInput(std::string(287, 'x'), "encrypt --context a")));
    EXPECT_EQ(Out("decrypt --context a <cipher"), std::string(287, 'x') + "\n");
    Refused(1, "another key context", "decrypt --context b <cipher");
    std::filesystem::permissions(Path("tav.key"), std::filesystem::perms(0640));
    Refused(1, "key file " + Path("tav.key") + ": permission denied", "decrypt --context a <cipher");
    Refused(1, "too long for a cipher", WithInput(std::string(288, 'x'), "encrypt --context a"));
    Refused(1, "longer than 432 bytes", WithInput(std::string(433, 'x'), "encrypt --context a"));
    Refused(2, "a zero byte", WithInput(std::string(1, '\0'), "passwd check"));
    Refused(1, "more than one line", WithInput("a\nb", "passwd hash"));
    Refused(2, "there is no password", "passwd verify --from form");
    Refused(2, "cannot read none: No such file", "passwd verify --from none");
}

TEST_F(PasswdTest, AKeyThatIsMadeIsToldOnce) {
    std::filesystem::remove(Path("tav.key"));
    Out(WithInput("Secret", "encrypt --context a 2>told"));
    EXPECT_EQ(Content("told"), Text("tavcfg: made key file " + Path("tav.key") +
                                    ": keep a copy, without it nothing can be decrypted\n"));
    Out(WithInput("Secret", "encrypt --context a"));
    setenv("TAV_KEY_FILE", "tav.key", 1);
    Refused(1, "key file tav.key (not an absolute path)", WithInput("Secret", "encrypt --context a"));
}

TEST_F(PasswdTest, LinesMayEndWithACarriageReturn) {
    const std::string longest(432, 'x');
    Put("form", Out(WithInput(longest + "\r\n", "passwd hash")));
    Out(WithInput(longest, "passwd verify --from form"));
    Refused(1, "does not match", WithInput(longest.substr(1) + "\r", "passwd verify --from form"));  // no end of a line
    Refused(2, "longer than 432 bytes", WithInput(longest + "\rx", "passwd verify --from form"));
    Refused(1, "the password is empty", WithInput("\r\n", "passwd hash"));
    const auto withReturn = [](std::string line) { return line.insert(line.size() - 1, "\r"); };
    const std::string form = withReturn(Out(WithInput("Secret 1\r\n", "passwd hash")));
    Put("form", form);
    Out(WithInput("Secret 1\n", "passwd verify --from form"));
    Put("forms", form + form);
    Refused(1, "0xefb", WithInput("Secret 1", "passwd check --history forms"));
    const std::string cipher = withReturn(Out(WithInput("Secret", "encrypt --context a")));
    EXPECT_EQ(Out(WithInput(cipher, "decrypt --context a")), "Secret\n");
}

TEST_F(PasswdTest, CipherTextsGetThePresentKey) {
    const auto encrypt = [&](const std::string &plain, const std::string &context) {
        const std::string line = Out(WithInput(plain, "encrypt --context " + context));
        return line.substr(0, line.size() - 1);
    };
    const std::string first = encrypt("Secret", "a"), second = encrypt("Other", "b");
    const std::string front = "x$abcd$\"", middle = "\"\n$-", end = ".\n\n$rev1$";
    Put("stream", front + first + middle + second + end);
    PutKey("new", 'n');
    setenv("TAV_KEY_FILE", Path("new").c_str(), 1);
    Refused(1, "another key than key file " + Path("new"), WithInput(first, "decrypt --context a"));
    const std::string out = Out("rekey --old-key tav.key --context b --context a <stream");
    EXPECT_EQ(out, front + out.substr(front.size(), first.size()) + middle +
                       out.substr(front.size() + first.size() + middle.size(), second.size()) + end);
    EXPECT_EQ(Out(WithInput(out.substr(front.size(), first.size()), "decrypt --context a")), "Secret\n");
    EXPECT_EQ(Out(WithInput(out.substr(out.size() - end.size() - second.size(), second.size()), "decrypt --context b")),
              "Other\n");
    Refused(1, "line 2 anew: it was changed, or encrypted under another",
            "rekey --old-key tav.key --context a <stream");
    Refused(1, "there is no key file " + Path("none"), "rekey --old-key none --context a <stream");
    Refused(1, "another key than key files " + Path("new") + " and ", "rekey --old-key new --context a <stream");
    Refused(1, "there is no cipher text", WithInput("$scrypt$", "rekey --old-key tav.key --context a"));
    Refused(1, "begins with $rev1$", WithInput("$rev1$" + std::string(48, 'A'), "rekey --old-key new --context a"));
}

TEST_F(PasswdTest, ATerminalShowsNoPassword) {
    for (const std::string second : {"Secret\n", "Secre\x03"}) {  // typed to the end, and interrupted
        int terminal = -1, status = 0;
        if (forkpty(&terminal, nullptr, nullptr, nullptr) == 0) {
            _exit(execl(TAVCFG_PROGRAM, "tavcfg", "passwd", "hash", nullptr));
        }
        std::string shown;
        const auto answer = [&](const std::string &prompt, bool hasEcho, const std::string &typed) {
            for (char c; !shown.ends_with(prompt) && read(terminal, &c, 1) == 1;) {
                shown += c;
            }
            termios settings = {};
            EXPECT_EQ(tcgetattr(terminal, &settings), 0);
            EXPECT_EQ((settings.c_lflag & ECHO) != 0, hasEcho) << shown;
            static_cast<void>(!write(terminal, typed.data(), typed.size()));
        };
        answer("password: ", false, "Secret\n");
        answer("again: ", false, second);
        answer("the end", true, "");
        EXPECT_GT(wait(&status), 0);
        EXPECT_EQ(status, second.ends_with('\n') ? 0 : SIGINT);
        EXPECT_EQ(shown.find("$scrypt$") != std::string::npos, status == 0) << shown;
        EXPECT_THAT(shown, Not(HasSubstr("Secre")));
    }
}
