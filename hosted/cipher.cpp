/*
 * Cipher texts: AES-256 in Galois counter mode, under keys that are derived from the key file's secret.
 *
 *     $rev1$ base64url( vector | encrypted text | tag )      reversible
 *     $dig1$ base64url( vector | encrypted digest | tag )    digest-based form of a password
 *
 * The prefix names kind and version and is authenticated with the rest. Codes are errno values: EINVAL bad argument or
 * no cipher text, ERANGE no room, EBADMSG changed or another key context, EIO libcrypto refused, and those of the key
 * file. Outputs are written last, so they may lie where the inputs do.
 */
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <cerrno>
#include <cstring>

#include <memory>

#include "base64url.h"
#include "crypto.h"
#include "interfaces.h"
#include "key_file.h"

using hosted::ErrorMark;
using hosted::Key;
using hosted::MissingKeyFile;
using hosted::Secret;

namespace {

constexpr size_t kVectorSize = 16;
constexpr size_t kTagSize = 16;
constexpr size_t kDigestSize = 32;
constexpr size_t kPrefixLength = 6;
constexpr size_t kMaxFormLength = 432;  // the library takes no longer text for a cipher
constexpr size_t kMaxSealedSize = (kMaxFormLength - kPrefixLength) * 6 / 8;
constexpr size_t kMaxPlainSize = kMaxSealedSize - kVectorSize - kTagSize;

/** A kind of cipher text. */
struct Kind {
    uint32_t id;                     // what BEX_CRYPT_IsCipher answers
    char prefix[kPrefixLength + 1];  // what the texts begin with
    const char *purpose;             // separates the keys of the kinds
    size_t minPlainSize;             // bytes that are encrypted, at least and at most
    size_t maxPlainSize;
};

constexpr Kind kReversible = {8, "$rev1$", "tav reversible text 1", 0, kMaxPlainSize};
constexpr Kind kDigestBased = {6, "$dig1$", "tav password digest 1", kDigestSize, kDigestSize};

/** What a cipher text stands for. */
struct Sealed {
    const Kind *kind;
    size_t plainSize;
    uint8_t bytes[kMaxSealedSize];  // vector, encrypted bytes, tag

