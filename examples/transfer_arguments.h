/*
 * Arguments of the file-transfer programs.
 */
#ifndef EXAMPLES_TRANSFER_ARGUMENTS_H
#define EXAMPLES_TRANSFER_ARGUMENTS_H

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>

/** Reads a whole argument as a decimal number of 32 bits; `what` names it in the error. Throws std::invalid_argument.
 */
inline uint32_t NumberArgument(const std::string &argument, const char *what) {
    uint32_t number = 0;
    const char *end = argument.data() + argument.size();
    const auto [stop, error] = std::from_chars(argument.data(), end, number);
    if (error != std::errc() || stop != end) {
        throw std::invalid_argument("'" + argument + "' is no " + what);
    }
    return number;
}

#endif
