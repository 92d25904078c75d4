/*
 * The process's connection for the bus: questions with their answers, subscriptions, and what becomes of it.
 */
#ifndef FLEET_BUS_CONNECTION_H
#define FLEET_BUS_CONNECTION_H

#include <cstdint>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "fleet/connection.h"

namespace fleet {

/** Milliseconds that an answer may take. */
inline constexpr int64_t kAnswerMs = 1000;

/** Prints a line about the bus on the standard error output, unless it was printed last. */
void Tell(const std::string &line);

/** Ends with the object: nothing comes any more then, but for what is being handled just now. */
class Subscription {
  public:
    using Handler = std::function<void(natsMsg *)>;

    Subscription() = default;

    /**
     * @param queue    of all with the same name, one gets a message; empty: each does
     * @param handler  called in a thread of the client library, which must not wait in it; may end the subscription
     */
    Subscription(natsConnection *connection, const std::string &subject, const std::string &queue, Handler handler);

  private:
    std::unique_ptr<natsSubscription, Destroy<natsSubscription, natsSubscription_Destroy>> subscription_;
};

/** What becomes of a connection. Called in a thread of the client library of its own, which may ask and wait. */
struct ConnectionEvents {
    std::function<void()> lost, restored;
    std::function<void()> closed;  // for good: the servers have refused the credentials when it came back
};

/** A connection. It does not get what it sends itself, so it can tell whether anybody else listens. */
class BusConnection {
  public:
    BusConnection(Access access, ConnectionEvents events) : access_(std::move(access)), events_(std::move(events)) {}
    BusConnection(const BusConnection &) = delete;
    BusConnection &operator=(const BusConnection &) = delete;

    /** Connects: before anything else is called. Throws Refusal. */
    void Open();

    bool IsClosed() const { return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CLOSED; }

    /**
     * Asks, and waits for the first answer, kAnswerMs at most.
     *
     * @param answer  where it goes
     * @return 0; ENOENT when nobody listens; ETIMEDOUT; EACCES when the server does not allow it; ENOTCONN while the
     *         connection is away, ECONNRESET when it went away meanwhile; else another errno code
     */
    uint32_t Ask(const std::string &subject, std::string_view question, std::string *answer);

    /** Answers a question, if an answer is asked for. */
    void Answer(const natsMsg *question, std::string_view answer);

    Subscription Subscribe(const std::string &subject, const std::string &queue, Subscription::Handler handler);

    /**
     * Waits until the server knows what has been subscribed and unsubscribed. Returns 0; EACCES when it does not allow
     * a subscription to the subject; else an errno code.
     */
    uint32_t Settle(const std::string &subject);

  private:
    static void OnError(natsConnection *connection, natsSubscription *subscription, natsStatus status, void *self);
    static void OnLost(natsConnection *connection, void *self);
    static void OnRestored(natsConnection *connection, void *self);
    static void OnClosed(natsConnection *connection, void *self);
    bool IsForbidden(const char *deed, const std::string &subject) const;

    const Access access_;
    const ConnectionEvents events_;
    Connection connection_;
    std::atomic<bool> hasAsked_ = false;
};

}  // namespace fleet

#endif
