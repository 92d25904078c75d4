/*
 * A bound component: the messages that wait for it, and what it has refused.
 */
#include "bus_port.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <cerrno>
#include <cstring>

#include "bus_counts.h"
#include "durable.h"

namespace hosted {

namespace {

constexpr const char *kModule = "tav_posix_bus";  // to which received messages are accounted

// Zero bytes behind a received message. Readers walk a message by 16-bit lengths and do not compare these with what has
// come in: from any place in it, the farthest step leads 65535 bytes and a few words on.
constexpr uint32_t kZeroTail = 0x10000;

// Who sent what another machine has sent: no user of this one.
constexpr ucred kElsewhere = {0, TAV_POSIX_BUS_SEVERAL_USERS, 0};

/** Makes a message of the first one that waits. Returns 0, else an errno code: EAGAIN when none does. */
uint32_t HandOut(TAV_Posix_BusPort *port, MessageHeader **message) {
    WaitingMessage *const first = port->waiting.First();
    if (first == nullptr) {
        return EAGAIN;
    }
    *message = TakeMessage(first->length, kZeroTail, kModule, __LINE__);
    if (*message == nullptr) {
        return ENOMEM;
    }
    (*message)->envelope = first->envelope;
    auto *const content = static_cast<uint8_t *>((*message)->Content());
    memcpy(content, first->Content(), first->length);
    memset(content + first->length, 0, kZeroTail);
    port->waiting.DropFirst();
    busCounters.received.Increment();
    return 0;
}

/** Keeps the port's descriptor readable as long as there is something to receive that the kernel no longer knows of. */
void TellWhatWaits(TAV_Posix_BusPort *port) {
    const bool isWaiting = port->waiting.First() != nullptr || port->code != 0;
    if (isWaiting == port->isTold) {
        return;
    }
    eventfd_t told = 1;
    const int fd = port->event.Get();
    port->isTold = (isWaiting ? eventfd_write(fd, told) : eventfd_read(fd, &told)) == 0 ? isWaiting : port->isTold;
}

uint32_t DeliverFromModule(TAV_Posix_BusPort *port, const Envelope *envelope, const void *content, uint32_t length) {
    const std::lock_guard lock(port->taking);
    if (port->waiting.IsFull()) {
        return EAGAIN;
    }
    if (!port->waiting.Add(*envelope, content, length)) {
        return ENOMEM;
    }
    TellWhatWaits(port);
    return 0;
}

void RefuseFromModule(TAV_Posix_BusPort *port, uint32_t component) {
    const std::lock_guard lock(port->taking);
    Refuse(port, kElsewhere, component);
}

void SetCodeFromModule(TAV_Posix_BusPort *port, uint32_t code) {
    const std::lock_guard lock(port->taking);
    port->code = code;
    TellWhatWaits(port);
}

}  // namespace

const BusHost kBusHost = {DeliverFromModule, RefuseFromModule, SetCodeFromModule};

uint32_t OpenPort(TAV_Posix_BusPort *port) {
    port->event = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    port->ready = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    return port->ready.IsOpen() ? Watch(port, port->event) : LastError();
}

uint32_t Watch(TAV_Posix_BusPort *port, const Descriptor &source) {
    epoll_event wanted = {};
    wanted.events = EPOLLIN;
    return source.IsOpen() && epoll_ctl(port->ready.Get(), EPOLL_CTL_ADD, source.Get(), &wanted) == 0 ? 0 : LastError();
}

uint32_t TakeNext(TAV_Posix_BusPort *port, MessageHeader **message) {
    const std::lock_guard lock(port->taking);
    if (port->transport->fetch != nullptr) {
        port->code = port->transport->fetch(port->binding);
    }
    const uint32_t code = HandOut(port, message);
    TellWhatWaits(port);
    return code == EAGAIN && port->code != 0 ? port->code : code;
}

void Refuse(TAV_Posix_BusPort *port, const ucred &sender, uint32_t component) {
    busCounters.refused.Increment();
    port->refusals.Count(sender, component);
}

}  // namespace hosted
