/*
 * Passwords and secrets: stored forms, verification, password policy, and a printable encoding.
 *
 * Cryptography is the platform's. Part of it is linked; five entry points are looked up by name on first use, so that
 * the library loads on a platform that lacks them and then answers with failure or takes another way.
 *
 * A stored password is a text in one of these forms: plain; a reversible cipher, which the platform decrypts under a
 * key context; or irreversible: the platform's salted form, the digest-based form (an encrypted digest), or the older
 * salted digest form in base 93. Whatever a function copies or decrypts for itself is wiped before it returns. Only
 * TAV_CRYPT_IsCipher logs. Nothing is locked: threads that look an entry point up at the same time find the same one.
 *
 * docs/passwords.md helps to choose among forms and contexts; some choices let whoever reads a record log in.
 *
 * Strings end with a zero byte, and all memory is the caller's. Pointers must not be null unless a description says
 * what happens then.
 */
#ifndef TAV_CRYPT_H
#define TAV_CRYPT_H

#include "tav_base.h"

/*
 * Results of the functions below. Each function says which of them it gives and when.
 */
#define TAV_CRYPT_OK               0u          /**< done, valid, or a match */
#define TAV_CRYPT_FAILED           0xFFFFFFFFu /**< a null argument, or a failure; a missing platform function */
#define TAV_PWD_MISMATCH           0x823u      /**< another password; a base-93 text whose length does not fit */
#define TAV_PWD_FEW_CLASSES        0x821u      /**< too few kinds of characters */
#define TAV_PWD_CONTAINS_NAME      0x822u      /**< contains the user name (complexity checks) */
#define TAV_PWD_TOO_SHORT          0x824u      /**< too short */
#define TAV_PWD_IN_HISTORY         0xEFBu      /**< one of the last passwords */
#define TAV_PWD_TOO_SIMPLE_BASIC   0xEFCu  /**< lacks a digit, an upper-case letter or a character of the other kind */
#define TAV_PWD_TOO_SIMPLE_STRICT  0xEFDu  /**< the same, or lacks a lower-case letter */
#define TAV_PWD_LIKE_NAME          0xF01u  /**< contains the user name, forwards or backwards */
#define TAV_PWD_UNUSABLE           0x16F9u /**< empty, or asterisks alone */
#define TAV_PWD_NAME_LIKE_PASSWORD 0xABA0u /**< the user name contains the password, forwards or backwards */

#define TAV_PWD_TEXT_SIZE     434u /**< bytes of a record's text, terminator included */
#define TAV_PWD_BUFFER_SIZE   433u /**< bytes of a buffer that receives a decrypted text or a stored form */
#define TAV_PWD_HISTORY_COUNT 20u  /**< entries of a password history */

/** The key context under which the entries of a password history are made. */
#define TAV_PWD_HISTORY_CONTEXT "ZPT-MOLD-CARDFRAME"

/** A stored system password. */
typedef struct TAV_SYS_PASSWORD_S {
    char text[TAV_PWD_TEXT_SIZE]; /**< the password, plain or in a stored form; a string */
    uint8_t form;                 /**< what the text may hold, 0 to 6 (see TAV_CheckSystemPassword) */
} TAV_SYS_PASSWORD_S;

/*
 * Platform entry points that are looked up at run time. The pointers are null at load, filled by the first call of the
 * wrapper of the same name that finds the entry point, and kept.
 */

/** Type of SYSDT_IsStringCipher_CRYPT. */
typedef uint32_t (*TAV_IsStringCipherFunc)(const char *text, uint32_t length, uint32_t mode, const char *keyContext);

/** Type of BEX_CRYPT_Salt. */
typedef uint32_t (*TAV_SaltFunc)(uint8_t *buffer, uint32_t length);

/** Type of BEX_CRYPT_Password_4096. */
typedef uint32_t (*TAV_Password4096Func)(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                         uint32_t saltLength, char *output, uint32_t outputSize);

