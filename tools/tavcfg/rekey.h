/*
 * rekey: brings the cipher texts in a stream from an old key file to the present one.
 */
#ifndef TAVCFG_REKEY_H
#define TAVCFG_REKEY_H

#include <string>
#include <vector>

namespace tavcfg {

struct RekeyOptions {
    std::string oldKeyFile;
    std::vector<std::string> contexts;  // key contexts; each text is of one of them
};

/**
 * Copies standard input to standard output with each cipher text in it encrypted anew; whatever stands between them
 * stays. Throws Failure, and then nothing is printed.
 */
int RunRekey(const RekeyOptions &options);

}  // namespace tavcfg

#endif
