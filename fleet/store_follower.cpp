/*
 * From a bucket to a file, generation by generation.
 */
#include "fleet/store_follower.h"

#include <sys/stat.h>

#include <optional>
#include <string>

#include "fleet/store_mark.h"
#include "fleet/store_reading.h"
#include "tav/image_session.h"
#include "tav/session.h"

namespace fleet {

namespace {

using Clock = std::chrono::steady_clock;

/** What tells whether a file has been touched. */
struct Look {
    ino_t number = 0;  // 0 for no file
    off_t size = 0;
    int64_t seconds = 0;
    long nanoseconds = 0;

    bool operator==(const Look &) const = default;
};

Look LookAt(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0
               ? Look{status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec}
               : Look();
}

/** A connection to the bucket, and the heads that come. */
struct Source {
    explicit Source(const Call &call) : bucket(call.Urls(), call.BucketName(), false), heads(bucket, kHeadName) {}

    const Bucket bucket;
    Feed heads;
};

/** The generation that the bucket has. */
struct Target {
    Head head;
    uint64_t sequence;  // of the head

    Mark MarkOf() const { return {head.store, head.generation, sequence, head.checksum}; }
};

class Follower {
  public:
    explicit Follower(Call *call) : call_(call), end_(Clock::now() + call->Wait()) {}

    void Run() {
        do {
            try {
                Step();
            } catch (const tav::Error &error) {
                if (call_->Has(TAV_FLEET_ONCE)) {
                    throw;
                }
                source_.reset();
                call_->Endure(error);
            }
        } while (!call_->IsOver() && !IsDone());
    }

  private:
    /** Takes the file for what it was made, when it still is that. */
    void Begin() {
        const tav::ImageSession session(call_->Path(), call_->Wait());
        path_ = session.Path();
        marks_ = ReadMarks(path_);
        const std::optional<Mark> mark = session.Checksum() ? marks_.Find(*session.Checksum()) : std::nullopt;
        if (!mark) {
            return;
        }
        try {
            Content content = Content::Of(tav::Snapshot(path_, {.wait = call_->Wait()}).Store());
            if (content.Seal() == mark->checksum) {
                reading_ = {std::move(content), mark->sequence};
                store_ = mark->store;
                look_ = LookAt(path_);
            }
        } catch (const tav::Error &) {
            // What does not load, or refers to another file, is nothing to begin with.
        }
    }

    /** Whether the one generation that was asked for is there. Throws Error when it has not come in time. */
    bool IsDone() const {
        if (!call_->Has(TAV_FLEET_ONCE)) {
            return false;
        }
        if (!applied_ && Clock::now() >= end_) {
            throw tav::Error(TAV_ERR_NOT_WHOLE, source_->bucket.Place(),
                             target_ ? "generation " + std::to_string(target_->head.generation) +
                                           " is not whole: its records have been replaced, and no later one is complete"
                                     : "nothing has been published yet");
        }
        return applied_.has_value();
    }

    void Step() {
        if (!source_) {
            source_.emplace(*call_);
            call_->Reached();
        }
        if (path_.empty()) {
            Begin();
        }
        if (TakeHead()) {
            isWhole_ = false;  // also when the connection is lost while it is read
            isWhole_ = BringToTarget();
            isDue_ = isWhole_;
        }
        if (isDue_ || (isWhole_ && LookAt(path_) != look_)) {
            Write();
        }
    }

    /** Waits a moment for a head, and takes the newest. Returns whether it is another one. */
    bool TakeHead() {
        std::optional<Entry> entry = source_->heads.Next(kNap);
        while (entry && source_->heads.HasNext()) {
            entry = source_->heads.Next(kNap);
        }
        if (!entry || entry->isDeleted) {
            return false;
        }
        Target target{ParseHead(entry->value, source_->bucket.Place()), entry->sequence};
        if (target_ && isWhole_ && target.MarkOf() == target_->MarkOf()) {
            return false;  // after a connection was lost
        }
        target_ = std::move(target);
        return true;
    }

