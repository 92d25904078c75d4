/*
 * base93_text encode|decode: turns every line of the standard input into base 93, or back. script/test-foreign compares
 * what it gives on different machines.
 */
#include <cstdio>
#include <iostream>
#include <string>

#include "tav_crypt.h"

namespace {

std::string Encode(const std::string &line) {
    std::string digits(line.size() * 2 + 10, '\0'), text(digits.size(), '\0');
    auto *const bytes = reinterpret_cast<uint8_t *>(digits.data());
    uint32_t count = 0;
    const bool isDone = TAV_BinToAscii(line.data(), static_cast<uint16_t>(line.size()), bytes, &count) == 0 &&
                        TAV_AsciiVisible(bytes, count, text.data(), static_cast<uint32_t>(text.size())) == 0;
    return text.substr(0, isDone ? count : 0);
}

std::string Decode(const std::string &text) {
    std::string digits(text.size() + 1, '\0'), line(text.size() + 4, '\0');
    auto *const bytes = reinterpret_cast<uint8_t *>(digits.data());
    uint32_t count = 0;
    uint16_t length = 0;
    const bool isDone = TAV_AsciiUnvisible(text.c_str(), bytes, &count) == 0 &&
                        TAV_AsciiToBin(bytes, count, line.data(), static_cast<uint32_t>(line.size()), &length) == 0;
    return line.substr(0, isDone ? length : 0);
}

}  // namespace

int main(int argc, char **argv) {
    const std::string mode = argc == 2 ? argv[1] : "";
    if (mode != "encode" && mode != "decode") {
        std::cerr << "usage: base93_text encode|decode\n";
        return 2;
    }
    for (std::string line; std::getline(std::cin, line);) {
        const std::string result = mode == "encode" ? Encode(line) : Decode(line);
        if (result.empty()) {
            std::cerr << "base93_text: cannot " << mode << " \"" << line << "\"\n";
            return 1;
        }
        std::cout << result << '\n';
    }
    return 0;
}
