/*
 * How the tool says no.
 */
#ifndef TAVCFG_ERRORS_H
#define TAVCFG_ERRORS_H

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tav/error.h"

namespace tavcfg {

/** A command was refused or failed: what, which file and why, in one line. Exit code 1; 2 of commands that ask. */
class Failure : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** A file was read and does not load. */
class Damage : public Failure {
    using Failure::Failure;
};

/** The answer of a command that asks is no. Exit code 1. */
class Denial : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** The command line is malformed. Exit code 2. */
class UsageError : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** What is wrong with a piece of data. Whoever knows its place turns it into a Failure or a UsageError. */
class Problem : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/** What a session complains of, with the command that is the way out, where there is one. */
std::string WithWayOut(const tav::Error &error);

/** Says why a text could not be encrypted or decrypted: what a code of the platform's ciphers means. */
std::string ExplainCipher(uint32_t code);

/** Says why a text could not be brought from an old key file to the present one. */
std::string ExplainRekey(uint32_t code, const std::string &oldKeyFile);

}  // namespace tavcfg

#endif
