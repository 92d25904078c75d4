/*
 * What a call tells its caller.
 */
#include "fleet/store_call.h"

#include <thread>

namespace fleet {

namespace {

constexpr std::chrono::seconds kRecovery{20};  // of a server, until its buckets are there

}  // namespace

void Call::Pause() const {
    if (IsOver()) {
        throw Over();
    }
    std::this_thread::sleep_for(kNap);
}

void Call::Report(uint32_t kind, const Head &head, uint64_t edits) {
    noticed_.clear();
    if (options_.report != nullptr) {
        const TAV_FleetEvent event{kind, head.generation, head.records, edits, head.checksum.c_str(), ""};
        options_.report(&event, options_.context);
    }
}

void Call::Notice(const std::string &text) {
    if (options_.report != nullptr && text != noticed_) {
        const TAV_FleetEvent event{TAV_FLEET_NOTICE, 0, 0, 0, "", text.c_str()};
        options_.report(&event, options_.context);
    }
    noticed_ = text;
}

void Call::Endure(const tav::Error &error) {
    const auto now = std::chrono::steady_clock::now();
    if (error.Code() == TAV_ERR_NO_SERVER || error.Code() == TAV_ERR_CHANGED) {
        if (!away_) {
            Notice(std::string(error.what()) + "; trying again");
        }
        away_ = now;
    } else if (error.Code() != TAV_ERR_NO_BUCKET || !away_ || now - *away_ > kRecovery) {
        throw;
    }
    Pause();
}

}  // namespace fleet
