/*
 * What failures are called: codes of the system in words, and the way out.
 */
#ifndef SESSION_ERRORS_H
#define SESSION_ERRORS_H

#include <cerrno>
#include <cstdint>
#include <string>

#include "tav/error.h"
#include "tav_session.h"

namespace session {

/** An errno code in the system's words, with the way out behind it where there is a usual one. */
std::string SystemWords(int error);

/** Throws Error: "place: what: the system's words". */
[[noreturn]] void FailOfSystem(uint32_t code, const std::string &place, const std::string &what, int error = errno);

}  // namespace session

#endif
