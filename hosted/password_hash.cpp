/*
 * Salted forms of passwords. They name their scheme and its cost, and are compared in constant time.
 *
 *     $pbkdf2-sha256$4096$ salt $ hash           PBKDF2-HMAC-SHA256 with 4096 rounds
 *     $scrypt$ln=15,r=8,p=1$ salt $ hash         scrypt with 2^15 rounds, blocks of 8, 1 lane: 32 MiB
 *
 * Salt and hash are base64url. Codes are errno values.
 */
#include <openssl/evp.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <algorithm>

#include "base64url.h"
#include "crypto.h"
#include "interfaces.h"

using hosted::Base64Length;
using hosted::DecodeBase64;
using hosted::EncodeBase64;
using hosted::Secret;

namespace {

constexpr char kPbkdf2Head[] = "$pbkdf2-sha256$4096$";
constexpr int kPbkdf2Rounds = 4096;
constexpr size_t kMaxHeadLength = 31;
constexpr size_t kHashSize = 32;
constexpr uint32_t kOwnSaltSize = 16;
constexpr size_t kMaxSaltSize = 64;

using Hash = Secret<kHashSize>;

/** What making a form costs. */
struct Cost {
    unsigned logRounds;  // of scrypt; 0: the form is one of PBKDF2, whose cost is fixed
    unsigned blockSize;
    unsigned lanes;
};

constexpr Cost kPbkdf2 = {0, 0, 0};
constexpr Cost kScrypt = {15, 8, 1};

// Whoever can place a form must not be able to ask for any time and memory: with these bounds it is 64 MiB, and eight
// times the time of the forms made here.
constexpr Cost kMaxScrypt = {16, 8, 4};
constexpr uint64_t kMaxScryptMemory = 72u << 20;  // 64 MiB and what libcrypto needs besides

bool IsAffordable(const Cost &cost) {
    const auto within = [](unsigned value, unsigned most) { return value >= 1 && value <= most; };
    return within(cost.logRounds, kMaxScrypt.logRounds) && within(cost.blockSize, kMaxScrypt.blockSize) &&
           within(cost.lanes, kMaxScrypt.lanes) && cost.logRounds < 16 * cost.blockSize;  // a rule of scrypt's
}

/** What a form says, but for the hash. */
struct Recipe {
    Cost cost;
    size_t saltSize;
    uint8_t salt[kMaxSaltSize];
};

/** Writes what a form begins with. */
void WriteHead(const Cost &cost, char (&head)[kMaxHeadLength + 1]) {
    if (cost.logRounds == 0) {
        sprintf_s(head, sizeof(head), "%s", kPbkdf2Head);
    } else {
        sprintf_s(head, sizeof(head), "$scrypt$ln=%u,r=%u,p=%u$", cost.logRounds, cost.blockSize, cost.lanes);
    }
}

/** Reads what a form begins with. Returns its length; 0 when it is no form's or asks for too much. */
size_t ReadHead(const char *text, size_t length, Cost *cost) {
    char begin[kMaxHeadLength + 1] = {};
    memcpy(begin, text, std::min(length, kMaxHeadLength));
    *cost = kPbkdf2;
    const int numbers = sscanf(begin, "$scrypt$ln=%2u,r=%1u,p=%1u", &cost->logRounds, &cost->blockSize, &cost->lanes);
    if (numbers > 0 && !IsAffordable(*cost)) {
        return 0;
    }
    // Other spellings of the same numbers are no forms.
    char head[kMaxHeadLength + 1];
    WriteHead(*cost, head);
    const size_t headLength = strlen(head);
    return strncmp(begin, head, headLength) == 0 ? headLength : 0;
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/** Returns whether salts and hashes are written in such characters, here or elsewhere. */
bool IsBase64(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           (c != '\0' && strchr("-_+/.=", c) != nullptr);
}

/** Returns where characters of a kind end, of which there must be one at least; null when there is none. */
const char *Skip(const char *at, const char *end, bool (*isOfKind)(char)) {
    const char *const rest = std::find_if_not(at, end, isOfKind);
    return rest != at ? rest : nullptr;
}

/**
 * Returns whether a text has the build of a form, in which '#' stands for a number and '*' for salt or hash. What it
 * costs does not matter, nor whether salt and hash can be read.
 */
bool IsBuiltAs(const char *build, const char *text, const char *end) {
    for (; text != nullptr && *build != '\0'; ++build) {
        if (*build == '#') {
            text = Skip(text, end, IsDigit);
        } else if (*build == '*') {
            text = Skip(text, end, IsBase64);
        } else {
            text = text != end && *text == *build ? text + 1 : nullptr;
        }
    }
    return text == end && text != nullptr;
}

/**
 * Returns whether a text is a form, also one that costs more than this platform pays, or is cut short. If it were none,
 * it would be taken for a password itself, and whoever can read it could log in.
 */
bool LooksLikeForm(const char *text, size_t length) {
    return text != nullptr && (IsBuiltAs("$scrypt$ln=#,r=#,p=#$*$*", text, text + length) ||
                               IsBuiltAs("$pbkdf2-sha256$#$*$*", text, text + length));
}

/** Reads a form. Returns whether it is one of those that can be verified. */
bool Parse(const char *text, size_t length, Recipe *recipe, Hash *hash) {
    const size_t headLength = text != nullptr ? ReadHead(text, length, &recipe->cost) : 0;
    if (headLength == 0) {
        return false;
    }
    const char *const salt = text + headLength;
    const char *const end = text + length;
    const auto *const dollar = static_cast<const char *>(memchr(salt, '$', static_cast<size_t>(end - salt)));
    if (dollar == nullptr) {
        return false;
    }
    recipe->saltSize = sizeof(recipe->salt);
    size_t hashSize = kHashSize;
    return DecodeBase64(salt, static_cast<size_t>(dollar - salt), recipe->salt, &recipe->saltSize) &&
           recipe->saltSize > 0 &&
           DecodeBase64(dollar + 1, static_cast<size_t>(end - dollar - 1), hash->data(), &hashSize) &&
           hashSize == kHashSize;
}

/** Derives the hash of a password as a form says. */
uint32_t Derive(const Recipe &recipe, const char *password, uint32_t length, Hash *hash) {
    if (password == nullptr || length > INT_MAX) {
        return EINVAL;
    }
    const hosted::ErrorMark mark;
    const Cost &cost = recipe.cost;
    const int done =
        cost.logRounds == 0
            ? PKCS5_PBKDF2_HMAC(password, static_cast<int>(length), recipe.salt, static_cast<int>(recipe.saltSize),
                                kPbkdf2Rounds, EVP_sha256(), int{kHashSize}, hash->data())
            : EVP_PBE_scrypt(password, length, recipe.salt, recipe.saltSize, uint64_t{1} << cost.logRounds,
                             cost.blockSize, cost.lanes, kMaxScryptMemory, hash->data(), kHashSize);
    return done == 1 ? 0 : EIO;
}

/** Writes the form of a recipe and a hash. Returns 0, else a code, and then leaves an empty string. */
uint32_t Write(const Recipe &recipe, const Hash &hash, char *output, uint32_t size) {
    char head[kMaxHeadLength + 1];
    char salt[Base64Length(kMaxSaltSize) + 1];
    Secret<Base64Length(kHashSize) + 1> hashText;
    WriteHead(recipe.cost, head);
    EncodeBase64(recipe.salt, recipe.saltSize, salt);
    EncodeBase64(hash.data(), kHashSize, reinterpret_cast<char *>(hashText.data()));
    const int written = sprintf_s(output, size, "%s%s$%s", head, salt, reinterpret_cast<const char *>(hashText.data()));
    return written >= 0 ? 0 : ERANGE;
}

/** Makes the form of a password. Failing, it leaves an empty string. */
uint32_t Make(const Recipe &recipe, const char *password, uint32_t length, char *output, uint32_t size) {
    Hash hash;
    const uint32_t code = Derive(recipe, password, length, &hash);
    if (code != 0) {
        output[0] = '\0';
        return code;
    }
    return Write(recipe, hash, output, size);
}

}  // namespace

uint32_t BEX_CRYPT_Password_4096(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                 uint32_t saltLength, char *output, uint32_t outputSize) {
    if (output == nullptr || outputSize == 0) {
        return EINVAL;
    }
    if (salt == nullptr || saltLength == 0 || saltLength > kMaxSaltSize) {
        output[0] = '\0';
        return EINVAL;
    }
    Recipe recipe = {kPbkdf2, saltLength, {}};
    memcpy(recipe.salt, salt, saltLength);
    return Make(recipe, password, passwordLength, output, outputSize);
}

uint32_t BEX_CRYPT_PasswordEx(const char *password, uint32_t passwordLength, char *output, uint32_t *resultWord,
                              uint32_t outputSize) {
    if (resultWord != nullptr) {
        *resultWord = 0;  // there is nothing more to say
    }
    if (output == nullptr || outputSize == 0) {
        return EINVAL;
    }
    Recipe recipe = {kScrypt, kOwnSaltSize, {}};
    const uint32_t code = BEX_CRYPT_Salt(recipe.salt, kOwnSaltSize);
    if (code != 0) {
        output[0] = '\0';
        return code;
    }
    return Make(recipe, password, passwordLength, output, outputSize);
}

uint32_t BEX_CRYPT_IsPasswordCipher(const char *text, uint32_t length) {
    return LooksLikeForm(text, length) ? 0 : EINVAL;
}

uint32_t BEX_VerifySystemPassword(const char *password, uint32_t length, const char *stored) {
    Recipe recipe;
    Hash expected;
    const uint32_t storedLength = BEX_StrLen(stored);
    if (!Parse(stored, storedLength, &recipe, &expected)) {
        return LooksLikeForm(stored, storedLength) ? EOPNOTSUPP : EINVAL;
    }
    Hash hash;
    const uint32_t code = Derive(recipe, password, length, &hash);
    if (code != 0) {
        return code;
    }
    return CRYPTO_memcmp(hash.data(), expected.data(), kHashSize) == 0 ? 0 : EACCES;
}