/** Type of BEX_CRYPT_PasswordEx. */
typedef uint32_t (*TAV_PasswordExFunc)(const char *password, uint32_t passwordLength, char *output,
                                       uint32_t *resultWord, uint32_t outputSize);

/** Type of CRYPT_random. */
typedef uint32_t (*TAV_RandomFunc)(void *buffer, uint32_t length);

/** The platform's SYSDT_IsStringCipher_CRYPT, or null. */
TAV_API TAV_IsStringCipherFunc g_pfn_SYSDT_IsStringCipher_CRYPT;

/** The platform's BEX_CRYPT_Salt, or null. */
TAV_API TAV_SaltFunc g_pfn_BEX_CRYPT_Salt;

/** The platform's BEX_CRYPT_Password_4096, or null. */
TAV_API TAV_Password4096Func g_pfn_BEX_CRYPT_Password_4096;

/** The platform's BEX_CRYPT_PasswordEx, or null. */
TAV_API TAV_PasswordExFunc g_pfn_BEX_CRYPT_PasswordEx;

/** The platform's CRYPT_random, or null. */
TAV_API TAV_RandomFunc g_pfn_CRYPT_random;

/** A word that the library does not use. It is exported for programs that link to it. */
TAV_API uint32_t g_uiSaltRandValue;

/**
 * Calls SYSDT_IsStringCipher_CRYPT. Returns its classification, from 2 on a reversible cipher that the platform can
 * decrypt; TAV_CRYPT_FAILED when the platform lacks it.
 */
TAV_API uint32_t TAV_SYSDT_IsStringCipher_CRYPT(const char *text, uint32_t length, uint32_t mode,
                                                const char *keyContext);

/**
 * Calls BEX_CRYPT_Salt, which fills `length` bytes with a fresh salt. Returns its result, 0 on success;
 * TAV_CRYPT_FAILED when the platform lacks it.
 */
TAV_API uint32_t TAV_BEX_CRYPT_Salt(uint8_t *buffer, uint32_t length);

/**
 * Calls BEX_CRYPT_Password_4096, which makes a salted form; lengths and sizes are in bytes. Returns its result, 0 on
 * success; TAV_CRYPT_FAILED when the platform lacks it.
 */
TAV_API uint32_t TAV_BEX_CRYPT_Password_4096(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                             uint32_t saltLength, char *output, uint32_t outputSize);

/**
 * Calls BEX_CRYPT_PasswordEx. Unlike the other wrappers, it has another way when the platform lacks its entry point:
 * it calls TAV_CRYPT_EncryptPassword4096, so that passwords can be set there, too.
 *
 * @param password        the password
 * @param passwordLength  its length in bytes
 * @param output          where the form goes, a string
 * @param resultWord      receives a word of the platform's; left alone by the other way
 * @param outputSize      bytes at `output`
 * @return the result of what was called, 0 on success
 */
TAV_API uint32_t TAV_BEX_CRYPT_PasswordEx(const char *password, uint32_t passwordLength, char *output,
                                          uint32_t *resultWord, uint32_t outputSize);

/**
 * Calls CRYPT_random, which fills `length` bytes. Returns its result, 0 on success; TAV_CRYPT_FAILED when the platform
 * lacks it.
 */
TAV_API uint32_t TAV_CRYPT_random(void *buffer, uint32_t length);

/** Returns 32 random bits; 0xFFFFFFFF, which may also be random, when there is no random source. */
TAV_API uint32_t TAV_GetRandomValue(void);

/*
 * Secrets.
 */

/**
 * Encrypts a text under a fresh random vector.
 *
 * @param plain       the text
 * @param length      its length in bytes
 * @param output      where the cipher string goes
 * @param size        bytes at `output`
 * @param mode        kind of cipher, as BEX_CRYPT_Encrypt_Sec knows them
 * @param keyContext  the key context
 * @return 0; TAV_CRYPT_FAILED when there is no random source; else the platform's code
 */
