/*
 * passwd check, passwd hash, passwd verify: passwords and their stored forms.
 */
#ifndef TAVCFG_PASSWD_H
#define TAVCFG_PASSWD_H

#include <optional>
#include <string>

namespace tavcfg {

struct PasswdCheckOptions {
    std::optional<std::string> user;
    std::string history;  // a file of stored forms; empty without one
    bool isStrict = false;
    bool isBasic = false;
};

struct PasswdHashOptions {
    bool isLegacy = false;
};

struct PasswdVerifyOptions {
    std::string form;      // the stored form; empty when it is read from a file
    std::string formFile;  // that file
    std::string context;   // key context
};

/** Each reads the password from standard input. Throws Failure, and Denial for a password that is not the right one. */
int RunPasswdCheck(const PasswdCheckOptions &options);
int RunPasswdHash(const PasswdHashOptions &options);
int RunPasswdVerify(const PasswdVerifyOptions &options);

}  // namespace tavcfg

#endif
