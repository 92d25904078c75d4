/*
 * The command line: which command, and its options.
 */
#ifndef TAVCFG_COMMAND_LINE_H
#define TAVCFG_COMMAND_LINE_H

#include <functional>
#include <optional>

#include "commands.h"

namespace tavcfg {

/** What to do. */
struct Invocation {
    std::function<int(const Options &)> run;
    Options options;
    int failureCode = 1;  // exit code of a Failure
};

/** Parses the command line. Returns none when help was asked for and printed. Throws UsageError. */
std::optional<Invocation> ParseCommandLine(int argc, const char *const *argv);

}  // namespace tavcfg

#endif
