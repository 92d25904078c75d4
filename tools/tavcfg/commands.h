/*
 * The commands. Each returns its exit code, and throws Failure or UsageError when it cannot do its work.
 */
#ifndef TAVCFG_COMMANDS_H
#define TAVCFG_COMMANDS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "file.h"

namespace tavcfg {

/** What the command line says. Each command looks at its own part. */
struct Options {
    std::string file;   // the file worked on; IN of convert, A of diff
    std::string other;  // OUT of convert, B of diff, JSON of import
    std::string refer;  // empty for none
    std::string vs;     // numbers as typed; empty for none
    std::string cls;
    std::string field;
    std::vector<std::string> assignments;  // FID=VALUE
    bool json = false;
    bool merge = false;
    bool rewrite = false;
    bool safe = false;
    bool log = false;

    // Of the commands on passwords and secrets.
    std::optional<std::string> user;
    std::string history;   // a file; empty for none
    std::string form;      // a stored form; empty when it is read from a file
    std::string formFile;  // that file
    std::string context;   // key context
    bool strict = false;
    bool basic = false;
    bool legacy = false;
};

/** The target that the options name. */
Target TargetOf(const Options &options);

/** Throws UsageError for a key context that is too long for the platform. */
void RequireContext(const std::string &context);

int RunInfo(const Options &options);
int RunVerify(const Options &options);
int RunShow(const Options &options);
int RunGet(const Options &options);
int RunAdd(const Options &options);
int RunSet(const Options &options);
int RunDel(const Options &options);
int RunPatch(const Options &options);
int RunImport(const Options &options);
int RunExport(const Options &options);
int RunConvert(const Options &options);
int RunDiff(const Options &options);
int RunRecover(const Options &options);
int RunPasswdCheck(const Options &options);
int RunPasswdHash(const Options &options);
int RunPasswdVerify(const Options &options);
int RunEncrypt(const Options &options);
int RunDecrypt(const Options &options);

}  // namespace tavcfg

#endif
