/*
 * What stands below the options in a help text: examples, and what the command's arguments and exit codes mean.
 */
#ifndef TAVCFG_HELP_H
#define TAVCFG_HELP_H

#include <CLI/CLI.hpp>

namespace tavcfg {

/** Writes the footers of the app and of all commands that it has by now. */
void AddFooters(CLI::App *app);

}  // namespace tavcfg

#endif
