/*
 * The digest: SHA-256.
 */
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <cerrno>

#include "interfaces.h"

uint32_t BEX_Crypt_Digest(const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength,
                          uint32_t capacity) {
    if ((data == nullptr && length != 0) || digest == nullptr || digestLength == nullptr) {
        return EINVAL;
    }
    *digestLength = 0;
    if (capacity < SHA256_DIGEST_LENGTH) {
        return ERANGE;
    }
    unsigned int written = 0;
    if (EVP_Digest(data, length, digest, &written, EVP_sha256(), nullptr) != 1) {
        return EIO;
    }
    *digestLength = written;
    return 0;
}
