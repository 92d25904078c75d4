/*
 * Passwords in their stored forms: made, told apart and verified.
 */
#include <cstring>

#include "crypt/ciphers.h"
#include "crypt/platform_hooks.h"
#include "platform/bex_crypt.h"

using crypt::kMinKind;
using crypt::kNoContext;
using crypt::TextBuffer;

namespace {

constexpr uint32_t kSaltSize = 16;

constexpr uint8_t kMaxForm = 6;
constexpr uint32_t kMaxPlain = 128;       // characters of a plain text
constexpr uint32_t kMaxShortPlain = 16;   // the same, in the forms 3 and 4
constexpr uint32_t kMaxReversible = 268;  // characters of a reversible cipher, in the forms 2 and 6
constexpr uint32_t kShortCipher = 24;     // characters of a cipher of kind 2 or 4, in form 4
constexpr uint32_t kLongCipher = 32;      // characters of a cipher of kind 6, in form 4

constexpr uint32_t kTypePlain = 0;
constexpr uint32_t kTypeReversible = 1;
constexpr uint32_t kTypeIrreversible = 2;
constexpr uint32_t kTypeInvalid = 0xFF;

constexpr uint8_t kFormPlain = 1;
constexpr uint8_t kFormReversible = 2;
constexpr uint8_t kFormIrreversible = 6;

/** A copy of a record, whose text is wiped with it. */
struct RecordCopy {
    TAV_SYS_PASSWORD_S record = {};

    RecordCopy() = default;
    ~RecordCopy() { memset_s(record.text, TAV_PWD_TEXT_SIZE, 0, TAV_PWD_BUFFER_SIZE); }
    RecordCopy(const RecordCopy &) = delete;
    RecordCopy &operator=(const RecordCopy &) = delete;
};

/** Returns whether the text of a record ends within it. */
bool IsString(const char *text) {
    return memchr(text, '\0', TAV_PWD_TEXT_SIZE) != nullptr;
}

bool IsReversible(const char *text) {
    return TAV_IsStringCipher_EnhExp(text) >= kMinKind;
}

bool IsIrreversible(const char *text) {
    return TAV_IsStringIrreversibleCipher(text) != 0;
}

/** Returns whether a text has the length that form 4 asks of its kind of reversible cipher. */
bool IsFixedCipher(const char *text, uint32_t length) {
    switch (TAV_IsStringCipher_EnhExp(text)) {
        case 2:
        case 4:
            return length == kShortCipher;
        case 6:
            return length == kLongCipher;
        default:
            return false;
    }
}

/** Returns whether a text that is not empty is one that a form allows. */
bool IsAllowed(uint8_t form, const char *text) {
    const uint32_t length = BEX_StrLen(text);
    switch (form) {
        case 0:
            return IsReversible(text) || IsIrreversible(text);
        case 1:
        case 5:
            return length <= kMaxPlain;
        case 2:
            return length <= kMaxPlain || (length <= kMaxReversible && IsReversible(text));
        case 3:
            return length <= kMaxShortPlain;
        case 4:
            return length <= kMaxShortPlain || IsFixedCipher(text, length) || IsIrreversible(text);
        case 6:
            return length <= kMaxPlain || (length <= kMaxReversible && IsReversible(text)) || IsIrreversible(text);
        default:
            return false;
    }
}

bool HoldsPlainAlone(uint8_t form) {
    return form == 1 || form == 3 || form == 5;
}

/** Compares a password with what a stored text decrypts to, or with the text itself when that may be plain. */
uint32_t CompareDecrypted(const char *entered, const char *stored, const char *keyContext, bool mayBePlain) {
    TextBuffer plain;
    if (TAV_CRYPT_Decrypt(stored, plain.data(), plain.size(), keyContext) == 0) {
        return static_cast<uint32_t>(BEX_StrCmp(plain.data(), entered));
    }
    return mayBePlain ? static_cast<uint32_t>(BEX_StrCmp(stored, entered)) : TAV_CRYPT_FAILED;
}

/**
 * Gives a copied record the form under which it is to be verified, by its type. A reversible cipher of which the
 * platform says that it cannot decrypt it becomes the salted form of its own text. Where the platform cannot be asked,
 * the answer is TAV_CRYPT_FAILED, which is above every classification: decrypting is tried. Returns whether the record
 * can be verified.
 */
bool Prepare(TAV_SYS_PASSWORD_S *record) {
    switch (TAV_GetPasswordType(record)) {
        case kTypePlain:
            record->form = kFormPlain;
            return true;
        case kTypeIrreversible:
            record->form = kFormIrreversible;
            return true;
        case kTypeReversible:
            break;
        default:
            return false;
    }
    if (TAV_SYSDT_IsStringCipher_CRYPT(record->text, BEX_StrLen(record->text), 1, kNoContext) >= kMinKind) {
        record->form = kFormReversible;
        return true;
    }
    TextBuffer salted;
    if (TAV_EncryptSystemPassword(record->text, salted.data(), salted.size()) != TAV_CRYPT_OK ||
        memcpy_s(record->text, TAV_PWD_TEXT_SIZE, salted.data(), salted.size()) != 0) {
        return false;
    }
    record->form = kFormIrreversible;
    return true;
}

}  // namespace

