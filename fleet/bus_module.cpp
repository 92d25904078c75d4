/*
 * The module that the hosted platform loads: the bus over NATS servers, as one of its transports. No exception leaves.
 */
#include <cerrno>

#include <exception>
#include <memory>
#include <new>

#include "fleet/bus_hub.h"
#include "fleet/bus_subjects.h"
#include "hosted/bus_transport.h"

namespace fleet {

namespace {

const hosted::BusHost *busHost = nullptr;

/** What the platform holds for a bound component. */
struct Handle : hosted::BusBinding {
    BusHub *hub = nullptr;
    std::shared_ptr<BoundComponent> binding;
};

/** Runs a function for the platform. Returns its code, or that of what it throws, which is told. */
template <typename Function>
uint32_t Guarded(Function function) noexcept {
    try {
        BusHub::CheckProcess();
        return function();
    } catch (const Refusal &refusal) {
        Tell(refusal.what());
        return refusal.Code();
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    } catch (const std::exception &error) {
        Tell(error.what());
        return EIO;
    }
}

uint32_t Bind(uint32_t componentId, TAV_Posix_BusPort *port, hosted::BusBinding **binding) {
    return Guarded([&] {
        auto handle = std::make_unique<Handle>();
        handle->hub = &BusHub::Get();
        const uint32_t code = handle->hub->Bind({BusPrefix(), componentId}, *busHost, port, &handle->binding);
        if (code == 0) {
            *binding = handle.release();
        }
        return code;
    });
}

void Unbind(hosted::BusBinding *binding) {
    Guarded([=] {
        const std::unique_ptr<Handle> handle(static_cast<Handle *>(binding));
        handle->hub->Unbind(handle->binding.get());
        return 0u;
    });
}

uint32_t Serve(hosted::BusBinding *binding, uint32_t component, uint32_t vr, uint32_t vsId) {
    return Guarded([=] {
        const auto *const handle = static_cast<Handle *>(binding);
        return handle->hub->Services().Serve(handle->binding->Name(), component, vr, vsId);
    });
}

uint32_t Send(hosted::MessageHeader *message, uint32_t length) {
    return Guarded([=] { return BusHub::Get().Send(BusPrefix(), message->envelope, message->Content(), length); });
}

uint32_t Find(uint32_t component, uint32_t vr, uint32_t vsId, uint32_t *componentId) {
    return Guarded(
        [=] { return BusHub::Get().Services().Find(ServiceSubject(BusPrefix(), component, vr, vsId), componentId); });
}

constexpr hosted::BusTransport kTransport = {Bind, Unbind, nullptr, Serve, Send, Find};

}  // namespace

}  // namespace fleet

extern "C" __attribute__((visibility("default"))) const hosted::BusTransport *TAV_Fleet_BusModule(
    const hosted::BusHost *host, uint32_t version) {
    fleet::busHost = host;
    return version == hosted::kBusModuleVersion ? &fleet::kTransport : nullptr;
}
