/*
 * Platform cryptography: digest, reversible ciphers, stored passwords, random bytes.
 *
 * The platform decides on algorithms and text forms; the library fixes sizes and what results mean. A key context is a
 * string that separates keys: what was encrypted under one does not decrypt under another.
 */
#ifndef PLATFORM_BEX_CRYPT_H
#define PLATFORM_BEX_CRYPT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Computes the platform's 32-byte digest of a piece of memory.
 *
 * @param data          bytes to digest; may be null when length is 0
 * @param length        number of bytes
 * @param digest        where the digest goes
 * @param digestLength  receives the digest's length in bytes
 * @param capacity      bytes at `digest`, at least those of the digest
 * @return 0, else a code
 */
uint32_t BEX_Crypt_Digest(const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength,
                          uint32_t capacity);

/**
 * Classifies a text by its look; whether it decrypts is another question.
 *
 * @param text    the text
 * @param length  its length in bytes
 * @return 0 or 1: no cipher. 2 and more: a kind of cipher; 6 to 11 may be the digest-based form of a password, and 8 to
 *         11 are tied to a key context
 */
uint32_t BEX_CRYPT_IsCipher(const char *text, uint32_t length);

/** Returns 0 when a text is a salted password form of the platform's, by its look; else another value. */
uint32_t BEX_CRYPT_IsPasswordCipher(const char *text, uint32_t length);

/**
 * Compares a password with a salted form.
 *
 * @param password  the password
 * @param length    its length in bytes
 * @param stored    the salted form, a string
 * @return 0 when the form was made of this password; else another value
 */
uint32_t BEX_VerifySystemPassword(const char *password, uint32_t length, const char *stored);

/**
 * Encrypts a text into a printable cipher string.
 *
 * @param plain       the text
 * @param length      its length in bytes
 * @param output      where the string goes, with its terminator
 * @param size        bytes at `output`
 * @param mode        the kind of cipher wanted; the platform says which there are
 * @param keyContext  the key context, a string
 * @param vector      16 random bytes, never used twice
 * @return 0, else a code (and nothing of use is at `output`)
 */
uint32_t BEX_CRYPT_Encrypt_Sec(const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext, const uint8_t *vector);

/**
 * Decrypts a cipher string.
 *
 * @param cipher      the cipher string
 * @param length      its length in bytes
 * @param output      where the text goes, with a terminator
 * @param size        bytes at `output`
 * @param mode        a hint at the kind of cipher, which the platform may ignore
 * @param keyContext  the key context under which it was encrypted, a string
 * @return 0; else a code: no cipher, changed, another context, no room (and nothing of the text is at `output`)
 */
uint32_t BEX_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext);

/**
 * Decrypts the digest-based form of a password into the digest.
 *
 * @param text          the form
 * @param length        its length in bytes
 * @param output        where the digest goes
 * @param outputLength  in: bytes at `output`; out: the digest's length
 * @param keyContext    the key context under which it was made, a string
 * @return 0, else a code
 */
uint32_t BEX_Decrypt_AES256_Sec(const char *text, uint32_t length, void *output, uint32_t *outputLength,
                                const char *keyContext);

/*
 * The entry points below are not linked against but looked up by name at run time; a platform may lack them.
 */

/**
 * Classifies a text as BEX_CRYPT_IsCipher does, but only what this platform can decrypt: under the key context, or,
 * when that is empty, under whatever context the text was made.
 *
 * @param text        the text
 * @param length      its length in bytes
 * @param mode        a hint at the kind of cipher
 * @param keyContext  the key context, a string
 * @return 0 or 1: no cipher; 2 and more: a reversible cipher that this platform can decrypt
 */
uint32_t SYSDT_IsStringCipher_CRYPT(const char *text, uint32_t length, uint32_t mode, const char *keyContext);

/** Fills a buffer with a salt. Returns 0, else a code. */
uint32_t BEX_CRYPT_Salt(uint8_t *buffer, uint32_t length);

/**
 * Makes the salted form of a password with the platform's older scheme.
 *
 * @param password        the password
 * @param passwordLength  its length in bytes
 * @param salt            the salt
 * @param saltLength      its length in bytes
 * @param output          where the form goes, a string
 * @param outputSize      bytes at `output`
 * @return 0, else a code
 */
uint32_t BEX_CRYPT_Password_4096(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                 uint32_t saltLength, char *output, uint32_t outputSize);

/**
 * Makes the salted form of a password with the platform's current scheme and a salt of its own.
 *
 * @param password        the password
 * @param passwordLength  its length in bytes
 * @param output          where the form goes, a string
 * @param resultWord      receives a word that says more about the result
 * @param outputSize      bytes at `output`
 * @return 0, else a code
 */
uint32_t BEX_CRYPT_PasswordEx(const char *password, uint32_t passwordLength, char *output, uint32_t *resultWord,
                              uint32_t outputSize);

/** Fills a buffer with random bytes fit for keys. Returns 0, else a code. */
uint32_t CRYPT_random(void *buffer, uint32_t length);

#ifdef __cplusplus
}
#endif

#endif