TAV_API uint32_t TAV_CRYPT_Encrypt_Sec(const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode,
                                       const char *keyContext);

/** Decrypts a cipher string; arguments and result are those of BEX_CRYPT_Decrypt_Sec. */
TAV_API uint32_t TAV_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t mode,
                                       const char *keyContext);

/**
 * Decrypts a cipher string in mode 1.
 *
 * @param cipher      the cipher string
 * @param output      where the plain text goes, a string
 * @param size        bytes at `output`
 * @param keyContext  the key context under which it was encrypted
 * @return 0; TAV_CRYPT_FAILED for a null string or output; else the platform's code
 */
TAV_API uint32_t TAV_CRYPT_Decrypt(const char *cipher, char *output, uint32_t size, const char *keyContext);

/*
 * Stored passwords.
 */

/**
 * Makes a salted form with the platform's older scheme.
 *
 * @param password        the password
 * @param passwordLength  its length in bytes
 * @param output          where the form goes, a string
 * @param outputSize      bytes at `output`
 * @return TAV_CRYPT_OK; TAV_CRYPT_FAILED for a null argument, when the platform lacks salt or scheme, and when it
 *         refuses
 */
TAV_API uint32_t TAV_CRYPT_EncryptPassword4096(const char *password, uint32_t passwordLength, char *output,
                                               uint32_t outputSize);

/**
 * Makes a salted form with the platform's current scheme, or the older one when that is all there is.
 *
 * @param password    the password, a string
 * @param output      where the form goes, a string
 * @param outputSize  bytes at `output`
 * @return TAV_CRYPT_OK; TAV_CRYPT_FAILED for a null argument, when the platform has neither scheme or refuses
 */
TAV_API uint32_t TAV_CRYPT_EncryptPassword(const char *password, char *output, uint32_t outputSize);

/** The same as TAV_CRYPT_EncryptPassword. */
TAV_API uint32_t TAV_EncryptSystemPassword(const char *password, char *output, uint32_t outputSize);

/**
 * Compares a password with a salted form of the platform's, both strings. Returns TAV_CRYPT_OK on a match; else, and
 * for a null argument, TAV_CRYPT_FAILED.
 */
TAV_API uint32_t TAV_CRYPT_VerifyPassword(const char *entered, const char *stored);

/**
 * Compares a password with any irreversible form.
 *
 * @param entered     the password, a string
 * @param stored      the stored form, a string
 * @param keyContext  key context of the digest-based form
 * @return TAV_CRYPT_OK on a match; TAV_CRYPT_FAILED for null strings and an unknown form; else the result of the
 *         verifier of the form: TAV_CRYPT_VerifyPassword, TAV_VerifyV5SHACipher or TAV_VerifySHACipher
 */
TAV_API uint32_t TAV_VerifySystemPassword(const char *entered, const char *stored, const char *keyContext);

/**
 * Checks whether a record's text is one that its form allows. An empty text is allowed by every form. A form above 6
 * allows no other text, and no form one without terminator.
 *
 * | form | text |
 * |---|---|
 * | 0 | a reversible cipher or an irreversible form |
 * | 1, 5 | up to 128 characters |
 * | 2 | up to 128 characters, or a reversible cipher of up to 268 |
 * | 3 | up to 16 characters |
 * | 4 | up to 16 characters; a reversible cipher of kind 2 or 4 and 24 characters, or kind 6 and 32; or irreversible |
 * | 6 | up to 128 characters, or a reversible cipher of up to 268, or an irreversible form |
 *
 * Form 0 is the one to choose: it holds no plain text, so a text that is damaged, or that this platform cannot tell, is
 * refused. In the forms that may be plain it counts as the password itself. Form 4 is for ciphers of platforms whose
 * texts have those lengths; the hosted platform's reversible texts are longer, so of its texts form 4 takes the
 * irreversible ones alone.
 *
 * @param record  the record
 * @return 0 valid, 1 invalid, TAV_CRYPT_FAILED for a null record
 */
