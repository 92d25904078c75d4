/*
 * What following has made of a file, kept beside it.
 */
#ifndef FLEET_STORE_MARK_H
#define FLEET_STORE_MARK_H

#include <cstdint>
#include <optional>
#include <string>

namespace fleet {

/** A generation that a file was made. */
struct Mark {
    std::string store;        // as the head says
    uint64_t generation = 0;  // of the store
    uint64_t sequence = 0;    // of its head
    std::string checksum;

    bool operator==(const Mark &) const = default;
};

/** What a file is made, written before it is: after a crash it is either of the two, as its checksum tells. */
struct Marks {
    std::optional<Mark> is, was;

    /** The one with a checksum; nothing when neither has it. */
    std::optional<Mark> Find(const std::string &checksum) const;
};

/** The file of the marks of a file: ".<name>.follow". `path` is the real one. */
std::string MarkFile(const std::string &path);

/** Reads marks; none when there is no such file, or it does not make sense. */
Marks ReadMarks(const std::string &path);

/** Brings marks to the disk, with the mode of a file for its user alone. Throws Error (TAV_ERR_NOT_SAVED). */
void WriteMarks(const std::string &path, const Marks &marks);

}  // namespace fleet

#endif
