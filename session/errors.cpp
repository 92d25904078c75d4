/*
 * Failures in words.
 */
#include "session/errors.h"

#include <fmt/format.h>

#include <system_error>

#include "tav_base.h"

namespace session {

namespace {

const char *WayOut(int error) {
    switch (error) {
        case EACCES:
        case EPERM:
            return "; have its permissions changed, or go on as a user who has them";
        case EROFS:
            return "; it can only be read where it stands";
        case ENOSPC:
        case EDQUOT:
            return "; make room and try again";
        default:
            return "";
    }
}

const char *Meaning(uint32_t code) {
    switch (code) {
        case TAV_ERR_COPY:
            return "a copy or the digest failed";
        case TAV_ERR_NO_MEMORY:
            return "memory is short";
        case TAV_ERR_REFUSED:
            return "the disk took only a part";
        case TAV_ERR_OPEN:
            return "it could not be opened";
        case TAV_ERR_INVALID:
            return "invalid data";
        case TAV_ERR_NOT_FOUND:
            return "not found";
        default:
            return "the platform reports an error";
    }
}

}  // namespace

std::string SystemWords(int error) {
    return std::generic_category().message(error) + WayOut(error);
}

std::string ProductWords(uint32_t code) {
    return fmt::format("{} (code 0x{:x})", Meaning(code), code);
}

void FailOfSystem(uint32_t code, const std::string &place, const std::string &what, int error) {
    throw tav::Error(code, place, what + ": " + SystemWords(error));
}

}  // namespace session
