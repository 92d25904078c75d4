/*
 * Password policy: what a new password, or a configuration string, must look like.
 */
#include <initializer_list>

#include "crypt/secret.h"
#include "tav_crypt.h"

using crypt::SecretBlock;

namespace {

constexpr uint32_t kStrictMinLength = 8;
constexpr uint32_t kComplexMinLength = 6;
constexpr uint32_t kComplexMinClasses = 2;

/** Kinds of characters, as a set. */
enum Classes : uint32_t { kDigit = 1, kUpper = 2, kLower = 4, kOther = 8 };
constexpr uint32_t kBasicClasses = kDigit | kUpper | kOther;  // lower case is asked for in strict mode alone
constexpr uint32_t kStrictClasses = kBasicClasses | kLower;

/** The low 16 bits of a string's length. The checks see no more of it, and the interface says so. */
uint16_t ShortLength(const char *text) {
    return static_cast<uint16_t>(BEX_StrLen(text));
}

Classes ClassOf(char character) {
    if (character >= '0' && character <= '9') {
        return kDigit;
    }
    if (character >= 'A' && character <= 'Z') {
        return kUpper;
    }
    return character >= 'a' && character <= 'z' ? kLower : kOther;
}

/** The set of the kinds that occur in a password. */
uint32_t ClassesOf(const char *password) {
    uint32_t classes = 0;
    for (uint32_t i = 0, length = ShortLength(password); i < length; ++i) {
        classes |= ClassOf(password[i]);
    }
    return classes;
}

/** The number of kinds in a set. (std::popcount would need another library on some machines.) */
uint32_t CountOf(uint32_t classes) {
    uint32_t count = 0;
    for (const Classes each : {kDigit, kUpper, kLower, kOther}) {
        count += (classes & each) != 0 ? 1 : 0;
    }
    return count;
}

/** Returns whether a string is made of one character alone; an empty one is. */
bool IsAll(char character, const char *text) {
    while (*text == character) {
        ++text;
    }
    return *text == '\0';
}

/** Returns whether a character of a configuration string is allowed. */
bool IsAllowed(char character, bool allowSpace, bool allowQuestionMark, bool allowAnyByte) {
    return (allowAnyByte || (character >= 0x20 && character <= 0x7E)) && (allowSpace || character != ' ') &&
           (allowQuestionMark || character != '?');
}

}  // namespace

uint32_t TAV_PasswordTooShort(const char *password, uint32_t strict, uint32_t /*unused*/) {
    return password == nullptr || ShortLength(password) < (strict != 0 ? kStrictMinLength : 1) ? 1 : 0;
}

uint32_t TAV_PasswordTooSimple(const char *password, uint32_t strict, uint32_t basic, uint32_t *code) {
    if (password == nullptr || code == nullptr) {
        return 1;
    }
    if (strict == 0 && basic == 0) {
        return 0;
    }
    const uint32_t needed = strict != 0 ? kStrictClasses : kBasicClasses;
    if ((ClassesOf(password) & needed) == needed) {
        return 0;
    }
    *code = strict != 0 ? TAV_PWD_TOO_SIMPLE_STRICT : TAV_PWD_TOO_SIMPLE_BASIC;
    return 1;
}

void TAV_ReverseStr(const char *source, uint32_t length, char *dest) {
    if (source == nullptr || dest == nullptr) {
        return;
    }
    for (uint32_t i = 0; i < length; ++i) {
        dest[i] = source[length - 1 - i];
    }
}

uint32_t TAV_PasswordAndUsernameSimilarCheck(const char *text, const char *sought, uint32_t enable) {
    if (text == nullptr || sought == nullptr) {
        return 1;
    }
    if (enable == 0) {
        return 0;
    }
    const uint16_t soughtLength = ShortLength(sought);
    const uint16_t textLength = ShortLength(text);
    SecretBlock<char> reversed(soughtLength + 1u);
    SecretBlock<char> soughtCopy(soughtLength + 1u);
    SecretBlock<char> textCopy(textLength + 1u);
    if (reversed.data() == nullptr || soughtCopy.data() == nullptr || textCopy.data() == nullptr) {
        return 0;  // a shortage of memory must not keep users from changing their passwords
    }
    if (strncpy_s(soughtCopy.data(), soughtCopy.size(), sought, soughtLength) != 0 ||
        strncpy_s(textCopy.data(), textCopy.size(), text, textLength) != 0) {
        return 1;
    }
    BEX_StrToLower(soughtCopy.data());
    BEX_StrToLower(textCopy.data());
    TAV_ReverseStr(soughtCopy.data(), soughtLength, reversed.data());
    return BEX_StrStr(textCopy.data(), soughtCopy.data()) != nullptr ||
                   BEX_StrStr(textCopy.data(), reversed.data()) != nullptr
               ? 1
               : 0;
}

