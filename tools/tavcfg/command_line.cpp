#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "assignments.h"
#include "convert.h"
#include "diff.h"
#include "edit.h"
#include "errors.h"
#include "import_export.h"
#include "info.h"
#include "passwd.h"
#include "patch.h"
#include "recover.h"
#include "rekey.h"
#include "secret.h"
#include "show.h"

namespace tavcfg {

namespace {

const char *const kFooter =
    "Values (FID=VALUE), by the data type of the field:\n"
    "  integer    decimal, or hexadecimal with 0x in front\n"
    "  text       as it is\n"
    "  bytes      pairs of hexadecimal digits\n"
    "  address    192.0.2.1 or 2001:db8::1\n"
    "  time       2024-05-06T07:08:09.123\n"
    "  any type   hex: and pairs of hexadecimal digits, in the byte order of the file; values that have no\n"
    "             form of their own, or hold control characters, are also shown that way\n"
    "\n"
    "Passwords and texts to encrypt or decrypt are one line on standard input, never an argument; a terminal\n"
    "does not show passwords and texts while they are typed.\n"
    "\n"
    "A FILE whose name ends in .zip is an archive. Nothing is written while a FILE.bak lies beside FILE: look at\n"
    "it with recover.\n"
    "\n"
    "Exit codes: 0 done; 1 refused or failed, with one line on standard error; 2 a malformed command line, a\n"
    "value that does not suit its field included. diff: 0 same, 1 different, 2 trouble.";

/** Words and switches of a command on files. Their meaning is looked up in the library's types once those are there. */
struct FileWords {
    std::string file;   // the file worked on; IN of convert, A of diff
    std::string other;  // OUT of convert, B of diff, JSON of import
    std::string refer;  // empty when it is not given; likewise below
    std::string vs;
    std::string cls;
    std::string field;
    std::vector<std::string> assignments;  // FID=VALUE
    bool json = false;
    bool merge = false;
    bool rewrite = false;
    bool safe = false;
};

Target TargetOf(const FileWords &words) {
    return {NamedFile(words.file), words.refer.empty() ? std::nullopt : std::optional(NamedFile(words.refer))};
}

uint32_t VsOf(const FileWords &words) {
    return ParseId(words.vs, "--vs");
}

uint32_t ClassOf(const FileWords &words) {
    return ParseId(words.cls, "--class");
}

std::optional<uint32_t> OptionalId(const std::string &text, const char *what) {
    return text.empty() ? std::nullopt : std::optional(ParseId(text, what));
}

/** The options of an edit; `parse` makes the record of its class and fields. */
EditOptions EditOf(const FileWords &words, Record (*parse)(uint32_t, const std::vector<std::string> &)) {
    return {TargetOf(words), VsOf(words), parse(ClassOf(words), words.assignments)};
}

/** Throws UsageError for a key context that is too long for the platform. */
void RequireContext(const std::string &context) {
    constexpr size_t kMaxContext = 1000;  // bytes
    if (context.size() > kMaxContext) {
        throw UsageError(
            fmt::format("--context: it has {} bytes, at most {} are possible", context.size(), kMaxContext));
    }
}

int RequireAndCheck(const PasswdCheckOptions &options) {
    if (options.user && options.isBasic && !options.isStrict) {
        throw UsageError("passwd check: --user needs --strict, the basic check does not look at names");
    }
    return RunPasswdCheck(options);
}

int RequireAndRekey(const RekeyOptions &options) {
    for (const std::string &context : options.contexts) {
        RequireContext(context);
    }
    return RunRekey(options);
}

int RequireAndVerify(const PasswdVerifyOptions &options) {
    RequireContext(options.context);
    if (options.form.empty() == options.formFile.empty()) {
        throw UsageError("passwd verify: give either FORM or --from FILE");
    }
    return RunPasswdVerify(options);
}

/** Builds the commands, one method for each family of options. */
class Commands {
  public:
    explicit Commands(Invocation &invocation) : invocation_(invocation) {
        app_.require_subcommand(1);
        app_.footer(kFooter);
        AddReaders();
        AddEditors();
        AddWholeFile();
        AddPasswords();
        AddSecrets();
    }

    CLI::App &App() { return app_; }

