#include "recover.h"

#include <fmt/format.h>

#include <cstdio>

namespace tavcfg {

int RunRecover(const FileOptions &options, bool isDryRun) {
    const tav::Recovery recovery = tav::Recover(
        options.target.file.given,
        {.refer = ReferOf(options), .ignoreRefer = options.ignoresRefer, .wait = options.wait, .dryRun = isDryRun});
    if (recovery.moves.empty() || isDryRun) {
        fmt::print("{}{}\n", isDryRun ? "dry run: " : "", recovery.text);
    } else {
        PrintDone(options.target.file, recovery.text);
    }
    return 0;
}

}  // namespace tavcfg