    size_t Size() const { return kVectorSize + plainSize + kTagSize; }
    uint8_t *Encrypted() { return bytes + kVectorSize; }
    uint8_t *Tag() { return bytes + kVectorSize + plainSize; }
};

using Plain = Secret<kMaxPlainSize>;

struct FreeCrypto {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
    void operator()(EVP_KDF *kdf) const { EVP_KDF_free(kdf); }
    void operator()(EVP_KDF_CTX *context) const { EVP_KDF_CTX_free(context); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, FreeCrypto>;

/** Reads a cipher text. Returns whether it looks like one. */
bool Parse(const char *text, size_t length, Sealed *sealed) {
    if (text == nullptr || length < kPrefixLength) {
        return false;
    }
    const auto hasPrefixOf = [=](const Kind &kind) { return memcmp(text, kind.prefix, kPrefixLength) == 0; };
    if (!hasPrefixOf(kReversible) && !hasPrefixOf(kDigestBased)) {
        return false;
    }
    sealed->kind = hasPrefixOf(kReversible) ? &kReversible : &kDigestBased;
    size_t size = sizeof(sealed->bytes);
    if (!hosted::DecodeBase64(text + kPrefixLength, length - kPrefixLength, sealed->bytes, &size) ||
        size < kVectorSize + kTagSize) {
        return false;
    }
    sealed->plainSize = size - kVectorSize - kTagSize;
    return sealed->plainSize >= sealed->kind->minPlainSize && sealed->plainSize <= sealed->kind->maxPlainSize;
}

/** Derives the key of a purpose and a context with HKDF-SHA256. */
uint32_t DeriveKey(const Key &secret, const char *purpose, const char *keyContext, Key *key) {
    char info[1024];  // the most that HKDF takes. No purpose holds a colon, so no two pairs make the same text
    const int infoLength = sprintf_s(info, sizeof(info), "%s:%s", purpose, keyContext != nullptr ? keyContext : "");
    if (infoLength < 0) {
        return EINVAL;
    }
    char digestName[] = "SHA256";
    const OSSL_PARAM settings[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digestName, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, const_cast<uint8_t *>(secret.data()), Key::size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info, static_cast<size_t>(infoLength)),
        OSSL_PARAM_construct_end()};
    const ErrorMark mark;
    const Owned<EVP_KDF> kdf(EVP_KDF_fetch(nullptr, "HKDF", nullptr));
    const Owned<EVP_KDF_CTX> context(EVP_KDF_CTX_new(kdf.get()));
    return context && EVP_KDF_derive(context.get(), key->data(), Key::size(), settings) == 1 ? 0 : EIO;
}

/** Gives the key under which texts of a kind and a key context are encrypted. */
uint32_t KeyOf(const Kind &kind, const char *keyContext, MissingKeyFile missing, Key *key) {
    Key secret;
    const uint32_t code = hosted::ReadKeyFile(missing, &secret);
    return code == 0 ? DeriveKey(secret, kind.purpose, keyContext, key) : code;
}

enum Direction { kDecrypt = 0, kEncrypt = 1 };  // as EVP_CipherInit_ex has them

/**
 * Encrypts `input` into a sealed text whose vector is set, and sets its tag; or decrypts a sealed text's bytes, which
 * are then `input`, and compares the tag.
 */
bool RunCipher(Direction direction, const Key &key, Sealed *sealed, const uint8_t *input, uint8_t *output) {
    const ErrorMark mark;
    const Owned<EVP_CIPHER_CTX> owned(EVP_CIPHER_CTX_new());
    EVP_CIPHER_CTX *const context = owned.get();
    const auto control = [=](int command, size_t size, void *data) {
        return EVP_CIPHER_CTX_ctrl(context, command, static_cast<int>(size), data) == 1;
    };
    const auto update = [=](uint8_t *to, const void *from, size_t size) {
        int moved = 0;
        return EVP_CipherUpdate(context, to, &moved, static_cast<const uint8_t *>(from), static_cast<int>(size)) == 1;
    };
    int rest = 0;  // this mode holds nothing back
    return context != nullptr &&
           EVP_CipherInit_ex(context, EVP_aes_256_gcm(), nullptr, nullptr, nullptr, direction) == 1 &&
           control(EVP_CTRL_AEAD_SET_IVLEN, kVectorSize, nullptr) &&
           EVP_CipherInit_ex(context, nullptr, nullptr, key.data(), sealed->bytes, direction) == 1 &&
           (direction == kEncrypt || control(EVP_CTRL_AEAD_SET_TAG, kTagSize, sealed->Tag())) &&
           update(nullptr, sealed->kind->prefix, kPrefixLength) &&  // authenticated only
           update(output, input, sealed->plainSize) && EVP_CipherFinal_ex(context, output, &rest) == 1 &&
           (direction == kDecrypt || control(EVP_CTRL_AEAD_GET_TAG, kTagSize, sealed->Tag()));
}

/** Encrypts bytes into a cipher text of a kind. */
uint32_t Seal(const Kind &kind, const void *plain, size_t plainSize, char *output, size_t size, const char *keyContext,
              const uint8_t *vector) {
    Sealed sealed = {&kind, plainSize, {}};
    if (plainSize > kind.maxPlainSize || kPrefixLength + hosted::Base64Length(sealed.Size()) >= size) {
        return ERANGE;
    }
    Key key;
    const uint32_t code = KeyOf(kind, keyContext, MissingKeyFile::kCreate, &key);
    if (code != 0) {
        return code;
    }
    memcpy(sealed.bytes, vector, kVectorSize);
    if (!RunCipher(kEncrypt, key, &sealed, static_cast<const uint8_t *>(plain), sealed.Encrypted())) {
        return EIO;
    }
    memcpy(output, kind.prefix, kPrefixLength);
    hosted::EncodeBase64(sealed.bytes, sealed.Size(), output + kPrefixLength);
    return 0;
}

/** Encrypts the digest of a text into the digest-based form. */
uint32_t SealDigest(const char *plain, uint32_t length, char *output, size_t size, const char *keyContext,
                    const uint8_t *vector) {
    Secret<kDigestSize> digest;
    uint32_t digestLength = 0;
    const uint32_t code = BEX_Crypt_Digest(plain, length, digest.data(), &digestLength, kDigestSize);
    return code == 0 ? Seal(kDigestBased, digest.data(), digestLength, output, size, keyContext, vector) : code;
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
            return Seal(kReversible, plain, length, output, size, keyContext, vector);
        case 2:
            return SealDigest(plain, length, output, size, keyContext, vector);
        default:
            return EINVAL;
    }
}

/** Decrypts a cipher text of a kind. */
uint32_t Unseal(const Kind &kind, const char *text, uint32_t length, const char *keyContext, Plain *plain,
                size_t *plainSize) {
    Sealed sealed;
    if (!Parse(text, length, &sealed) || sealed.kind != &kind) {
        return EINVAL;
    }
    Key key;
    const uint32_t code = KeyOf(kind, keyContext, MissingKeyFile::kFail, &key);
    if (code != 0) {
        return code;
    }
    *plainSize = sealed.plainSize;
    return RunCipher(kDecrypt, key, &sealed, sealed.Encrypted(), plain->data()) ? 0 : EBADMSG;
}

}  // namespace

uint32_t BEX_CRYPT_IsCipher(const char *text, uint32_t length) {
    Sealed sealed;
    return Parse(text, length, &sealed) ? sealed.kind->id : 0;
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
    uint32_t code = Unseal(kReversible, cipher, length, keyContext, &plain, &plainSize);
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
    uint32_t code = Unseal(kDigestBased, text, length, keyContext, &digest, &digestSize);
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
    return Unseal(kReversible, text, length, keyContext, &plain, &plainSize) == 0 ? kReversible.id : 0;
}
