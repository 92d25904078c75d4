/*
 * Passwords and secret texts: where they are kept, and how they are asked for.
 */
#ifndef TAVCFG_SECRET_INPUT_H
#define TAVCFG_SECRET_INPUT_H

#include <cstdint>

#include "tav_crypt.h"

namespace tavcfg {

/** A text that nobody may find in memory later: wiped with its holder. Always terminated. */
class SecretText {
  public:
    SecretText() = default;
    ~SecretText();
    SecretText(const SecretText &) = delete;
    SecretText &operator=(const SecretText &) = delete;

    char *data() { return bytes_; }
    const char *data() const { return bytes_; }

    /** Length of the text, without its terminator. */
    uint32_t size() const;

    /** Bytes that can be stored, terminator included: a longest line with its end, and one more. */
    static constexpr uint32_t capacity() { return sizeof(bytes_); }

  private:
    char bytes_[TAV_PWD_BUFFER_SIZE + 2] = {};
};

/** How a text is asked for when standard input is a terminal. */
enum class Asking { kShown, kHidden, kHiddenTwice };

/**
 * Reads one line, without its end (a line feed, perhaps behind a carriage return), from standard input. From a terminal
 * that is the next line; anything else must hold no further one. No buffer but the given one sees the text. Throws
 * Failure, also for a line of TAV_PWD_BUFFER_SIZE bytes and more and for a zero byte.
 *
 * @param what    what is asked for, for prompts and messages: "password"
 * @param asking  how
 * @param text    receives the line
 */
void ReadLine(const char *what, Asking asking, SecretText *text);

/** Prints a text and a line feed on standard output, past its buffer. Throws Failure. */
void PrintSecret(const SecretText &text);

}  // namespace tavcfg

#endif