    /** Reads what the bucket held by the head. Returns whether it is that. */
    bool BringToTarget() {
        const std::optional<CopyPlace> copy =
            target_->head.copy && target_->head.copy->sequence < target_->sequence ? target_->head.copy : std::nullopt;
        const bool isNear = store_ == target_->head.store && reading_.sequence <= target_->sequence;
        if (isNear && !(copy && copy->sequence > reading_.sequence)) {
            const uint64_t before = reading_.sequence;
            if (ReadFew(source_->bucket, target_->sequence, &reading_) && IsTarget()) {
                return true;
            }
            reading_.sequence = before;  // what was read once may be read again
            if (ReadToTarget()) {
                return true;
            }
            if (source_->heads.HasNext()) {
                return false;  // the next one goes on from here
            }
        }
        store_ = target_->head.store;
        if (copy) {
            if (std::optional<Reading> whole = ReadCopy(source_->bucket, *copy)) {
                reading_ = std::move(*whole);
                if (ReadToTarget()) {
                    return true;
                }
            }
        }
        reading_ = {};
        return ReadToTarget();
    }

    bool ReadToTarget() {
        ReadOn(source_->bucket, target_->sequence, &reading_);
        return IsTarget();
    }

    bool IsTarget() { return reading_.content.Seal() == target_->head.checksum; }

    /** Makes the file what was read. */
    void Write() {
        try {
            isDue_ = true;
            const bool isNew = Replace();
            isDue_ = false;
            if (isNew || applied_ != target_->MarkOf()) {
                applied_ = target_->MarkOf();
                call_->Report(isNew ? TAV_FLEET_APPLIED : TAV_FLEET_UNCHANGED, target_->head);
            }
        } catch (const tav::Error &error) {
            const bool mayPass = error.Code() == TAV_ERR_LOCKED || error.Code() == TAV_ERR_CHANGED;
            if (!mayPass || call_->Has(TAV_FLEET_ONCE)) {
                throw;
            }
            call_->Notice(error.what());
        }
    }

    bool Replace() {
        tav::ImageSession session(call_->Path(), call_->Wait());
        const std::optional<std::string> now = Held(session);
        const std::optional<Mark> mark = now ? marks_.Find(*now) : std::nullopt;
        const Mark next = target_->MarkOf();
        const bool isNew = now != next.checksum;
        if (isNew && now && !mark && !call_->Has(TAV_FLEET_OVERWRITE)) {
            throw tav::Error(TAV_ERR_CONFLICT, call_->Path(),
                             marks_.is ? "others have changed it since it was made generation " +
                                             std::to_string(marks_.is->generation) + "; it is not overwritten"
                                       : "it is there and was not made by following; it is not overwritten");
        }
        if (marks_.is != next) {
            const Marks marks{next, mark};
            WriteMarks(path_, marks);
            marks_ = marks;
        }
        if (isNew) {
            session.Replace(reading_.content.Image(),
                            "generation " + std::to_string(next.generation) + " of bucket " + call_->BucketName());
        }
        look_ = LookAt(path_);
        return isNew;
    }

    /** The checksum of what the file holds; nothing when there is none. Others' heads are not believed. */
    std::optional<std::string> Held(const tav::ImageSession &session) const {
        if (!session.Checksum() || LookAt(path_) == look_) {
            return session.Checksum();
        }
        try {
            return tav::Snapshot(path_, {.ignoreRefer = true, .wait = call_->Wait()}).Checksum();
        } catch (const tav::Error &error) {
            if (error.Code() != TAV_ERR_INVALID && error.Code() != TAV_ERR_BACKUP) {
                throw;
            }
            return "";  // it does not load
        }
    }

    Call *const call_;
    const Clock::time_point end_;
    std::optional<Source> source_;
    std::string path_;  // the real one; empty before it was looked at
    Marks marks_;
    Reading reading_;
    std::string store_;             // whose reading it is
    std::optional<Target> target_;  // the newest generation
    bool isWhole_ = false;          // the reading is that
    bool isDue_ = false;            // and is not in the file yet
    std::optional<Mark> applied_;   // what has been told
    Look look_;                     // of the file, when it was made or found a generation
};

}  // namespace

void Follow(Call *call) {
    Follower(call).Run();
}

}  // namespace fleet
