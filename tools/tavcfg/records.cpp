#include "records.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "assignments.h"
#include "errors.h"
#include "progress.h"
#include "tav/filter.h"

namespace tavcfg {

namespace {

tav::Filter FilterOf(const Selection &selection, const tav::Names &names) {
    try {
        return tav::Filter(selection.where, names, selection.cid);
    } catch (const tav::Error &error) {
        throw UsageError(std::string("--where: ") + error.what());
    }
}

void Sort(std::vector<tav::RecordView> *records, uint32_t cid, const Selection &selection, const tav::Names &names) {
    if (!selection.sort.empty()) {
        std::stable_sort(records->begin(), records->end(), tav::Order(cid, selection.sort, names));
    }
    if (selection.isReversed) {
        std::reverse(records->begin(), records->end());
    }
}

}  // namespace

std::vector<VsRecords> Select(const tav::Store &store, const Selection &selection, const FileOptions &options) {
    if (selection.vsId && !store.FindVs(*selection.vsId)) {
        throw Failure(fmt::format("cannot look into {}: it has no VS {}", options.target.file.given, *selection.vsId));
    }
    const tav::Filter filter = FilterOf(selection, options.names);
    RequireFields(selection.sort, options.names, "--sort");
    const Progress progress("searching " + options.target.file.given);
    std::vector<VsRecords> selected;
    size_t left = selection.limit;
    const bool showsEmpty = selection.where.empty() && !selection.cid;
    for (const tav::VsView vs : store) {
        if (selection.vsId && *selection.vsId != vs.Id()) {
            continue;
        }
        selected.push_back({vs.Id(), {}});
        const bool isEmpty = vs.begin() == vs.end();
        for (const tav::ClassView all : vs) {
            ClassRecords chosen{all.Cid(), {}};
            if (!selection.cid || *selection.cid == all.Cid()) {
                std::ranges::copy_if(all, std::back_inserter(chosen.records),
                                     [&](tav::RecordView record) { return filter.Matches(record); });
            }
            Sort(&chosen.records, chosen.cid, selection, options.names);
            chosen.records.erase(chosen.records.begin() + static_cast<ptrdiff_t>(std::min(left, chosen.records.size())),
                                 chosen.records.end());
            left -= chosen.records.size();
            if (!chosen.records.empty()) {
                selected.back().classes.push_back(std::move(chosen));
            }
        }
        if (selected.back().classes.empty() && !(isEmpty && showsEmpty)) {
            selected.pop_back();
        }
    }
    return selected;
}

}  // namespace tavcfg
