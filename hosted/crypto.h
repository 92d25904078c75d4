/*
 * What all sources that call libcrypto need.
 */
#ifndef HOSTED_CRYPTO_H
#define HOSTED_CRYPTO_H

#include <openssl/crypto.h>
#include <openssl/err.h>
#include <cstddef>
#include <cstdint>

namespace hosted {

/** Bytes that nobody may find in memory later: keys, plain texts, and what is derived from passwords. */
template <size_t kSize>
class Secret {
  public:
    Secret() = default;
    ~Secret() { OPENSSL_cleanse(bytes_, kSize); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    uint8_t *data() { return bytes_; }
    const uint8_t *data() const { return bytes_; }
    static constexpr size_t size() { return kSize; }

  private:
    uint8_t bytes_[kSize] = {};
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

}  // namespace hosted

#endif