uint32_t TAV_CRYPT_EncryptPassword4096(const char *password, uint32_t passwordLength, char *output,
                                       uint32_t outputSize) {
    if (password == nullptr || output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    uint8_t salt[kSaltSize + 1] = {};
    if (TAV_BEX_CRYPT_Salt(salt, kSaltSize) != 0) {
        return TAV_CRYPT_FAILED;
    }
    return TAV_BEX_CRYPT_Password_4096(password, passwordLength, salt, kSaltSize, output, outputSize) == 0
               ? TAV_CRYPT_OK
               : TAV_CRYPT_FAILED;
}

uint32_t TAV_BEX_CRYPT_PasswordEx(const char *password, uint32_t passwordLength, char *output, uint32_t *resultWord,
                                  uint32_t outputSize) {
    const TAV_PasswordExFunc passwordEx = crypt::FindPasswordEx();
    return passwordEx != nullptr ? passwordEx(password, passwordLength, output, resultWord, outputSize)
                                 : TAV_CRYPT_EncryptPassword4096(password, passwordLength, output, outputSize);
}

uint32_t TAV_CRYPT_EncryptPassword(const char *password, char *output, uint32_t outputSize) {
    if (password == nullptr || output == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    uint32_t resultWord = 0;
    return TAV_BEX_CRYPT_PasswordEx(password, BEX_StrLen(password), output, &resultWord, outputSize) == 0
               ? TAV_CRYPT_OK
               : TAV_CRYPT_FAILED;
}

uint32_t TAV_EncryptSystemPassword(const char *password, char *output, uint32_t outputSize) {
    return TAV_CRYPT_EncryptPassword(password, output, outputSize);
}

uint32_t TAV_CRYPT_VerifyPassword(const char *entered, const char *stored) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    return BEX_VerifySystemPassword(entered, BEX_StrLen(entered), stored) == 0 ? TAV_CRYPT_OK : TAV_CRYPT_FAILED;
}

uint32_t TAV_VerifySystemPassword(const char *entered, const char *stored, const char *keyContext) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (BEX_CRYPT_IsPasswordCipher(stored, BEX_StrLen(stored)) == 0) {
        return TAV_CRYPT_VerifyPassword(entered, stored);
    }
    if (TAV_IsStringV5SHACipher(stored, keyContext) == 0) {
        return TAV_VerifyV5SHACipher(entered, stored, keyContext);
    }
    if (TAV_IsStringSHACipher(stored) != 0) {
        return TAV_CRYPT_FAILED;
    }
    return TAV_VerifySHACipher(entered, stored);
}

uint32_t TAV_CheckSystemPassword(const TAV_SYS_PASSWORD_S *record) {
    if (record == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (record->text[0] == '\0') {
        return 0;
    }
    return IsString(record->text) && IsAllowed(record->form, record->text) ? 0 : 1;
}

uint32_t TAV_GetPasswordType(const TAV_SYS_PASSWORD_S *record) {
    if (record == nullptr) {
        return kTypePlain;
    }
    if (TAV_CheckSystemPassword(record) != 0) {
        return kTypeInvalid;
    }
    if (HoldsPlainAlone(record->form)) {
        return kTypePlain;
    }
    if (IsReversible(record->text)) {
        return kTypeReversible;
    }
    return IsIrreversible(record->text) ? kTypeIrreversible : kTypePlain;
}

uint32_t TAV_VerifySystemPassword_Enh(const char *entered, const char *stored, const char *keyContext) {
    if (entered == nullptr || stored == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    const uint32_t form = static_cast<uint8_t>(stored[offsetof(TAV_SYS_PASSWORD_S, form)]);
    if (form > kMaxForm || !IsString(stored)) {
        return TAV_CRYPT_FAILED;
    }
    if (form == 0 && IsReversible(stored)) {
        return CompareDecrypted(entered, stored, keyContext, false);
    }
    if (form == 1 || form == 2) {
        return CompareDecrypted(entered, stored, keyContext, true);
    }
    return TAV_VerifySystemPassword(entered, stored, keyContext);
}

uint32_t TAV_DecryptAndVerify_Enh(const char *entered, char *workBuffer, const char *keyContext,
                                  const TAV_SYS_PASSWORD_S *record, const char *extraContext) {
    if (entered == nullptr || workBuffer == nullptr || record == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    const bool wasEncrypted = TAV_CRYPT_Decrypt(entered, workBuffer, TAV_PWD_BUFFER_SIZE, keyContext) == 0;
    // The record as bytes, and not its text alone: the form behind the text is read, too.
    return TAV_VerifySystemPassword_Enh(wasEncrypted ? workBuffer : entered, reinterpret_cast<const char *>(record),
                                        extraContext);
}

uint32_t TAV_VerifyEncryptSystemPassword_Enh(const char *entered, const char *keyContext,
                                             const TAV_SYS_PASSWORD_S *record, const char *extraContext) {
    if (entered == nullptr || record == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    RecordCopy copy;
    if (memcpy_s(&copy.record, sizeof(copy.record), record, sizeof(copy.record)) != 0 || !Prepare(&copy.record)) {
        return TAV_CRYPT_FAILED;
    }
    TextBuffer workBuffer;
    return TAV_DecryptAndVerify_Enh(entered, workBuffer.data(), keyContext, &copy.record, extraContext);
}
