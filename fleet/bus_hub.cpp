/*
 * All that this process has on the bus of some servers.
 */
#include "fleet/bus_hub.h"

#include <unistd.h>
#include <cerrno>

#include <atomic>
#include <optional>

#include "fleet/bus_wire.h"

namespace fleet {

namespace {

using Clock = std::chrono::steady_clock;

// So long who has not answered is not asked again, and servers that could not be reached are not tried again.
constexpr std::chrono::milliseconds kPause(500);

/** The hub of some servers, or why there is none for the moment. */
struct Slot {
    BusHub *hub = nullptr;
    std::optional<Refusal> refusal;
    Clock::time_point end;  // of the time for which that counts
};

BusHub &Connected(const Access &access, Slot *slot) {
    if (slot->refusal && Clock::now() < slot->end) {
        throw Refusal(*slot->refusal);
    }
    try {
        slot->hub = std::make_unique<BusHub>(access).release();  // for ever: threads of the library are at work in it
    } catch (const Refusal &refusal) {
        slot->refusal = refusal;
        slot->end = Clock::now() + kPause;
        throw;
    }
    return *slot->hub;
}

}  // namespace

void BusHub::CheckProcess() {
    static std::atomic<pid_t> owner{0};
    pid_t first = 0;
    if (!owner.compare_exchange_strong(first, getpid()) && first != getpid()) {
        throw Refusal(ENOTSUP, "a process that is forked after the first use of the bus cannot use it without exec");
    }
}

BusHub &BusHub::Get() {
    static std::mutex mutex;
    static auto &slots = *new std::map<Access, Slot>;
    const Access access = AccessTo(TrustedSetting("TAV_BUS_URL"));
    const std::lock_guard lock(mutex);
    Slot &slot = slots[access];
    return slot.hub != nullptr && !slot.hub->connection_.IsClosed() ? *slot.hub : Connected(access, &slot);
}

BusHub::BusHub(const Access &access) : connection_(access, Events()), services_(connection_) {
    connection_.Open();
}

/** Claims a component again. Returns false when that has to be tried once more. */
bool BusHub::HasResumed(BoundComponent &binding) {
    const BoundComponent::Resumed resumed = binding.Resume();
    if (resumed == BoundComponent::Resumed::kLost) {
        services_.Withdraw(binding.Name());
    }
    return resumed != BoundComponent::Resumed::kSilent;
}

ConnectionEvents BusHub::Events() {
    const auto lost = [this] {
        for (const auto &binding : Bindings()) {
            binding->Suspend();
        }
    };
    const auto restored = [this] {
        std::vector<std::shared_ptr<BoundComponent>> bindings = Bindings();
        while (!bindings.empty()) {
            std::erase_if(bindings, [this](const auto &binding) { return HasResumed(*binding); });
        }
        services_.Renew();
    };
    const auto closed = [this] {
        for (const auto &binding : Bindings()) {
            binding->GiveUp();
        }
    };
    return {lost, restored, closed};
}

std::vector<std::shared_ptr<BoundComponent>> BusHub::Bindings() {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<BoundComponent>> all;
    for (const auto &[name, binding] : bindings_) {
        all.push_back(binding);
    }
    return all;
}

std::shared_ptr<BoundComponent> BusHub::Find(const ComponentName &component) {
    const std::lock_guard lock(mutex_);
    const auto found = bindings_.find(component);
    return found != bindings_.end() ? found->second : nullptr;
}

uint32_t BusHub::Bind(const ComponentName &component, const hosted::BusHost &host, TAV_Posix_BusPort *port,
                      std::shared_ptr<BoundComponent> *binding) {
    const auto made = std::make_shared<BoundComponent>(connection_, component, host, port);
    {
        const std::lock_guard lock(mutex_);
        if (!bindings_.emplace(component, made).second) {
            return EADDRINUSE;
        }
    }
    uint32_t code = 0;
    try {
        code = made->Open();
    } catch (const Refusal &refusal) {
        code = refusal.Code();
    }
    if (code != 0) {
        Unbind(made.get());
        return code;
    }
    *binding = made;
    return 0;
}

void BusHub::Unbind(BoundComponent *binding) {
    const ComponentName component = binding->Name();
    services_.Withdraw(component);
    binding->Close();
    {
        const std::lock_guard lock(mutex_);
        bindings_.erase(component);
    }
    connection_.Settle(ClaimSubject(component));
}

uint32_t BusHub::CodeOfPause(const std::string &subject) {
    const std::lock_guard lock(mutex_);
    const auto pause = pauses_.find(subject);
    if (pause == pauses_.end()) {
        return 0;
    }
    if (Clock::now() < pause->second.end) {
        return pause->second.code;
    }
    pauses_.erase(pause);
    return 0;
}

uint32_t BusHub::Send(const std::string &prefix, const hosted::Envelope &envelope, const void *content,
                      uint32_t length) {
    const std::shared_ptr<BoundComponent> own = Find({prefix, envelope.receiver});
    if (own && own->Holds()) {
        return own->Deliver(envelope, content, length);  // which the servers would not bring back
    }
    const std::string subject = MessageSubject(prefix, envelope.sender, envelope.receiver);
    uint32_t code = CodeOfPause(subject);
    if (code != 0) {
        return code;
    }
    std::string answer;
    code = connection_.Ask(subject, Pack(envelope, content, length), &answer);
    if (code == ETIMEDOUT || code == EACCES) {
        const std::lock_guard lock(mutex_);
        pauses_[subject] = {code, Clock::now() + kPause};
    }
    return code == 0 ? CodeOfWord(answer) : code;
}

}  // namespace fleet
