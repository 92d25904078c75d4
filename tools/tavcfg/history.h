/*
 * history, checkpoint, rollback: what a file held before.
 */
#ifndef TAVCFG_HISTORY_H
#define TAVCFG_HISTORY_H

#include <cstdint>
#include <string>

#include "open.h"

namespace tavcfg {

struct HistoryOptions {
    WriteOptions write;
    uint32_t keep;  // how many commits stay
    bool asJson;
};

/** Each switches the history on or off, or prints it. Throws Failure and tav::Error. */
int RunHistoryStart(const HistoryOptions &options);
int RunHistoryStop(const HistoryOptions &options);
int RunHistoryShow(const HistoryOptions &options);

struct CheckpointOptions {
    WriteOptions write;
    std::string name;
    bool removes;
};

/** Keeps the content of a file under a name, or forgets it. Throws tav::Error. */
int RunCheckpoint(const CheckpointOptions &options);

struct RollbackOptions {
    WriteOptions write;
    std::string state;  // so many commits back, or the name of a checkpoint
};

/** Brings a former content back, by a commit like any other. Throws tav::Error. */
int RunRollback(const RollbackOptions &options);

/** The content of a file before its last so many commits, or at a checkpoint. Throws tav::Error. */
tav::Store FormerStore(const std::string &path, const std::string &state);

}  // namespace tavcfg

#endif
