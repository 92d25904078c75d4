/*
 * What the history of a file is made of.
 */
#ifndef TAV_HISTORY_ENTRIES_H
#define TAV_HISTORY_ENTRIES_H

#include <chrono>
#include <cstdint>
#include <string>

#include "tav/change.h"

namespace tav {

/** Who did something when, and why. */
struct Note {
    std::chrono::system_clock::time_point time; /**< to the millisecond */
    std::string user;                           /**< name of the user, or the number where there is no name */
    std::string program;                        /**< name of the program */
    std::string comment;                        /**< as given, with any characters; may be empty */
};

/** One commit. */
struct HistoryCommit {
    uint64_t number = 0;  /**< counted from 1, since the history was first started */
    Note note;            /**< who, when, why */
    std::string checksum; /**< of the content that it brought, as Snapshot::Checksum; empty when it deleted the file */
    ChangeCounts counts;  /**< of records */
    bool hadFile = false; /**< whether there was a file before it, that loaded */
};

/** A named state of the file. */
struct Checkpoint {
    std::string name;     /**< its name, which tells it from others of the file */
    Note note;            /**< who, when, why */
    std::string checksum; /**< of its content */
};

}  // namespace tav

#endif
