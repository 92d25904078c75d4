#include "bus_queue.h"

#include <cstdlib>
#include <cstring>

#include <algorithm>

namespace hosted {

MessageQueue::~MessageQueue() {
    while (first_ != nullptr) {
        DropFirst();
    }
}

bool MessageQueue::HasAllOf(uint32_t sender) const {
    const Sender *const found = Find(sender);
    return found != nullptr && found->waiting >= kMaxWaitingOfSender;
}

bool MessageQueue::Add(const Envelope &envelope, const void *content, uint32_t length) {
    auto *const message = static_cast<WaitingMessage *>(malloc(sizeof(WaitingMessage) + length));
    if (message == nullptr || !CountIn(envelope.sender)) {
        free(message);
        return false;
    }
    *message = {nullptr, length, envelope};
    memcpy(message->Content(), content, length);
    *end_ = message;
    end_ = &message->next;
    ++count_;
    return true;
}

void MessageQueue::DropFirst() {
    WaitingMessage *const message = first_;
    first_ = message->next;
    if (first_ == nullptr) {
        end_ = &first_;
    }
    --count_;
    CountOut(message->envelope.sender);
    free(message);
}

MessageQueue::Sender *MessageQueue::Find(uint32_t id) const {
    Sender *sender = senders_[BucketOf(id)];
    while (sender != nullptr && sender->id != id) {
        sender = sender->next;
    }
    return sender;
}

/** Counts a message of a sender. Returns false when memory is short. */
bool MessageQueue::CountIn(uint32_t id) {
    Sender *sender = Find(id);
    if (sender == nullptr) {
        sender = static_cast<Sender *>(malloc(sizeof(Sender)));
        if (sender == nullptr) {
            return false;
        }
        Sender *&bucket = senders_[BucketOf(id)];
        *sender = {bucket, id, 0};
        bucket = sender;
    }
    ++sender->waiting;
    return true;
}

void MessageQueue::CountOut(uint32_t id) {
    Sender **link = &senders_[BucketOf(id)];
    while ((*link)->id != id) {
        link = &(*link)->next;
    }
    Sender *const sender = *link;
    if (--sender->waiting == 0) {
        *link = sender->next;
        free(sender);
    }
}

void Refusals::Count(const ucred &sender, uint32_t component) {
    TAV_Posix_BusRefusal *const last = users_ + count_;
    TAV_Posix_BusRefusal *user =
        std::find_if(users_, last, [&](const TAV_Posix_BusRefusal &each) { return each.user == sender.uid; });
    if (user == last && count_ == kMaxUsers) {
        --user;
        user->user = TAV_POSIX_BUS_SEVERAL_USERS;
    } else if (user == last) {
        ++count_;
        user->user = sender.uid;
    }
    user->process = static_cast<uint32_t>(sender.pid);
    user->component = component;
    ++user->count;
}

}  // namespace hosted
