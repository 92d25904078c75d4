/*
 * Subscriptions, the messages that make and cancel them, and the component that may send these.
 */
#include "detect/condition.h"
#include "detect/list.h"
#include "detect/message.h"
#include "platform/bex_string.h"
#include "platform/mel_environment.h"

using detect::Acknowledgement;
using detect::BookInfo;
using detect::BuildCond;
using detect::Built;
using detect::Clear;
using detect::Elements;
using detect::ForEachTlv;
using detect::Header;
using detect::IndexLink;
using detect::InsertAtTail;
using detect::Instance;
using detect::IsEmpty;
using detect::kBookKey;
using detect::kEventType;
using detect::kHeap;
using detect::kLrVr;
using detect::kMessageClass;
using detect::kNotify;
using detect::kResponse;
using detect::kSubscribe;
using detect::kUnsubscribe;
using detect::OwnerOf;
using detect::TlvHeader;
using detect::TlvType;
using detect::Unlink;

namespace {

constexpr uint32_t kSubscriberComponent = 180;  // the platform's number of the component that subscribes
constexpr uint32_t kVrSetting = 5;              // the platform's setting that names the virtual router

/** Finds the value of the first TLV of a type, which may reach beyond the message; null when there is none. */
const uint8_t *FindValue(const void *message, TlvType type) {
    const uint8_t *value = nullptr;
    ForEachTlv(message, [&](const TlvHeader &header, const uint8_t *tlv) {
        value = header.type == type ? tlv + sizeof(TlvHeader) : nullptr;
        return value != nullptr;
    });
    return value;
}

/** Reads the first word of the first TLV of a type. */
uint32_t GetWord(const void *message, TlvType type, uint32_t *word) {
    const uint8_t *const value = FindValue(message, type);
    if (value == nullptr) {
        return ARU_DETECT_IGNORED;
    }
    *word = common::LoadWord<uint32_t>(value);
    return ARU_DETECT_OK;
}

/** Finds the first subscription in the list with a key; null when there is none. */
BookInfo *WalkBookInfos(const Instance *instance, uint32_t key) {
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(instance->bookInfos)) {
        if (bookInfo.key == key) {
            return &bookInfo;
        }
    }
    return nullptr;
}

/** Finds the only subscription with a key; null when there is none. */
BookInfo *SeekBookInfo(Instance *instance, uint32_t key) {
    auto *const found = static_cast<IndexLink<uint32_t> *>(TAV_KEY_RBT_GetNode_UINT32(&instance->bookInfosByKey, key));
    return found != nullptr ? OwnerOf<&BookInfo::byKey>(found) : nullptr;
}

/** Finds a subscription or makes it. */
BookInfo *FindOrCreateBookInfo(Instance *instance, uint32_t key) {
    BookInfo *const bookInfo = ARU_Detect_FindBookInfo(instance, key);
    return bookInfo != nullptr ? bookInfo : ARU_Detect_NewBookInfo(instance, key);
}

/** Sends an acknowledgement and counts it. Returns the result of sending. */
uint32_t Acknowledge(Instance *instance, uint32_t key, uint32_t bookResult, const void *request) {
    const uint32_t result = ARU_Detect_SendBookMsgAck(instance, key, bookResult, request);
    ++(result == ARU_DETECT_OK ? instance->acksSent : instance->ackFailures);
    return result;
}

uint32_t ProcSubscribe(Instance *instance, const void *message) {
    uint32_t key = 0;
    if (ARU_Detect_MsgGetBookKey(message, &key) != ARU_DETECT_OK ||
        ARU_Detect_MsgGetLrVr(message, &instance->lrId, &instance->vrId) != ARU_DETECT_OK ||
        ARU_Detect_MsgGetEventType(message, &instance->eventType) != ARU_DETECT_OK) {
        return ARU_DETECT_REFUSED;
    }
    return Acknowledge(instance, key, ARU_Detect_ProcBookMsg(instance, key, message), message);
}

/**
 * An unknown key is acknowledged as cancelled. An acknowledgement that fails is counted, but the caller gets 0 all the
 * same, other than for a subscription: what was to go is gone.
 */
uint32_t ProcUnsubscribe(Instance *instance, const void *message) {
    uint32_t key = 0;
    if (ARU_Detect_MsgGetBookKey(message, &key) != ARU_DETECT_OK ||
        ARU_Detect_MsgGetLrVr(message, &instance->lrId, &instance->vrId) != ARU_DETECT_OK) {
        return ARU_DETECT_REFUSED;
    }
    ARU_Detect_ProcUnBookMsg(instance, key, message);
    Acknowledge(instance, key, 0, message);
    return ARU_DETECT_OK;
}

/** The only response that is expected is the acknowledgement of a notification. */
uint32_t ProcResponse(Instance *instance, const Header &header) {
    if (header.operation != kNotify) {
        return ARU_DETECT_IGNORED;
    }
    ++instance->notifyAcks;
    return ARU_DETECT_OK;
}

