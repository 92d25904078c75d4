/*
 * Platform cryptography: the digest.
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
 * @param digestLength  in and out: receives the digest's length in bytes
 * @param capacity      bytes at `digest`, at least 33
 * @return 0, else a code
 */
uint32_t BEX_Crypt_Digest(const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength,
                          uint32_t capacity);

#ifdef __cplusplus
}
#endif

#endif
