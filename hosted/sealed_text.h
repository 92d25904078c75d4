/*
 * Sealed texts: AES-256 in Galois counter mode, under keys that are derived from a key file's secret.
 *
 *     $Rkey$ base64url( vector | encrypted text | tag )      reversible
 *     $Dkey$ base64url( vector | encrypted digest | tag )    digest-based form of a password
 *
 * `key` is the id of the key file's secret, so that another key is told from a changed text. Older texts have no id:
 * they begin with $rev1$ and $dig1$. What a text begins with is authenticated with the rest.
 *
 * Codes are errno values: EINVAL bad argument or no such text, EBADMSG changed or another key context, ENOKEY another
 * key, EIO libcrypto refused.
 */
#ifndef HOSTED_SEALED_TEXT_H
#define HOSTED_SEALED_TEXT_H

#include <cstddef>
#include <cstdint>

#include "crypto.h"
#include "key_file.h"

namespace hosted {

inline constexpr size_t kVectorSize = 16;
inline constexpr size_t kTagSize = 16;
inline constexpr size_t kDigestSize = 32;
inline constexpr size_t kHeadLength = 6;
inline constexpr size_t kMaxFormLength = 432;  // the library takes no longer text for a cipher
inline constexpr size_t kMaxSealedSize = (kMaxFormLength - kHeadLength) * 6 / 8;
inline constexpr size_t kMaxPlainSize = kMaxSealedSize - kVectorSize - kTagSize;

/** A kind of sealed text. */
struct Kind {
    uint32_t id;                      // what BEX_CRYPT_IsCipher answers
    char letter;                      // tells the kind in a head with a key's id
    char olderHead[kHeadLength + 1];  // what texts without one begin with
    const char *purpose;              // separates the keys of the kinds
    size_t minPlainSize;              // bytes that are encrypted, at least and at most
    size_t maxPlainSize;
};

inline constexpr Kind kReversible = {8, 'R', "$rev1$", "tav reversible text 1", 0, kMaxPlainSize};
inline constexpr Kind kDigestBased = {6, 'D', "$dig1$", "tav password digest 1", kDigestSize, kDigestSize};

using Plain = Secret<kMaxPlainSize>;

/** Returns the kind of sealed text that a text looks like; null when it is none. */
const Kind *KindOf(const char *text, size_t length);

/** Returns whether so many bytes can be sealed, and the text has room in `size` bytes with its terminator. */
bool Fits(const Kind &kind, size_t plainSize, size_t size);

/**
 * Seals bytes.
 *
 * @param secret      the key file's
 * @param kind        the kind of text wanted
 * @param plain       the bytes, which must fit
 * @param plainSize   how many
 * @param keyContext  key context; null is an empty one
 * @param vector      kVectorSize random bytes, never used twice
 * @param output      where the text goes, also when the bytes lie there
 * @return 0, else a code, and then the output is left alone
 */
uint32_t Seal(const Key &secret, const Kind &kind, const void *plain, size_t plainSize, const char *keyContext,
              const uint8_t *vector, char *output);

/** Opens a text that is of a kind. Returns 0 and its bytes, else a code. */
uint32_t Unseal(const Key &secret, const Kind &kind, const char *text, size_t length, const char *keyContext,
                Plain *plain, size_t *plainSize);

}  // namespace hosted

#endif
