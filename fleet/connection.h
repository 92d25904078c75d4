/*
 * Connections to the servers: where they are, as whom to come, and what all connections have in common.
 */
#ifndef FLEET_CONNECTION_H
#define FLEET_CONNECTION_H

#include <nats/nats.h>
#include <signal.h>
#include <cstdint>

#include <compare>
#include <memory>
#include <stdexcept>
#include <string>

namespace fleet {

/** Milliseconds that connecting to one server may take. */
inline constexpr int64_t kConnectMs = 2000;

/**
 * Returns what a variable of the environment says; nothing when it is not set. A process with more rights than its
 * starter does not let the starter choose where it reads and writes: it gets nothing.
 */
std::string TrustedSetting(const char *variable);

/** Where the servers are, and as whom to come. */
struct Access {
    std::string urls;         // nats://host:port or tls://host:port, several separated by commas
    std::string credentials;  // path of a file with the user's name and password, a line each; may be empty
    std::string authorities;  // path of certificates (PEM) of who may sign for a server; empty for the system's

    auto operator<=>(const Access &) const = default;
};

/** Returns the access to servers with the credentials and authorities that the environment names. */
Access AccessTo(std::string urls);

/** Returns the servers for people: without names of users and passwords. */
std::string ShownServers(const Access &access);

/** What connecting throws: an errno code, and one line for people. */
class Refusal : public std::runtime_error {
  public:
    Refusal(uint32_t code, const std::string &line) : std::runtime_error(line), code_(code) {}
    uint32_t Code() const { return code_; }

  private:
    uint32_t code_;
};

/**
 * Returns the errno code for a status of the client library; 0 for success. Those that say that a connection was lost
 * while something was under way (ECONNRESET, ETIMEDOUT) leave it open whether it has arrived.
 */
uint32_t CodeOf(natsStatus status);

/** Owners of the client library's objects. */
template <typename Made, auto destroy>
struct Destroy {
    void operator()(Made *made) const { destroy(made); }
};
using Options = std::unique_ptr<natsOptions, Destroy<natsOptions, natsOptions_Destroy>>;
using Connection = std::unique_ptr<natsConnection, Destroy<natsConnection, natsConnection_Destroy>>;
using Message = std::unique_ptr<natsMsg, Destroy<natsMsg, natsMsg_Destroy>>;

/**
 * Makes the options of a connection: where and as whom, TLS when a URL says tls or authorities are named, and
 * reconnecting without end. Nothing that is sent while the connection is away is kept for later. Callbacks and more are
 * the caller's to add. Throws Refusal.
 */
Options MakeOptions(const Access &access);

/** Connects. The connection's sockets do not reach programs that the process starts. Throws Refusal. */
Connection Connect(const Access &access, natsOptions *options);

/** Keeps a connection's present socket from programs that the process starts: to be called after each reconnecting. */
void KeepFromPrograms(natsConnection *connection);

/**
 * Keeps the process's signals, but for those of faults, from threads that are made while it lives. Those of the client
 * library must not take them: a handler would run there, and who waits for the signal would not be interrupted.
 */
class WithoutSignals {
  public:
    WithoutSignals();
    ~WithoutSignals();
    WithoutSignals(const WithoutSignals &) = delete;
    WithoutSignals &operator=(const WithoutSignals &) = delete;

  private:
    sigset_t before_;
};

}  // namespace fleet

#endif
