/*
 * How the C++ interfaces say no: a code, the place that it is about, and a sentence.
 */
#ifndef TAV_ERROR_H
#define TAV_ERROR_H

#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

/** Marks what libtav_session.so shows to C++ programs. */
#define TAV_VISIBLE __attribute__((visibility("default")))

namespace tav {

/**
 * What the C++ interfaces throw. Its text, what(), is "place: sentence", ready for people; programs ask for the code.
 */
class TAV_VISIBLE Error : public std::runtime_error {
  public:
    /**
     * @param code      a result code of tav_base.h or tav_session.h, never TAV_OK
     * @param place     what it is about: a file, a line of a script, a field; empty when the sentence says it all
     * @param sentence  what is wrong and, where there is one, the way out; without the place
     */
    Error(uint32_t code, std::string place, const std::string &sentence)
        : std::runtime_error(place.empty() ? sentence : place + ": " + sentence),
          code_(code),
          place_(std::move(place)) {}

    /** The result code. */
    uint32_t Code() const { return code_; }

    /** What it is about; may be empty. */
    const std::string &Place() const { return place_; }

  private:
    uint32_t code_;
    std::string place_;
};

/**
 * A result code of tav_base.h in words, with the code itself behind them: for codes of the C interface, which says no
 * more. From libtav_session.so.
 */
TAV_VISIBLE std::string CodeText(uint32_t code);

}  // namespace tav

#endif
