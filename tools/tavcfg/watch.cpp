#include "watch.h"

#include <fmt/format.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <system_error>

#include "errors.h"
#include "tav/diff.h"
#include "tav/json.h"
#include "tav/script.h"
#include "tav/watch.h"
#include "terminal.h"

namespace tavcfg {

namespace {

volatile sig_atomic_t g_isInterrupted = 0;

void Interrupt(int /*signal*/) {
    g_isInterrupted = 1;
}

/** Lets a signal end the waiting, not the program. */
void HandleSignals() {
    struct sigaction action = {};
    action.sa_handler = Interrupt;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        sigaction(signal, &action, nullptr);
    }
}

std::string TextOf(const tav::Changes &changes, const WatchOptions &options) {
    std::string text;
    for (const tav::Change &change : changes) {
        text += (options.asJson ? tav::ChangeToJson(change, options.file.shown)
                                : tav::WriteChange(change, options.file.shown)) +
                '\n';
    }
    return text;
}

/** Runs the command with a text as its standard input. A command that fails is said, and the watch goes on. */
void RunCommand(const std::string &command, const std::string &text) {
    std::FILE *input = popen(command.c_str(), "w");
    if (input == nullptr) {
        throw Failure(fmt::format("cannot run '{}': {}", command, std::generic_category().message(errno)));
    }
    fwrite(text.data(), 1, text.size(), input);  // a command need not read it
    if (const int status = pclose(input); status != 0) {
        fmt::print(stderr, "tavcfg: '{}' has failed\n", command);
    }
}

void Report(const std::string &text, const WatchOptions &options) {
    if (!options.command.empty()) {
        RunCommand(options.command, text);
        return;
    }
    PrintPiece(text + (options.asJson ? "" : "\n"));  // an empty line parts the commits
    if (fflush(stdout) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot write to standard output");
    }
}

/** Waits for a change. One that leaves a file that does not load is said, and the watch goes on. */
bool Wait(tav::Watch *watch) {
    try {
        return watch->Wait();
    } catch (const tav::Error &error) {
        if (error.Code() != TAV_ERR_INVALID && error.Code() != TAV_ERR_BACKUP) {
            throw;
        }
        fmt::print(stderr, "tavcfg: {}\n", Printable(error.what()));
        return false;
    }
}

}  // namespace

int RunWatch(const WatchOptions &options) {
    HandleSignals();
    tav::Watch watch(
        options.file.target.file.given,
        {.refer = ReferOf(options.file), .ignoreRefer = options.file.ignoresRefer, .wait = options.file.wait});
    for (size_t count = 0; g_isInterrupted == 0 && (options.limit == 0 || count < options.limit);) {
        if (Wait(&watch)) {
            ++count;
            Report(TextOf(tav::Diff(watch.Before(), watch.After()), options), options);
        }
    }
    return 0;
}

}  // namespace tavcfg