TAV_API uint32_t TAV_CheckSystemPassword(const TAV_SYS_PASSWORD_S *record);

/**
 * Finds out what a record holds.
 *
 * @param record  the record
 * @return 0 plain text, also for a null record; 1 a reversible cipher; 2 an irreversible form; 0xFF an invalid record
 */
TAV_API uint32_t TAV_GetPasswordType(const TAV_SYS_PASSWORD_S *record);

/**
 * Compares a password with the text of a record as the record's form says. Form 0: with what the text decrypts to, when
 * it is a reversible cipher. Forms 1 and 2: with what it decrypts to, or with the text itself when it does not decrypt.
 * Else: with the irreversible form that the text is. So with form 0 nobody gets in when the text does not decrypt, as
 * its key is lost, while with forms 1 and 2 whoever knows the stored text does.
 *
 * @param entered     the password, a string
 * @param stored      the text of a record. It must be part of one: the form is read from the byte behind the text
 * @param keyContext  key context of the stored text
 * @return 0 on a match; TAV_CRYPT_FAILED for null strings, a form above 6, a text without terminator, and a reversible
 *         cipher of form 0 that does not decrypt; else another value: that of TAV_VerifySystemPassword, or of comparing
 */
TAV_API uint32_t TAV_VerifySystemPassword_Enh(const char *entered, const char *stored, const char *keyContext);

/**
 * As TAV_VerifySystemPassword_Enh, for a password that may itself be sent as a cipher string. The two contexts must
 * differ, and what is under the one must never be encrypted under the other: a reversible text of the record that
 * decrypts as one that was sent is as good as the password, and whoever can read the record can log in with it.
 *
 * @param entered       the password, or a cipher string of it
 * @param workBuffer    TAV_PWD_BUFFER_SIZE bytes that the caller has to wipe afterwards
 * @param keyContext    key context of `entered`
 * @param record        the record
 * @param extraContext  key context of the record's text
 * @return as for TAV_VerifySystemPassword_Enh
 */
TAV_API uint32_t TAV_DecryptAndVerify_Enh(const char *entered, char *workBuffer, const char *keyContext,
                                          const TAV_SYS_PASSWORD_S *record, const char *extraContext);

/**
 * Compares a password, which may be sent as a cipher string, with a record of any kind, by what TAV_GetPasswordType
 * finds in it. The record is not changed. The two contexts must differ, as for TAV_DecryptAndVerify_Enh.
 *
 * Whatever the record's form is, a reversible cipher is verified as form 2 or, when the platform says that it cannot
 * decrypt it, is taken as a password itself. Either way, once its key is lost, whoever knows the stored text gets in:
 * for the passwords of logins, store irreversible forms.
 *
 * Whether a text is the digest-based form is asked without a key context, and it is then verified under `extraContext`.
 * So a record holds one to any use only when it was made without a context and `extraContext` is empty; with another
 * `extraContext` no password matches it, and one made under a context counts as plain text where the form allows that.
 *
 * @param entered       the password, or a cipher string of it
 * @param keyContext    key context of `entered`
 * @param record        the record
 * @param extraContext  key context of the record's text
 * @return 0 on a match; TAV_CRYPT_FAILED for a null password, an invalid record and failures; else another value
 */
TAV_API uint32_t TAV_VerifyEncryptSystemPassword_Enh(const char *entered, const char *keyContext,
                                                     const TAV_SYS_PASSWORD_S *record, const char *extraContext);

/*
 * Password policy. Strings are terminated; flags are 0 for off and anything else for on. Characters are digits,
 * upper-case and lower-case ASCII letters, and all other bytes. The checks of length, simplicity, complexity and
 * likeness see only the low 16 bits of a length: 65,536 characters count as none.
 */

/**
 * Checks whether a password is too short: below 8 characters when strict, else empty.
 *
 * @param password  the password
 * @param strict    flag
 * @param unused    not looked at
 * @return 1 when it is or is null, else 0
 */
