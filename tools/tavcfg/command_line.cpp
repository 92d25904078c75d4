#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>

#include "errors.h"

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

/** Builds the commands, one method for each family of options. */
class Commands {
  public:
    explicit Commands(Invocation &invocation) : invocation_(invocation), options_(invocation.options) {
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
    using Run = int (*)(const Options &);

    /** Adds a command that works on a file. */
    CLI::App *Add(const char *name, const char *help, Run run, const char *fileName = "FILE") {
        CLI::App *command = app_.add_subcommand(name, help);
        command->add_option(fileName, options_.file, "the configuration file")->required();
        command->add_option("--refer", options_.refer, "the file whose checksum FILE carries")->option_text("FILE");
        command->add_flag("--log", options_.log, "switch the debug log on");
        command->callback([this, run] { invocation_.run = run; });
        return command;
    }

    /** Adds the options that choose a VS and a class. */
    void AddPlace(CLI::App *command, bool isRequired) {
        command->add_option("--vs", options_.vs, "id of the virtual system")->option_text("N")->required(isRequired);
        command->add_option("--class", options_.cls, "class of the record")->option_text("N")->required(isRequired);
    }

    /** Adds a command that works on one record. */
    CLI::App *AddOnRecord(const char *name, const char *help, Run run, bool needsFields) {
        CLI::App *command = Add(name, help, run);
        AddPlace(command, true);
        command->add_option("FID=VALUE", options_.assignments, "fields of the record, its key fields among them")
            ->required(needsFields);
        return command;
    }

    void AddJson(CLI::App *command) { command->add_flag("--json", options_.json, "print JSON"); }

    void AddReaders() {
        AddJson(Add("info", "show what a file is: version, times, sizes, checksums, counts of records", RunInfo));
        Add("verify", "check that a file loads; else say what is wrong", RunVerify);
        CLI::App *show = Add("show", "show records as tables; * marks key fields", RunShow);
        AddPlace(show, false);
        AddJson(show);
        CLI::App *get = AddOnRecord("get", "show one record, found by its key fields", RunGet, false);
        get->add_option("--field", options_.field, "print the value of this field alone")->option_text("FID");
    }

    void AddEditors() {
        AddOnRecord("add", "add a record; a missing file is made", RunAdd, true);
        AddOnRecord("set", "overwrite values of a record", RunSet, true);
        AddOnRecord("del", "delete a record, found by its key fields", RunDel, false);
        CLI::App *patch =
            AddOnRecord("patch", "write values of the same length in place, in a .dat file", RunPatch, true);
        patch->add_flag("--safe", options_.safe,
                        "patch a copy, and move it over FILE once it loads: no crash leaves a broken file");
    }

    void AddWholeFile() {
        CLI::App *import = Add("import", "make a file from JSON", RunImport);
        import->add_option("JSON", options_.other, "the JSON text; - is standard input")->required();
        import->add_flag("--merge", options_.merge,
                         "keep what is in FILE; of a record that is there, overwrite the fields that JSON gives");
        Add("export", "print the content of a file as JSON", RunExport);
        CLI::App *convert = Add("convert", "copy a file; plain or archive by the name of OUT", RunConvert, "IN");
        convert->add_option("OUT", options_.other, "the file to write")->required();
        convert->add_flag("--rewrite", options_.rewrite, "write the records anew, in order, and nothing but them");
        CLI::App *diff = Add("diff", "show records added (+), removed (-) and changed (~)", RunDiff, "A");
        diff->add_option("B", options_.other, "the other file")->required();
        diff->preparse_callback([this](size_t) { invocation_.failureCode = 2; });
        Add("recover", "after a crash: keep the newest of FILE and FILE.bak that loads", RunRecover);
    }

    /** Adds a command that reads a password or a text from standard input. */
    CLI::App *AddOnInput(CLI::App *parent, const char *name, const char *help, Run run) {
        CLI::App *command = parent->add_subcommand(name, help);
        command->callback([this, run] { invocation_.run = run; });
        return command;
    }

    CLI::Option *AddContext(CLI::App *command) {
        return command->add_option("--context", options_.context, "key context, which separates keys")
            ->option_text("TEXT");
    }

    void AddPasswords() {
        CLI::App *passwd = app_.add_subcommand("passwd", "check passwords; make and verify their stored forms");
        passwd->require_subcommand(1);
        CLI::App *check = AddOnInput(passwd, "check", "tell whether a new password is acceptable", RunPasswdCheck);
        check->add_option("--user", options_.user, "user name, which must not be alike")->option_text("NAME");
        check->add_flag("--strict", options_.strict,
                        "8 characters or more of all four kinds, and not alike the user name (default)");
        check->add_flag("--basic", options_.basic, "a digit, an upper-case letter and another character are enough");
        check->add_option("--history", options_.history, "stored forms of the last passwords, one a line")
            ->option_text("FILE");
        CLI::App *hash = AddOnInput(passwd, "hash", "print the stored form of a password", RunPasswdHash);
        hash->add_flag("--legacy", options_.legacy, "of the older scheme, which costs an attacker less");
        CLI::App *verify = AddOnInput(passwd, "verify", "compare a password with a stored form", RunPasswdVerify);
        verify->add_option("FORM", options_.form, "the stored form; in single quotes, for the shell");
        verify->add_option("--from", options_.formFile, "the file whose only line is the stored form")
            ->option_text("FILE");
        AddContext(verify);
    }

    void AddSecrets() {
        AddContext(AddOnInput(&app_, "encrypt", "encrypt a text of one line", RunEncrypt))->required();
        AddContext(AddOnInput(&app_, "decrypt", "decrypt a text", RunDecrypt))->required();
    }

    CLI::App app_{
        "Looks into and edits extended configuration files; checks, stores and verifies passwords; keeps secrets.",
        "tavcfg"};
    Invocation &invocation_;
    Options &options_;
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
