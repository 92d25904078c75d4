/*
 * Random bytes, from libcrypto's generators, which the system's random source seeds.
 */
#include <openssl/rand.h>
#include <cerrno>
#include <cstring>

#include "crypto.h"
#include "interfaces.h"

namespace {

// A generator of libcrypto's: library context (null for the default one), buffer, length, strength (0 for the default).
using Generator = int(OSSL_LIB_CTX *, unsigned char *, size_t, unsigned int);

/** Fills a buffer; with zeros when the generator fails. */
uint32_t Fill(Generator *generator, void *buffer, uint32_t length) {
    if (buffer == nullptr) {
        return EINVAL;
    }
    const hosted::ErrorMark mark;
    if (generator(nullptr, static_cast<unsigned char *>(buffer), length, 0) == 1) {
        return 0;
    }
    memset(buffer, 0, length);
    return EIO;
}

}  // namespace

uint32_t CRYPT_random(void *buffer, uint32_t length) {
    return Fill(RAND_priv_bytes_ex, buffer, length);
}

/** A salt is shown to whoever sees the form; it comes from the generator whose output need not stay secret. */
uint32_t BEX_CRYPT_Salt(uint8_t *buffer, uint32_t length) {
    return Fill(RAND_bytes_ex, buffer, length);
}