TAV_API uint32_t TAV_PasswordTooShort(const char *password, uint32_t strict, uint32_t unused);

/**
 * Checks whether a password is too simple. Strict: it must hold all four kinds of characters. Else basic: digit, upper
 * case and other, but not lower case. Neither: no password is.
 *
 * @param password  the password
 * @param strict    flag
 * @param basic     flag
 * @param code      receives TAV_PWD_TOO_SIMPLE_STRICT or TAV_PWD_TOO_SIMPLE_BASIC when it is; else left alone
 * @return 1 when it is, or for a null argument; else 0
 */
TAV_API uint32_t TAV_PasswordTooSimple(const char *password, uint32_t strict, uint32_t basic, uint32_t *code);

/** Copies `length` bytes in reverse order, without a terminator. Null pointers and a length of 0 are ignored. */
TAV_API void TAV_ReverseStr(const char *source, uint32_t length, char *dest);

/**
 * Checks whether a text contains another one, forwards or backwards, without regard to case. An empty one is contained.
 *
 * @param text    the text
 * @param sought  what it may contain: of password and user name, the other one
 * @param enable  flag; off: no text does
 * @return 1 when it does, for a null argument, and when a copy fails; else 0, also when memory is short, so that users
 *         can still change their passwords
 */
TAV_API uint32_t TAV_PasswordAndUsernameSimilarCheck(const char *text, const char *sought, uint32_t enable);

/** Does the password contain the name? As TAV_PasswordAndUsernameSimilarCheck, but 0 when the name alone is null. */
TAV_API uint32_t TAV_PasswordSimilarToUserName(const char *password, const char *userName, uint32_t enable);

/** Does the name contain the password? As TAV_PasswordAndUsernameSimilarCheck, but 0 when the name alone is null. */
TAV_API uint32_t TAV_UserNameSimilarToPassword(const char *userName, const char *password, uint32_t enable);

/** Calls TAV_CheckPasswordComplexityEx for at least 6 characters of at least 2 kinds. */
TAV_API uint32_t TAV_CheckPasswordComplexity(const char *password, const char *userName);

/**
 * Checks length, kinds of characters, and likeness to the user name, in this order.
 *
 * @param password    the password
 * @param userName    the user name; null leaves likeness out
 * @param minLength   characters at least
 * @param minClasses  kinds of characters at least
 * @return 0; TAV_CRYPT_FAILED for a null password; TAV_PWD_TOO_SHORT, TAV_PWD_FEW_CLASSES or TAV_PWD_CONTAINS_NAME
 */
TAV_API uint32_t TAV_CheckPasswordComplexityEx(const char *password, const char *userName, uint32_t minLength,
                                               uint32_t minClasses);

/**
 * Checks whether a password is null, empty, or made of asterisks alone, as masked passwords are displayed. Further
 * arguments are not looked at. Returns 1 when it is, else 0.
 */
TAV_API uint32_t SYSDT_PwdStringCommonCheck(const char *password, ...);

/**
 * Checks whether a password is one of the last ones.
 *
 * @param password  the password
 * @param strict    flag
 * @param basic     flag; with both flags off the history is not looked at
 * @param history   TAV_PWD_HISTORY_COUNT pointers to texts of records, made under TAV_PWD_HISTORY_CONTEXT; null ones
 *                  are skipped
 * @return 1 when it is, or for a null argument; else 0
 */
TAV_API uint32_t TAV_PasswordSameWithHistory(const char *password, uint32_t strict, uint32_t basic,
                                             const char *const *history);

