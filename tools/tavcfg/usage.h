/*
 * What is wrong with a command line, in words.
 */
#ifndef TAVCFG_USAGE_H
#define TAVCFG_USAGE_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace tavcfg {

/** Each checks the value of an option. */
CLI::Validator WholeNumber(uint64_t least, uint64_t most);
CLI::Validator Seconds();
CLI::Validator OneOf(const std::vector<std::string> &words);
CLI::Validator NotEmpty();

/**
 * Throws UsageError for a command line that could not be parsed: it names a word that is unknown, and the one that may
 * have been meant.
 */
[[noreturn]] void RefuseCommandLine(const CLI::App &app, const CLI::ParseError &error);

}  // namespace tavcfg

#endif
