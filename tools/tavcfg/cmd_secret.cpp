/*
 * encrypt, decrypt: texts that can be had back, under a key context.
 */
#include <fmt/format.h>

#include <cstdio>

#include "commands.h"
#include "errors.h"
#include "secret_input.h"

namespace tavcfg {

namespace {

constexpr uint32_t kReversible = 1;   // mode of the platform's cipher
constexpr size_t kMaxContext = 1000;  // bytes of a key context

}  // namespace

void RequireContext(const std::string &context) {
    if (context.size() > kMaxContext) {
        throw UsageError(
            fmt::format("--context: it has {} bytes, at most {} are possible", context.size(), kMaxContext));
    }
}

int RunEncrypt(const Options &options) {
    RequireContext(options.context);
    SecretText plain;
    ReadLine("text", Asking::kHiddenTwice, &plain);
    char cipher[TAV_PWD_BUFFER_SIZE];
    const uint32_t code = TAV_CRYPT_Encrypt_Sec(plain.Text(), plain.Length(), cipher, sizeof(cipher), kReversible,
                                                options.context.c_str());
    if (code != TAV_CRYPT_OK) {
        throw Failure(fmt::format("cannot encrypt the text: {}", ExplainCipher(code)));
    }
    fmt::print("{}\n", cipher);
    return 0;
}

int RunDecrypt(const Options &options) {
    RequireContext(options.context);
    SecretText cipher;
    ReadLine("cipher text", Asking::kShown, &cipher);
    SecretText plain;
    const uint32_t code = TAV_CRYPT_Decrypt(cipher.Text(), plain.Data(), SecretText::kSize, options.context.c_str());
    if (code != TAV_CRYPT_OK) {
        throw Failure(fmt::format("cannot decrypt the text: {}", ExplainCipher(code)));
    }
    PrintSecret(plain);
    return 0;
}

}  // namespace tavcfg