  private:
    /** Adds a command that runs with what will have been parsed into `options` by then. */
    template <typename Options>
    CLI::App *Add(CLI::App *parent, const char *name, const char *help, const Options &options,
                  std::type_identity_t<int (*)(const Options &)> run) {
        CLI::App *command = parent->add_subcommand(name, help);
        command->callback([this, &options, run] { invocation_.run = [options, run] { return run(options); }; });
        return command;
    }

    using RunOnFile = int (*)(const FileWords &);  // complains of one word after the other, in the order of its options

    /** Adds a command that works on a file. */
    CLI::App *AddOnFile(const char *name, const char *fileName, const char *help, RunOnFile run) {
        CLI::App *command = Add(&app_, name, help, words_, run);
        command->add_option(fileName, words_.file, "the configuration file")->required();
        command->add_option("--refer", words_.refer, "the file whose checksum FILE carries")->option_text("FILE");
        command->add_flag("--log", invocation_.logs, "switch the debug log on");
        return command;
    }

    /** Adds the options that choose a VS and a class. */
    void AddPlace(CLI::App *command, bool isRequired) {
        command->add_option("--vs", words_.vs, "id of the virtual system")->option_text("N")->required(isRequired);
        command->add_option("--class", words_.cls, "class of the record")->option_text("N")->required(isRequired);
    }

    /** Adds a command that works on one record. */
    CLI::App *AddOnRecord(const char *name, const char *help, bool needsFields, RunOnFile run) {
        CLI::App *command = AddOnFile(name, "FILE", help, run);
        AddPlace(command, true);
        command->add_option("FID=VALUE", words_.assignments, "fields of the record, its key fields among them")
            ->required(needsFields);
        return command;
    }

    void AddJson(CLI::App *command) { command->add_flag("--json", words_.json, "print JSON"); }

    void AddReaders() {
        AddJson(AddOnFile("info", "FILE", "show what a file is: version, times, sizes, checksums, counts of records",
                          [](const FileWords &words) {
                              return RunInfo({TargetOf(words), words.json});
                          }));
        AddOnFile("verify", "FILE", "check that a file loads; else say what is wrong",
                  [](const FileWords &words) { return RunVerify(TargetOf(words)); });
        CLI::App *show =
            AddOnFile("show", "FILE", "show records as tables; * marks key fields", [](const FileWords &words) {
                return RunShow(
                    {TargetOf(words), OptionalId(words.vs, "--vs"), OptionalId(words.cls, "--class"), words.json});
            });
        AddPlace(show, false);
        AddJson(show);
        CLI::App *get =
            AddOnRecord("get", "show one record, found by its key fields", false, [](const FileWords &words) {
                return RunGet({TargetOf(words), VsOf(words), ParseKey(ClassOf(words), words.assignments),
                               OptionalId(words.field, "--field")});
            });
        get->add_option("--field", words_.field, "print the value of this field alone")->option_text("FID");
    }

    void AddEditors() {
        AddOnRecord("add", "add a record; a missing file is made", true,
                    [](const FileWords &words) { return RunAdd(EditOf(words, ParseRecord)); });
        AddOnRecord("set", "overwrite values of a record", true,
                    [](const FileWords &words) { return RunSet(EditOf(words, ParseChange)); });
        AddOnRecord("del", "delete a record, found by its key fields", false,
                    [](const FileWords &words) { return RunDel(EditOf(words, ParseKey)); });
        CLI::App *patch = AddOnRecord("patch", "write values of the same length in place, in a .dat file", true,
                                      [](const FileWords &words) {
                                          return RunPatch({EditOf(words, ParseChange), words.safe});
                                      });
        patch->add_flag("--safe", words_.safe,
                        "patch a copy, and move it over FILE once it loads: no crash leaves a broken file");
    }

