/*
 * A component that this process has bound.
 */
#include "fleet/bus_component.h"

#include <cerrno>

#include <chrono>
#include <random>
#include <thread>
#include <utility>

#include "fleet/bus_wire.h"

namespace fleet {

namespace {

// What claimants are answered.
constexpr std::string_view kHeldWord = "held", kFreeWord = "free";

// Between the two times that nobody else must listen: twice what news of a listener takes between servers of a cluster.
constexpr std::chrono::milliseconds kMoment(50);

// How often somebody may give way before the component counts as held: more claimants at a time than there will be.
constexpr int kMostClaimants = 100;

// How often nobody may answer who listens. Once also one does not whose process has just ended.
constexpr int kMostSilent = 1;

/** Returns a name that nobody else has made up. */
std::string NewName() {
    std::random_device random;
    std::string name;
    for (int i = 0; i < 4; ++i) {
        name += std::to_string(random()) + (i < 3 ? "-" : "");
    }
    return name;
}

}  // namespace

BoundComponent::BoundComponent(BusConnection &connection, ComponentName component, const hosted::BusHost &host,
                               TAV_Posix_BusPort *port)
    : connection_(connection), component_(std::move(component)), host_(host), name_(NewName()), port_(port) {}

/** What decides between claimants: one that held the component before the connection was lost goes before others. */
std::string BoundComponent::Rank() const {
    return (hasHeld_ ? "1 " : "0 ") + name_;
}

void BoundComponent::Listen(Subscription *subscription, const std::string &subject, const std::string &queue,
                            void (BoundComponent::*handler)(const natsMsg *)) {
    // The subscription belongs to the binding, so it must not keep it.
    const auto handle = [weak = weak_from_this(), handler](const natsMsg *message) {
        if (const std::shared_ptr<BoundComponent> self = weak.lock()) {
            (self.get()->*handler)(message);
        }
    };
    Subscription made = connection_.Subscribe(subject, queue, handle);
    const std::lock_guard lock(mutex_);
    *subscription = std::move(made);
}

uint32_t BoundComponent::Open() {
    const std::string claims = ClaimSubject(component_), messages = MessagesTo(component_);
    Listen(&claims_, claims, "", &BoundComponent::OnClaim);
    uint32_t code = connection_.Settle(claims);
    if (code == 0) {
        code = Claim(kMostSilent);
    }
    if (code != 0) {
        return code == ETIMEDOUT ? EADDRINUSE : code;
    }
    // A queue: should a cluster have fallen in two, and two hold the component for once, one of them gets a message.
    Listen(&messages_, messages, "port", &BoundComponent::OnMessage);
    return connection_.Settle(messages);
}

/** Returns 0; EADDRINUSE; ETIMEDOUT when somebody does not answer; else the code of why it cannot be claimed. */
uint32_t BoundComponent::Claim(int mostSilent) {
    int quiet = 0, silent = 0, yielding = 0;
    while (quiet < 2 && silent <= mostSilent && yielding < kMostClaimants) {
        const uint32_t code = AskClaimants();
        if (code != 0 && code != ENOENT && code != ETIMEDOUT) {
            return code;
        }
        quiet = code == ENOENT ? quiet + 1 : 0;
        silent += code == ETIMEDOUT;
        yielding += code == 0;
        std::this_thread::sleep_for(quiet < 2 ? kMoment : kMoment.zero());
    }
    if (silent > mostSilent) {
        return ETIMEDOUT;
    }
    const std::lock_guard lock(mutex_);
    if (quiet < 2 || state_ != State::kClaiming) {
        return EADDRINUSE;
    }
    state_ = State::kHeld;
    hasHeld_ = true;
    return 0;
}

/**
 * Asks who else listens. Returns 0 when somebody gives way; ENOENT when nobody does; ETIMEDOUT when somebody does not
 * answer; EADDRINUSE when somebody holds the component; else the code of why it cannot be asked.
 */
uint32_t BoundComponent::AskClaimants() {
    std::unique_lock lock(mutex_);
    if (state_ != State::kClaiming) {
        return EADDRINUSE;
    }
    const std::string rank = Rank();
    lock.unlock();
    std::string answer;
    const uint32_t code = connection_.Ask(ClaimSubject(component_), rank, &answer);
    return code == 0 && answer != kFreeWord ? EADDRINUSE : code;
}

void BoundComponent::OnClaim(const natsMsg *claim) {
    const std::string_view theirs(natsMsg_GetData(claim), static_cast<size_t>(natsMsg_GetDataLength(claim)));
    std::unique_lock lock(mutex_);
    if (state_ == State::kClaiming && Rank() < theirs) {
        state_ = State::kLost;
    }
    const bool isFree = state_ == State::kLost;
    lock.unlock();
    connection_.Answer(claim, isFree ? kFreeWord : kHeldWord);
}

void BoundComponent::OnMessage(const natsMsg *message) {
    const std::string_view travelled(natsMsg_GetData(message), static_cast<size_t>(natsMsg_GetDataLength(message)));
    const Unpacked unpacked = Unpack(travelled, SenderIn(natsMsg_GetSubject(message)), component_.id);
    uint32_t code = unpacked.code;
    if (code == 0) {
        code = Deliver(unpacked.envelope, unpacked.content.data(), static_cast<uint32_t>(unpacked.content.size()));
    } else {
        const std::lock_guard lock(mutex_);
        if (port_ != nullptr) {
            host_.refuse(port_, unpacked.envelope.sender);
        }
    }
    connection_.Answer(message, WordOf(code));
}

bool BoundComponent::Holds() {
    const std::lock_guard lock(mutex_);
    return state_ == State::kHeld;
}

uint32_t BoundComponent::Deliver(const hosted::Envelope &envelope, const void *content, uint32_t length) {
    const std::lock_guard lock(mutex_);
    switch (state_) {
        case State::kHeld:
            return host_.deliver(port_, &envelope, content, length);
        case State::kClaiming:
            return EAGAIN;
        default:
            return ENOENT;
    }
}

void BoundComponent::Close() {
    const std::lock_guard lock(mutex_);
    port_ = nullptr;
    state_ = State::kLost;
    claims_ = {};
    messages_ = {};
}

void BoundComponent::Suspend() {
    const std::lock_guard lock(mutex_);
    if (state_ == State::kHeld) {
        state_ = State::kClaiming;
    }
}

bool BoundComponent::IsLost() {
    const std::lock_guard lock(mutex_);
    return state_ == State::kLost;
}

BoundComponent::Resumed BoundComponent::Resume() {
    std::unique_lock lock(mutex_);
    const bool hasToClaim = hasHeld_ && state_ != State::kHeld;  // also one that has given way already, to be told so
    lock.unlock();
    const uint32_t code = hasToClaim ? Claim(0) : 0;
    if (code == ETIMEDOUT) {
        return Resumed::kSilent;
    }
    if (code != 0 && code != ENOTCONN && code != ECONNRESET) {
        Lose(code);
    }
    return IsLost() ? Resumed::kLost : Resumed::kDone;
}

void BoundComponent::GiveUp() {
    Lose(ENOTCONN);
}

void BoundComponent::Lose(uint32_t code) {
    const std::lock_guard lock(mutex_);
    if (port_ == nullptr) {
        return;
    }
    Tell("component " + std::to_string(component_.id) +
         (code == EADDRINUSE ? " has been bound by another process meanwhile" : " can no longer be bound"));
    state_ = State::kLost;
    hasHeld_ = false;
    claims_ = {};
    messages_ = {};
    host_.setCode(port_, code);
}

}  // namespace fleet
