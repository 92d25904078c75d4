/*
 * The two rules by which an event finds the subscriptions that it satisfies, and the notification of them.
 */
#include "detect/list.h"
#include "detect/message.h"
#include "detect/model.h"
#include "platform/bex_string.h"

using detect::BookInfo;
using detect::Clear;
using detect::Cond;
using detect::CondGroup;
using detect::Elements;
using detect::Instance;
using detect::IsEmpty;
using detect::kBookKey;
using detect::kEventType;
using detect::kHeap;
using detect::kLrVr;
using detect::kMessageClass;
using detect::kNotify;
using detect::List;
using detect::MoveAllToTail;
using detect::MoveToTail;
using detect::NotificationHead;

namespace {

constexpr uint8_t kInterface = 1;
constexpr uint8_t kSubInterface = 1;

/** An event: two words that the callbacks understand. */
struct Event {
    uintptr_t arg1;
    uintptr_t arg2;
};

/** The subscriptions that an event satisfies, off the instance's list and in the order in which they were found. */
struct Satisfied {
    List bookInfos;  // head of the list
    uint32_t count;  // how many there are

    Satisfied() : count(0) { Clear(&bookInfos); }

    void Take(BookInfo *bookInfo) {
        MoveToTail(&bookInfos, &bookInfo->link);
        ++count;
    }
};

uint32_t Match(const Instance *instance, const Cond &cond, const Event &event) {
    return cond.type->match(cond.data, cond.length, event.arg1, event.arg2, instance->userData);
}

bool HasMatch(const Cond &cond) {
    return cond.type != nullptr && cond.type->match != nullptr;
}

/** Returns whether a group matches. Its first condition is asked for all; only the answer 1 is a match. */
bool GroupMatches(const Instance *instance, const CondGroup &group, const Event &event) {
    if (IsEmpty(group.conds)) {
        return false;
    }
    const Cond &first = *Elements<&Cond::groupLink>(group.conds).First();
    return HasMatch(first) && Match(instance, first, event) == 1;
}

/** Moves the groups that match from the instance to a list of their own. */
void TakeMatchedGroups(Instance *instance, const Event &event, List *matched) {
    for (CondGroup &group : Elements<&CondGroup::link>(instance->groups)) {
        // Most events concern few: with this hint, an event that matches none of 100 groups takes a tenth less time.
        if (GroupMatches(instance, group, event)) [[unlikely]] {
            MoveToTail(matched, &group.link);
            if (!IsEmpty(group.typeLink)) {
                MoveToTail(&group.type->groups, &group.typeLink);
            }
        }
    }
}

/** Collects the subscriptions of the matched groups, each once. */
void TakeSubscriptions(const List &matched, Satisfied *satisfied) {
    for (CondGroup &group : Elements<&CondGroup::link>(matched)) {
        for (Cond &cond : Elements<&Cond::groupLink>(group.conds)) {
            if (cond.bookInfo != nullptr && cond.bookInfo->matchCount++ == 0) {
                satisfied->Take(cond.bookInfo);
            }
        }
    }
}

/**
 * Returns whether a subscription has conditions and all of them match: every answer but 0 is a match, and a condition
 * without match function matches, too.
 */
bool AllMatch(const Instance *instance, const BookInfo &bookInfo, const Event &event) {
    if (IsEmpty(bookInfo.conds)) {
        return false;
    }
    for (Cond &cond : Elements<&Cond::bookLink>(bookInfo.conds)) {
        if (HasMatch(cond) && Match(instance, cond, event) == 0) {
            return false;
        }
    }
    return true;
}

/** Calls the notify functions of a satisfied subscription's conditions, in order. */
void NotifyTypes(const Instance *instance, const BookInfo &bookInfo, const Event &event) {
    for (Cond &cond : Elements<&Cond::bookLink>(bookInfo.conds)) {
        if (cond.type != nullptr && cond.type->notify != nullptr) {
            cond.type->notify(cond.data, cond.length, event.arg1, event.arg2, instance->userData);
        }
    }
}

/** Puts the satisfied subscriptions back, behind all others. */
void PutBack(Instance *instance, Satisfied *satisfied) {
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(satisfied->bookInfos)) {
        bookInfo.matchCount = 0;
    }
    MoveAllToTail(&instance->bookInfos, &satisfied->bookInfos);
}

/** Sends a notification of `length` bytes and counts it; the bus refuses one that is too long. What becomes of one that
 * cannot be sent is the bus's affair. */
uint32_t SendNotification(Instance *instance, void *message, uint32_t length) {
    const bool isSent = TAV_AdjustSendMsg(instance->subscriberId, 0, DMS_MsgRecvIidGet(message), message, length) == 0;
    ++(isSent ? instance->notifiesSent : instance->notifyFailures);
    return isSent ? ARU_DETECT_OK : ARU_DETECT_SEND_FAILED;
}

