/*
 * add, set, del: edits through a store.
 */
#include <fmt/format.h>

#include <cstdio>

#include "assignments.h"
#include "commands.h"
#include "errors.h"
#include "store.h"

namespace tavcfg {

namespace {

/**
 * Edits a store, flushes it and says what was done.
 *
 * @param verb  what is done, for messages: the base form, and the past
 * @param edit  the edit, given the store; throws Problem
 */
template <typename Edit>
int EditAndFlush(const Target &target, Store store, uint32_t vsId, const Record &record,
                 const std::pair<const char *, const char *> &verb, Edit edit) {
    const std::string name = Describe(vsId, record);
    try {
        edit(store);
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot {} {} in {}: {}", verb.first, name, target.file.given, problem.what()));
    }
    if (store.Flush()) {
        fmt::print("{} {} in {}\n", verb.second, name, target.file.given);
    } else {
        fmt::print("nothing to write: {} holds the same already\n", target.file.given);
    }
    return 0;
}

}  // namespace

int RunAdd(const Options &options) {
    const Target target = TargetOf(options);
    const uint32_t vsId = ParseId(options.vs, "--vs");
    const Record record = ParseRecord(ParseId(options.cls, "--class"), options.assignments);
    RequireWritable(target.file);
    return EditAndFlush(target, LoadOrNew(target), vsId, record, {"add", "added"},
                        [&](Store &store) { store.Add(vsId, record); });
}

int RunSet(const Options &options) {
    const Target target = TargetOf(options);
    const uint32_t vsId = ParseId(options.vs, "--vs");
    const Record record = ParseChange(ParseId(options.cls, "--class"), options.assignments);
    return EditAndFlush(target, Load(target).store, vsId, record, {"set", "set"},
                        [&](Store &store) { store.Set(vsId, record); });
}

int RunDel(const Options &options) {
    const Target target = TargetOf(options);
    const uint32_t vsId = ParseId(options.vs, "--vs");
    const Record key = ParseKey(ParseId(options.cls, "--class"), options.assignments);
    return EditAndFlush(target, Load(target).store, vsId, key, {"delete", "deleted"},
                        [&](Store &store) { store.Delete(vsId, key); });
}

}  // namespace tavcfg
