#include "errors.h"

#include <fmt/format.h>

#include "tav_base.h"

namespace tavcfg {

namespace {

const char *Words(uint32_t code) {
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

std::string Explain(uint32_t code) {
    return fmt::format("{} (code 0x{:x})", Words(code), code);
}

}  // namespace tavcfg
