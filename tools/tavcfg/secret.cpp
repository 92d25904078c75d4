#include "secret.h"

#include <fmt/format.h>

#include <climits>
#include <cstdio>

#include "errors.h"
#include "secret_input.h"
#include "tav_posix.h"

namespace tavcfg {

namespace {

constexpr uint32_t kReversible = 1;  // mode of the platform's cipher

}  // namespace

void TellOfNewKey() {
    char path[PATH_MAX] = "";
    if (TAV_Posix_KeyFilesMade() != 0 && TAV_Posix_KeyFilePath(path, sizeof(path)) == 0) {
        fmt::print(stderr, "tavcfg: made key file {}: keep a copy, without it nothing can be decrypted\n", path);
    }
}

int RunEncrypt(const SecretOptions &options) {
    SecretText plain;
    ReadLine("text", Asking::kHiddenTwice, &plain);
    char cipher[TAV_PWD_BUFFER_SIZE];
    const uint32_t code =
        TAV_CRYPT_Encrypt_Sec(plain.data(), plain.size(), cipher, sizeof(cipher), kReversible, options.context.c_str());
    TellOfNewKey();
    if (code != TAV_CRYPT_OK) {
        throw Failure(fmt::format("cannot encrypt the text: {}", ExplainCipher(code)));
    }
    fmt::print("{}\n", cipher);
    return 0;
}

int RunDecrypt(const SecretOptions &options) {
    SecretText cipher;
    ReadLine("cipher text", Asking::kShown, &cipher);
    SecretText plain;
    const uint32_t code =
        TAV_CRYPT_Decrypt(cipher.data(), plain.data(), SecretText::capacity(), options.context.c_str());
    if (code != TAV_CRYPT_OK) {
        throw Failure(fmt::format("cannot decrypt the text: {}", ExplainCipher(code)));
    }
    PrintSecret(plain);
    return 0;
}

}  // namespace tavcfg
