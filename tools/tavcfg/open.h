/*
 * Files opened for a command: snapshots to read, sessions to change.
 */
#ifndef TAVCFG_OPEN_H
#define TAVCFG_OPEN_H

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include "file.h"
#include "tav/changes.h"
#include "tav/names.h"
#include "tav/session.h"

namespace tavcfg {

/** What every command on a configuration file is told. */
struct FileOptions {
    Target target;
    bool ignoresRefer = false;
    bool anyMember = false;  // of an archive, whatever its member is called
    std::chrono::milliseconds wait{5000};
    tav::Names names = {};  // what may stand for numbers
    tav::Names shown = {};  // what is shown for numbers
};

/** What every command that writes is told besides. */
struct WriteOptions {
    FileOptions file;
    bool isDryRun = false;
    std::string comment = {};
};

/**
 * The names that may stand for numbers: those of the file that is given, else of the one that TAV_NAMES names, else of
 * FILE.names.json, if there is one. Throws tav::Error.
 */
tav::Names FindNames(const std::string &given, const std::string &file);

/** The refer file's path as sessions want it: empty without one. */
std::string ReferOf(const FileOptions &options);

/** How a file is read, as sessions want it. */
tav::ReadOptions ReadingOf(const FileOptions &options);

/** Throws Failure that says more precisely what a session or snapshot has complained of; or returns. */
void Diagnose(const tav::Error &error, const FileOptions &options);

/** Reads a file. Throws tav::Error, and Failure that says precisely what is wrong with a file that does not load. */
tav::Snapshot Read(const FileOptions &options);

/** Opens a file to be changed; one that is missing is made when it may be. Throws as Read. */
tav::Session OpenToWrite(const WriteOptions &options, bool create);

/** The same, with what to do when the file does not load: even one that may be replaced is not then. */
tav::Session OpenToReplace(const WriteOptions &options, bool mayReplace);

/** Prints a piece of a long text. Throws std::system_error when it cannot be printed. */
void PrintPiece(std::string_view text);

/** Prints a line about what was written, at once: throws Failure that says so when it cannot be printed. */
void PrintDone(const File &file, const std::string &line);

/** The same, or what would have been done when it is a dry run: for commands that change no record. */
void SayDone(const WriteOptions &options, const std::string &line);

/** Says that nothing had to be written. */
void SayUnchanged(const File &file);

/** Returns whether one of two stores has a virtual system or record that the other one lacks, or has otherwise. */
bool Differ(const tav::Store &a, const tav::Store &b);

/** Commits a session, and prints a line when that is done. */
int Commit(tav::Session *session, const WriteOptions &options, const std::string &done);

/** Says what has been done, by what it comes to. */
using DoneText = std::function<std::string(const tav::ChangeCounts &)>;

/**
 * Makes changes and commits them, or shows what they come to when it is a dry run. Throws tav::Error with the change's
 * place, and nothing done, when one cannot be made.
 */
int ApplyAndCommit(tav::Session *session, const tav::Changes &changes, const WriteOptions &options,
                   const DoneText &done);

/** Says how many records were added, changed and deleted. */
std::string CountsText(const tav::ChangeCounts &counts);

/** Prints changes as a script. */
void PrintScript(const tav::Changes &changes, const tav::Names &names);

}  // namespace tavcfg

#endif
