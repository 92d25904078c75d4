#include "errors.h"

#include <fmt/format.h>

#include <cerrno>
#include <climits>
#include <system_error>

#include "tav_crypt.h"
#include "tav_extcfg.h"
#include "tav_posix.h"
#include "tav_session.h"

namespace tavcfg {

namespace {

std::string KeyFile() {
    char path[PATH_MAX] = "";
    switch (TAV_Posix_KeyFilePath(path, sizeof(path))) {
        case 0:
            return path;
        case EINVAL:
            return fmt::format("{} (not an absolute path)", path);
        default:
            return "(its path is too long)";
    }
}

}  // namespace

std::string WithWayOut(const tav::Error &error) {
    return error.what() + (error.Code() == TAV_ERR_BACKUP ? ": tavcfg recover " + error.Place() : std::string());
}

std::string ExplainCipher(uint32_t code) {
    switch (code) {
        case TAV_CRYPT_FAILED:
            return "there are no random numbers";
        case EINVAL:
            return "it is no cipher text that can be decrypted";
        case ERANGE:
            return "it is too long for a cipher text";
        case EBADMSG:
            return fmt::format(
                "it was changed, or encrypted under another key context; or it begins with $rev1$ or "
                "$dig1$, which name no key, and was encrypted with another one than key file {}",
                KeyFile());
        case ENOKEY:
            return fmt::format("it was encrypted with another key than key file {} (see tavcfg rekey)", KeyFile());
        case EIO:
            return fmt::format("the cryptography fails, or key file {} cannot be read or made", KeyFile());
        case EACCES:
            return fmt::format(
                "key file {}: permission denied, or it is no key file, or others may touch it or write to its folder",
                KeyFile());
        default:
            return fmt::format("key file {}: {}", KeyFile(), std::generic_category().message(static_cast<int>(code)));
    }
}

std::string ExplainRekey(uint32_t code, const std::string &oldKeyFile) {
    switch (code) {
        case EBADMSG:
            return "it was changed, or encrypted under another key context; or it begins with $rev1$ or $dig1$, which "
                   "name no key, and was encrypted with another one than the old and the present key";
        case ENOKEY:
            return fmt::format("it was encrypted with another key than key files {} and {}", oldKeyFile, KeyFile());
        case ENOENT:
            return fmt::format("there is no key file {}", oldKeyFile);
        case EACCES:
            return fmt::format(
                "key file {} or {}: permission denied, or it is no key file, or others may touch it or "
                "write to its folder",
                oldKeyFile, KeyFile());
        default:
            return ExplainCipher(code);
    }
}

}  // namespace tavcfg
