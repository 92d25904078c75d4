/*
 * Cipher texts of the library: which sealed text a mode makes, and the key file behind it.
 *
 * Codes are those of sealed texts and of the key file; ERANGE no room. Outputs are written last, so they may lie where
 * the inputs do.
 */
#include <cerrno>
#include <cstring>

#include "interfaces.h"
#include "key_file.h"
#include "sealed_text.h"

using hosted::kDigestBased;
using hosted::Key;
using hosted::Kind;
using hosted::kReversible;
using hosted::MissingKeyFile;
using hosted::Plain;
using hosted::Secret;

namespace {

/** Encrypts bytes into a cipher text of a kind. */
uint32_t EncryptBytes(const Kind &kind, const void *plain, size_t plainSize, char *output, size_t size,
                      const char *keyContext, const uint8_t *vector) {
    if (!hosted::Fits(kind, plainSize, size)) {
        return ERANGE;
    }
    Key secret;
    const uint32_t code = hosted::ReadKeyFile(MissingKeyFile::kCreate, &secret);
    return code == 0 ? hosted::Seal(secret, kind, plain, plainSize, keyContext, vector, output) : code;
}

/** Encrypts the digest of a text into the digest-based form. */
uint32_t EncryptDigest(const char *plain, uint32_t length, char *output, size_t size, const char *keyContext,
                       const uint8_t *vector) {
    Secret<hosted::kDigestSize> digest;
    uint32_t digestLength = 0;
    const uint32_t code = BEX_Crypt_Digest(plain, length, digest.data(), &digestLength, hosted::kDigestSize);
    return code == 0 ? EncryptBytes(kDigestBased, digest.data(), digestLength, output, size, keyContext, vector) : code;
}

/** Encrypts a text as the mode says. */
uint32_t Encrypt(const char *plain, uint32_t length, char *output, size_t size, uint32_t mode, const char *keyContext,
                 const uint8_t *vector) {
    // Whoever decrypts a text with a terminator inside would see only a part of it, and not know.
    if (plain == nullptr || vector == nullptr || memchr(plain, '\0', length) != nullptr) {
        return EINVAL;
    }
    switch (mode) {
        case 0:
        case 1:
            return EncryptBytes(kReversible, plain, length, output, size, keyContext, vector);
        case 2:
            return EncryptDigest(plain, length, output, size, keyContext, vector);
        default:
            return EINVAL;
    }
}

/** Decrypts a cipher text of a kind. */
uint32_t Decrypt(const Kind &kind, const char *text, uint32_t length, const char *keyContext, Plain *plain,
                 size_t *plainSize) {
    if (hosted::KindOf(text, length) != &kind) {
        return EINVAL;
    }
    Key secret;
    const uint32_t code = hosted::ReadKeyFile(MissingKeyFile::kFail, &secret);
    return code == 0 ? hosted::Unseal(secret, kind, text, length, keyContext, plain, plainSize) : code;
}

/** Decrypts a cipher text with an old key, or with the present one when it has that already. */
uint32_t DecryptWithEither(const Key &oldKey, const Kind &kind, const char *text, uint32_t length,
                           const char *keyContext, Plain *plain, size_t *plainSize) {
    const uint32_t oldCode = hosted::Unseal(oldKey, kind, text, length, keyContext, plain, plainSize);
    if (oldCode != ENOKEY && oldCode != EBADMSG) {
        return oldCode;
    }
    const uint32_t code = Decrypt(kind, text, length, keyContext, plain, plainSize);
    return code == ENOKEY || code == ENOENT ? oldCode : code;  // without a present key there is but the old one
}

/** Brings a cipher text from an old key to the present one. */
uint32_t Rekey(const char *oldKeyFile, const char *text, uint32_t length, const char *keyContext, char *output,
               uint32_t size) {
    const Kind *const kind = hosted::KindOf(text, length);
    if (kind == nullptr || oldKeyFile == nullptr) {
        return EINVAL;
    }
    Key oldKey;
    Plain plain;
    size_t plainSize = 0;
    uint8_t vector[hosted::kVectorSize];
    uint32_t code = hosted::ReadKeyFileAt(oldKeyFile, &oldKey);
    if (code == 0) {
        code = DecryptWithEither(oldKey, *kind, text, length, keyContext, &plain, &plainSize);
    }
    if (code == 0) {
        code = CRYPT_random(vector, sizeof(vector));
    }
    return code == 0 ? EncryptBytes(*kind, plain.data(), plainSize, output, size, keyContext, vector) : code;
}

}  // namespace

uint32_t BEX_CRYPT_IsCipher(const char *text, uint32_t length) {
    const Kind *const kind = hosted::KindOf(text, length);
    return kind != nullptr ? kind->id : 0;
}

uint32_t BEX_CRYPT_Encrypt_Sec(const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext, const uint8_t *vector) {
    if (output == nullptr || size == 0) {
        return EINVAL;
    }
    const uint32_t code = Encrypt(plain, length, output, size, mode, keyContext, vector);
    if (code != 0) {
        output[0] = '\0';
    }
    return code;
}

uint32_t BEX_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t /*mode*/,
                               const char *keyContext) {
    if (output == nullptr || size == 0) {
        return EINVAL;
    }
    Plain plain;
    size_t plainSize = 0;
    uint32_t code = Decrypt(kReversible, cipher, length, keyContext, &plain, &plainSize);
    if (code == 0 && plainSize >= size) {
        code = ERANGE;
    }
    if (code != 0) {
        plainSize = 0;
    }
    memcpy(output, plain.data(), plainSize);
    output[plainSize] = '\0';
    return code;
}

uint32_t BEX_Decrypt_AES256_Sec(const char *text, uint32_t length, void *output, uint32_t *outputLength,
                                const char *keyContext) {
    if (output == nullptr || outputLength == nullptr) {
        return EINVAL;
    }
    const uint32_t capacity = *outputLength;
    *outputLength = 0;
    Plain digest;
    size_t digestSize = 0;
    uint32_t code = Decrypt(kDigestBased, text, length, keyContext, &digest, &digestSize);
    if (code == 0 && digestSize > capacity) {
        code = ERANGE;
    }
    if (code != 0) {
        memset(output, 0, capacity);
        return code;
    }
    memcpy(output, digest.data(), digestSize);
    *outputLength = static_cast<uint32_t>(digestSize);
    return 0;
}

uint32_t SYSDT_IsStringCipher_CRYPT(const char *text, uint32_t length, uint32_t /*mode*/, const char *keyContext) {
    // Who does not know the context asks for the look: a text of ours decrypts under the context it was made under.
    if (keyContext == nullptr || keyContext[0] == '\0') {
        return BEX_CRYPT_IsCipher(text, length) == kReversible.id ? kReversible.id : 0;
    }
    Plain plain;
    size_t plainSize = 0;
    return Decrypt(kReversible, text, length, keyContext, &plain, &plainSize) == 0 ? kReversible.id : 0;
}

uint32_t TAV_Posix_Rekey(const char *oldKeyFile, const char *text, uint32_t length, const char *keyContext,
                         char *output, uint32_t size) {
    if (output == nullptr || size == 0) {
        return EINVAL;
    }
    const uint32_t code = Rekey(oldKeyFile, text, length, keyContext, output, size);
    if (code != 0) {
        output[0] = '\0';
    }
    return code;
}
