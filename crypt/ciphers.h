/*
 * What the users of ciphers share.
 */
#ifndef CRYPT_CIPHERS_H
#define CRYPT_CIPHERS_H

#include "crypt/secret.h"
#include "tav_crypt.h"

namespace crypt {

/** The key context of what is tied to none. */
inline constexpr const char *kNoContext = "";

/** The least classification of a cipher. */
inline constexpr uint32_t kMinKind = 2;

/** Room for a text of the greatest length that is handled. */
using TextBuffer = Secret<char, TAV_PWD_BUFFER_SIZE>;

}  // namespace crypt

#endif
