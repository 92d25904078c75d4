/*
 * encrypt, decrypt: texts that can be had back, under a key context.
 */
#ifndef TAVCFG_SECRET_H
#define TAVCFG_SECRET_H

#include <string>

namespace tavcfg {

struct SecretOptions {
    std::string context;  // key context
};

/** Says so when the platform had to make a key: from then on, all that is encrypted hangs on that file. */
void TellOfNewKey();

/** Each reads a text from standard input and prints what becomes of it. Throws Failure. */
int RunEncrypt(const SecretOptions &options);
int RunDecrypt(const SecretOptions &options);

}  // namespace tavcfg

#endif