/**
 * Checks a new password of a local user. The first check that fails decides, in the order of the codes below.
 *
 * @param password    the password
 * @param userName    the user name; null leaves likeness out
 * @param strict      flag, which also switches the checks of likeness on
 * @param basic       flag
 * @param history     as for TAV_PasswordSameWithHistory; null leaves it out
 * @param skipLength  flag: leaves the check of length out
 * @return 0; TAV_CRYPT_FAILED for a null password; TAV_PWD_UNUSABLE; TAV_PWD_TOO_SHORT; TAV_PWD_TOO_SIMPLE_BASIC or
 *         TAV_PWD_TOO_SIMPLE_STRICT; TAV_PWD_LIKE_NAME; TAV_PWD_NAME_LIKE_PASSWORD; TAV_PWD_IN_HISTORY
 */
TAV_API uint32_t TAV_CheckLocUserPassword(const char *password, const char *userName, uint32_t strict, uint32_t basic,
                                          const char *const *history, uint32_t skipLength);

/**
 * Checks a value in double quotes: it may hold inner double quotes or spaces, but not both.
 *
 * @param text    the value with its quotes
 * @param length  its length in bytes
 * @return 0; TAV_CRYPT_FAILED for a null or empty text, one that is not in quotes, and one that holds both
 */
TAV_API uint32_t TAV_ValidateStrWithQuotes(const char *text, uint32_t length);

/**
 * Checks the characters of a configuration string. Without `allowSpace`, spaces may still stand in a value in double
 * quotes that TAV_ValidateStrWithQuotes accepts.
 *
 * @param text               the string
 * @param allowSpace         flag
 * @param allowQuestionMark  flag
 * @param allowAnyByte       flag; off: only 0x20 to 0x7E
 * @return 0, also for an empty string; TAV_CRYPT_FAILED for a null string, a character that is not allowed, and a
 *         string of double quotes alone
 */
TAV_API uint32_t TAV_StrValidate(const char *text, uint32_t allowSpace, uint32_t allowQuestionMark,
                                 uint32_t allowAnyByte);

/*
 * Cipher forms.
 */

/**
 * Finds out what kind of reversible cipher a text is. Only what decrypts counts.
 *
 * @param text        the text
 * @param length      its length in bytes
 * @param mode        receives the decryption mode, 1 or 2, of a cipher of kind 7; may be null
 * @param keyContext  key context of the kinds 8 to 11; the others are tried without one
 * @return the platform's kind; 0 for a null text and for what does not decrypt; 1 for 433 bytes or more (logged)
 */
TAV_API uint32_t TAV_CRYPT_IsCipher(const char *text, uint32_t length, uint32_t *mode, const char *keyContext);

/**
 * Finds out what kind of reversible cipher a string is. The kinds 8 to 11 are known by their look; of the others, only
 * what decrypts without a key context counts.
 *
 * @return the platform's kind; 0 for a null text and for what does not decrypt; 1 for 433 characters or more
 */
TAV_API uint32_t TAV_IsStringCipher_EnhExp(const char *string);

/** Checks whether a string is the digest-based form under a key context. Returns 0 when it is, else 1. */
TAV_API uint32_t TAV_IsStringV5SHACipher(const char *text, const char *keyContext);

/**
 * Compares a password with its digest-based form.
 *
 * @return 0 on a match; TAV_PWD_MISMATCH; 1 when digest or decryption fail; TAV_CRYPT_FAILED for null strings
 */
TAV_API uint32_t TAV_VerifyV5SHACipher(const char *entered, const char *stored, const char *keyContext);

/** Checks whether a string is the salted digest form. Returns 0 when it is, else 1. */
TAV_API uint32_t TAV_IsStringSHACipher(const char *text);

/**
 * Compares a password with its salted digest form.
 *
 * @return 0 on a match; TAV_PWD_MISMATCH, also for a base-93 text whose length does not fit; TAV_CRYPT_FAILED for null
 *         strings, a text that cannot be decoded, and a failed copy; TAV_ERR_NO_MEMORY; else the digest's code
 */
TAV_API uint32_t TAV_VerifySHACipher(const char *entered, const char *stored);

/** Checks whether a string is any irreversible form. Returns 1 when it is, else 0. */
TAV_API uint32_t TAV_IsStringIrreversibleCipher(const char *text);

