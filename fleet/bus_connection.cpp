/*
 * The process's connection for the bus.
 */
#include "fleet/bus_connection.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <optional>
#include <utility>

namespace fleet {

namespace {

void Handle(natsConnection * /*connection*/, natsSubscription * /*subscription*/, natsMsg *message, void *closure) {
    const Message owned(message);
    (*static_cast<Subscription::Handler *>(closure))(message);
}

void Forget(void *closure) {
    delete static_cast<Subscription::Handler *>(closure);
}

}  // namespace

void Tell(const std::string &line) {
    static std::mutex mutex;
    static std::string &last = *new std::string;
    const std::lock_guard lock(mutex);
    if (line != last) {
        fprintf(stderr, "TAV_BUS_URL: %s\n", line.c_str());
        last = line;
    }
}

Subscription::Subscription(natsConnection *connection, const std::string &subject, const std::string &queue,
                           Handler handler) {
    auto closure = std::make_unique<Handler>(std::move(handler));
    natsSubscription *made = nullptr;
    const natsStatus status =
        queue.empty()
            ? natsConnection_Subscribe(&made, connection, subject.c_str(), Handle, closure.get())
            : natsConnection_QueueSubscribe(&made, connection, subject.c_str(), queue.c_str(), Handle, closure.get());
    if (status != NATS_OK) {
        throw Refusal(CodeOf(status), subject + ": " + natsStatus_GetText(status));
    }
    subscription_.reset(made);
    natsSubscription_SetOnCompleteCB(made, Forget, closure.release());
}

void BusConnection::Open() {
    const WithoutSignals guard;
    const Options options = MakeOptions(access_);
    natsOptions_SetNoEcho(options.get(), true);
    natsOptions_SetSendAsap(options.get(), true);
    natsOptions_UseGlobalMessageDelivery(options.get(), true);  // one thread, however many subscriptions there are
    natsOptions_SetErrorHandler(options.get(), OnError, this);
    natsOptions_SetDisconnectedCB(options.get(), OnLost, this);
    natsOptions_SetReconnectedCB(options.get(), OnRestored, this);
    natsOptions_SetClosedCB(options.get(), OnClosed, this);
    connection_ = Connect(access_, options.get());
    // The library makes that thread with the first subscription: here, where it does not get the process's signals.
    natsSubscription *unused = nullptr;
    natsConnection_Subscribe(&unused, connection_.get(), "_INBOX.none", Handle, nullptr);
    natsSubscription_Destroy(unused);
}

uint32_t BusConnection::Ask(const std::string &subject, std::string_view question, std::string *answer) {
    std::optional<WithoutSignals> guard;
    if (!hasAsked_) {
        guard.emplace();  // the first question makes the thread that takes the answers
    }
    natsMsg *reply = nullptr;
    const natsStatus status = natsConnection_Request(&reply, connection_.get(), subject.c_str(), question.data(),
                                                     static_cast<int>(question.size()), kAnswerMs);
    const Message owned(reply);
    hasAsked_ = true;
    if (status == NATS_OK) {
        answer->assign(natsMsg_GetData(reply), static_cast<size_t>(natsMsg_GetDataLength(reply)));
    }
    return status == NATS_TIMEOUT && IsForbidden("Publish", subject) ? EACCES : CodeOf(status);
}

void BusConnection::Answer(const natsMsg *question, std::string_view answer) {
    const char *const reply = natsMsg_GetReply(question);
    if (reply != nullptr) {
        natsConnection_Publish(connection_.get(), reply, answer.data(), static_cast<int>(answer.size()));
    }
}

Subscription BusConnection::Subscribe(const std::string &subject, const std::string &queue,
                                      Subscription::Handler handler) {
    return {connection_.get(), subject, queue, std::move(handler)};
}

uint32_t BusConnection::Settle(const std::string &subject) {
    if (natsConnection_Status(connection_.get()) != NATS_CONN_STATUS_CONNECTED) {
        return ENOTCONN;  // instead of a wait for the connection
    }
    const natsStatus status = natsConnection_FlushTimeout(connection_.get(), kAnswerMs);
    return IsForbidden("Subscription", subject) ? EACCES : CodeOf(status);
}

/** Returns whether the server's last complaint is that this must not be done. It comes before an answer would. */
bool BusConnection::IsForbidden(const char *deed, const std::string &subject) const {
    const char *complaint = nullptr;
    return natsConnection_GetLastError(connection_.get(), &complaint) == NATS_NOT_PERMITTED && complaint != nullptr &&
           strstr(complaint, (std::string(deed) + " to \"" + subject + "\"").c_str()) != nullptr;
}

void BusConnection::OnError(natsConnection *connection, natsSubscription * /*subscription*/, natsStatus status,
                            void *self) {
    const char *complaint = nullptr;
    natsConnection_GetLastError(connection, &complaint);
    const bool isTold = complaint != nullptr && complaint[0] != '\0';
    Tell(ShownServers(static_cast<BusConnection *>(self)->access_) + ": " +
         (isTold ? complaint : natsStatus_GetText(status)));
}

void BusConnection::OnLost(natsConnection * /*connection*/, void *self) {
    static_cast<BusConnection *>(self)->events_.lost();
}

void BusConnection::OnRestored(natsConnection *connection, void *self) {
    KeepFromPrograms(connection);
    static_cast<BusConnection *>(self)->events_.restored();
}

void BusConnection::OnClosed(natsConnection *connection, void *self) {
    const char *complaint = nullptr;
    natsConnection_GetLastError(connection, &complaint);
    Tell(ShownServers(static_cast<BusConnection *>(self)->access_) +
         ": the connection has ended: " + (complaint != nullptr ? complaint : ""));
    static_cast<BusConnection *>(self)->events_.closed();
}

}  // namespace fleet
