#include "tav/patch.h"

#include <fmt/format.h>

#include "assignments.h"
#include "diagnose.h"
#include "errors.h"
#include "patch.h"
#include "progress.h"
#include "tav/values.h"

namespace tavcfg {

namespace {

std::optional<tav::Change> Patch(const PatchOptions &options, const std::string &name) {
    const FileOptions &file = options.write.file;
    const Progress progress("patching " + file.target.file.given);
    try {
        return tav::Patch(file.target.file.given, options.change,
                          {.refer = ReferOf(file),
                           .wait = file.wait,
                           .inPlace = !options.isSafe,
                           .dryRun = options.write.isDryRun,
                           .comment = options.write.comment});
    } catch (const tav::Error &error) {
        if (error.Place() == name) {
            throw Failure(fmt::format("cannot patch {} in {}: {}", name, file.target.file.given,
                                      std::string(error.what()).substr(name.size() + 2)));
        }
        Diagnose(error, file);
        throw;
    }
}

}  // namespace

int RunPatch(const PatchOptions &options) {
    const File &file = options.write.file.target.file;
    const std::string name = tav::DescribeRecord(options.change.vsId, RecordOf(options.change).View());
    RequireRefer(options.write.file.target);
    const std::optional<tav::Change> done = Patch(options, name);
    if (!done) {
        SayUnchanged(file);
    } else if (options.write.isDryRun) {
        PrintScript({*done}, options.write.file.shown);
    } else {
        PrintDone(file, fmt::format("patched {} in {}", name, file.given));
    }
    return 0;
}

}  // namespace tavcfg
