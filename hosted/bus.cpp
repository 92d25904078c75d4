/*
 * The bus as programs know it: what is the same whatever carries the messages.
 */
#include <poll.h>
#include <cerrno>

#include "bus_choice.h"
#include "bus_counts.h"
#include "bus_port.h"
#include "deadline.h"
#include "durable.h"
#include "interfaces.h"
#include "made.h"
#include "message.h"

using hosted::busCounters;
using hosted::BusTransport;
using hosted::Deadline;
using hosted::MessageHeader;

namespace {

/** Checks that a message names its ends, and can be sent and received at this length. Returns 0, else an errno code. */
uint32_t CheckMessage(const MessageHeader *message, uint32_t length) {
    if (message->envelope.sender == hosted::kNoComponent || message->envelope.receiver == hosted::kNoComponent) {
        return EINVAL;
    }
    if (length > message->size || length > hosted::kMaxMessage) {
        return EMSGSIZE;
    }
    return length >= hosted::kMinMessage ? 0 : EINVAL;
}

uint32_t Send(MessageHeader *message, uint32_t length) {
    const BusTransport *transport = nullptr;
    uint32_t code = CheckMessage(message, length);
    if (code == 0) {
        code = hosted::ChooseTransport(&transport);
    }
    return code == 0 ? transport->send(message, length) : code;
}

uint32_t WaitForMessage(const TAV_Posix_BusPort *port, int timeoutMs) {
    pollfd wanted = {port->ready.Get(), POLLIN, 0};
    const int ready = poll(&wanted, 1, timeoutMs);
    if (ready < 0) {
        return hosted::LastError();
    }
    return ready > 0 ? 0 : ETIMEDOUT;
}

}  // namespace

uint32_t TAV_Posix_BusBind(uint32_t componentId, TAV_Posix_BusPort **port) {
    if (port == nullptr || componentId == hosted::kNoComponent) {
        return EINVAL;
    }
    hosted::Made<TAV_Posix_BusPort> made = hosted::Make<TAV_Posix_BusPort>();
    if (!made) {
        return ENOMEM;
    }
    uint32_t code = hosted::ChooseTransport(&made->transport);
    if (code == 0) {
        code = hosted::OpenPort(made.get());
    }
    if (code == 0) {
        code = made->transport->bind(componentId, made.get(), &made->binding);
    }
    if (code == 0) {
        *port = made.release();
    }
    return code;
}

void TAV_Posix_BusUnbind(TAV_Posix_BusPort *port) {
    if (port != nullptr) {
        port->transport->unbind(port->binding);
        hosted::Unmake<TAV_Posix_BusPort>()(port);
    }
}

int TAV_Posix_BusFd(const TAV_Posix_BusPort *port) {
    return port->ready.Get();
}

uint32_t TAV_Posix_BusServe(const TAV_Posix_BusPort *port, uint32_t component, uint32_t vr, uint32_t vsId) {
    if (port == nullptr || component == hosted::kNoComponent) {
        return EINVAL;
    }
    return port->transport->serve(port->binding, component, vr, vsId);
}

uint32_t TAV_Posix_BusReceive(TAV_Posix_BusPort *port, int32_t timeoutMs, void **message, uint32_t *length) {
    if (port == nullptr || message == nullptr || length == nullptr) {
        return EINVAL;
    }
    const Deadline deadline(timeoutMs);
    MessageHeader *taken = nullptr;
    uint32_t code = TakeNext(port, &taken);
    while (code == EAGAIN && !deadline.HasPassed()) {
        code = WaitForMessage(port, deadline.LeftMs());
        if (code == 0) {
            code = TakeNext(port, &taken);
        }
    }
    if (code != 0) {
        return code == EAGAIN ? ETIMEDOUT : code;
    }
    *message = taken->Content();
    *length = taken->size;
    return 0;
}

void TAV_Posix_BusVisitRefusals(TAV_Posix_BusPort *port, TAV_Posix_BusRefusalVisitor visitor, void *context) {
    std::unique_lock lock(port->taking);
    const hosted::Refusals refusals = port->refusals;
    lock.unlock();
    for (const TAV_Posix_BusRefusal &refusal : refusals) {
        visitor(&refusal, context);
    }
}

uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t /*reserved*/, uint32_t code, void *message, uint32_t length) {
    MessageHeader *const header = hosted::HeaderOfMessage(message, __func__);
    header->envelope.receiver = receiver;
    header->envelope.code = code;
    const uint32_t result = Send(header, length);
    (result == 0 ? busCounters.sent : busCounters.sendFailures).Increment();
    hosted::ReturnMessage(header);
    return result;
}

uint32_t CMF_GetPIDByVR(uint32_t component, uint32_t /*reserved*/, uint32_t vr, uint32_t vsId, uint32_t *componentId) {
    const BusTransport *transport = nullptr;
    const uint32_t code = componentId != nullptr ? hosted::ChooseTransport(&transport) : EINVAL;
    return code == 0 ? transport->find(component, vr, vsId, componentId) : code;
}
