#include "help.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>

namespace tavcfg {

namespace {

const char *const kOverview =
    "A FILE whose name ends in .zip is an archive. What writes takes the file's lock, and readers find the whole\n"
    "old or the whole new file.\n"
    "\n"
    "tavcfg COMMAND --help tells about a command; man tavcfg, and man tavcfg-script for values, about all of them.\n"
    "\n"
    "Exit codes: 0 done; 1 refused or failed, with one line on standard error; 2 a malformed command line, a\n"
    "value that does not suit its field included; 3 another process holds the file's lock. Commands that ask\n"
    "(diff; verify, passwd check, passwd verify): 0 same, or yes; 1 different, or no; 2 it could not be told.";

const char *const kValues =
    "Values (FIELD=VALUE), by the data type of the field:\n"
    "  integer    decimal, or hexadecimal with 0x in front\n"
    "  text       as it is\n"
    "  bytes      pairs of hexadecimal digits\n"
    "  address    192.0.2.1 or 2001:db8::1\n"
    "  time       2024-05-06T07:08:09.123\n"
    "  any type   hex: and pairs of hexadecimal digits, in the byte order of the file; values that have no\n"
    "             form of their own, or hold control characters, are also shown that way\n"
    "\n";

const char *const kNames =
    "Where the number of a class or a field stands, its name may stand too: of the JSON file that --names or the\n"
    "variable TAV_NAMES gives, or of FILE.names.json. With --names, names are shown as well.\n"
    "\n";

const char *const kSecrets =
    "A password or text is one line on standard input, never an argument; a line feed at its end, or a carriage\n"
    "return and a line feed, is no part of it. A terminal does not show it while it is typed.\n"
    "\n";

const char *const kWriting =
    "Takes the file's lock; readers find the whole old or the whole new file. A FILE.bak beside FILE comes from a\n"
    "program that writes without the lock, and has died or is still at work: see recover.\n"
    "\n";

/** Two examples of a command, which is given by all of its words. */
struct Examples {
    std::string_view command;
    const char *first;
    const char *second;
};

constexpr auto kExamples = std::to_array<Examples>({
    {"info", "tavcfg info routers.dat", "tavcfg info routers.dat --json"},
    {"verify", "tavcfg verify routers.dat", "tavcfg verify users.dat --refer routers.dat"},
    {"recover", "tavcfg recover routers.dat --dry-run", "tavcfg recover routers.dat"},
    {"show", "tavcfg show routers.dat --class 13 --where '15=1' --sort 19", "tavcfg show routers.dat --format csv"},
    {"count", "tavcfg count routers.dat", "tavcfg count routers.dat --vs 0 --class 13 --where '19>10'"},
    {"get", "tavcfg get routers.dat --vs 0 --class 13 14=5",
     "tavcfg get routers.dat --vs 0 --class 13 14=5 --field 19"},
    {"add", "tavcfg add routers.dat --vs 0 --class 13 14=9 15=1 18=192.0.2.1",
     "tavcfg add new.dat --vs 0 --class 7 8=ssh/tcp 9=22"},
    {"set", "tavcfg set routers.dat --vs 0 --class 13 14=5 19=7",
     "tavcfg set routers.dat --vs 0 --class 13 --where '15=1' 19=7 --dry-run"},
    {"unset", "tavcfg unset routers.dat --vs 0 --class 13 14=5 18",
     "tavcfg unset routers.dat --vs 0 --class 13 --where '15=1' 19"},
    {"del", "tavcfg del routers.dat --vs 0 --class 13 14=6", "tavcfg del routers.dat --vs 0 --class 13 --where '15=1'"},
    {"apply", "tavcfg apply routers.dat lab.txt --dry-run",
     "tavcfg diff --script routers.dat other.dat | tavcfg apply routers.dat -"},
    {"patch", "tavcfg patch routers.dat --vs 0 --class 13 14=5 19=7",
     "tavcfg patch routers.dat --safe --vs 0 --class 13 14=5 19=8"},
    {"import", "tavcfg import new.dat routers.json", "tavcfg import routers.dat routers.json --merge --dry-run"},
    {"export", "tavcfg export routers.dat --output routers.json", "tavcfg export routers.dat --format jsonl"},
    {"convert", "tavcfg convert routers.dat routers.zip", "tavcfg convert damaged.dat saved.dat --salvage"},
    {"diff", "tavcfg diff routers.dat other.dat", "tavcfg diff --script routers.dat@1 routers.dat"},
    {"history", "tavcfg history start routers.dat", "tavcfg history show routers.dat"},
    {"history start", "tavcfg history start routers.dat", "tavcfg history start routers.dat --keep 100"},
    {"history stop", "tavcfg history stop routers.dat --dry-run", "tavcfg history stop routers.dat"},
    {"history show", "tavcfg history show routers.dat", "tavcfg history show routers.dat --json"},
    {"checkpoint", "tavcfg checkpoint routers.dat before-upgrade --comment 'as delivered'",
     "tavcfg checkpoint routers.dat before-upgrade --remove"},
    {"rollback", "tavcfg rollback routers.dat good --dry-run",
     "tavcfg rollback routers.dat 1 --comment 'the upgrade failed'"},
    {"watch", "tavcfg watch routers.dat --limit 1", "tavcfg watch routers.dat --exec 'cat >>changes.txt'"},
    {"publish", "tavcfg publish routers.dat --url nats://10.0.0.1:4222 --bucket routers",
     "tavcfg publish routers.dat --url nats://10.0.0.1:4222 --bucket routers --watch"},
    {"follow", "tavcfg follow new.dat --url nats://10.0.0.1:4222 --bucket routers --once",
     "tavcfg follow routers.dat --url nats://10.0.0.1:4222 --bucket routers --once --on-conflict overwrite"},
    {"refer", "tavcfg refer rebind users.dat --refer routers.dat", "tavcfg refer drop users.dat"},
    {"refer rebind", "tavcfg refer rebind users.dat --refer routers.dat --dry-run",
     "tavcfg refer rebind users.dat --refer routers.dat"},
    {"refer drop", "tavcfg refer drop users.dat --dry-run", "tavcfg refer drop users.dat"},
    {"schema", "tavcfg schema", "tavcfg schema --names routers.dat.names.json"},
    {"passwd", "tavcfg passwd hash >admin.form", "tavcfg passwd verify --from admin.form"},
    {"passwd check", "tavcfg passwd check --user admin", "tavcfg passwd check --history old.forms"},
    {"passwd hash", "tavcfg passwd hash >admin.form", "tavcfg passwd hash --legacy >admin.form"},
    {"passwd verify", "tavcfg passwd verify --from admin.form", "tavcfg passwd verify \"$(cat admin.form)\""},
    {"encrypt", "tavcfg encrypt --context radius >secret", "tavcfg encrypt --context radius <secret.txt >secret"},
    {"decrypt", "tavcfg decrypt --context radius <secret", "tavcfg decrypt --context radius <secret >secret.txt"},
    {"rekey", "tavcfg rekey --old-key tav.key.old --context radius <texts >texts.new",
     "tavcfg rekey --old-key tav.key.old --context radius --context snmp <texts >texts.new"},
});

bool Has(const CLI::App *command, const char *option) {
    return command->get_option_no_throw(option) != nullptr;
}

/** Says what the exit codes of a command mean. */
std::string ExitCodes(std::string_view command, bool isLocking) {
    if (command == "diff") {
        return "Exit codes: 0 the same; 1 different; 2 it could not be told.";
    }
    if (command == "verify" || command == "passwd check" || command == "passwd verify") {
        return "Exit codes: 0 yes; 1 no; 2 it could not be told.";
    }
    return fmt::format("Exit codes: 0 done; 1 refused or failed; 2 a malformed command line{}.",
                       isLocking ? "; 3 another process holds the lock" : "");
}

/** Puts together what a command's options and arguments call for. */
std::string FooterOf(const std::string &words, const CLI::App *command) {
    const auto *const examples = std::find_if(kExamples.begin(), kExamples.end(),
                                              [&](const Examples &candidate) { return candidate.command == words; });
    std::string text;
    if (examples != kExamples.end()) {
        text += fmt::format("Examples:\n  {}\n  {}\n\n", examples->first, examples->second);
    }
    if (Has(command, "FIELD=VALUE") || Has(command, "FIELD[=VALUE]")) {
        text += kValues;
    }
    if (Has(command, "--names")) {
        text += kNames;
    }
    if (words.starts_with("passwd") || words == "encrypt" || words == "decrypt") {
        text += kSecrets;
    }
    const bool isLocking = Has(command, "--dry-run") || words == "follow";
    if (isLocking) {
        text += kWriting;
    }
    return text + ExitCodes(words, isLocking);
}

/** Writes the footers below a command, whose words, with a blank behind each, are given. */
void AddFootersBelow(CLI::App *parent, const std::string &words) {
    for (CLI::App *command : parent->get_subcommands({})) {
        command->footer(FooterOf(words + command->get_name(), command));
        AddFootersBelow(command, words + command->get_name() + " ");
    }
}

}  // namespace

void AddFooters(CLI::App *app) {
    app->footer(kOverview);
    AddFootersBelow(app, "");
}

}  // namespace tavcfg
