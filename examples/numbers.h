/*
 * Numbers in texts: arguments, commands and values.
 */
#ifndef EXAMPLES_NUMBERS_H
#define EXAMPLES_NUMBERS_H

#include <charconv>
#include <cstdint>
#include <stdexcept>
#include <string>

/** Parses a decimal number of 32 bits; `what` names it in the message. Throws std::invalid_argument. */
inline uint32_t ParseNumber(const std::string &text, const char *what) {
    uint32_t number = 0;
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc{} || stop != end) {
        throw std::invalid_argument(std::string(what) + " '" + text + "' is not a number of 32 bits");
    }
    return number;
}

#endif