uint32_t ProcOperation(Instance *instance, const Header &header, const void *message) {
    if ((header.flags & kResponse) != 0) {
        return ProcResponse(instance, header);
    }
    switch (header.operation) {
        case kSubscribe:
            return ProcSubscribe(instance, message);
        case kUnsubscribe:
            return ProcUnsubscribe(instance, message);
        default:
            return ARU_DETECT_IGNORED;
    }
}

/**
 * Returns whether the sender of a message is the subscriber. One that is not the known subscriber may be its restarted
 * process, under a new component id: the platform is asked who the subscriber is by now.
 */
bool RefreshSubscriber(uint32_t vsId, Instance *instance, uint32_t sender) {
    if (sender == instance->subscriberId) {
        return true;
    }
    instance->subscriberId = ARU_Detect_GetAruId(vsId);
    return instance->subscriberId != 0 && sender == instance->subscriberId;
}

/** Frees the TLV saved on a subscription, if there is one. */
void DropSavedTlv(BookInfo *bookInfo) {
    if (bookInfo->savedTlv != nullptr) {
        Unlink(&bookInfo->unparsedLink);
        kHeap.Return(bookInfo->savedTlv);
        bookInfo->savedTlv = nullptr;
    }
}

/** Fills an acknowledgement in that holds the header of its request. */
void FillAcknowledgement(const Instance *instance, uint32_t key, uint32_t bookResult, const void *request,
                         Acknowledgement *ack) {
    ack->header.length = sizeof(*ack);
    ack->header.flags |= kResponse;
    ack->header.result = bookResult != 0 ? 1 : 0;
    ack->lrVr = {{kLrVr, 8}, instance->lrId, instance->vrId};
    ack->bookKey = {{kBookKey, 4}, key};
    DMS_MEL_MSG_SET_INTF(ack, DMS_MEL_MSG_GET_INTF(request));
    DMS_MEL_MSG_SET_SUB_INTF(ack, DMS_MEL_MSG_GET_SUB_INTF(request));
    DMS_MsgRecvCidSet(ack, DMS_MsgSendCidGet(request));
}

}  // namespace

ARU_Detect_BookInfo *ARU_Detect_FindBookInfo(ARU_Detect_Instance *instance, uint32_t key) {
    BookInfo *const bookInfo = instance->hasTwins != 0 ? WalkBookInfos(instance, key) : SeekBookInfo(instance, key);
    if (bookInfo != nullptr) {
        instance->debugSwitch = 0;
    }
    return bookInfo;
}

ARU_Detect_BookInfo *ARU_Detect_NewBookInfo(ARU_Detect_Instance *instance, uint32_t key) {
    auto *const bookInfo = kHeap.New<BookInfo>(instance->memModule);
    if (bookInfo == nullptr) {
        ++instance->errors;
        return nullptr;
    }
    bookInfo->key = key;
    Clear(&bookInfo->conds);
    Clear(&bookInfo->unparsedLink);
    InsertAtTail(&instance->bookInfos, &bookInfo->link);
    bookInfo->byKey.key = key;
    if (TAV_RBT_AddNode(&instance->bookInfosByKey, &bookInfo->byKey) == TAV_OK) {
        bookInfo->instance = instance;
    } else {
        instance->hasTwins = 1;
    }
    return bookInfo;
}

void ARU_Detect_DestroyBookInfo(ARU_Detect_BookInfo *bookInfo) {
    ARU_Detect_DestroyAllConds(bookInfo);
    Unlink(&bookInfo->link);
    if (bookInfo->instance != nullptr) {
        BEX_RBT_RemoveNode(&bookInfo->instance->bookInfosByKey, &bookInfo->byKey.node);
    }
    DropSavedTlv(bookInfo);
    kHeap.Return(bookInfo);
}

void ARU_Detect_DestroyAllBookInfos(ARU_Detect_Instance *instance) {
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(instance->bookInfos)) {
        ARU_Detect_DestroyBookInfo(&bookInfo);
    }
}

uint32_t ARU_Detect_MsgGetBookKey(const void *message, uint32_t *key) {
    return GetWord(message, kBookKey, key);
}

uint32_t ARU_Detect_MsgGetLrVr(const void *message, uint32_t *lrId, uint32_t *vrId) {
    const uint8_t *const value = FindValue(message, kLrVr);
    if (value == nullptr) {
        return ARU_DETECT_IGNORED;
    }
    *lrId = common::LoadWord<uint32_t>(value);
    *vrId = common::LoadWord<uint32_t>(value + sizeof(uint32_t));
    return ARU_DETECT_OK;
}

uint32_t ARU_Detect_MsgGetEventType(const void *message, uint32_t *eventType) {
    return GetWord(message, kEventType, eventType);
}

