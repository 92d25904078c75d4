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

bool MessageQueue::Add(const Envelope &envelope, const void *content, uint32_t length) {
    auto *const message = static_cast<WaitingMessage *>(malloc(sizeof(WaitingMessage) + length));
    if (message == nullptr) {
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
    free(message);
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
