#include "terminal.h"

#include <unictype.h>
#include <unistd.h>
#include <unistr.h>
#include <uniwidth.h>

#include <algorithm>
#include <cstdlib>

namespace tavcfg {

namespace {

/** The first character of a text that is not empty. */
struct Character {
    std::string_view bytes;
    int width;  // in columns; negative for a control character and for a byte that is no UTF-8
};

Character FirstOf(std::string_view text) {
    ucs4_t code = 0;
    const int length = u8_mbtoucr(&code, reinterpret_cast<const uint8_t *>(text.data()), text.size());
    if (length <= 0) {
        return {text.substr(0, 1), -1};
    }
    const bool isControl = code == 0 || uc_is_property_bidi_control(code);
    return {text.substr(0, static_cast<size_t>(length)), isControl ? -1 : uc_width(code, "UTF-8")};
}

/** Returns whether a text consists of printable ASCII alone, as most do. */
bool IsPlain(std::string_view text) {
    return std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
}

bool TakesColours() {
    const auto variable = [](const char *name) {
        const char *const value = getenv(name);
        return std::string_view(value != nullptr ? value : "");
    };
    return isatty(STDOUT_FILENO) != 0 && variable("NO_COLOR").empty() && variable("TERM") != "dumb";
}

const char *ColourOf(Look look) {
    switch (look) {
        case Look::kHeading:
            return "\x1b[1m";  // bold
        case Look::kAdded:
            return "\x1b[32m";  // green
        case Look::kChanged:
            return "\x1b[33m";  // yellow
        case Look::kRemoved:
            break;
    }
    return "\x1b[31m";  // red
}

}  // namespace

std::string Printable(std::string_view text) {
    if (IsPlain(text)) {
        return std::string(text);
    }
    std::string printable;
    while (!text.empty()) {
        const auto [bytes, width] = FirstOf(text);
        printable += width < 0 ? "?" : bytes;
        text.remove_prefix(bytes.size());
    }
    return printable;
}

size_t WidthOf(std::string_view text) {
    if (IsPlain(text)) {
        return text.size();
    }
    size_t total = 0;
    while (!text.empty()) {
        const auto [bytes, width] = FirstOf(text);
        total += static_cast<size_t>(std::max(width, 0));
        text.remove_prefix(bytes.size());
    }
    return total;
}

std::string Paint(Look look, std::string_view text) {
    static const bool takesColours = TakesColours();
    return takesColours ? ColourOf(look) + std::string(text) + "\x1b[0m" : std::string(text);
}

std::string Cut(const std::string &text, size_t width) {
    std::string_view rest = text;
    while (!rest.empty() && static_cast<size_t>(std::max(FirstOf(rest).width, 0)) <= width) {
        width -= static_cast<size_t>(std::max(FirstOf(rest).width, 0));
        rest.remove_prefix(FirstOf(rest).bytes.size());
    }
    return text.substr(0, text.size() - rest.size());
}

}  // namespace tavcfg
