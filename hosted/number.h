/*
 * Numbers in texts that come from outside.
 */
#ifndef HOSTED_NUMBER_H
#define HOSTED_NUMBER_H

#include <cstdint>

#include <charconv>
#include <string_view>

namespace hosted {

/**
 * Reads a number of 32 bits, decimal or, behind 0x, hexadecimal. The text must be the number and nothing else: neither
 * blanks nor a sign.
 *
 * @param text   the text
 * @param value  where the number goes; left alone on failure
 * @return whether it is one
 */
inline bool ParseNumber(std::string_view text, uint32_t *value) {
    const bool hexadecimal = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const char *const begin = text.data() + (hexadecimal ? 2 : 0);
    const char *const end = text.data() + text.size();
    uint32_t number = 0;
    const std::from_chars_result result = std::from_chars(begin, end, number, hexadecimal ? 16 : 10);
    if (result.ec != std::errc() || result.ptr != end) {
        return false;
    }
    *value = number;
    return true;
}

}  // namespace hosted

#endif
