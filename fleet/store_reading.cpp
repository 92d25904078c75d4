/*
 * Messages folded into a content.
 */
#include "fleet/store_reading.h"

#include <chrono>
#include <utility>

#include "tav_fleet.h"

namespace fleet {

namespace {

constexpr std::chrono::milliseconds kAnswer{3000};
constexpr int kFew = 8;                 // messages that are asked for one by one
constexpr size_t kMostEdits = 100'000;  // that wait to be made, which bounds their memory

Entry Require(Feed *feed, const Bucket &bucket) {
    std::optional<Entry> entry = feed->Next(kAnswer);
    if (!entry) {
        throw tav::Error(TAV_ERR_NO_SERVER, bucket.Place(), "the server does not answer");
    }
    return std::move(*entry);
}

/** Takes what an entry says of a record or virtual system; others are passed over. */
void Take(const Entry &entry, Edits *edits, Deletions *deletions) {
    const std::optional<Key> key = ParseName(entry.name);
    if (!key) {
        return;
    }
    if (deletions != nullptr) {
        deletions->erase(*key);
        if (entry.isDeleted) {
            deletions->emplace(*key, entry.sequence);
        }
    }
    const bool isThere = !entry.isDeleted && (ClassOf(*key) == 0 || IsRecord(*key, entry.value));
    edits->insert_or_assign(*key,
                            isThere ? std::optional(std::string(ClassOf(*key) == 0 ? "" : entry.value)) : std::nullopt);
}

}  // namespace

void ReadOn(const Bucket &bucket, uint64_t sequence, Reading *reading, Deletions *deletions,
            const std::function<void()> &meanwhile) {
    if (reading->sequence >= sequence) {
        return;
    }
    Feed feed(bucket, ">", reading->sequence + 1);
    Edits edits;
    for (bool isOver = false; !isOver;) {
        const Entry entry = Require(&feed, bucket);
        isOver = entry.sequence >= sequence;
        if (entry.sequence <= sequence) {
            Take(entry, &edits, deletions);
        }
        if (isOver || edits.size() >= kMostEdits) {
            reading->content.Apply(edits);
            edits.clear();
            meanwhile();
        }
    }
    reading->sequence = sequence;
}

bool ReadFew(const Bucket &bucket, uint64_t sequence, Reading *reading) {
    Edits edits;
    uint64_t next = reading->sequence + 1;
    for (int i = 0; i < kFew && next <= sequence; ++i) {
        const std::optional<Entry> entry = bucket.Next(next, kVsPrefix);
        next = entry ? entry->sequence + 1 : sequence + 1;
        if (entry && entry->sequence <= sequence) {
            Take(*entry, &edits, nullptr);
        }
    }
    if (next <= sequence) {
        return false;
    }
    reading->content.Apply(edits);
    reading->sequence = sequence;
    return true;
}

std::optional<Reading> ReadCopy(const Bucket &bucket, const CopyPlace &copy) {
    Feed feed(bucket, PieceName(copy.slot), copy.sequence);
    std::string body;
    uint64_t last = 0;
    for (uint64_t piece = 0; piece < copy.pieces; ++piece) {
        const Entry entry = Require(&feed, bucket);
        if (entry.name != PieceName(copy.slot, piece) || body.size() + entry.value.size() > TAV_EXT_MAX_FILE_SIZE) {
            return {};
        }
        body += entry.value;
        last = entry.sequence;
    }
    try {
        return Reading{Content::FromBody(body), last};
    } catch (const tav::Error &) {
        return {};
    }
}

}  // namespace fleet
