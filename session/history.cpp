/*
 * The history of a file, for programs.
 */
#include "tav/history.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <utility>

#include "session/errors.h"
#include "session/history_folder.h"
#include "session/load.h"
#include "session/start.h"

namespace tav {

namespace {

using session::HistoryFolder;
using session::Index;

/** A file's history, settled, with the file's lock held. */
struct LockedHistory {
    LockedHistory(const std::string &path, std::chrono::milliseconds wait)
        : place(session::Resolve(path)),
          until(session::EndOf(wait)),
          lock((session::RequireUsable(place, false), place), until) {
        session::CompleteTypeTable();
        std::optional<session::Loaded> loaded = session::Load(place, session::ReferOf("", true), until);
        const std::optional<struct stat> status = session::StatusOf(place.Path());
        if (!loaded || !status) {
            session::RefuseMissing(place);
        }
        like = *status;
        image = std::move(loaded->image);
        checksum = session::ToHex(loaded->content.checksums.body);
        index = folder.Settle(checksum);
    }

    const session::Place place;
    const session::Clock::time_point until;
    const session::HeldLock lock;
    const HistoryFolder folder{place};
    struct stat like;
    session::Block image;
    std::string checksum;
    Index index;
};

void RequireName(const std::string &name) {
    const auto isPart = [](unsigned char c) { return std::isalnum(c) != 0 || c == '-' || c == '_' || c == '.'; };
    const auto isDigit = [](unsigned char c) { return std::isdigit(c) != 0; };
    if (name.empty() || name.size() > 64 || !std::all_of(name.begin(), name.end(), isPart) ||
        std::all_of(name.begin(), name.end(), isDigit)) {
        throw Error(TAV_ERR_INVALID, name,
                    "a checkpoint's name is 1 to 64 letters, digits, '-', '_' and '.', and no number");
    }
}

auto FindCheckpoint(std::vector<Checkpoint> &checkpoints, const std::string &name) {
    return std::find_if(checkpoints.begin(), checkpoints.end(), [&](const auto &each) { return each.name == name; });
}

[[noreturn]] void RefuseUnknown(const std::string &file, const std::string &name) {
    throw Error(TAV_ERR_NOT_FOUND, file, "it has no checkpoint " + name);
}

}  // namespace

History::History(const std::string &path) : path_(path) {
    session::CompleteTypeTable();
    const session::Place place = session::Resolve(path);
    Index index = HistoryFolder(place).Read();
    isOn_ = index.isOn;
    keep_ = index.keep;
    commits_.assign(index.commits.begin(), index.commits.end());
    checkpoints_ = std::move(index.checkpoints);
}

Store History::Before(size_t count) const {
    if (commits_.empty()) {
        throw Error(TAV_ERR_NOT_FOUND, path_, "no commit of it is kept (its history may be off)");
    }
    if (count == 0 || count > commits_.size()) {
        throw Error(TAV_ERR_NOT_FOUND, path_,
                    fmt::format("its history goes 1 to {} commits back, not {}", commits_.size(), count));
    }
    const HistoryCommit &commit = commits_[commits_.size() - count];
    const session::Place place = session::Resolve(path_);
    return commit.hadFile ? HistoryFolder(place).LoadFormer(commit) : Store::New("");
}

Store History::At(const std::string &checkpoint) const {
    std::vector<Checkpoint> checkpoints = checkpoints_;
    const auto found = FindCheckpoint(checkpoints, checkpoint);
    if (found == checkpoints.end()) {
        RefuseUnknown(path_, checkpoint);
    }
    const session::Place place = session::Resolve(path_);
    return HistoryFolder(place).Load(HistoryFolder::CopyOf(*found), found->checksum);
}

bool History::Start(const std::string &path, uint32_t keep, const HistoryOptions &options) {
    if (keep == 0) {
        throw Error(TAV_ERR_INVALID, path, "a history keeps at least one commit");
    }
    LockedHistory history(path, options.wait);
    Index &index = history.index;
    if ((index.isOn && index.keep == keep) || options.dryRun) {
        return !index.isOn || index.keep != keep;
    }
    index.isOn = true;
    index.keep = keep;
    index.commits.erase(index.commits.begin(),
                        index.commits.end() - std::min<ptrdiff_t>(keep, std::ssize(index.commits)));
    history.folder.Create(history.like);
    history.folder.Write(index, history.like);
    history.folder.Settle(history.checksum);  // drops what is no longer kept
    return true;
}

bool History::Stop(const std::string &path, const HistoryOptions &options) {
    LockedHistory history(path, options.wait);
    const bool wasOn = std::exchange(history.index.isOn, false);
    if (wasOn && !options.dryRun) {
        history.folder.Write(history.index, history.like);
    }
    return wasOn;
}

void History::AddCheckpoint(const std::string &path, const std::string &name, const std::string &comment,
                            const HistoryOptions &options) {
    RequireName(name);
    LockedHistory history(path, options.wait);
    std::vector<Checkpoint> &checkpoints = history.index.checkpoints;
    if (FindCheckpoint(checkpoints, name) != checkpoints.end()) {
        throw Error(TAV_ERR_INVALID, history.place.given,
                    "there is a checkpoint " + name + " already; remove it first, or take another name");
    }
    if (options.dryRun) {
        return;
    }
    const Checkpoint checkpoint{name, session::NoteNow(comment), history.checksum};
    checkpoints.insert(std::lower_bound(checkpoints.begin(), checkpoints.end(), checkpoint,
                                        [](const auto &a, const auto &b) { return a.name < b.name; }),
                       checkpoint);
    history.folder.Create(history.like);
    history.folder.Keep(HistoryFolder::CopyOf(checkpoint), history.image, history.like);
    history.folder.Write(history.index, history.like);
}

void History::RemoveCheckpoint(const std::string &path, const std::string &name, const HistoryOptions &options) {
    LockedHistory history(path, options.wait);
    std::vector<Checkpoint> &checkpoints = history.index.checkpoints;
    const auto found = FindCheckpoint(checkpoints, name);
    if (found == checkpoints.end()) {
        RefuseUnknown(history.place.given, name);
    }
    if (options.dryRun) {
        return;
    }
    const std::string copy = HistoryFolder::CopyOf(*found);
    checkpoints.erase(found);
    history.folder.Write(history.index, history.like);
    history.folder.Drop(copy);
}

}  // namespace tav
