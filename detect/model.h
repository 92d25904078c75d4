/*
 * What an instance is made of. It owns its condition types, subscriptions and groups; a subscription owns its
 * conditions; each condition hangs in its subscription's list and in the list of its group. All of them are blocks of
 * kHeap, of the instance's memory module.
 */
#ifndef DETECT_MODEL_H
#define DETECT_MODEL_H

#include "aru_detect.h"
#include "common/memory.h"
#include "detect/index.h"

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
    uint32_t debugSwitch;       // 1 from ARU_Detect_EnableDebug to the next operation that clears it, as most do
    uint32_t errors;            // failed allocations and parse functions
    uint32_t ackFailures;       // acknowledgements that could not be sent
    uint32_t acksSent;          // acknowledgements sent
    uint32_t notifyFailures;    // notifications that could not be sent
    uint32_t notifiesSent;      // notifications sent
    uint32_t notifyAcks;        // notifications that the subscriber has acknowledged
    ARU_Detect_List unparsed;   // subscriptions with a saved TLV: while there are none, events look at no subscription
    // Private, like the list before: where elements of the lists are found.
    detect::Index condTypesById;   // condition types
    detect::Index bookInfosByKey;  // subscriptions, while hasTwins is 0
    detect::Index groupsByCond;    // groups of the types without compare function, while hasStrays is 0
    uint32_t hasTwins;             // 1 since a key was made twice: keys are looked for in the list
    uint32_t hasStrays;            // 1 since a caller filled a group itself: groups are looked for in the list
};

struct ARU_Detect_CondType {
    uint32_t typeId;                 // type of the TLVs that become such conditions
    ARU_Detect_List link;            // in the instance
    ARU_Detect_ParseFunc parse;      // builds the private form of a condition; this and the others may be null
    ARU_Detect_MatchFunc match;      // whether an event satisfies a condition
    ARU_Detect_FreeFunc free;        // releases a private form
    ARU_Detect_CompareFunc compare;  // whether two conditions are the same
    ARU_Detect_NotifyFunc notify;    // called with satisfied conditions under the command-line rule
    ARU_Detect_Instance *instance;   // the instance that it is registered with
    // Private from here on; not there in types of the caller's own, which exported functions may see.
    detect::IndexLink<uint32_t> byId;  // in the instance
    ARU_Detect_List groups;            // its groups if it has a compare function, in the order of the instance's
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
    // Private from here on.
    ARU_Detect_CondType *type;                  // the type under which it can be found; null: in the list alone
    ARU_Detect_List typeLink;                   // in a type with compare function
    detect::IndexLink<detect::CondKey> byCond;  // in the instance, when the type has none
};

struct ARU_Detect_BookInfo {
    uint32_t key;           // the subscriber's name for it
    ARU_Detect_List link;   // in the instance
    ARU_Detect_List conds;  // its conditions, in the order of the message
    uint32_t matchCount;    // matched groups that have reached it in this pass of the filter; 0 at rest
    void *savedTlv;         // copy of the last condition TLV that could not be parsed, owned; may be null
    // Private from here on.
    ARU_Detect_List unparsedLink;       // in the instance's list of those with such a copy
    ARU_Detect_Instance *instance;      // in whose index it is; null: in none
    detect::IndexLink<uint32_t> byKey;  // in the instance's index
};

namespace detect {

using Instance = ARU_Detect_Instance;
using CondType = ARU_Detect_CondType;
using Cond = ARU_Detect_Cond;
using CondGroup = ARU_Detect_CondGroup;
using BookInfo = ARU_Detect_BookInfo;

inline constexpr common::Heap kHeap("aru_detect");

}  // namespace detect

#endif
