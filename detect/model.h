/*
 * What an instance is made of. It owns its condition types, subscriptions and groups; a subscription owns its
 * conditions; each condition hangs in its subscription's list and in the list of its group.
 */
#ifndef DETECT_MODEL_H
#define DETECT_MODEL_H

#include "detect/list.h"

struct ARU_Detect_Instance {
    uint32_t ownId;             // component id of the detecting process
    uint32_t subscriberId;      // component id of the peer that may subscribe
    uintptr_t memModule;        // memory module of all allocations
    ARU_Detect_List condTypes;  // condition types, in order of registration
    ARU_Detect_List bookInfos;  // subscriptions: new and lately satisfied ones last
    ARU_Detect_List groups;     // condition groups: new and lately matched ones last
    uintptr_t userData;         // last argument of every callback
    ARU_Detect_FillFunc fill;   // writes the payload of notifications; may be null
    uint32_t sequence;          // number of the last notification
    uint32_t lrId;              // LR id of the last subscription or unsubscription
    uint32_t vrId;              // VR id of the same
    uint32_t eventType;         // event type of the last subscription; selects the rule
    uint32_t debugSwitch;       // 1 from EnableDebug to the next operation that clears it. That most do is on purpose
    uint32_t errors;            // failed allocations and parse functions
    uint32_t ackFailures;       // acknowledgements that could not be sent
    uint32_t acksSent;          // acknowledgements sent
    uint32_t notifyFailures;    // notifications that could not be sent
    uint32_t notifiesSent;      // notifications sent
    uint32_t notifyAcks;        // notifications that the subscriber has acknowledged
    ARU_Detect_List unparsed;   // subscriptions with a saved TLV, so that an event need not look for them in vain
};

struct ARU_Detect_CondType {
    uint32_t typeId;                 // type of the TLVs that become such conditions
    ARU_Detect_List link;            // in the instance
    ARU_Detect_ParseFunc parse;      // builds the private form of a condition; this and the others may be null
    ARU_Detect_MatchFunc match;      // tells whether an event satisfies a condition
    ARU_Detect_FreeFunc free;        // releases a private form
    ARU_Detect_CompareFunc compare;  // tells whether two conditions are the same
    ARU_Detect_NotifyFunc notify;    // told the satisfied conditions under the command-line rule
    ARU_Detect_Instance *instance;   // the instance that it is registered with
};

struct ARU_Detect_Cond {
    ARU_Detect_CondType *type;      // its type
    ARU_Detect_List bookLink;       // in the subscription
    ARU_Detect_BookInfo *bookInfo;  // the subscription; null while in none
    ARU_Detect_List groupLink;      // in the group
    ARU_Detect_CondGroup *group;    // the group; null while in none
    uint32_t ownsData;              // 1: the data are the type's parse function's; 0: they are the copy behind this
    void *data;                     // what the callbacks get
    uint32_t length;                // bytes of data
    // Behind the condition of a type without parse function lies the copy of its TLV.
};

struct ARU_Detect_CondGroup {
    ARU_Detect_List link;   // in the instance
    ARU_Detect_List conds;  // conditions that are all the same; the first one stands for all
};

struct ARU_Detect_BookInfo {
    uint32_t key;                  // the subscriber's name for it
    ARU_Detect_List link;          // in the instance
    ARU_Detect_List conds;         // its conditions, in the order of the message
    uint32_t matchCount;           // matched groups that have reached it in this pass of the filter; 0 at rest
    void *savedTlv;                // copy of the last condition TLV that could not be parsed, owned; may be null
    ARU_Detect_List unparsedLink;  // in the instance's list of those with such a copy
};

namespace detect {

using Instance = ARU_Detect_Instance;
using CondType = ARU_Detect_CondType;
using Cond = ARU_Detect_Cond;
using CondGroup = ARU_Detect_CondGroup;
using BookInfo = ARU_Detect_BookInfo;
using Handle = ARU_Detect_Handle;
using VsNode = ARU_Detect_VsNode;

/** What became of a TLV that was to be made a condition. */
enum class Built {
    kDone,        // a condition hangs in subscription and group
    kNoType,      // its type is not registered
    kNoMemory,    // condition or group could not be had
    kUnparsed,    // the type's parse function yielded nothing
    kCopyFailed,  // it could not be copied
};

/** Makes a condition of a TLV and puts it on the subscription and its group. A failure leaves nothing behind. */
Built BuildCond(Instance *instance, BookInfo *bookInfo, const void *tlv);

/**
 * Finds the instance of a VS.
 *
 * @return ARU_DETECT_OK (the instance may still be null); ARU_DETECT_BAD_ARG for a null or empty handle;
 *         ARU_DETECT_UNKNOWN_VS
 */
uint32_t FindInstance(uint32_t vsId, const Handle *handle, Instance **instance);

}  // namespace detect

#endif
