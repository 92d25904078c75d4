/*
 * The forms in which passwords and secrets are stored: which is which, and the verifiers of the two digest forms.
 */
#include "common/log.h"
#include "crypt/forms.h"
#include "platform/bex_crypt.h"

using namespace crypt;

namespace {

constexpr uint32_t kTwoModeKind = 7;     // decrypts in one of two modes
constexpr uint32_t kMinContextKind = 8;  // tied to a key context
constexpr uint32_t kMaxContextKind = 11;
constexpr uint32_t kMinDigestKind = 6;  // may be the digest-based form
constexpr uint32_t kMaxDigestKind = 11;

constexpr uint32_t kDigestSize = 32;
constexpr uint32_t kDigestBuffer = 33;

// The salted digest form: a base-93 text of these data bytes.
constexpr uint32_t kMaxSaltedText = 128;
constexpr uint32_t kMaxSaltedData = 52;
constexpr uint32_t kCheckAt = 0;
constexpr uint32_t kVersionAt = 1;
constexpr uint32_t kMarkerAt = 2;
constexpr uint32_t kSaltAt = 4;
constexpr uint32_t kSaltSize = 12;
constexpr uint32_t kDigestAt = 16;
constexpr uint8_t kVersion = 1;
constexpr uint8_t kMarker = 12;

using SaltedData = Secret<uint8_t, kMaxSaltedData>;

bool IsContextKind(uint32_t kind) {
    return kind >= kMinContextKind && kind <= kMaxContextKind;
}

/** Decrypts a cipher of kind 7. Returns the mode that did it; 0 when none did. */
uint32_t FindMode(const char *text, uint32_t length, TextBuffer *plain) {
    for (uint32_t mode = 1; mode <= 2; ++mode) {
        if (BEX_CRYPT_Decrypt_Sec(text, length, plain->Get(), plain->Size(), mode, kNoContext) == 0) {
            return mode;
        }
    }
    return 0;
}

/** Tells whether a cipher of this kind decrypts. */
bool Decrypts(uint32_t kind, const char *text, uint32_t length, uint32_t *mode, const char *keyContext) {
    TextBuffer plain;
    if (kind == kTwoModeKind) {
        const uint32_t found = FindMode(text, length, &plain);
        if (found != 0 && mode != nullptr) {
            *mode = found;
        }
        return found != 0;
    }
    return IsContextKind(kind) ? TAV_CRYPT_Decrypt_Sec(text, length, plain.Get(), plain.Size(), 0, keyContext) == 0
                               : BEX_CRYPT_Decrypt_Sec(text, length, plain.Get(), plain.Size(), 0, kNoContext) == 0;
}

/** Classifies a text by its look, from a terminated copy. Its length is below the buffer's. */
uint32_t KindOf(const char *text, uint32_t length) {
    TextBuffer copy;
    return memcpy_s(copy.Get(), copy.Size(), text, length) == 0 ? BEX_CRYPT_IsCipher(copy.Get(), length) : 0;
}

/** Decodes a salted digest form. Returns the decoder's result. */
uint32_t DecodeSalted(const char *text, SaltedData *data, uint16_t *length) {
    if (BEX_StrLen(text) > kMaxSaltedText) {
        return TAV_CRYPT_FAILED;
    }
    Secret<uint8_t, kMaxSaltedText + 1> digits;
    uint32_t count = 0;
    TAV_AsciiUnvisible(text, digits.Get(), &count);
    return TAV_AsciiToBin(digits.Get(), count, data->Get(), data->Size(), length);
}

/** The check byte of a salted digest form. The last byte is left out of it, on purpose. */
uint8_t CheckByte(const uint8_t *data, uint32_t length) {
    uint8_t check = 0;
    for (uint32_t i = 1; i + 1 < length; ++i) {
        check ^= data[i];
    }
    return check;
}

/** Digests salt and password. Returns 0; TAV_CRYPT_FAILED when a copy fails; TAV_ERR_NO_MEMORY; the digest's code. */
uint32_t DigestSalted(const uint8_t *salt, const char *password, Secret<uint8_t, kDigestBuffer> *digest,
                      uint32_t *digestLength) {
    const uint32_t length = BEX_StrLen(password);
    SecretBlock block(length + kSaltSize);
    if (!block.IsThere()) {
        return TAV_ERR_NO_MEMORY;
    }
    if (memcpy_s(block.Bytes(), block.Size(), salt, kSaltSize) != 0 ||
        memcpy_s(block.Bytes() + kSaltSize, block.Size() - kSaltSize, password, length) != 0) {
        return TAV_CRYPT_FAILED;
    }
    return BEX_Crypt_Digest(block.Bytes(), block.Size(), digest->Get(), digestLength, digest->Size());
}

}  // namespace