/** Writes header, TLVs and keys of a notification; `length` is that of the whole message and wraps at 16 bits. */
void FillNotification(const Instance *instance, const List &bookInfos, uint32_t count, uint32_t length,
                      NotificationHead *head) {
    head->header.length = static_cast<uint16_t>(length);
    head->header.messageClass = kMessageClass;
    head->header.sequence = instance->sequence;
    head->header.operation = kNotify;
    head->lrVr = {{kLrVr, 8}, instance->lrId, instance->vrId};
    head->eventType = {{kEventType, 4}, instance->eventType};
    head->bookKeys = {kBookKey, static_cast<uint16_t>(count * sizeof(uint32_t))};
    auto *key = reinterpret_cast<uint8_t *>(head + 1);
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(bookInfos)) {
        if (count-- == 0) {
            return;
        }
        common::StoreWord(bookInfo.key, key);
        key += sizeof(bookInfo.key);
    }
}

/** Builds a notification, whose true length in bytes goes to `length`; null when memory is short. */
void *BuildNotification(Instance *instance, const List &bookInfos, uint32_t count, const Event &event,
                        uint32_t *length) {
    const uint32_t keysEnd = static_cast<uint32_t>(sizeof(NotificationHead) + count * sizeof(uint32_t));
    void *const message = kHeap.TakeMessage(instance->ownId, keysEnd + ARU_DETECT_MAX_PAYLOAD);
    if (message == nullptr) {
        ++instance->errors;
        return nullptr;
    }
    memset_s(message, keysEnd, 0, keysEnd);
    *length = keysEnd;
    if (instance->fill != nullptr) {
        *length += instance->fill(static_cast<uint8_t *>(message) + keysEnd, ARU_DETECT_MAX_PAYLOAD, event.arg1,
                                  event.arg2, instance->userData);
    }
    ++instance->sequence;
    DMS_MsgSendCidSet(message, instance->ownId);
    DMS_MsgRecvCidSet(message, instance->subscriberId);
    DMS_MEL_MSG_SET_INTF(message, kInterface);
    DMS_MEL_MSG_SET_SUB_INTF(message, kSubInterface);
    FillNotification(instance, bookInfos, count, *length, static_cast<NotificationHead *>(message));
    return message;
}

/** Notifies the subscriber of the satisfied subscriptions, if any, which return to the instance whatever happens. */
uint32_t Notify(Instance *instance, Satisfied *satisfied, const Event &event) {
    if (satisfied->count == 0) {
        return ARU_DETECT_OK;
    }
    uint32_t length = 0;
    void *const message = BuildNotification(instance, satisfied->bookInfos, satisfied->count, event, &length);
    PutBack(instance, satisfied);
    return message != nullptr ? SendNotification(instance, message, length) : ARU_DETECT_NO_MEMORY;
}

}  // namespace

void *ARU_Detect_BuildNotifyMsg(ARU_Detect_Instance *instance, const ARU_Detect_List *bookInfos, uint32_t count,
                                uintptr_t arg1, uintptr_t arg2) {
    uint32_t length = 0;
    return BuildNotification(instance, *bookInfos, count, {arg1, arg2}, &length);
}

uint32_t ARU_Detect_FilterEx(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2) {
    if (instance == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    const Event event = {arg1, arg2};
    List matched;
    Clear(&matched);
    Satisfied satisfied;
    ARU_Detect_ParseAgain(instance);
    TakeMatchedGroups(instance, event, &matched);
    TakeSubscriptions(matched, &satisfied);
    MoveAllToTail(&instance->groups, &matched);  // so they are tested last next time: match functions see the order
    const uint32_t result = Notify(instance, &satisfied, event);
    instance->debugSwitch = 0;
    return result;
}

uint32_t ARU_Detect_FilterEx4CliEvent(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2) {
    if (instance == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    const Event event = {arg1, arg2};
    Satisfied satisfied;
    ARU_Detect_ParseAgain(instance);
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(instance->bookInfos)) {
        if (AllMatch(instance, bookInfo, event)) {
            NotifyTypes(instance, bookInfo, event);
            satisfied.Take(&bookInfo);
        }
    }
    const uint32_t result = Notify(instance, &satisfied, event);
    instance->debugSwitch = 0;
    return result;
}

uint32_t ARU_Detect_Filter_Ex(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2) {
    if (instance == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    return instance->eventType == ARU_DETECT_EVENT_COMMAND_LINE ? ARU_Detect_FilterEx4CliEvent(instance, arg1, arg2)
                                                                : ARU_Detect_FilterEx(instance, arg1, arg2);
}
