/*
 * The key file: the one secret from which the keys of all contexts are derived.
 */
#ifndef HOSTED_KEY_FILE_H
#define HOSTED_KEY_FILE_H

#include "crypto.h"

namespace hosted {

/** A key of AES-256, and the key file's secret. */
using Key = Secret<32>;

/** What to do without a key file. */
enum class MissingKeyFile {
    kFail,   // what is to be decrypted was encrypted with another key anyway
    kCreate  // with a new random key
};

/**
 * Reads the key file's secret. It is read at each use: so nothing of it stays in memory, and a key file that is put in
 * place or withdrawn counts at once.
 *
 * @return 0, else an errno code; EACCES also for a file that is refused (see docs/hosted-platform.md)
 */
uint32_t ReadKeyFile(MissingKeyFile missing, Key *secret);

/** Reads the secret of the key file at an absolute path, which must be there. Returns as ReadKeyFile does. */
uint32_t ReadKeyFileAt(const char *path, Key *secret);

}  // namespace hosted

#endif
