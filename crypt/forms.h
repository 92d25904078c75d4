/*
 * What the recognisers and the users of stored forms share.
 */
#ifndef CRYPT_FORMS_H
#define CRYPT_FORMS_H

#include "crypt/secret.h"
#include "tav_crypt.h"

namespace crypt {

/** The key context of what is not tied to one. */
inline constexpr const char *kNoContext = "";

/** The least classification of a cipher. */
inline constexpr uint32_t kMinKind = 2;

/** Room for a text of the greatest length that is handled. */
using TextBuffer = Secret<char, TAV_PWD_BUFFER_SIZE>;

}  // namespace crypt

#endif
