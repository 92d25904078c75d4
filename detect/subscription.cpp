/*
 * Subscriptions, and the messages that make and cancel them.
 */
#include "detect/memory.h"
#include "detect/message.h"
#include "detect/model.h"

using namespace detect;

namespace {

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
    *word = Load<uint32_t>(value);
    return ARU_DETECT_OK;
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
 * Unlike a subscription's, a failed acknowledgement is counted but not told, on purpose; and so is an unknown key,
 * which is acknowledged as cancelled.
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

/** Tells whether the subscriber has sent a message; it may have restarted under a new component id meanwhile. */
bool IsFromSubscriber(uint32_t vsId, Instance *instance, const void *message) {
    const uint32_t sender = DMS_MsgSendCidGet(message);
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
        DETECT_GIVE_BACK(bookInfo->savedTlv);
        bookInfo->savedTlv = nullptr;
    }
}

/** Completes an acknowledgement that holds the header of its request. */
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
    for (BookInfo &bookInfo : DETECT_ELEMENTS(BookInfo, link, instance->bookInfos)) {
        if (bookInfo.key == key) {
            instance->debugSwitch = 0;
            return &bookInfo;
        }
    }
    return nullptr;
}

ARU_Detect_BookInfo *ARU_Detect_NewBookInfo(ARU_Detect_Instance *instance, uint32_t key) {
    auto *const bookInfo = DETECT_NEW(instance->memModule, BookInfo);
    if (bookInfo == nullptr) {
        ++instance->errors;
        return nullptr;
    }
    bookInfo->key = key;
    Clear(&bookInfo->conds);
    Clear(&bookInfo->unparsedLink);
    InsertAtTail(&instance->bookInfos, &bookInfo->link);
    return bookInfo;
}

void ARU_Detect_DestroyBookInfo(ARU_Detect_BookInfo *bookInfo) {
    ARU_Detect_DestroyAllConds(bookInfo);
    Unlink(&bookInfo->link);
    DropSavedTlv(bookInfo);
    DETECT_GIVE_BACK(bookInfo);
}

void ARU_Detect_DestroyAllBookInfos(ARU_Detect_Instance *instance) {
    for (BookInfo &bookInfo : DETECT_ELEMENTS(BookInfo, link, instance->bookInfos)) {
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
    *lrId = Load<uint32_t>(value);
    *vrId = Load<uint32_t>(value + sizeof(uint32_t));
    return ARU_DETECT_OK;
}

uint32_t ARU_Detect_MsgGetEventType(const void *message, uint32_t *eventType) {
    return GetWord(message, kEventType, eventType);
}

void ARU_Detect_BookTlvSave(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *tlv) {
    const uint32_t length = static_cast<uint32_t>(sizeof(TlvHeader)) + Load<TlvHeader>(tlv).length;
    void *const copy = DETECT_TAKE(instance->memModule, length);
    if (copy == nullptr) {
        return;
    }
    if (memcpy_s(copy, length, tlv, length) != 0) {
        DETECT_GIVE_BACK(copy);
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
    for (BookInfo &bookInfo : DETECT_ELEMENTS(BookInfo, link, instance->bookInfos)) {
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
    ARU_Detect_BookMsgParse(instance, bookInfo, message);  // what could not be parsed may be later: still accepted
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
    auto *const ack = static_cast<Acknowledgement *>(DETECT_TAKE_MESSAGE(ownId, sizeof(Acknowledgement)));
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
    if (!IsFromSubscriber(vsId, instance, message)) {
        instance->debugSwitch = 0;
        return ARU_DETECT_IGNORED;
    }
    const auto header = Load<Header>(message);
    if (header.messageClass != kMessageClass) {
        return ARU_DETECT_IGNORED;  // with the debug switch as it is, on purpose
    }
    const uint32_t result = ProcOperation(instance, header, message);
    instance->debugSwitch = 0;
    return result;
}

uint32_t ARU_Detect_ProcMsg(uint32_t vsId, ARU_Detect_Handle *handle, const void *message) {
    Instance *instance = nullptr;
    const uint32_t result = FindInstance(vsId, handle, &instance);
    return result != ARU_DETECT_OK ? result : ARU_Detect_ProcMsg_Ex(vsId, instance, message);
}
