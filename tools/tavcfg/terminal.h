/*
 * What is particular to terminals: characters that would steer them, characters that take two columns or none, colours.
 * Nothing here depends on the locale: text is UTF-8.
 */
#ifndef TAVCFG_TERMINAL_H
#define TAVCFG_TERMINAL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace tavcfg {

/**
 * A text on one line that no terminal takes for commands: a ? for each control character, those that turn the direction
 * of writing among them, and for each byte of no UTF-8.
 */
std::string Printable(std::string_view text);

/** How many columns a printable text takes. */
size_t WidthOf(std::string_view text);

/** What a line on standard output is, as its colour shows. */
enum class Look : uint8_t { kHeading, kAdded, kChanged, kRemoved };

/** A text in its colour, if standard output is a terminal that takes colours and the variable NO_COLOR is not set. */
std::string Paint(Look look, std::string_view text);

/** The beginning of a printable text, as much of it as takes so many columns. */
std::string Cut(const std::string &text, size_t width);

}  // namespace tavcfg

#endif
