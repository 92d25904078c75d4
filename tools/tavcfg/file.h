/*
 * Files as they are named on the command line.
 */
#ifndef TAVCFG_FILE_H
#define TAVCFG_FILE_H

#include <optional>
#include <string>

namespace tavcfg {

/** A configuration file. */
struct File {
    std::string given;   // the name as typed, for messages
    std::string path;    // the absolute name; of a file that is there, without links
    std::string member;  // for an archive the name of its member, else empty

    bool IsArchive() const { return !member.empty(); }
};

/** A configuration file and the file that it refers to, if any. */
struct Target {
    File file;
    std::optional<File> refer;

    /** The refer file's path as the library wants it: null without one. */
    const char *ReferPath() const { return refer ? refer->path.c_str() : nullptr; }
};

/** Resolves a name. Throws UsageError for an empty name, Failure for one that the library would cut. */
File NamedFile(const std::string &given);

/** Returns whether anything has this name. Throws Failure when that cannot be told. */
bool Exists(const File &file);

/** Returns whether two names lead to the same existing file. */
bool SameFile(const File &a, const File &b);

/** Reads a text file, or standard input for "-", once. Throws Failure, and UsageError for another time. */
std::string ReadText(const std::string &name);

}  // namespace tavcfg

#endif
