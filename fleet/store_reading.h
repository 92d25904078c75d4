/*
 * Reading what a bucket holds.
 */
#ifndef FLEET_STORE_READING_H
#define FLEET_STORE_READING_H

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "fleet/store_bucket.h"
#include "fleet/store_content.h"
#include "fleet/store_head.h"

namespace fleet {

/** What a bucket holds by one of its messages: not always a generation. */
struct Reading {
    Content content;
    uint64_t sequence = 0;  // of that message
};

/** Virtual systems and records that were deleted, with the sequence of the message that says so. */
using Deletions = std::map<Key, uint64_t>;

/**
 * Reads on to a message. Messages that have been superseded meanwhile are missing from what is read then, until those
 * that came for them are read. A record that cannot be loaded counts as none. Throws Error as Bucket does.
 *
 * @param sequence   the message, which is there, or was and has been superseded by another of its name
 * @param deletions  is told of what is deleted by then, unless null
 * @param meanwhile  called now and then
 */
void ReadOn(
    const Bucket &bucket, uint64_t sequence, Reading *reading, Deletions *deletions = nullptr,
    const std::function<void()> &meanwhile = [] {});

/**
 * Reads on to a message when few others lie between, by asking for each: for so few a feed is not worth its while, and
 * 20 of them would keep the server busy for 50 ms. Returns false, with nothing done, when there are more. What it has
 * read may lack what a replica did not have yet. Throws Error as Bucket does.
 */
bool ReadFew(const Bucket &bucket, uint64_t sequence, Reading *reading);

/** Reads a copy. Nothing when it has been superseded. Throws Error as Bucket does. */
std::optional<Reading> ReadCopy(const Bucket &bucket, const CopyPlace &copy);

}  // namespace fleet

#endif
