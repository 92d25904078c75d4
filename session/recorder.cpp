/*
 * Recording commits.
 */
#include "session/recorder.h"

#include "tav/diff.h"

namespace session {

namespace {

tav::ChangeCounts Count(const tav::Store &before, const tav::Store &after) {
    tav::ChangeCounts counts;
    tav::DiffVisitor visitor;
    visitor.added = [&](uint32_t, tav::RecordView) { ++counts.added; };
    visitor.gone = [&](uint32_t, tav::RecordView) { ++counts.deleted; };
    visitor.changed = [&](uint32_t, tav::RecordView, tav::RecordView) { ++counts.changed; };
    tav::Compare(before, after, {}, visitor);
    return counts;
}

/** What a commit replaces. */
struct Former {
    Block image;
    tav::Store content;
};

/** Reads the file. Nothing when there is none, or it holds nothing that loads and is replaced all the same. */
std::optional<Former> ReadFormer(const Place &place) {
    try {
        std::optional<ReadImage> read = ReadImageOf(place);
        if (!read) {
            return {};
        }
        tav::Store content = ParseBody(read->image, place.given);
        return Former{std::move(read->image), std::move(content)};
    } catch (const tav::Error &error) {
        if (error.Code() != TAV_ERR_INVALID) {
            throw;
        }
        return {};
    }
}

}  // namespace

void Recorder::Prepare(const tav::Store &after, const std::string &checksum, const std::string &comment,
                       const struct stat &newLike) {
    if (!index_->isOn) {
        return;
    }
    const std::optional<Former> former = ReadFormer(place_);
    const struct stat like = StatusOf(place_.Path()).value_or(newLike);
    const tav::Store nothing = tav::Store::New("");
    const tav::ChangeCounts counts = Count(former ? former->content : nothing, after);
    next_ = *index_;
    next_.commits.push_back({{next_.next++, NoteNow(comment), checksum, counts, former.has_value()},
                             former ? ActualChecksum(former->image) : ""});
    while (next_.commits.size() > next_.keep) {
        dropped_.push_back(HistoryFolder::CopyOf(next_.commits.front()));
        next_.commits.erase(next_.commits.begin());
    }
    isPrepared_ = true;
    if (former) {
        folder_.Keep(HistoryFolder::CopyOf(next_.commits.back()), former->image, like);
    }
    folder_.WriteNext(next_, like);
}

void Recorder::ComeTrue() {
    if (isPrepared_) {
        *index_ = std::move(next_);
        isPrepared_ = false;
        isTrue_ = true;
    }
}

void Recorder::Confirm() noexcept {
    if (!isTrue_) {
        return;
    }
    try {
        folder_.TakeNext();
        for (const std::string &copy : dropped_) {
            folder_.Drop(copy);
        }
    } catch (const std::exception &) {
        // The index that was prepared stays beside the other, and the file tells that it is the right one.
    }
}

Recorder::~Recorder() {
    if (isPrepared_) {
        try {
            folder_.DropNext();
            folder_.Drop(HistoryFolder::CopyOf(next_.commits.back()));
        } catch (const std::exception &) {
            // The next session removes what has not come true.
        }
    }
}

}  // namespace session