uint32_t TAV_PasswordSimilarToUserName(const char *password, const char *userName, uint32_t enable) {
    return userName == nullptr && password != nullptr ? 0
                                                      : TAV_PasswordAndUsernameSimilarCheck(password, userName, enable);
}

uint32_t TAV_UserNameSimilarToPassword(const char *userName, const char *password, uint32_t enable) {
    return userName == nullptr && password != nullptr ? 0
                                                      : TAV_PasswordAndUsernameSimilarCheck(userName, password, enable);
}

uint32_t TAV_CheckPasswordComplexity(const char *password, const char *userName) {
    return TAV_CheckPasswordComplexityEx(password, userName, kComplexMinLength, kComplexMinClasses);
}

uint32_t TAV_CheckPasswordComplexityEx(const char *password, const char *userName, uint32_t minLength,
                                       uint32_t minClasses) {
    if (password == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (ShortLength(password) < minLength) {
        return TAV_PWD_TOO_SHORT;
    }
    if (CountOf(ClassesOf(password)) < minClasses) {
        return TAV_PWD_FEW_CLASSES;
    }
    return TAV_PasswordSimilarToUserName(password, userName, 1) != 0 ? TAV_PWD_CONTAINS_NAME : TAV_CRYPT_OK;
}

uint32_t SYSDT_PwdStringCommonCheck(const char *password, ...) {
    return password == nullptr || IsAll('*', password) ? 1 : 0;
}

uint32_t TAV_PasswordSameWithHistory(const char *password, uint32_t strict, uint32_t basic,
                                     const char *const *history) {
    if (password == nullptr || history == nullptr) {
        return 1;
    }
    if (strict == 0 && basic == 0) {
        return 0;
    }
    for (uint32_t i = 0; i < TAV_PWD_HISTORY_COUNT; ++i) {
        if (history[i] != nullptr && TAV_VerifySystemPassword_Enh(password, history[i], TAV_PWD_HISTORY_CONTEXT) == 0) {
            return 1;
        }
    }
    return 0;
}

uint32_t TAV_CheckLocUserPassword(const char *password, const char *userName, uint32_t strict, uint32_t basic,
                                  const char *const *history, uint32_t skipLength) {
    if (password == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    if (SYSDT_PwdStringCommonCheck(password) != 0) {
        return TAV_PWD_UNUSABLE;
    }
    if (skipLength == 0 && TAV_PasswordTooShort(password, strict, 0) != 0) {
        return TAV_PWD_TOO_SHORT;
    }
    uint32_t code = TAV_CRYPT_OK;
    if (TAV_PasswordTooSimple(password, strict, basic, &code) != 0) {
        return code;
    }
    if (TAV_PasswordSimilarToUserName(password, userName, strict) != 0) {
        return TAV_PWD_LIKE_NAME;
    }
    if (TAV_UserNameSimilarToPassword(userName, password, strict) != 0) {
        return TAV_PWD_NAME_LIKE_PASSWORD;
    }
    if (history != nullptr && TAV_PasswordSameWithHistory(password, strict, basic, history) != 0) {
        return TAV_PWD_IN_HISTORY;
    }
    return TAV_CRYPT_OK;
}

uint32_t TAV_ValidateStrWithQuotes(const char *text, uint32_t length) {
    if (text == nullptr || length == 0 || text[0] != '"' || text[length - 1] != '"') {
        return TAV_CRYPT_FAILED;
    }
    uint32_t quotes = 0;
    uint32_t spaces = 0;
    for (uint32_t i = 0; i < length && text[i] != '\0'; ++i) {
        quotes += text[i] == '"' ? 1 : 0;
        spaces += text[i] == ' ' ? 1 : 0;
    }
    return spaces > 0 && quotes > 2 ? TAV_CRYPT_FAILED : TAV_CRYPT_OK;
}

uint32_t TAV_StrValidate(const char *text, uint32_t allowSpace, uint32_t allowQuestionMark, uint32_t allowAnyByte) {
    if (text == nullptr) {
        return TAV_CRYPT_FAILED;
    }
    const uint32_t length = BEX_StrLen(text);
    if (length == 0) {
        return TAV_CRYPT_OK;
    }
    if (allowSpace == 0 && text[0] == '"' && text[length - 1] == '"') {
        if (TAV_ValidateStrWithQuotes(text, length) != TAV_CRYPT_OK) {
            return TAV_CRYPT_FAILED;
        }
        allowSpace = 1;
    }
    for (uint32_t i = 0; i < length; ++i) {
        if (!IsAllowed(text[i], allowSpace != 0, allowQuestionMark != 0, allowAnyByte != 0)) {
            return TAV_CRYPT_FAILED;
        }
    }
    return IsAll('"', text) ? TAV_CRYPT_FAILED : TAV_CRYPT_OK;
}
