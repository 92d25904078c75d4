#include "command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

#include "errors.h"
#include "file_commands.h"
#include "fleet.h"
#include "help.h"
#include "passwd.h"
#include "rekey.h"
#include "secret.h"
#include "tav_version.h"
#include "usage.h"

namespace tavcfg {

namespace {

/** Throws UsageError for a key context that is too long for the platform. */
void RequireContext(const std::string &context) {
    constexpr size_t kMaxContext = 1000;  // bytes
    if (context.size() > kMaxContext) {
        throw UsageError(
            fmt::format("--context: it has {} bytes, at most {} are possible", context.size(), kMaxContext));
    }
}

/** Throws UsageError for a file that is standard input, where the password stands. */
void RequireOtherInput(const char *option, const std::string &file) {
    if (file == "-") {
        throw UsageError(fmt::format("{}: standard input holds the password", option));
    }
}

int RequireAndCheck(const PasswdCheckOptions &options) {
    if (options.user && options.isBasic && !options.isStrict) {
        throw UsageError("passwd check: --user needs --strict, the basic check does not look at names");
    }
    RequireOtherInput("--history", options.history);
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
    RequireOtherInput("--from", options.formFile);
    return RunPasswdVerify(options);
}

/** Builds the commands, one method for each family of options. */
class Commands {
  public:
    explicit Commands(Invocation &invocation) : invocation_(invocation) {
        app_.require_subcommand(1);
        app_.set_version_flag("--version", "tavcfg " TAV_VERSION_STRING);
        files_.AddTo(&app_, &invocation_);
        fleet_.AddTo(&app_, &invocation_);
        AddPasswords();
        AddSecrets();
        AddFooters(&app_);
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
        for (CLI::App *asking : {check, verify}) {
            asking->preparse_callback([this](size_t) { invocation_.failureCode = 2; });
        }
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
    FileCommands files_;
    FleetCommands fleet_;
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
    } catch (const CLI::CallForVersion &version) {
        fmt::print("{}\n", version.what());
        return {};
    } catch (const CLI::Success &) {
        const std::vector<CLI::App *> chosen = commands.App().get_subcommands();
        fmt::print("{}", chosen.empty() ? commands.App().help() : chosen.front()->help("tavcfg"));
        return {};
    } catch (const CLI::ParseError &error) {
        RefuseCommandLine(commands.App(), error);
    }
    return invocation;
}

}  // namespace tavcfg
