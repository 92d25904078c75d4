#include "import_export.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <set>

#include "errors.h"
#include "json_form.h"
#include "store.h"

namespace tavcfg {

namespace {

/** Shows on a terminal how far a long import is. */
class Progress {
  public:
    explicit Progress(size_t total) : total_(total), isShown_(total >= kStep && isatty(STDERR_FILENO) == 1) {}

    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    ~Progress() {
        if (isShown_) {
            fputs("\r\033[K", stderr);
        }
    }

    void Step() {
        if (++done_ % kStep == 0 && isShown_) {
            fprintf(stderr, "\rrecord %zu of %zu", done_, total_);
        }
    }

  private:
    static constexpr size_t kStep = 10000;
    size_t total_;
    size_t done_ = 0;
    bool isShown_;
};

/** How many records an import added to a file, and how many it overwrote. */
struct Counts {
    size_t added = 0;
    size_t overwritten = 0;
};

/** Takes everything that a JSON form holds over into a store. Throws Problem. */
Counts TakeInto(Store &store, const nlohmann::json &form) {
    Counts counts;
    RecordCheck check;
    std::set<uint32_t> vsIds;
    Progress progress(CountRecords(form));
    const auto takeVs = [&](uint32_t vsId) {
        if (!vsIds.insert(vsId).second) {
            throw Problem(fmt::format("VS {} came before", vsId));
        }
        store.AddVs(vsId);
    };
    const auto takeRecord = [&](uint32_t vsId, const Record &record) {
        try {
            check.Pass(vsId, record);
            (store.AddOrSet(vsId, record) == Merge::kAdded ? counts.added : counts.overwritten)++;
        } catch (const Problem &problem) {
            throw Problem(fmt::format("{}: {}", Describe(vsId, record), problem.what()));
        }
        progress.Step();
    };
    TakeJson(form, {takeVs, takeRecord});
    return counts;
}

}  // namespace

int RunImport(const ImportOptions &options) {
    const auto &[target, source, merges] = options;
    RequireWritable(target.file);
    Store store = merges ? LoadOrNew(target) : Store::New(target);
    Counts counts;
    try {
        counts = TakeInto(store, ParseJson(ReadText(source)));
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot import {}: {}", source == "-" ? "standard input" : source, problem.what()));
    }
    if (store.Flush()) {
        fmt::print("wrote {}: records added {}, overwritten {}\n", target.file.given, counts.added, counts.overwritten);
    } else {
        fmt::print("nothing to write: {} holds the same already\n", target.file.given);
    }
    return 0;
}

int RunExport(const Target &target) {
    LoadedFile loaded = Load(target);
    const std::vector<uint8_t> rebuilt = loaded.store.Body();
    const uint8_t *body = loaded.image.data.get() + loaded.frame.headSize;
    const uint8_t *end = loaded.image.data.get() + loaded.image.size;
    if (!std::equal(body, end, rebuilt.begin(), rebuilt.end())) {
        // Foreign TLVs, records that are not in the order of their keys, a VS that comes twice: JSON has no room.
        throw Failure(
            fmt::format("cannot export {}: it is not as this library writes files, so an import could not give the "
                        "same; to have it written anew: tavcfg convert --rewrite {} OUT",
                        target.file.given, target.file.given));
    }
    PrintJson(loaded.Content());
    return 0;
}

}  // namespace tavcfg
