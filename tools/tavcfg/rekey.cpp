#include "rekey.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <string_view>

#include "errors.h"
#include "platform/bex_crypt.h"
#include "secret.h"
#include "tav_crypt.h"
#include "tav_posix.h"

namespace tavcfg {

namespace {

constexpr size_t kHeadLength = 6;  // of a cipher text, from dollar to dollar; then come characters as IsInner has them

bool IsInner(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

/** Returns the length of the cipher text that a text begins with; 0 when it does not. */
size_t CipherLength(std::string_view text) {
    if (text.size() < kHeadLength || text[0] != '$' || text[kHeadLength - 1] != '$') {
        return 0;
    }
    const auto end = std::find_if_not(text.begin() + kHeadLength, text.end(), IsInner);
    const auto length = static_cast<size_t>(end - text.begin());
    return length < TAV_PWD_BUFFER_SIZE && BEX_CRYPT_IsCipher(text.data(), static_cast<uint32_t>(length)) != 0 ? length
                                                                                                               : 0;
}

std::string ReadAll() {
    std::string text;
    char piece[4096];
    for (size_t got = 0; (got = fread(piece, 1, sizeof(piece), stdin)) != 0;) {
        text.append(piece, got);
    }
    if (ferror(stdin) != 0) {
        throw Failure("cannot read standard input");
    }
    return text;
}

/** Encrypts a cipher text anew under the context that it has. Returns 0, else the code that says most. */
uint32_t Rekey(const std::string &oldKeyFile, const std::vector<std::string> &contexts, std::string_view text,
               char (&output)[TAV_PWD_BUFFER_SIZE]) {
    uint32_t code = EINVAL;
    for (const std::string &context : contexts) {
        code = TAV_Posix_Rekey(oldKeyFile.c_str(), text.data(), static_cast<uint32_t>(text.size()), context.c_str(),
                               output, sizeof(output));
        if (code != EBADMSG) {
            break;
        }
    }
    return code;
}

}  // namespace

int RunRekey(const RekeyOptions &options) {
    const std::string oldKeyFile = std::filesystem::absolute(options.oldKeyFile);
    const std::string text = ReadAll();
    std::string result;
    size_t count = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t length = CipherLength(std::string_view(text).substr(at));
        if (length == 0) {
            result += text[at++];
            continue;
        }
        char output[TAV_PWD_BUFFER_SIZE] = "";
        const uint32_t code = Rekey(oldKeyFile, options.contexts, std::string_view(text).substr(at, length), output);
        if (code != 0) {
            const auto line = std::count(text.begin(), text.begin() + static_cast<ptrdiff_t>(at), '\n') + 1;
            throw Failure(fmt::format("cannot encrypt line {} anew: {}", line, ExplainRekey(code, oldKeyFile)));
        }
        result += output;
        at += length;
        ++count;
    }
    TellOfNewKey();
    if (count == 0) {
        throw Failure("there is no cipher text on standard input");
    }
    fmt::print("{}", result);
    return 0;
}

}  // namespace tavcfg
