/*
 * Claims, generations and copies.
 */
#include "fleet/store_publication.h"

#include <algorithm>

namespace fleet {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kRenewal{2};
constexpr std::chrono::seconds kClaimEnds{10};  // after the last renewal
constexpr size_t kPieceSize = size_t{256} << 10;

// A new copy comes when more edits than this, and than a quarter of the records, lie behind the last one: reading a
// bucket costs no more than one and a quarter times its content, and copies no more than four times the edits.
constexpr uint64_t kEditsWithoutCopy = 1000;

constexpr size_t kForgottenAtOnce = 1000;

}  // namespace

Publication::Publication(const Call &call, const Claim &claim)
    : bucket_(call.Urls(), call.BucketName(), true), writer_(bucket_), claim_(claim) {
    TakeClaim(call);
    ReadOn(bucket_, writer_.Sequence(), &reading_, &deletions_, [this] { Renew(); });
    if (const std::optional<Entry> entry = bucket_.Last(kHeadName); entry && !entry->isDeleted) {
        head_ = ParseHead(entry->value, bucket_.Place());
    }
    CollectForgettable();
}

/** Deletions before a copy are needed by nobody: whoever has not read them reads the copy. */
void Publication::CollectForgettable() {
    if (!head_ || !head_->copy) {
        return;
    }
    std::erase_if(deletions_, [this](const auto &deletion) {
        const bool isOld = deletion.second < head_->copy->sequence;
        if (isOld) {
            forgettable_.push_back(deletion);
        }
        return isOld;
    });
}

void Publication::TakeClaim(const Call &call) {
    for (;;) {
        const std::optional<Entry> last = bucket_.Last(kPublisherName);
        if (last && !last->isDeleted && ParseClaim(last->value).id != claim_.id) {
            AwaitEnd(call, *last);
        }
        if (writer_.Begin(kPublisherName, claim_.ToJson(), last ? last->sequence : 0)) {
            renewed_ = Clock::now();
            return;
        }
    }
}

/** Returns when a claim has not been renewed for so long that it has ended. Throws Error when it is renewed. */
void Publication::AwaitEnd(const Call &call, const Entry &other) const {
    const Clock::time_point end = Clock::now() + kClaimEnds;
    while (Clock::now() < end) {
        call.Pause();
        const std::optional<Entry> now = bucket_.Last(kPublisherName);
        if (!now || now->isDeleted) {
            return;
        }
        if (now->sequence != other.sequence) {
            throw tav::Error(TAV_ERR_CLAIMED, bucket_.Place(),
                             "somebody else publishes to it: " + ParseClaim(now->value).who);
        }
    }
}

void Publication::Renew() {
    if (Clock::now() - renewed_ > kRenewal) {
        writer_.Put(kPublisherName, claim_.ToJson());
        renewed_ = Clock::now();
    }
}

bool Publication::Publish(const Content &wanted, const std::string &checksum) {
    const Due due = Compare(wanted);
    edits_ = due.size();
    if (due.empty() && head_ && head_->checksum == checksum) {
        return false;
    }
    Send(due);
    const Content::Counts counts = wanted.Count();
    Head head = head_.value_or(Head());
    head.store = head_ ? head_->store : DrawLot();
    ++head.generation;
    head.checksum = checksum;
    head.bytes = wanted.Body().size();
    head.systems = counts.systems;
    head.records = counts.records;
    head.edits += edits_;
    head.time = TimeNow();
    head.publisher = claim_.who;
    const bool hasCopy = head.edits > std::max(kEditsWithoutCopy, head.records / 4);
    if (hasCopy) {
        SendCopy(wanted, &head);
    }
    writer_.Put(kHeadName, head.ToJson());
    writer_.Flush();
    reading_.content = wanted;
    head_ = std::move(head);
    if (hasCopy) {
        // Pieces of a longer copy that was in the same slot.
        writer_.Forget(PieceName(head_->copy->slot), head_->copy->sequence);
        CollectForgettable();
    }
    return true;
}

/** What takes the bucket to a content. Throws Error for a record that no message can carry. */
Publication::Due Publication::Compare(const Content &wanted) const {
    Due due;
    const size_t room = bucket_.MaxValue();
    Content::Compare(reading_.content, wanted, [&](const Key &key, std::optional<std::string_view> tlv) {
        if (tlv && tlv->size() > room) {
            throw tav::Error(TAV_ERR_REFUSED, bucket_.Place(),
                             NameOf(key) + " has " + std::to_string(tlv->size()) + " bytes, and a message at most " +
                                 std::to_string(room));
        }
        due.emplace_back(key, tlv);
    });
    return due;
}

void Publication::Send(const Due &due) {
    for (const auto &[key, tlv] : due) {
        if (tlv) {
            writer_.Put(NameOf(key), *tlv);
            deletions_.erase(key);
        } else {
            writer_.Delete(NameOf(key));
            deletions_[key] = writer_.Sequence();
        }
        Renew();
    }
}

void Publication::SendCopy(const Content &wanted, Head *head) {
    const size_t size = std::min(kPieceSize, bucket_.MaxValue());
    CopyPlace copy{writer_.Sequence() + 1, 0, head->copy ? 1 - head->copy->slot : 0};
    for (std::string_view rest = wanted.Body(); !rest.empty(); rest.remove_prefix(std::min(size, rest.size()))) {
        writer_.Put(PieceName(copy.slot, copy.pieces++), rest.substr(0, size));
        Renew();
    }
    head->copy = copy;
    head->edits = 0;
}

void Publication::Tend() {
    Renew();
    Forget(kForgottenAtOnce);
}

void Publication::Forget(size_t most) {
    for (; most > 0 && !forgettable_.empty(); --most) {
        const auto &[key, sequence] = forgettable_.back();
        writer_.Forget(NameOf(key), sequence + 1);
        forgettable_.pop_back();
        Renew();
    }
    writer_.Flush();
}

void Publication::Release() {
    Forget(forgettable_.size());
    writer_.Delete(kPublisherName);
    writer_.Flush();
}

}  // namespace fleet
