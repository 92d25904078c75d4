/*
 * The command line: which command, and its options.
 */
#ifndef TAVCFG_COMMAND_LINE_H
#define TAVCFG_COMMAND_LINE_H

#include <functional>
#include <optional>

namespace tavcfg {

/** What to do. */
struct Invocation {
    bool logs = false;         // the debug log is to be switched on
    int failureCode = 1;       // exit code of all failures but usage errors, locks, and the answer no
    std::function<int()> run;  // needs the library's types. Returns the exit code. Throws Failure and UsageError
};

/** Parses the command line. Returns nothing when help was asked for and printed. Throws UsageError. */
std::optional<Invocation> ParseCommandLine(int argc, const char *const *argv);

}  // namespace tavcfg

#endif