/*
 * Base 93: bytes in printable characters. Data are framed by their 16-bit big-endian length, padded to 32-bit words,
 * and each word becomes five digits, the least first. A digit is a byte from 0 to 92 until it is made visible.
 */

/**
 * Writes the digits of a word, the least first, until the rest is 0: fewer than five digits for a small word, none for
 * 0. So the output must be zeroed before.
 *
 * @param value   the word
 * @param output  up to five bytes
 * @return 0; TAV_CRYPT_FAILED for a null output
 */
TAV_API uint32_t TAV_LongToDesEnhSys(uint32_t value, uint8_t *output);

/** Reads a word from five digits. Returns 0; TAV_CRYPT_FAILED for a null pointer. */
TAV_API uint32_t TAV_DesEnhSysToLong(const uint8_t *digits, uint32_t *value);

/**
 * Encodes bytes into digits.
 *
 * @param data          the bytes
 * @param length        how many
 * @param output        where the digits go, 5 for each 4 bytes of length + 2, rounded up. It must be zeroed before
 * @param outputLength  receives the number of digits
 * @return 0; TAV_CRYPT_FAILED for a null pointer, without memory, and when a copy fails. Further arguments are not
 *         looked at
 */
TAV_API uint32_t TAV_BinToAscii(const void *data, uint16_t length, uint8_t *output, uint32_t *outputLength, ...);

/**
 * Decodes digits into the framed bytes.
 *
 * @param digits      the digits
 * @param output      where the words go, 4 bytes for each 5 digits, in the order of the frame's bytes
 * @param digitCount  how many digits; a rest of less than five is left out
 * @param length      receives the length that the frame states
 * @return 0; TAV_CRYPT_FAILED for a null pointer and for less than five digits
 */
TAV_API uint32_t TAV_AsciiToBinAndGetLen(const uint8_t *digits, void *output, uint32_t digitCount, uint16_t *length);

/**
 * Decodes digits into bytes. It asks for one word more than the frame fills, even when that fills its words: so what
 * TAV_BinToAscii makes of 2, 6, 10, ... bytes does not decode.
 *
 * @param digits      the digits
 * @param digitCount  how many
 * @param output      where the bytes go, and with them the rest of the last word, up to 4 bytes more
 * @param outputSize  bytes at `output`; there must be room for that rest
 * @param length      receives the number of bytes; may be null
 * @return 0; TAV_PWD_MISMATCH when the count is no multiple of five or does not fit the stated length; TAV_CRYPT_FAILED
 *         for a null pointer, no digits, a stated length of 0 or beyond the output, without memory, and when a copy
 *         fails. Further arguments are not looked at
 */
TAV_API uint32_t TAV_AsciiToBin(const uint8_t *digits, uint32_t digitCount, void *output, uint32_t outputSize,
                                uint16_t *length, ...);

/**
 * Makes digits visible; no terminator is written.
 *
 * @param digits      the digits
 * @param count       how many
 * @param output      where the characters go
 * @param outputSize  bytes at `output`
 * @return 0; 1 when there is no room; TAV_CRYPT_FAILED for a null pointer
 */
TAV_API uint32_t TAV_AsciiVisible(const uint8_t *digits, uint32_t count, char *output, uint32_t outputSize);

/**
 * Makes visible characters digits again.
 *
 * @param text    the characters, a string
 * @param output  where the digits go, as many bytes as the string is long
 * @param count   receives their number
 * @return 0; TAV_CRYPT_FAILED for a null pointer
 */
TAV_API uint32_t TAV_AsciiUnvisible(const char *text, uint8_t *output, uint32_t *count);

/** Turns a question mark into a tilde; other characters stay. */
TAV_API char TAV_QuestionMarkToWave(char character);

/** Turns a tilde into a question mark; other characters stay. */
TAV_API char TAV_WaveToQuestionMark(char character);

#endif
