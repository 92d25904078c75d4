/*
 * The command line: which command, and its options.
 */
#ifndef TAVCFG_COMMAND_LINE_H
#define TAVCFG_COMMAND_LINE_H

#include <optional>

#include "invocation.h"

namespace tavcfg {

/** Parses the command line. Returns nothing when help was asked for and printed. Throws UsageError. */
std::optional<Invocation> ParseCommandLine(int argc, const char *const *argv);

}  // namespace tavcfg

#endif