uint32_t TAV_CRYPT_IsCipher(const char *text, uint32_t length, uint32_t *mode, const char *keyContext) {
    if (text == nullptr) {
        return 0;
    }
    if (length >= TAV_PWD_BUFFER_SIZE) {
        TAV_LOG("dataStrLen exceed");
        return 1;
    }
    const uint32_t kind = KindOf(text, length);
    return kind < kMinKind || Decrypts(kind, text, length, mode, keyContext) ? kind : 0;
}

uint32_t TAV_IsStringCipher_EnhExp(const char *text) {
    if (text == nullptr) {
        return 0;
    }
    const uint32_t length = BEX_StrLen(text);
    if (length >= TAV_PWD_BUFFER_SIZE) {
        return 1;
    }
    const uint32_t kind = KindOf(text, length);
    if (kind < kMinKind || IsContextKind(kind)) {
        return kind;
    }
    TextBuffer plain;
    return TAV_CRYPT_Decrypt(text, plain.Get(), plain.Size(), kNoContext) == 0 ? kind : 0;
}

uint32_t TAV_IsStringV5SHACipher(const char *text, const char *keyContext) {
    TextBuffer copy;
    if (text == nullptr || strncpy_s(copy.Get(), copy.Size(), text, copy.Size() - 1) != 0) {
        return 1;
    }
    const uint32_t kind = BEX_CRYPT_IsCipher(copy.Get(), BEX_StrLen(copy.Get()));
    if (kind < kMinDigestKind || kind > kMaxDigestKind) {
        return 1;
    }
    Secret<uint8_t, 256> digest;
    uint32_t digestLength = digest.Size();
    const uint32_t result = BEX_Decrypt_AES256_Sec(text, BEX_StrLen(text), digest.Get(), &digestLength, keyContext);
    return result == 0 && digestLength == kDigestSize ? 0 : 1;
}

uint32_t TAV_VerifyV5SHACipher(const char *entered, const char *stored, const char *keyContext) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    Secret<uint8_t, kDigestBuffer> digest;
    uint32_t digestLength = digest.Size();
    Secret<uint8_t, TAV_PWD_BUFFER_SIZE> plain;
    uint32_t plainLength = plain.Size();
    if (BEX_Crypt_Digest(entered, BEX_StrLen(entered), digest.Get(), &digestLength, digest.Size()) != 0 ||
        BEX_Decrypt_AES256_Sec(stored, BEX_StrLen(stored), plain.Get(), &plainLength, keyContext) != 0) {
        return 1;
    }
    // The comparison of strings ends at a zero byte, where digests go on; so all bytes are compared after it.
    const bool isSame =
        digestLength == plainLength &&
        BEX_StrNCmp(reinterpret_cast<char *>(digest.Get()), reinterpret_cast<char *>(plain.Get()), digestLength) == 0 &&
        BEX_MemCmp(digest.Get(), plain.Get(), digestLength) == 0;
    return isSame ? TAV_CRYPT_OK : TAV_PWD_MISMATCH;
}

uint32_t TAV_IsStringSHACipher(const char *text) {
    SaltedData data;
    uint16_t length = 0;
    if (text == nullptr || DecodeSalted(text, &data, &length) != TAV_CRYPT_OK) {
        return 1;
    }
    const uint8_t *const bytes = data.Get();
    return bytes[kCheckAt] == CheckByte(bytes, length) && bytes[kVersionAt] == kVersion && bytes[kMarkerAt] == kMarker
               ? 0
               : 1;
}

uint32_t TAV_VerifySHACipher(const char *entered, const char *stored) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    SaltedData data;
    const uint32_t decoded = DecodeSalted(stored, &data, nullptr);
    if (decoded != TAV_CRYPT_OK) {
        return decoded;
    }
    Secret<uint8_t, kDigestBuffer> digest;
    uint32_t digestLength = digest.Size();
    const uint32_t digested = DigestSalted(data.Get() + kSaltAt, entered, &digest, &digestLength);
    if (digested != 0) {
        return digested;
    }
    return BEX_MemCmp(digest.Get(), data.Get() + kDigestAt, digestLength) == 0 ? TAV_CRYPT_OK : TAV_PWD_MISMATCH;
}

uint32_t TAV_IsStringIrreversibleCipher(const char *text) {
    if (text == nullptr) {
        return 0;
    }
    return BEX_CRYPT_IsPasswordCipher(text, BEX_StrLen(text)) == 0 || TAV_IsStringV5SHACipher(text, kNoContext) == 0 ||
                   TAV_IsStringSHACipher(text) == 0
               ? 1
               : 0;
}
