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
    bool log = false;
};

/** The target that the options name. */
Target TargetOf(const Options &options);

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

}  // namespace tavcfg

#endif
