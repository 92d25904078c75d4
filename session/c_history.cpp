/*
 * The C interface of history and watching.
 */
#include <utility>

#include "session/c_call.h"
#include "tav/history.h"
#include "tav/watch.h"
#include "tav_history.h"
#include "tav_watch.h"

using session::Guard;
using session::RefuseNull;
using session::TextOf;
using std::chrono::milliseconds;

struct TAV_History {
    tav::History history;
};

struct TAV_Watch {
    tav::Watch watch;
};

namespace {

TAV_HistoryEntry EntryOf(const tav::Note &note, const std::string &checksum) {
    TAV_HistoryEntry entry{};
    entry.timeMs = std::chrono::duration_cast<milliseconds>(note.time.time_since_epoch()).count();
    entry.user = note.user.c_str();
    entry.program = note.program.c_str();
    entry.comment = note.comment.c_str();
    entry.checksum = checksum.c_str();
    return entry;
}

TAV_HistoryEntry EntryOf(const tav::HistoryCommit &commit) {
    TAV_HistoryEntry entry = EntryOf(commit.note, commit.checksum);
    entry.number = commit.number;
    entry.added = commit.counts.added;
    entry.changed = commit.counts.changed;
    entry.deleted = commit.counts.deleted;
    return entry;
}

TAV_HistoryEntry EntryOf(const tav::Checkpoint &checkpoint) {
    TAV_HistoryEntry entry = EntryOf(checkpoint.note, checkpoint.checksum);
    entry.name = checkpoint.name.c_str();
    return entry;
}

/** Gives an element of one of a history's lists. */
template <typename Element>
uint32_t GiveEntry(const TAV_History *history, const std::vector<Element> &(tav::History::*list)() const, size_t index,
                   TAV_HistoryEntry *entry) {
    if (history == nullptr || entry == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        const std::vector<Element> &elements = (history->history.*list)();
        if (index >= elements.size()) {
            throw tav::Error(TAV_ERR_NOT_FOUND, "", "the history has not so many entries");
        }
        *entry = EntryOf(elements[index]);
        return TAV_OK;
    });
}

/** Loads a former state for the caller. */
template <typename Load>
uint32_t GiveStore(CfgLocal **local, bool isNull, Load load) {
    if (local != nullptr) {
        *local = nullptr;
    }
    if (local == nullptr || isNull) {
        return RefuseNull();
    }
    return Guard([&] {
        *local = load().Release();
        return TAV_OK;
    });
}

/** Makes a call that gives nothing but a code. */
template <typename Call>
uint32_t Do(bool isNull, Call call) {
    if (isNull) {
        return RefuseNull();
    }
    return Guard([&] {
        call();
        return TAV_OK;
    });
}

/** Makes a call that tells whether something had to be changed. */
template <typename Call>
uint32_t Switch(bool isNull, Call call) {
    return isNull ? RefuseNull() : Guard([&] { return call() ? TAV_OK : TAV_ERR_UNCHANGED; });
}

tav::HistoryOptions Waiting(uint32_t waitMs) {
    return {.wait = milliseconds(waitMs)};
}

}  // namespace

uint32_t TAV_HistoryOpen(const char *path, TAV_History **history) {
    if (history != nullptr) {
        *history = nullptr;
    }
    return Do(path == nullptr || history == nullptr, [&] { *history = new TAV_History{tav::History(path)}; });
}

void TAV_HistoryClose(TAV_History *history) {
    delete history;
}

uint32_t TAV_HistoryGetState(const TAV_History *history, TAV_HistoryState *state) {
    return Do(history == nullptr || state == nullptr, [&] {
        const tav::History &from = history->history;
        *state = {from.IsOn() ? 1u : 0u, from.Keep(), from.Commits().size(), from.Checkpoints().size()};
    });
}

uint32_t TAV_HistoryCommit(const TAV_History *history, size_t index, TAV_HistoryEntry *entry) {
    return GiveEntry(history, &tav::History::Commits, index, entry);
}

uint32_t TAV_HistoryCheckpoint(const TAV_History *history, size_t index, TAV_HistoryEntry *entry) {
    return GiveEntry(history, &tav::History::Checkpoints, index, entry);
}

uint32_t TAV_HistoryBefore(const TAV_History *history, size_t count, CfgLocal **local) {
    return GiveStore(local, history == nullptr, [&] { return history->history.Before(count); });
}

uint32_t TAV_HistoryAt(const TAV_History *history, const char *name, CfgLocal **local) {
    return GiveStore(local, history == nullptr || name == nullptr, [&] { return history->history.At(name); });
}

uint32_t TAV_HistoryStart(const char *path, uint32_t keep, uint32_t waitMs) {
    return Switch(path == nullptr, [&] { return tav::History::Start(path, keep, Waiting(waitMs)); });
}

uint32_t TAV_HistoryStop(const char *path, uint32_t waitMs) {
    return Switch(path == nullptr, [&] { return tav::History::Stop(path, Waiting(waitMs)); });
}

uint32_t TAV_HistoryAddCheckpoint(const char *path, const char *name, const char *comment, uint32_t waitMs) {
    return Do(path == nullptr || name == nullptr,
              [&] { tav::History::AddCheckpoint(path, name, TextOf(comment), Waiting(waitMs)); });
}

uint32_t TAV_HistoryRemoveCheckpoint(const char *path, const char *name, uint32_t waitMs) {
    return Do(path == nullptr || name == nullptr, [&] { tav::History::RemoveCheckpoint(path, name, Waiting(waitMs)); });
}

uint32_t TAV_WatchOpen(const char *path, const char *refer, uint32_t waitMs, TAV_Watch **watch) {
    if (watch != nullptr) {
        *watch = nullptr;
    }
    return Do(path == nullptr || watch == nullptr, [&] {
        *watch = new TAV_Watch{tav::Watch(path, {.refer = TextOf(refer), .wait = milliseconds(waitMs)})};
    });
}

void TAV_WatchClose(TAV_Watch *watch) {
    delete watch;
}

uint32_t TAV_WatchWait(TAV_Watch *watch, int64_t timeoutMs) {
    if (watch == nullptr) {
        return RefuseNull();
    }
    return Guard([&] {
        const auto timeout = timeoutMs < 0 ? std::nullopt : std::optional(milliseconds(timeoutMs));
        return watch->watch.Wait(timeout) ? TAV_OK : TAV_ERR_UNCHANGED;
    });
}

CfgLocal *TAV_WatchBefore(const TAV_Watch *watch) {
    return watch != nullptr ? watch->watch.Before().Get() : nullptr;
}

CfgLocal *TAV_WatchAfter(const TAV_Watch *watch) {
    return watch != nullptr ? watch->watch.After().Get() : nullptr;
}

int TAV_WatchDescriptor(const TAV_Watch *watch) {
    return watch != nullptr ? watch->watch.Descriptor() : -1;
}
