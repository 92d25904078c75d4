/*
 * What carries messages between components. There are two: datagrams between the processes of this machine, and a
 * module that reaches other machines, which is loaded when it is asked for. What is common to both stands above this
 * interface: ports with the messages that wait, what a message must be, counts.
 */
#ifndef HOSTED_BUS_TRANSPORT_H
#define HOSTED_BUS_TRANSPORT_H

#include <cstdint>

#include "interfaces.h"
#include "message.h"

namespace hosted {

/** What a transport keeps for a bound component. */
struct BusBinding {};

/** A way for messages. Codes are errno values; messages and components have been checked, nothing is null. */
struct BusTransport {
    /** Binds the port's component. What comes for it goes to the port from then on. */
    uint32_t (*bind)(uint32_t componentId, TAV_Posix_BusPort *port, BusBinding **binding);

    /** Unbinds it, and withdraws what it serves. Nothing goes to the port any more once this returns. */
    void (*unbind)(BusBinding *binding);

    /**
     * Brings to the port what has come in, as far as there is room; the port is locked. Null where messages come to the
     * port by themselves.
     */
    uint32_t (*fetch)(BusBinding *binding);

    /** Announces that the component serves a VS, in place of an earlier announcement. */
    uint32_t (*serve)(BusBinding *binding, uint32_t component, uint32_t vr, uint32_t vsId);

    /** Sends the first `length` bytes of a message, which stays the caller's. */
    uint32_t (*send)(MessageHeader *message, uint32_t length);

    /** Finds who serves a VS. */
    uint32_t (*find)(uint32_t component, uint32_t vr, uint32_t vsId, uint32_t *componentId);
};

/** What the module may call, from any thread. */
struct BusHost {
    /** Keeps a message at a port until it is received. Returns 0; EAGAIN when as many wait as may; ENOMEM. */
    uint32_t (*deliver)(TAV_Posix_BusPort *port, const Envelope *envelope, const void *content, uint32_t length);

    /** Counts a message that was refused, and whom it named as its sender. */
    void (*refuse)(TAV_Posix_BusPort *port, uint32_t component);

    /** Lets receiving return a code once no message waits; 0 lets it wait again. */
    void (*setCode)(TAV_Posix_BusPort *port, uint32_t code);
};

/** Changes with these structures, so that a module of another build is refused. */
inline constexpr uint32_t kBusModuleVersion = 1;

/** The module's one function. Returns its transport; null for another version. Host and transport stay valid. */
using BusModuleEntry = const BusTransport *(*)(const BusHost *host, uint32_t version);
inline constexpr const char *kBusModuleEntryName = "TAV_Fleet_BusModule";

}  // namespace hosted

#endif