    void AddWholeFile() {
        CLI::App *import = AddOnFile("import", "FILE", "make a file from JSON", [](const FileWords &words) {
            return RunImport({TargetOf(words), words.other, words.merge});
        });
        import->add_option("JSON", words_.other, "the JSON text; - is standard input")->required();
        import->add_flag("--merge", words_.merge,
                         "keep what is in FILE; of a record that is there, overwrite the fields that JSON gives");
        AddOnFile("export", "FILE", "print the content of a file as JSON",
                  [](const FileWords &words) { return RunExport(TargetOf(words)); });
        CLI::App *convert =
            AddOnFile("convert", "IN", "copy a file; plain or archive by the name of OUT", [](const FileWords &words) {
                return RunConvert({TargetOf(words), NamedFile(words.other), words.rewrite});
            });
        convert->add_option("OUT", words_.other, "the file to write")->required();
        convert->add_flag("--rewrite", words_.rewrite, "write the records anew, in order, and nothing but them");
        CLI::App *diff =
            AddOnFile("diff", "A", "show records added (+), removed (-) and changed (~)", [](const FileWords &words) {
                return RunDiff({TargetOf(words), NamedFile(words.other)});
            });
        diff->add_option("B", words_.other, "the other file")->required();
        diff->preparse_callback([this](size_t) { invocation_.failureCode = 2; });
        AddOnFile("recover", "FILE", "after a crash: keep the newest of FILE and FILE.bak that loads",
                  [](const FileWords &words) { return RunRecover(TargetOf(words)); });
    }

    static CLI::Option *AddContext(CLI::App *command, std::string &context) {
        return command->add_option("--context", context, "key context, which separates keys")->option_text("TEXT");
    }

    void AddPasswords() {
        CLI::App *passwd = app_.add_subcommand("passwd", "check passwords; make and verify their stored forms");
        passwd->require_subcommand(1);
        CLI::App *check = Add(passwd, "check", "tell whether a new password is acceptable", check_, RequireAndCheck);
        check->add_option("--user", check_.user, "user name, which must not be alike")->option_text("NAME");
        check->add_flag("--strict", check_.isStrict,
                        "8 characters or more of all four kinds, and not alike the user name (default)");
        check->add_flag("--basic", check_.isBasic,
                        "a digit, an upper-case letter and a character that is neither digit nor letter are enough");
        check->add_option("--history", check_.history, "stored forms of the last passwords, one a line")
            ->option_text("FILE");
        CLI::App *hash = Add(passwd, "hash", "print the stored form of a password", hash_, RunPasswdHash);
        hash->add_flag("--legacy", hash_.isLegacy, "of the older scheme, which costs an attacker less");
        CLI::App *verify = Add(passwd, "verify", "compare a password with a stored form", verify_, RequireAndVerify);
        verify->add_option("FORM", verify_.form, "the stored form; in single quotes, for the shell");
        verify->add_option("--from", verify_.formFile, "the file whose only line is the stored form")
            ->option_text("FILE");
        AddContext(verify, verify_.context);
    }

    void AddSecrets() {
        const auto add = [this](const char *name, const char *help, int (*run)(const SecretOptions &)) {
            AddContext(Add(&app_, name, help, secret_, run), secret_.context)->required();
        };
        add("encrypt", "encrypt a text of one line", [](const SecretOptions &options) {
            RequireContext(options.context);
            return RunEncrypt(options);
        });
        add("decrypt", "decrypt a text", [](const SecretOptions &options) {
            RequireContext(options.context);
            return RunDecrypt(options);
        });
        CLI::App *rekey =
            Add(&app_, "rekey", "copy a stream, with the cipher texts in it encrypted under the present key", rekey_,
                RequireAndRekey);
        rekey->add_option("--old-key", rekey_.oldKeyFile, "the key file under which they were encrypted")
            ->option_text("FILE")
            ->required();
        rekey->add_option("--context", rekey_.contexts, "key context of texts; may be given several times")
            ->option_text("TEXT")
            ->allow_extra_args(false)
            ->required();
    }

    CLI::App app_{
        "Looks into and edits extended configuration files; checks, stores and verifies passwords; keeps secrets.",
        "tavcfg"};
    Invocation &invocation_;

    // What is parsed. One command runs, so those of a family share one place.
    FileWords words_;
    PasswdCheckOptions check_;
    PasswdHashOptions hash_;
    PasswdVerifyOptions verify_;
    SecretOptions secret_;
    RekeyOptions rekey_;
};

}  // namespace

std::optional<Invocation> ParseCommandLine(int argc, const char *const *argv) {
    Invocation invocation;
    Commands commands(invocation);
    try {
        commands.App().parse(argc, argv);
    } catch (const CLI::Success &) {
        const std::vector<CLI::App *> chosen = commands.App().get_subcommands();
        fmt::print("{}", chosen.empty() ? commands.App().help() : chosen.front()->help("tavcfg"));
        return {};
    } catch (const CLI::ParseError &error) {
        throw UsageError(fmt::format("{} (see tavcfg --help)", error.what()));
    }
    return invocation;
}

}  // namespace tavcfg
