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
        case TAV_ERR_DIGEST:
            return "the digest failed";
        case TAV_ERR_READ:
            return "it could not be read";
        case TAV_ERR_REFUSED:
            return "it would be larger than 100 MiB, or the disk took only a part";
        case TAV_ERR_OPEN:
            return "it could not be opened";
        case TAV_ERR_INVALID:
            return "invalid data";
        case TAV_ERR_NOT_FOUND:
            return "not found";
        case TAV_ERR_NO_ROOM:
            return "no room";
        default:
            return "the platform reports an error";
    }
}

}  // namespace

std::string SystemWords(int error) {
    return std::generic_category().message(error) + WayOut(error);
}

void FailOfSystem(uint32_t code, const std::string &place, const std::string &what, int error) {
    throw tav::Error(code, place, what + ": " + SystemWords(error));
}

}  // namespace session

std::string tav::CodeText(uint32_t code) {
    return fmt::format("{} (code 0x{:x})", session::Meaning(code), code);
}
