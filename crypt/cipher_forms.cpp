/*
 * The irreversible forms in which passwords are stored: which is which, and the verifiers of the two digest forms.
 */
#include "crypt/ciphers.h"
#include "platform/bex_crypt.h"

using crypt::kNoContext;
using crypt::Secret;
using crypt::SecretBlock;
using crypt::TextBuffer;

namespace {

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

/** Decodes a salted digest form. Returns the decoder's result. */
uint32_t DecodeSalted(const char *text, SaltedData *data, uint16_t *length) {
    if (BEX_StrLen(text) > kMaxSaltedText) {
        return TAV_CRYPT_FAILED;
    }
    Secret<uint8_t, kMaxSaltedText + 1> digits;
    uint32_t count = 0;
    TAV_AsciiUnvisible(text, digits.data(), &count);
    return TAV_AsciiToBin(digits.data(), count, data->data(), data->size(), length);
}

/** The check byte of a salted digest form: that of stored forms does not cover the last byte. */
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
    SecretBlock<uint8_t> block(length + kSaltSize);
    if (block.data() == nullptr) {
        return TAV_ERR_NO_MEMORY;
    }
    if (memcpy_s(block.data(), block.size(), salt, kSaltSize) != 0 ||
        memcpy_s(block.data() + kSaltSize, block.size() - kSaltSize, password, length) != 0) {
        return TAV_CRYPT_FAILED;
    }
    return BEX_Crypt_Digest(block.data(), block.size(), digest->data(), digestLength, digest->size());
}

}  // namespace

uint32_t TAV_IsStringV5SHACipher(const char *text, const char *keyContext) {
    TextBuffer copy;
    if (text == nullptr || strncpy_s(copy.data(), copy.size(), text, copy.size() - 1) != 0) {
        return 1;
    }
    const uint32_t kind = BEX_CRYPT_IsCipher(copy.data(), BEX_StrLen(copy.data()));
    if (kind < kMinDigestKind || kind > kMaxDigestKind) {
        return 1;
    }
    Secret<uint8_t, 256> digest;
    uint32_t digestLength = digest.size();
    const uint32_t result = BEX_Decrypt_AES256_Sec(text, BEX_StrLen(text), digest.data(), &digestLength, keyContext);
    return result == 0 && digestLength == kDigestSize ? 0 : 1;
}

uint32_t TAV_VerifyV5SHACipher(const char *entered, const char *stored, const char *keyContext) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    Secret<uint8_t, kDigestBuffer> digest;
    uint32_t digestLength = digest.size();
    Secret<uint8_t, TAV_PWD_BUFFER_SIZE> plain;
    uint32_t plainLength = plain.size();
    if (BEX_Crypt_Digest(entered, BEX_StrLen(entered), digest.data(), &digestLength, digest.size()) != 0 ||
        BEX_Decrypt_AES256_Sec(stored, BEX_StrLen(stored), plain.data(), &plainLength, keyContext) != 0) {
        return 1;
    }
    if (digestLength != plainLength) {
        return TAV_PWD_MISMATCH;
    }
    // BEX_StrNCmp ends at a zero byte, where digests go on: BEX_MemCmp sees the rest, whatever the former says, so that
    // the time tells nothing.
    const int32_t text =
        BEX_StrNCmp(reinterpret_cast<char *>(digest.data()), reinterpret_cast<char *>(plain.data()), digestLength);
    const int32_t whole = BEX_MemCmp(digest.data(), plain.data(), digestLength);
    return (text | whole) == 0 ? TAV_CRYPT_OK : TAV_PWD_MISMATCH;
}

uint32_t TAV_IsStringSHACipher(const char *text) {
    SaltedData data;
    uint16_t length = 0;
    if (text == nullptr || DecodeSalted(text, &data, &length) != TAV_CRYPT_OK) {
        return 1;
    }
    const uint8_t *const bytes = data.data();
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
    uint32_t digestLength = digest.size();
    const uint32_t digested = DigestSalted(data.data() + kSaltAt, entered, &digest, &digestLength);
    if (digested != 0) {
        return digested;
    }
    return BEX_MemCmp(digest.data(), data.data() + kDigestAt, digestLength) == 0 ? TAV_CRYPT_OK : TAV_PWD_MISMATCH;
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