void ARU_Detect_BookTlvSave(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *tlv) {
    const uint32_t length = static_cast<uint32_t>(sizeof(TlvHeader)) + common::LoadWord<TlvHeader>(tlv).length;
    void *const copy = kHeap.Take(length, instance->memModule);
    if (copy == nullptr) {
        return;
    }
    if (memcpy_s(copy, length, tlv, length) != 0) {
        kHeap.Return(copy);
        return;
    }
    DropSavedTlv(bookInfo);
    bookInfo->savedTlv = copy;
    InsertAtTail(&instance->unparsed, &bookInfo->unparsedLink);
}

void ARU_Detect_BookTlvParse(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *tlv) {
    if (BuildCond(instance, bookInfo, tlv) == Built::kDone) {
        DropSavedTlv(bookInfo);
    }
}

void ARU_Detect_ParseAgain(ARU_Detect_Instance *instance) {
    if (IsEmpty(instance->unparsed)) {
        return;
    }
    for (BookInfo &bookInfo : Elements<&BookInfo::link>(instance->bookInfos)) {
        if (bookInfo.savedTlv != nullptr) {
            ARU_Detect_BookTlvParse(instance, &bookInfo, bookInfo.savedTlv);
        }
    }
}

uint32_t ARU_Detect_BookMsgParse(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *message) {
    uint32_t result = ARU_DETECT_OK;
    ForEachTlv(message, [&](const TlvHeader &, const uint8_t *tlv) {
        switch (BuildCond(instance, bookInfo, tlv)) {
            case Built::kUnparsed:
                ARU_Detect_BookTlvSave(instance, bookInfo, tlv);
                [[fallthrough]];
            case Built::kNoMemory:
                result = ARU_DETECT_NO_MEMORY;
                break;
            case Built::kCopyFailed:
                result = ARU_DETECT_REFUSED;
                break;
            case Built::kDone:
            case Built::kNoType:
                break;
        }
        return result != ARU_DETECT_OK;
    });
    return result;
}

uint32_t ARU_Detect_ProcBookMsg(ARU_Detect_Instance *instance, uint32_t key, const void *message) {
    BookInfo *const bookInfo = FindOrCreateBookInfo(instance, key);
    if (bookInfo == nullptr) {
        return ARU_DETECT_NO_MEMORY;
    }
    ARU_Detect_DestroyAllConds(bookInfo);
    ARU_Detect_BookMsgParse(instance, bookInfo, message);  // whatever it yields: what failed may be parsed later
    return ARU_DETECT_OK;
}

uint32_t ARU_Detect_ProcUnBookMsg(ARU_Detect_Instance *instance, uint32_t key, const void * /*message*/) {
    BookInfo *const bookInfo = ARU_Detect_FindBookInfo(instance, key);
    if (bookInfo == nullptr) {
        return ARU_DETECT_REFUSED;
    }
    ARU_Detect_DestroyBookInfo(bookInfo);
    return ARU_DETECT_OK;
}

uint32_t ARU_Detect_SendBookMsgAck(ARU_Detect_Instance *instance, uint32_t key, uint32_t bookResult,
                                   const void *request) {
    if (request == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    const uint32_t ownId = DMS_MsgRecvCidGet(request);
    auto *const ack = static_cast<Acknowledgement *>(kHeap.TakeMessage(ownId, sizeof(Acknowledgement)));
    if (ack == nullptr) {
        ++instance->errors;
        return ARU_DETECT_NO_MEMORY;
    }
    if (memcpy_s(&ack->header, sizeof(ack->header), request, sizeof(ack->header)) != 0) {
        DMS_MsgFree(ownId, ack);
        return ARU_DETECT_BAD_ARG;
    }
    FillAcknowledgement(instance, key, bookResult, request, ack);
    return TAV_AdjustSendMsg(DMS_MsgRecvCidGet(ack), 0, DMS_MsgRecvIidGet(ack), ack, sizeof(*ack)) == 0
               ? ARU_DETECT_OK
               : ARU_DETECT_SEND_FAILED;
}

uint32_t ARU_Detect_ProcMsg_Ex(uint32_t vsId, ARU_Detect_Instance *instance, const void *message) {
    if (instance == nullptr || message == nullptr) {
        return ARU_DETECT_BAD_ARG;
    }
    if (!RefreshSubscriber(vsId, instance, DMS_MsgSendCidGet(message))) {
        instance->debugSwitch = 0;
        return ARU_DETECT_IGNORED;
    }
    const auto header = common::LoadWord<Header>(message);
    if (header.messageClass != kMessageClass) {
        return ARU_DETECT_IGNORED;  // not a message of event detection at all: the debug switch stays
    }
    const uint32_t result = ProcOperation(instance, header, message);
    instance->debugSwitch = 0;
    return result;
}

uint32_t ARU_Detect_GetAruId(uint32_t vsId) {
    uint32_t vr = 0;
    uint32_t componentId = 0;
    MEL_GetEnvValue(kVrSetting, &vr);
    CMF_GetPIDByVR(kSubscriberComponent, 0, vr, vsId, &componentId);
    return componentId;
}
