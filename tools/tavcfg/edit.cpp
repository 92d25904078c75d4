#include "edit.h"

#include <fmt/format.h>

#include <cstdio>
#include <string>
#include <utility>

#include "errors.h"
#include "store.h"

namespace tavcfg {

namespace {

/**
 * Edits a store, flushes it and says what was done.
 *
 * @param verb  what is done, for messages: the base form, and the past
 * @param edit  the method of the store that edits; throws Problem
 */
int EditAndFlush(const EditOptions &options, Store store, const std::pair<const char *, const char *> &verb,
                 void (Store::*edit)(uint32_t, const Record &)) {
    const std::string &file = options.target.file.given;
    const std::string name = Describe(options.vsId, options.record);
    try {
        (store.*edit)(options.vsId, options.record);
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot {} {} in {}: {}", verb.first, name, file, problem.what()));
    }
    if (store.Flush()) {
        fmt::print("{} {} in {}\n", verb.second, name, file);
    } else {
        fmt::print("nothing to write: {} holds the same already\n", file);
    }
    return 0;
}

}  // namespace

int RunAdd(const EditOptions &options) {
    RequireWritable(options.target.file);
    return EditAndFlush(options, LoadOrNew(options.target), {"add", "added"}, &Store::Add);
}

int RunSet(const EditOptions &options) {
    return EditAndFlush(options, Load(options.target).store, {"set", "set"}, &Store::Set);
}

int RunDel(const EditOptions &options) {
    return EditAndFlush(options, Load(options.target).store, {"delete", "deleted"}, &Store::Delete);
}

}  // namespace tavcfg
