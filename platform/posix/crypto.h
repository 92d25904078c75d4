/*
 * What all sources that call libcrypto need.
 */
#ifndef PLATFORM_POSIX_CRYPTO_H
#define PLATFORM_POSIX_CRYPTO_H

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <stddef.h>
#include <stdint.h>

/** Bytes that nobody may find in memory later: keys, plain texts, and what is derived from passwords. */
template <size_t kCapacity>
class Secret {
  public:
    Secret() = default;
    ~Secret() { OPENSSL_cleanse(bytes_, kCapacity); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    uint8_t *Data() { return bytes_; }
    const uint8_t *Data() const { return bytes_; }
    static constexpr size_t Capacity() { return kCapacity; }

  private:
    uint8_t bytes_[kCapacity] = {};
};

/**
 * Takes back what libcrypto's calls add to the thread's list of errors. A text that does not decrypt is nothing
 * unusual, and its error left in the list would be taken for one of the host's own calls, such as its TLS connections.
 */
class ErrorMark {
  public:
    ErrorMark() { ERR_set_mark(); }
    ~ErrorMark() { ERR_pop_to_mark(); }
    ErrorMark(const ErrorMark &) = delete;
    ErrorMark &operator=(const ErrorMark &) = delete;
};

#endif
