#include "recover.h"

#include <fmt/format.h>

#include <cstdio>

#include "progress.h"
#include "terminal.h"

namespace tavcfg {

int RunRecover(const WriteOptions &options) {
    const FileOptions &file = options.file;
    const tav::Recovery recovery = WithProgress("recovering " + file.target.file.given, [&] {
        return tav::Recover(
            file.target.file.given,
            {.refer = ReferOf(file), .ignoreRefer = file.ignoresRefer, .wait = file.wait, .dryRun = options.isDryRun});
    });
    if (recovery.moves.empty()) {
        fmt::print("{}\n", Printable(recovery.text));
    } else {
        SayDone(options, recovery.text);
    }
    return 0;
}

}  // namespace tavcfg
