/*
 * From a file to a bucket, once or as long as the file changes.
 */
#include "fleet/store_publisher.h"

#include <algorithm>
#include <optional>
#include <string>

#include "fleet/store_content.h"
#include "fleet/store_publication.h"
#include "tav/watch.h"

namespace fleet {

namespace {

// A wait for a program that writes without a session must not cost the claim.
constexpr std::chrono::milliseconds kLongestWait{5000};

tav::ReadOptions ReadOptionsOf(const Call &call) {
    return {.refer = call.Refer(), .ignoreRefer = call.IgnoresRefer(), .wait = std::min(call.Wait(), kLongestWait)};
}

/** A content with its checksum. */
struct Wanted {
    explicit Wanted(const tav::Store &store) : content(Content::Of(store)), checksum(content.Seal()) {}

    Content content;
    std::string checksum;
};

/** Publishes a content, and tells what has become of it unless that is known. */
void PublishAndTell(const Wanted &wanted, bool isTold, Publication *publication, Call *call) {
    const bool isNew = publication->Publish(wanted.content, wanted.checksum);
    if (isNew || !isTold) {
        call->Report(isNew ? TAV_FLEET_PUBLISHED : TAV_FLEET_UNCHANGED, publication->LastHead(),
                     publication->LastEdits());
    }
}

/** Publishes each change of a file. */
class Publisher {
  public:
    explicit Publisher(Call *call) : call_(call), watch_(call->Path(), ReadOptionsOf(*call)) { Take(); }

    void Run() {
        while (!call_->IsOver()) {
            try {
                Step();
            } catch (const tav::Error &error) {
                publication_.reset();
                call_->Endure(error);
            }
        }
        Release();
    }

  private:
    /** Takes what the file holds. One that is gone is not taken for an empty one. */
    void Take() {
        if (watch_.After().begin() == watch_.After().end()) {
            call_->Notice(call_->Path() + ": there is no such file; it is published when it is there");
            return;
        }
        wanted_.emplace(watch_.After());
        isDue_ = true;
        isTold_ = false;
    }

    void Step() {
        if (!publication_) {
            publication_.emplace(*call_, claim_);
            call_->Reached();
            isDue_ = wanted_.has_value();
        }
        if (isDue_) {
            PublishDue();
        }
        publication_->Tend();
        if (HasChanged()) {
            Take();
        }
    }

    void PublishDue() {
        isDue_ = false;
        try {
            PublishAndTell(*wanted_, isTold_, &*publication_, call_);
            isTold_ = true;
        } catch (const tav::Error &error) {
            if (error.Code() != TAV_ERR_REFUSED) {
                throw;
            }
            call_->Notice(error.what());
        }
    }

    void Release() {
        try {
            if (publication_) {
                publication_->Release();
            }
        } catch (const tav::Error &) {
            // Then the claim ends by itself.
        }
    }

    /** Waits a moment for a change. One that leaves a file that does not load is told. */
    bool HasChanged() {
        try {
            return watch_.Wait(kNap);
        } catch (const tav::Error &error) {
            if (error.Code() != TAV_ERR_INVALID && error.Code() != TAV_ERR_BACKUP) {
                throw;
            }
            call_->Notice(error.what());
            return false;
        }
    }

    Call *const call_;
    const Claim claim_ = MakeClaim();
    tav::Watch watch_;
    std::optional<Publication> publication_;
    std::optional<Wanted> wanted_;
    bool isDue_ = false;   // the bucket may not hold what is wanted
    bool isTold_ = false;  // it has held it once
};

}  // namespace

void Publish(Call *call) {
    if (call->Has(TAV_FLEET_WATCH)) {
        Publisher(call).Run();
        return;
    }
    const Wanted wanted(tav::Snapshot(call->Path(), ReadOptionsOf(*call)).Store());
    Publication publication(*call, MakeClaim());
    PublishAndTell(wanted, false, &publication, call);
    publication.Release();
}

}  // namespace fleet
