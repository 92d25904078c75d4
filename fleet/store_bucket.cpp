/*
 * Buckets, by the client library's streams. Its own watching of buckets is not used: it has no place to begin at.
 */
#include "fleet/store_bucket.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tav_fleet.h"

namespace fleet {

namespace {

constexpr int64_t kAnswerMs = 3000;              // the server's time for one request
constexpr size_t kHeaderSize = 256;              // most bytes of our headers
constexpr int64_t kHeartbeatNs = 1'000'000'000;  // of a feed, so that a dead one is noticed

/** Reports of the client library come as results, too. */
void IgnoreReport(natsConnection * /*connection*/, natsSubscription * /*subscription*/, natsStatus /*status*/,
                  void * /*context*/) {}

uint32_t CodeOfRefusal(uint32_t error) {
    switch (error) {
        case EINVAL:
            return TAV_ERR_INVALID;
        case EACCES:
        case ENOENT:
            return TAV_ERR_ACCESS;
        case ENOMEM:
            return TAV_ERR_NO_MEMORY;
        default:
            return TAV_ERR_NO_SERVER;
    }
}

/** Throws Error (TAV_ERR_INVALID) for a name that no bucket can have. */
void RequireName(const std::string &name) {
    const auto isAllowed = [](unsigned char c) { return c < 0x80 && (isalnum(c) != 0 || c == '-' || c == '_'); };
    if (name.empty() || !std::ranges::all_of(name, isAllowed)) {
        throw tav::Error(TAV_ERR_INVALID, "bucket '" + name + "'", "a name has letters, digits, '-' and '_'");
    }
}

/** Connects, without coming back by itself: what a lost connection means is ours to find out. */
Connection ConnectOnce(const std::string &urls) {
    try {
        const Access access = AccessTo(urls);
        const Options options = MakeOptions(access);
        natsOptions_SetAllowReconnect(options.get(), false);
        natsOptions_SetErrorHandler(options.get(), IgnoreReport, nullptr);
        return Connect(access, options.get());
    } catch (const Refusal &refusal) {
        throw tav::Error(CodeOfRefusal(refusal.Code()), "", refusal.what());
    }
}

}  // namespace

Bucket::Bucket(const std::string &urls, const std::string &name, bool create)
    : name_(name), streamName_("KV_" + name), prefix_("$KV." + name + ".") {
    const WithoutSignals guard;  // requests have a thread, too
    RequireName(name);
    connection_ = ConnectOnce(urls);
    place_ = ShownServers({urls, "", ""}) + ", bucket " + name;
    jsOptions options;
    Check(jsOptions_Init(&options));
    options.Wait = kAnswerMs;
    jsCtx *stream = nullptr;
    Check(natsConnection_JetStream(&stream, connection_.get(), &options));
    stream_.reset(stream);
    Inspect(create);
}

void Bucket::Inspect(bool create) {
    jsStreamInfo *info = nullptr;
    jsErrCode error{};
    natsStatus status = js_GetStreamInfo(&info, stream_.get(), streamName_.c_str(), nullptr, &error);
    if (create && error == JSStreamNotFoundErr) {
        kvConfig config;
        kvConfig_Init(&config);
        config.Bucket = name_.c_str();
        config.History = 1;
        kvStore *made = nullptr;
        Check(js_CreateKeyValue(&made, stream_.get(), &config));
        kvStore_Destroy(made);
        status = js_GetStreamInfo(&info, stream_.get(), streamName_.c_str(), nullptr, &error);
    }
    Check(status, error);
    const jsStreamConfig config = *info->Config;
    jsStreamInfo_Destroy(info);
    if (config.MaxAge != 0) {
        throw tav::Error(TAV_ERR_NO_BUCKET, place_,
                         "it forgets what it holds after a time, so nothing can be kept there");
    }
    answersDirectly_ = config.AllowDirect;
    maxMessage_ = static_cast<size_t>(natsConnection_GetMaxPayload(connection_.get()));
    if (config.MaxMsgSize > 0) {
        maxMessage_ = std::min(maxMessage_, static_cast<size_t>(config.MaxMsgSize));
    }
}

size_t Bucket::MaxValue() const {
    return maxMessage_ > kHeaderSize ? maxMessage_ - kHeaderSize : 0;
}

void Bucket::Check(natsStatus status, int errorCode) const {
    if (status != NATS_OK) {
        Fail(status, errorCode, natsStatus_GetText(status));
    }
}

void Bucket::Fail(natsStatus status, int errorCode, const char *words) const {
    const std::string &place = place_;
    switch (errorCode) {
        case JSStreamNotFoundErr:
            throw tav::Error(TAV_ERR_NO_BUCKET, place, "there is no such bucket");
        case JSNotEnabledErr:
        case JSNotEnabledForAccountErr:
            throw tav::Error(TAV_ERR_NO_BUCKET, place, "the server keeps no streams (JetStream is off)");
        case JSStreamWrongLastSequenceErr:
            throw tav::Error(TAV_ERR_CHANGED, place, "somebody else has written to it");
        default:
            break;
    }
    if (errorCode != 0) {
        throw tav::Error(TAV_ERR_NOT_SAVED, place, std::string("the server refuses it: ") + words);
    }
    const char *reported = nullptr;
    natsConnection_GetLastError(connection_.get(), &reported);
    if (reported != nullptr && strcasestr(reported, "permissions violation") != nullptr) {
        throw tav::Error(TAV_ERR_ACCESS, place, reported);
    }
    if (status == NATS_NO_RESPONDERS) {
        throw tav::Error(TAV_ERR_NO_BUCKET, place, "the server keeps no streams (JetStream is off)");
    }
    if (status == NATS_NO_MEMORY) {
        throw std::bad_alloc();
    }
    throw tav::Error(
        TAV_ERR_NO_SERVER, place,
        status == NATS_TIMEOUT ? "the server does not answer" : std::string("the connection is lost: ") + words);
}

std::optional<Entry> Bucket::Last(const std::string &name) const {
    natsMsg *found = nullptr;
    jsErrCode error{};
    const std::string subject = prefix_ + name;
    const natsStatus status =
        js_GetLastMsg(&found, stream_.get(), streamName_.c_str(), subject.c_str(), nullptr, &error);
    if (status == NATS_NOT_FOUND && error == JSNoMessageFoundErr) {
        return {};
    }
    Check(status, error);
    return EntryOf(Message(found), natsMsg_GetSequence(found), 0);
}

std::optional<Entry> Bucket::Next(uint64_t sequence, std::string_view prefix) const {
    if (!answersDirectly_) {
        return {};
    }
    jsDirectGetMsgOptions options;
    Check(jsDirectGetMsgOptions_Init(&options));
    const std::string subjects = prefix_ + std::string(prefix) + ">";
    options.Sequence = sequence;
    options.NextBySubject = subjects.c_str();
    natsMsg *found = nullptr;
    const natsStatus status = js_DirectGetMsg(&found, stream_.get(), streamName_.c_str(), nullptr, &options);
    if (status == NATS_NOT_FOUND) {
        return {};
    }
    Check(status);
    return EntryOf(Message(found), natsMsg_GetSequence(found), 0);
}

Entry Bucket::EntryOf(Message message, uint64_t sequence, uint64_t pending) const {
    natsMsg *const raw = message.get();
    const char *operation = nullptr;
    const bool isDeleted =
        natsMsgHeader_Get(raw, "KV-Operation", &operation) == NATS_OK && strcmp(operation, "PUT") != 0;
    const std::string_view subject(natsMsg_GetSubject(raw)),
        value(natsMsg_GetData(raw), static_cast<size_t>(natsMsg_GetDataLength(raw)));
    return {subject.substr(std::min(prefix_.size(), subject.size())),
            sequence,
            pending,
            isDeleted,
            value,
            std::move(message)};
}

Feed::Feed(const Bucket &bucket, const std::string &names, uint64_t sequence) : bucket_(bucket) {
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Config.DeliverPolicy = js_DeliverByStartSequence;
    options.Config.OptStartSeq = std::max<uint64_t>(sequence, 1);
    Subscribe(names, &options);
}

Feed::Feed(const Bucket &bucket, const std::string &name) : bucket_(bucket) {
    jsSubOptions options;
    jsSubOptions_Init(&options);
    options.Config.DeliverPolicy = js_DeliverLastPerSubject;
    Subscribe(name, &options);
}

Feed::~Feed() {
    // Nothing may come any more when what takes the messages goes: the connection's thread may be at one just now. What
    // came before the answer of the server has been taken; without an answer that thread has to end.
    natsConnection *const connection = bucket_.Get();
    if (natsSubscription_Unsubscribe(subscription_.get()) != NATS_OK ||
        natsConnection_FlushTimeout(connection, kAnswerMs) != NATS_OK) {
        natsConnection_Close(connection);
    }
}

void Feed::Subscribe(const std::string &names, jsSubOptions *options) {
    const WithoutSignals guard;
    options->Stream = bucket_.StreamName().c_str();
    // Not the client library's ordered ones: when the server goes away, it makes them anew in a thread that may have
    // ended, and freed what they share, before the thread that began it writes there (libnats 3.4).
    options->Config.AckPolicy = js_AckNone;
    options->Config.FlowControl = true;
    options->Config.Heartbeat = kHeartbeatNs;
    natsSubscription *made = nullptr;
    jsErrCode error{};
    natsStatus status =
        js_SubscribeSync(&made, bucket_.Stream(), (bucket_.Prefix() + names).c_str(), nullptr, options, &error);
    subscription_.reset(made);
    if (status == NATS_OK) {
        status = natsSubscription_SetPendingLimits(made, -1, -1);  // flow control bounds them
    }
    if (status != NATS_OK) {
        bucket_.Fail(status, error, natsStatus_GetText(status));
    }
}

std::optional<Entry> Feed::Next(std::chrono::milliseconds timeout) {
    natsMsg *taken = nullptr;
    natsStatus status = natsSubscription_NextMsg(&taken, subscription_.get(), timeout.count());
    if (status == NATS_TIMEOUT) {
        return {};
    }
    Message message(taken);
    jsMsgMetaData *data = nullptr;
    if (status == NATS_OK) {
        status = natsMsg_GetMetaData(&data, taken);
    }
    if (status != NATS_OK) {
        bucket_.Fail(status, 0, natsStatus_GetText(status));
    }
    const uint64_t sequence = data->Sequence.Stream, pending = data->NumPending, number = data->Sequence.Consumer;
    jsMsgMetaData_Destroy(data);
    if (number != ++taken_) {
        throw tav::Error(TAV_ERR_NO_SERVER, bucket_.Place(), "a message of the server was lost");
    }
    return bucket_.EntryOf(std::move(message), sequence, pending);
}

bool Feed::HasNext() const {
    uint64_t count = 0;
    return natsSubscription_QueuedMsgs(subscription_.get(), &count) == NATS_OK && count > 0;
}

}  // namespace fleet
