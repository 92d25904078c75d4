/*
 * What a bucket says about itself: the head of a generation, and who publishes.
 */
#ifndef FLEET_STORE_HEAD_H
#define FLEET_STORE_HEAD_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace fleet {

/** The names of what is no record and no virtual system. */
inline constexpr const char *kHeadName = "head", *kPublisherName = "publisher";

/** The name of a copy's piece, counted from 0; that of all pieces in a slot. */
std::string PieceName(uint64_t slot, uint64_t piece);
std::string PieceName(uint64_t slot);

/** A whole content beside the records, cut into pieces in a row: one that comes anew reads it instead of them. */
struct CopyPlace {
    uint64_t sequence = 0;  // of its first piece
    uint64_t pieces = 0;
    uint64_t slot = 0;  // 0 or 1, in turns: a copy can be read while the next one is being written
};

/** A generation: what the bucket holds up to its head. */
struct Head {
    std::string store;        // drawn by lot when the bucket got its first head: another one is another store
    uint64_t generation = 0;  // counted from 1
    std::string checksum;     // of the body, hexadecimal
    uint64_t bytes = 0;       // of the body
    uint64_t systems = 0;
    uint64_t records = 0;
    uint64_t edits = 0;             // messages of records and virtual systems since the copy, or since the first one
    std::optional<CopyPlace> copy;  // the newest one
    std::string time;               // UTC
    std::string publisher;          // for people

    std::string ToJson() const;
};

/** Throws Error (TAV_ERR_INVALID) for what is no head, or one of another format. `place` is what it is about. */
Head ParseHead(std::string_view json, const std::string &place);

/** Who publishes to a bucket. */
struct Claim {
    std::string id;   // drawn by lot
    std::string who;  // for people: user, process, program, machine

    std::string ToJson() const;
};

/** A claim of this process. */
Claim MakeClaim();

/** What another program has put there counts as a claim, too, of somebody unknown. */
Claim ParseClaim(std::string_view json);

/** 32 random hexadecimal digits. */
std::string DrawLot();

/** The present time (UTC), as 2026-11-22T20:51:15Z. */
std::string TimeNow();

}  // namespace fleet

#endif
