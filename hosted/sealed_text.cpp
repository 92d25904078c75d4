#include "sealed_text.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <cerrno>
#include <cstring>

#include <memory>

#include "base64url.h"
#include "interfaces.h"

namespace hosted {

namespace {

constexpr size_t kKeyIdSize = 2;
constexpr size_t kKeyIdAt = 2;  // in a head
constexpr const char *kKeyIdPurpose = "tav key id 1";
static_assert(kKeyIdAt + Base64Length(kKeyIdSize) + 1 == kHeadLength,
              "the closing dollar is the head's last character");

/** What a text stands for. */
struct Sealed {
    const Kind *kind;
    char head[kHeadLength + 1];
    size_t plainSize;
    uint8_t bytes[kMaxSealedSize];  // vector, encrypted bytes, tag

    size_t Size() const { return kVectorSize + plainSize + kTagSize; }
    uint8_t *Encrypted() { return bytes + kVectorSize; }
    uint8_t *Tag() { return bytes + kVectorSize + plainSize; }
    bool HasKeyId() const { return memcmp(head, kind->olderHead, kHeadLength) != 0; }
};

struct FreeCrypto {
    void operator()(EVP_CIPHER_CTX *context) const { EVP_CIPHER_CTX_free(context); }
    void operator()(EVP_KDF *kdf) const { EVP_KDF_free(kdf); }
    void operator()(EVP_KDF_CTX *context) const { EVP_KDF_CTX_free(context); }
};
template <typename Object>
using Owned = std::unique_ptr<Object, FreeCrypto>;

/** Returns whether a text, of a head's length at least, begins as those of a kind do. */
bool HasHeadOf(const Kind &kind, const char *text) {
    uint8_t id[kKeyIdSize];
    size_t idSize = sizeof(id);
    return memcmp(text, kind.olderHead, kHeadLength) == 0 ||
           (text[0] == '$' && text[1] == kind.letter && text[kHeadLength - 1] == '$' &&
            DecodeBase64(text + kKeyIdAt, Base64Length(kKeyIdSize), id, &idSize));
}

/** Reads a text. Returns whether it looks like a sealed one. */
bool Parse(const char *text, size_t length, Sealed *sealed) {
    if (text == nullptr || length < kHeadLength || (!HasHeadOf(kReversible, text) && !HasHeadOf(kDigestBased, text))) {
        return false;
    }
    sealed->kind = HasHeadOf(kReversible, text) ? &kReversible : &kDigestBased;
    memcpy(sealed->head, text, kHeadLength);
    size_t size = sizeof(sealed->bytes);
    if (!DecodeBase64(text + kHeadLength, length - kHeadLength, sealed->bytes, &size) ||
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

/** Writes what the texts of a kind begin with under a secret. Its id tells nothing else about the secret. */
uint32_t WriteHead(const Key &secret, const Kind &kind, char (&head)[kHeadLength + 1]) {
    Key derived;
    const uint32_t code = DeriveKey(secret, kKeyIdPurpose, nullptr, &derived);
    head[0] = '$';
    head[1] = kind.letter;
    EncodeBase64(derived.data(), kKeyIdSize, head + kKeyIdAt);
    strcpy_s(head + kHeadLength - 1, sizeof("$"), "$");
    return code;
}

enum Direction { kDecrypt = 0, kEncrypt = 1 };  // as EVP_CipherInit_ex has them

/**
 * Encrypts `input` into a sealed text whose head and vector are set, and sets its tag; or decrypts a sealed text's
 * bytes, which are then `input`, and compares the tag.
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
           update(nullptr, sealed->head, kHeadLength) &&  // authenticated only
           update(output, input, sealed->plainSize) && EVP_CipherFinal_ex(context, output, &rest) == 1 &&
           (direction == kDecrypt || control(EVP_CTRL_AEAD_GET_TAG, kTagSize, sealed->Tag()));
}

}  // namespace

const Kind *KindOf(const char *text, size_t length) {
    Sealed sealed;
    return Parse(text, length, &sealed) ? sealed.kind : nullptr;
}

bool Fits(const Kind &kind, size_t plainSize, size_t size) {
    return plainSize <= kind.maxPlainSize && kHeadLength + Base64Length(kVectorSize + plainSize + kTagSize) < size;
}

uint32_t Seal(const Key &secret, const Kind &kind, const void *plain, size_t plainSize, const char *keyContext,
              const uint8_t *vector, char *output) {
    Sealed sealed = {&kind, {}, plainSize, {}};
    Key key;
    uint32_t code = WriteHead(secret, kind, sealed.head);
    if (code == 0) {
        code = DeriveKey(secret, kind.purpose, keyContext, &key);
    }
    if (code != 0) {
        return code;
    }
    memcpy(sealed.bytes, vector, kVectorSize);
    if (!RunCipher(kEncrypt, key, &sealed, static_cast<const uint8_t *>(plain), sealed.Encrypted())) {
        return EIO;
    }
    memcpy(output, sealed.head, kHeadLength);
    EncodeBase64(sealed.bytes, sealed.Size(), output + kHeadLength);
    return 0;
}

uint32_t Unseal(const Key &secret, const Kind &kind, const char *text, size_t length, const char *keyContext,
                Plain *plain, size_t *plainSize) {
    Sealed sealed;
    if (!Parse(text, length, &sealed) || sealed.kind != &kind) {
        return EINVAL;
    }
    char head[kHeadLength + 1] = "";
    Key key;
    uint32_t code = WriteHead(secret, kind, head);
    if (code == 0 && sealed.HasKeyId() && memcmp(sealed.head, head, kHeadLength) != 0) {
        code = ENOKEY;
    }
    if (code == 0) {
        code = DeriveKey(secret, kind.purpose, keyContext, &key);
    }
    if (code != 0) {
        return code;
    }
    *plainSize = sealed.plainSize;
    return RunCipher(kDecrypt, key, &sealed, sealed.Encrypted(), plain->data()) ? 0 : EBADMSG;
}

}  // namespace hosted
