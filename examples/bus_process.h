/*
 * What a process on the message bus needs: its port, its messages, and the signals that end it.
 */
#ifndef EXAMPLES_BUS_PROCESS_H
#define EXAMPLES_BUS_PROCESS_H

#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <vector>

#include "bytes.h"
#include "tav_posix_bus.h"

/** A received message, returned to the bus with its holder. */
class BusMessage {
  public:
    BusMessage(uint32_t owner, void *message, uint32_t length) : message_(message, {owner}), length_(length) {}

    const void *Get() const { return message_.get(); }
    uint32_t Sender() const;
    Bytes Content() const { return {static_cast<const uint8_t *>(message_.get()), length_}; }

  private:
    struct Free {
        uint32_t owner;
        void operator()(void *message) const;
    };
    std::unique_ptr<void, Free> message_;
    uint32_t length_;
};

/** The port of a component; unbound with its holder. */
class BusPort {
  public:
    /** Binds a component. Throws std::system_error, for one when another process has it. */
    explicit BusPort(uint32_t componentId);

    uint32_t ComponentId() const { return componentId_; }

    /** Readable when a message lies there. */
    int Fd() const { return TAV_Posix_BusFd(port_.get()); }

    /** Announces this component as the one that serves a VS. Throws std::system_error. */
    void Serve(uint32_t kind, uint32_t virtualRouter, uint32_t vsId);

    /** Takes the next message, if one has come. Throws std::system_error. */
    std::optional<BusMessage> Receive();

    /** Sends a message, waiting a moment at most. Throws std::system_error when the receiver is absent or takes no
     * more. */
    void Send(uint32_t receiver, Bytes content);

  private:
    struct Unbind {
        void operator()(TAV_Posix_BusPort *port) const { TAV_Posix_BusUnbind(port); }
    };
    uint32_t componentId_;
    std::unique_ptr<TAV_Posix_BusPort, Unbind> port_;
};

/**
 * Makes SIGINT and SIGTERM events to wait for, instead of the process's sudden end: without that, the port would be
 * left behind and nothing unsubscribed.
 *
 * @return a descriptor that is readable once one of them has come; it lives as long as the process. Throws
 *         std::system_error
 */
int CatchStopSignals();

/**
 * Waits until one of the descriptors can be read.
 *
 * @param descriptors  what to wait for
 * @param timeoutMs    time limit in milliseconds; -1 for none
 * @return which of them can be read, in their order; none of them when the time is over. Throws std::system_error
 */
std::vector<bool> WaitForInput(std::initializer_list<int> descriptors, int timeoutMs = -1);

/**
 * Runs a program: prints an exception's text behind the program's name, and last what memory the platform still
 * accounts, which is none when everything has been returned.
 *
 * @param name  name of the program
 * @param run   the program; it has released everything when it returns or throws
 * @return exit status: 0; 1 for an exception or for memory not returned
 */
int RunAccounted(const char *name, const std::function<void()> &run);

#endif
