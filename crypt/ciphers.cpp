/*
 * Reversible ciphers, which are the platform's: texts are encrypted, decrypted and recognised.
 */
#include "crypt/ciphers.h"

#include "common/log.h"
#include "platform/bex_crypt.h"

using crypt::kMinKind;
using crypt::kNoContext;
using crypt::TextBuffer;

namespace {

constexpr uint32_t kVectorSize = 16;  // bytes of the random vector of an encryption

constexpr uint32_t kTwoModeKind = 7;     // decrypts in one of two modes
constexpr uint32_t kMinContextKind = 8;  // tied to a key context
constexpr uint32_t kMaxContextKind = 11;

bool IsContextKind(uint32_t kind) {
    return kind >= kMinContextKind && kind <= kMaxContextKind;
}

/** Decrypts a cipher of kind 7. Returns the mode that did it; 0 when none did. */
uint32_t FindMode(const char *cipher, uint32_t length, TextBuffer *plain) {
    for (uint32_t mode = 1; mode <= 2; ++mode) {
        if (BEX_CRYPT_Decrypt_Sec(cipher, length, plain->data(), plain->size(), mode, kNoContext) == 0) {
            return mode;
        }
    }
    return 0;
}

/** Returns whether a cipher of this kind decrypts. */
bool Decrypts(uint32_t kind, const char *cipher, uint32_t length, uint32_t *mode, const char *keyContext) {
    TextBuffer plain;
    if (kind == kTwoModeKind) {
        const uint32_t found = FindMode(cipher, length, &plain);
        if (found != 0 && mode != nullptr) {
            *mode = found;
        }
        return found != 0;
    }
    return IsContextKind(kind) ? TAV_CRYPT_Decrypt_Sec(cipher, length, plain.data(), plain.size(), 0, keyContext) == 0
                               : BEX_CRYPT_Decrypt_Sec(cipher, length, plain.data(), plain.size(), 0, kNoContext) == 0;
}

/** Classifies a text by its look, from a terminated copy. Its length is below the buffer's. */
uint32_t KindOf(const char *text, uint32_t length) {
    TextBuffer copy;
    return memcpy_s(copy.data(), copy.size(), text, length) == 0 ? BEX_CRYPT_IsCipher(copy.data(), length) : 0;
}

}  // namespace

uint32_t TAV_CRYPT_Encrypt_Sec(const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext) {
    uint8_t vector[kVectorSize] = {};
    if (TAV_CRYPT_random(vector, kVectorSize) != 0) {
        return TAV_CRYPT_FAILED;
    }
    return BEX_CRYPT_Encrypt_Sec(plain, length, output, size, mode, keyContext, vector);
}

uint32_t TAV_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext) {
    return BEX_CRYPT_Decrypt_Sec(cipher, length, output, size, mode, keyContext);
}

uint32_t TAV_CRYPT_Decrypt(const char *cipher, char *output, uint32_t size, const char *keyContext) {
    if (cipher == nullptr || output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    return TAV_CRYPT_Decrypt_Sec(cipher, BEX_StrLen(cipher), output, size, 1, keyContext);
}

uint32_t TAV_CRYPT_IsCipher(const char *text, uint32_t length, uint32_t *mode, const char *keyContext) {
    if (text == nullptr) {
        return 0;
    }
    if (length >= TAV_PWD_BUFFER_SIZE) {
        LOG("dataStrLen exceed");
        return 1;
    }
    const uint32_t kind = KindOf(text, length);
    return kind < kMinKind || Decrypts(kind, text, length, mode, keyContext) ? kind : 0;
}

uint32_t TAV_IsStringCipher_EnhExp(const char *string) {
    if (string == nullptr) {
        return 0;
    }
    const uint32_t length = BEX_StrLen(string);
    if (length >= TAV_PWD_BUFFER_SIZE) {
        return 1;
    }
    const uint32_t kind = KindOf(string, length);
    if (kind < kMinKind || IsContextKind(kind)) {
        return kind;
    }
    TextBuffer plain;
    return TAV_CRYPT_Decrypt(string, plain.data(), plain.size(), kNoContext) == 0 ? kind : 0;
}
