/*
 * The index of a history: a file of JSON that names all that the history keeps.
 */
#ifndef SESSION_HISTORY_INDEX_H
#define SESSION_HISTORY_INDEX_H

#include <optional>
#include <string>
#include <vector>

#include "tav/history_entries.h"

namespace session {

/** A commit as an index keeps it. */
struct IndexedCommit : tav::HistoryCommit {
    std::string former;  // the checksum of its copy; empty when there is none
};

/** What an index says. */
struct Index {
    bool isOn = false;
    uint32_t keep = 0;                         // so many of the newest commits
    uint64_t next = 1;                         // the number of the next commit
    std::vector<IndexedCommit> commits;        // the oldest first
    std::vector<tav::Checkpoint> checkpoints;  // by name
};

/** The index as a file keeps it. */
std::string FormatIndex(const Index &index);

/** Reads an index file. Nothing when there is none. Throws Error (TAV_ERR_INVALID) when it is damaged. */
std::optional<Index> ReadIndex(const std::string &path);

/** Who does something now: this process and its user. */
tav::Note NoteNow(const std::string &comment);

}  // namespace session

#endif
