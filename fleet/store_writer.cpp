/*
 * Messages and the server's answers, which come in the same order.
 */
#include "fleet/store_writer.h"

#include <nlohmann/json.hpp>

#include "tav_fleet.h"

namespace fleet {

namespace {

constexpr uint64_t kMostUnanswered = 4096, kMostBytes = uint64_t{16} << 20;
constexpr int64_t kAnswerMs = 5000;

void SetHeader(const Message &message, const char *header, const std::string &value) {
    if (natsMsgHeader_Set(message.get(), header, value.c_str()) != NATS_OK) {
        throw std::bad_alloc();
    }
}

}  // namespace

Writer::Writer(const Bucket &bucket) : bucket_(bucket) {
    natsInbox *inbox = nullptr;
    natsSubscription *made = nullptr;
    natsStatus status = natsInbox_Create(&inbox);
    if (status == NATS_OK) {
        inbox_ = inbox;
        natsInbox_Destroy(inbox);
        status = natsConnection_SubscribeSync(&made, bucket.Get(), inbox_.c_str());
        answers_.reset(made);
    }
    if (status != NATS_OK) {
        bucket_.Fail(status, 0, natsStatus_GetText(status));
    }
}

Message Writer::MakeMessage(const std::string &subject, std::string_view value) const {
    natsMsg *made = nullptr;
    if (natsMsg_Create(&made, subject.c_str(), inbox_.c_str(), value.data(), static_cast<int>(value.size())) !=
        NATS_OK) {
        throw std::bad_alloc();
    }
    return Message(made);
}

bool Writer::Begin(const std::string &name, std::string_view value, uint64_t former) {
    const Message message = MakeMessage(bucket_.Prefix() + name, value);
    SetHeader(message, "Nats-Expected-Last-Subject-Sequence", std::to_string(former));
    Publish(message);
    try {
        Flush();
    } catch (const tav::Error &error) {
        if (error.Code() != TAV_ERR_CHANGED) {
            throw;
        }
        return false;
    }
    sequence_ = answered_;
    return true;
}

void Writer::Send(const std::string &name, std::string_view value, bool isDeletion) {
    const Message message = MakeMessage(bucket_.Prefix() + name, value);
    SetHeader(message, "Nats-Expected-Last-Sequence", std::to_string(sequence_));
    if (isDeletion) {
        SetHeader(message, "KV-Operation", "DEL");
    }
    Publish(message);
    ++sequence_;
}

void Writer::Forget(const std::string &names, uint64_t end) {
    const nlohmann::json request = {{"filter", bucket_.Prefix() + names}, {"seq", end}};
    Publish(MakeMessage("$JS.API.STREAM.PURGE." + bucket_.StreamName(), request.dump()));
}

void Writer::Publish(const Message &message) {
    const auto size = static_cast<uint64_t>(natsMsg_GetDataLength(message.get()));
    if (unanswered_ >= kMostUnanswered) {
        Await(kMostUnanswered / 2);
    }
    if (bytes_ + size > kMostBytes) {
        Await(0);
        bytes_ = 0;
    }
    bytes_ += size;
    if (const natsStatus status = natsConnection_PublishMsg(bucket_.Get(), message.get()); status != NATS_OK) {
        bucket_.Fail(status, 0, natsStatus_GetText(status));
    }
    ++unanswered_;
}

void Writer::Await(uint64_t mostUnanswered) {
    while (unanswered_ > mostUnanswered) {
        TakeAnswer();
    }
}

void Writer::TakeAnswer() {
    natsMsg *taken = nullptr;
    natsStatus status = natsSubscription_NextMsg(&taken, answers_.get(), kAnswerMs);
    const Message answer(taken);
    if (status == NATS_OK && natsMsg_IsNoResponders(taken)) {
        status = NATS_NO_RESPONDERS;
    }
    if (status != NATS_OK) {
        bucket_.Fail(status, 0, natsStatus_GetText(status));
    }
    --unanswered_;
    const std::string_view text(natsMsg_GetData(taken), static_cast<size_t>(natsMsg_GetDataLength(taken)));
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object()) {
        throw tav::Error(TAV_ERR_NO_SERVER, bucket_.Place(), "the server's answer makes no sense");
    }
    if (json.contains("error")) {
        const nlohmann::json &error = json["error"];
        bucket_.Fail(NATS_ERR, error.value("err_code", 1), error.value("description", "no reason given").c_str());
    }
    answered_ = json.value("seq", answered_);
}

}  // namespace fleet
