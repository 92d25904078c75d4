/*
 * Event detection: subscriptions of a peer process, and their notification.
 *
 * A detecting process registers condition types, each a number and a few callbacks. A subscriber sends subscriptions
 * over the message bus: a key of its choice and any number of conditions. The detecting process hands every message it
 * receives to ARU_Detect_ProcMsg and reports every event with ARU_Detect_Filter, which sends the subscriber one
 * notification with the keys of all subscriptions that the event satisfies. docs/event-detection.md shows the
 * messages byte by byte.
 *
 * There is one detect instance for each virtual system (VS), with one subscriber. A handle holds the instances of all
 * of them. Most callers need the functions that take a handle alone: Init, RegisterCond, ProcMsg, Filter, DeleteVs and
 * UnInit; the rest are the steps that these are made of.
 *
 * Nothing is logged and no locks are taken: one thread at a time for all instances of a handle. Callbacks must not call
 * back into the instance that calls them, nor end it: the call goes on with the instance, its handle, the message and
 * the subscriptions that it stands on. Pointer arguments must not be null unless their description says what happens
 * then.
 */
#ifndef ARU_DETECT_H
#define ARU_DETECT_H

#include "tav_base.h"

/*
 * Result codes of event detection.
 */
#define ARU_DETECT_OK          0u /**< done; also when an event satisfies no subscription */
#define ARU_DETECT_IGNORED     1u /**< a message that is not for this instance; a TLV that is not there */
#define ARU_DETECT_BAD_ARG     2u /**< null or empty argument; parse without free or the reverse; header not copied */
#define ARU_DETECT_NO_MEMORY   3u /**< an allocation failed; a parse callback yielded nothing */
#define ARU_DETECT_SEND_FAILED 4u /**< an acknowledgement or a notification could not be sent */
#define ARU_DETECT_REFUSED     5u /**< there already, or not there; a required TLV is missing; a TLV not copied */
#define ARU_DETECT_UNKNOWN_VS  6u /**< the handle has no such VS */

/** The event type that selects the command-line rule, under which all conditions of a subscription must match. */
#define ARU_DETECT_EVENT_COMMAND_LINE 5u

/** Bytes that a notify-fill callback may write. */
#define ARU_DETECT_MAX_PAYLOAD 16384u

/** A circular, doubly linked list: its head, and the link in each element. Alone, a link points to itself. */
typedef struct ARU_Detect_List {
    struct ARU_Detect_List *next; /**< next element, or the head */
    struct ARU_Detect_List *prev; /**< previous element, or the head */
} ARU_Detect_List;

/** Everything that is known of one VS: condition types, subscriptions and counters. */
typedef struct ARU_Detect_Instance ARU_Detect_Instance;

/** A registered condition type; belongs to its instance. */
typedef struct ARU_Detect_CondType ARU_Detect_CondType;

/** One condition of a subscription. */
typedef struct ARU_Detect_Cond ARU_Detect_Cond;

/** All conditions of an instance that are the same; it lives as long as it holds one. */
typedef struct ARU_Detect_CondGroup ARU_Detect_CondGroup;

/** One subscription: its key and its conditions. */
typedef struct ARU_Detect_BookInfo ARU_Detect_BookInfo;

/** One VS of a handle. */
typedef struct ARU_Detect_VsNode {
    uint32_t vsId;                 /**< VS id */
    ARU_Detect_Instance *instance; /**< its instance; null when that could not be created */
    ARU_Detect_List link;          /**< link in the handle's list */
} ARU_Detect_VsNode;

/** The handle, which the detecting process keeps. */
typedef struct ARU_Detect_Handle {
    ARU_Detect_List *vsList; /**< head of the list of VS nodes; null when there is none */
} ARU_Detect_Handle;

/**
 * Builds the private form of a condition. While its type has no compare function, the form's bytes must stay as they
 * are: conditions that are the same are found by them.
 *
 * @param tlv       the whole condition TLV: type (16 bits), length of the value (16 bits), value; in host byte order,
 *                  at any alignment, to be read during the call alone
 * @param data      where the private form's address goes; null, which it is before the call, says that the condition
 *                  cannot be parsed now
 * @param length    where its length in bytes goes; 0 before the call. Left at 0 without compare function, it makes all
 *                  conditions of the type the same
 * @param userData  the instance's user data
 */
typedef void (*ARU_Detect_ParseFunc)(const void *tlv, void **data, uint32_t *length, uintptr_t userData);

/**
 * Checks whether an event satisfies a condition. It sees the private form, or the whole condition TLV, its 4-byte
 * header included, when the type has no parse function.
 *
 * @param data      the condition
 * @param length    its length in bytes
 * @param arg1      event argument 1
 * @param arg2      event argument 2
 * @param userData  the instance's user data
 * @return 1 when it matches and 0 when not; any other value matches under the command-line rule alone
 */
typedef uint32_t (*ARU_Detect_MatchFunc)(const void *data, uint32_t length, uintptr_t arg1, uintptr_t arg2,
                                         uintptr_t userData);

/** Releases the private form that a parse function built; `userData` is the instance's. */
typedef void (*ARU_Detect_FreeFunc)(void *data, uintptr_t userData);

/**
 * Checks whether two conditions of a type and of equal length are the same. Returns 0 when they differ, anything else
 * when they are the same: the opposite of memcmp, which therefore must not be registered.
 */
typedef uint32_t (*ARU_Detect_CompareFunc)(const void *dataA, const void *dataB, uint32_t length);

/** Called with each condition of a subscription that satisfies the command-line rule; arguments as for match. */
typedef void (*ARU_Detect_NotifyFunc)(const void *data, uint32_t length, uintptr_t arg1, uintptr_t arg2,
                                      uintptr_t userData);

/**
 * Writes the payload of a notification.
 *
 * @param dest      where it goes; not aligned
 * @param size      bytes that may be written, ARU_DETECT_MAX_PAYLOAD
 * @param arg1      event argument 1
 * @param arg2      event argument 2
 * @param userData  the instance's user data
 * @return bytes written, which must not be more than `size`: that is not checked
 */
typedef uint32_t (*ARU_Detect_FillFunc)(void *dest, uint32_t size, uintptr_t arg1, uintptr_t arg2, uintptr_t userData);

/*
 * The handle: what a detecting process calls.
 */

/**
 * Creates the instance of a VS and enters it at the front of the handle. A VS that is there already is shadowed by the
 * new instance until that is deleted.
 *
 * @param memModule  memory module to which all blocks are accounted
 * @param ownId      component id of the detecting process, the sender of notifications
 * @param vsId       VS id
 * @param handle     a handle of an earlier call; null makes a new one. One without list gets one
 * @param fill       writes the payload of notifications; null for none
 * @param userData   handed to every callback
 * @return the handle, the caller's until ARU_Detect_UnInit; null when memory is short. When the instance alone cannot
 *         be had, the handle is returned and its VS has no instance. When list or VS node cannot be had, the
 *         handle is freed, also one that the caller gave, and the VS nodes that it held are lost: do not use it again
 */
TAV_API ARU_Detect_Handle *ARU_Detect_Init(uintptr_t memModule, uint32_t ownId, uint32_t vsId,
                                           ARU_Detect_Handle *handle, ARU_Detect_FillFunc fill, uintptr_t userData);

/** Tears all instances down and frees the handle. A null handle is ignored; one without list is not freed. */
TAV_API void ARU_Detect_UnInit(ARU_Detect_Handle *handle);

/** Tears the VS's newest instance down and removes the VS; ignored when handle, list or VS are not there. */
TAV_API void ARU_Detect_DeleteVs(uint32_t vsId, ARU_Detect_Handle *handle);

/**
 * Registers a condition type with the instance of a VS; see ARU_Detect_RegisterCond_Ex.
 *
 * @return the result of ARU_Detect_RegisterCond_Ex; ARU_DETECT_BAD_ARG for a null or empty handle;
 *         ARU_DETECT_UNKNOWN_VS
 */
TAV_API uint32_t ARU_Detect_RegisterCond(uint32_t vsId, ARU_Detect_Handle *handle, uint32_t typeId,
                                         ARU_Detect_ParseFunc parse, ARU_Detect_MatchFunc match,
                                         ARU_Detect_FreeFunc free, ARU_Detect_CompareFunc compare,
                                         ARU_Detect_NotifyFunc notify);

/**
 * Handles a received message; see ARU_Detect_ProcMsg_Ex.
 *
 * @return the result of ARU_Detect_ProcMsg_Ex; ARU_DETECT_BAD_ARG for a null or empty handle; ARU_DETECT_UNKNOWN_VS
 */
TAV_API uint32_t ARU_Detect_ProcMsg(uint32_t vsId, ARU_Detect_Handle *handle, const void *message);

/**
 * Reports an event of a VS; see ARU_Detect_Filter_Ex.
 *
 * @return the result of ARU_Detect_Filter_Ex; ARU_DETECT_BAD_ARG for a null or empty handle; ARU_DETECT_UNKNOWN_VS
 */
TAV_API uint32_t ARU_Detect_Filter(uint32_t vsId, ARU_Detect_Handle *handle, uintptr_t arg1, uintptr_t arg2);

/*
 * Instances.
 */

/**
 * Creates an instance without a handle.
 *
 * @param memModule     memory module to which all blocks are accounted
 * @param ownId         component id of the detecting process
 * @param subscriberId  component id of the subscriber; 0 when not known yet
 * @param fill          writes the payload of notifications; null for none
 * @param userData      handed to every callback
 * @return the instance, the caller's until ARU_Detect_UnInit_Ex; null when memory is short
 */
TAV_API ARU_Detect_Instance *ARU_Detect_Init_Ex(uintptr_t memModule, uint32_t ownId, uint32_t subscriberId,
                                                ARU_Detect_FillFunc fill, uintptr_t userData);

/** Frees an instance with its subscriptions, then its condition types. A null instance is ignored. */
TAV_API void ARU_Detect_UnInit_Ex(ARU_Detect_Instance *instance);

/** Returns the component id of the subscriber that the platform names for a VS; 0 when it knows none. */
TAV_API uint32_t ARU_Detect_GetAruId(uint32_t vsId);

/** Sets the debug switch of an instance, which holds until the next operation, as most clear it. Null is ignored. */
TAV_API void ARU_Detect_EnableDebug(ARU_Detect_Instance *instance);

/** Clears the debug switch of an instance. Null is ignored. */
TAV_API void ARU_Detect_DisableDebug(ARU_Detect_Instance *instance);

/*
 * The list of VS nodes in a handle.
 */

/** Makes an empty list of VS nodes; null when memory is short. */
TAV_API ARU_Detect_List *ARU_Detect_VS_LIST_Alloc(uintptr_t memModule);

/** Tears the instance of every VS node down, and frees the nodes and the list. A null list is ignored. */
TAV_API void ARU_Detect_VS_LIST_Free(ARU_Detect_List *list);

/**
 * Makes a VS node at the front of a list.
 *
 * @return the node, the list's, whose VS id and instance the caller has to set (they are 0 and null); null when memory
 *         is short
 */
TAV_API ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeAdd(uintptr_t memModule, ARU_Detect_List *list);

/** Finds the newest VS node of a VS; null when there is none. */
TAV_API ARU_Detect_VsNode *ARU_Detect_VS_LIST_NodeSeek(ARU_Detect_List *list, uint32_t vsId);

/**
 * Removes and frees the newest VS node of a VS; ignored when there is none. Its instance lives on and is the caller's
 * from here on; ARU_Detect_DeleteVs tears both down.
 */
TAV_API void ARU_Detect_VS_LIST_NodeDel(ARU_Detect_List *list, uint32_t vsId);

/*
 * Condition types.
 */

/**
 * Registers a condition type, which becomes the last of the instance's. There is no way back but the instance's end.
 *
 * @param instance  the instance
 * @param typeId    type id, which is the type of the TLVs that become its conditions; 2, 17 and 18 are the message's
 *                  own TLVs, which then become conditions, too
 * @param parse     builds the private form of a condition; null: the TLV itself is kept
 * @param match     whether an event satisfies a condition; null: never under the ordinary rule, always under the
 *                  command-line rule
 * @param free      releases what parse built; required with parse, and only with it
 * @param compare   whether two conditions are the same; null: when their bytes are
 * @param notify    called with satisfied conditions under the command-line rule; null for none
 * @return ARU_DETECT_OK; ARU_DETECT_BAD_ARG for a null instance and for one of parse and free without the other;
 *         ARU_DETECT_REFUSED for an id that is registered already; ARU_DETECT_NO_MEMORY
 */
TAV_API uint32_t ARU_Detect_RegisterCond_Ex(ARU_Detect_Instance *instance, uint32_t typeId, ARU_Detect_ParseFunc parse,
                                            ARU_Detect_MatchFunc match, ARU_Detect_FreeFunc free,
                                            ARU_Detect_CompareFunc compare, ARU_Detect_NotifyFunc notify);

/** Finds a condition type, the instance's; null when it is not registered. */
TAV_API ARU_Detect_CondType *ARU_Detect_FindCondType(ARU_Detect_Instance *instance, uint32_t typeId);

/** Frees all condition types. Their conditions must be destroyed before, because freeing a condition takes its type. */
TAV_API void ARU_Detect_UnRegAllCondTypes(ARU_Detect_Instance *instance);

/*
 * Conditions and groups.
 */

/**
 * Makes a condition that is on no list yet.
 *
 * @param memModule    memory module to account it to
 * @param type         its type
 * @param extraLength  bytes of room behind it, for a copy of the TLV
 * @return the condition, zero-filled but for its type, the caller's until ARU_Detect_FreeCond; null when memory is
 *         short
 */
TAV_API ARU_Detect_Cond *ARU_Detect_NewCond(uintptr_t memModule, ARU_Detect_CondType *type, uint32_t extraLength);

/** Frees a condition and its private form. It must be on no list. Clears the debug switch of its type's instance. */
TAV_API void ARU_Detect_FreeCond(ARU_Detect_Cond *cond);

/**
 * Takes a condition off its subscription and its group, and frees a group that is empty then. Clears the debug switch
 * of its type's instance.
 *
 * @return the condition, the caller's from here on
 */
TAV_API ARU_Detect_Cond *ARU_Detect_RemoveCond(ARU_Detect_Cond *cond);

/** Takes a condition off its lists and frees it: ARU_Detect_RemoveCond, then ARU_Detect_FreeCond. */
TAV_API void ARU_Detect_DestroyCond(ARU_Detect_Cond *cond);

/** Destroys all conditions of a subscription. */
TAV_API void ARU_Detect_DestroyAllConds(ARU_Detect_BookInfo *bookInfo);

/**
 * Checks whether two conditions are the same: of one type, of one length, and equal. One without type is the same as
 * none.
 *
 * @param condA    a condition with type and data
 * @param condB    another one
 * @param compare  decides on their data; null: their bytes do
 * @return 0 when they differ, 1 when they are the same; what `compare` answers when it is asked
 */
TAV_API uint32_t ARU_Detect_CondTheSame(const ARU_Detect_Cond *condA, const ARU_Detect_Cond *condB,
                                        ARU_Detect_CompareFunc compare);

/** Makes an empty group that is on no list yet, the caller's; null when memory is short. */
TAV_API ARU_Detect_CondGroup *ARU_Detect_NewCondGroup(uintptr_t memModule);

/**
 * Finds the group of the conditions that are the same as the given one, or makes it, as the instance's last. Clears the
 * debug switch.
 *
 * @return the group, the instance's; null when memory is short
 */
TAV_API ARU_Detect_CondGroup *ARU_Detect_FindOrCreateCondGroup(ARU_Detect_Instance *instance,
                                                               const ARU_Detect_Cond *cond,
                                                               ARU_Detect_CompareFunc compare);

/**
 * Puts a condition at the end of a subscription, unless it is on one already, and of a group, likewise. They own it
 * from here on. All later conditions of the instance are compared with each group, because the caller knows alone what
 * is in them; so after a group that ARU_Detect_FindOrCreateCondGroup has made.
 */
TAV_API void ARU_Detect_AddCond(ARU_Detect_BookInfo *bookInfo, ARU_Detect_CondGroup *group, ARU_Detect_Cond *cond);

/*
 * Subscriptions.
 */

/** Finds a subscription by its key, and clears the debug switch when it is there; null when it is not. */
TAV_API ARU_Detect_BookInfo *ARU_Detect_FindBookInfo(ARU_Detect_Instance *instance, uint32_t key);

/** Makes a subscription without conditions, the instance's last. A key must not be there yet. Null without memory. */
TAV_API ARU_Detect_BookInfo *ARU_Detect_NewBookInfo(ARU_Detect_Instance *instance, uint32_t key);

/** Frees a subscription with its conditions and the TLV saved on it. */
TAV_API void ARU_Detect_DestroyBookInfo(ARU_Detect_BookInfo *bookInfo);

/** Frees all subscriptions of an instance. */
TAV_API void ARU_Detect_DestroyAllBookInfos(ARU_Detect_Instance *instance);

/**
 * Keeps a copy of a condition TLV that could not be parsed, for a later attempt. It replaces the copy kept before; when
 * memory is short, that one stays.
 */
TAV_API void ARU_Detect_BookTlvSave(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *tlv);

/**
 * Makes one condition of a TLV and, when that succeeds, drops the TLV saved on the subscription. Ignored when the TLV's
 * type is not registered. A failure leaves subscription and groups as they were.
 */
TAV_API void ARU_Detect_BookTlvParse(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo, const void *tlv);

/** Tries the saved TLV of every subscription again. */
TAV_API void ARU_Detect_ParseAgain(ARU_Detect_Instance *instance);

/**
 * Makes a condition of every TLV of a message whose type is registered, up to the first that fails. Conditions made
 * before a failure stay.
 *
 * @return ARU_DETECT_OK; ARU_DETECT_NO_MEMORY, also when a parse function yields nothing (the TLV is then saved);
 *         ARU_DETECT_REFUSED when a TLV cannot be copied
 */
TAV_API uint32_t ARU_Detect_BookMsgParse(ARU_Detect_Instance *instance, ARU_Detect_BookInfo *bookInfo,
                                         const void *message);

/**
 * Subscribes: the conditions of the message replace all that the key had before. Only a TLV that is saved for a later
 * attempt stays, unless another one replaces it.
 *
 * @return ARU_DETECT_OK, whatever becomes of the conditions; ARU_DETECT_NO_MEMORY when a new key cannot be entered
 */
TAV_API uint32_t ARU_Detect_ProcBookMsg(ARU_Detect_Instance *instance, uint32_t key, const void *message);

/** Unsubscribes. Returns ARU_DETECT_OK; ARU_DETECT_REFUSED when there is no such key. The message is not looked at. */
TAV_API uint32_t ARU_Detect_ProcUnBookMsg(ARU_Detect_Instance *instance, uint32_t key, const void *message);

/*
 * Messages.
 */

/**
 * Handles a message of the subscriber: a subscription, an unsubscription (both are acknowledged), or the
 * acknowledgement of a notification.
 *
 * The declared length of the message and of its TLVs is trusted. So 64 KiB of zeros must stand behind what has really
 * come in, as the hosted platform's bus has them.
 *
 * @param vsId      VS id, by which the subscriber is looked up again when the message comes from a new component
 * @param instance  the instance
 * @param message   the message; it stays the caller's
 * @return ARU_DETECT_OK (a refused unsubscription and the failed acknowledgement of an unsubscription included);
 *         ARU_DETECT_BAD_ARG for a null argument; ARU_DETECT_IGNORED for another sender, class or operation;
 *         ARU_DETECT_REFUSED when the key, the LR and VR ids or, in a subscription, the event type are missing; when a
 *         subscription cannot be acknowledged, the result of ARU_Detect_SendBookMsgAck
 */
TAV_API uint32_t ARU_Detect_ProcMsg_Ex(uint32_t vsId, ARU_Detect_Instance *instance, const void *message);

/** Reads the key of a message. Returns ARU_DETECT_OK; ARU_DETECT_IGNORED when it has none (the output is left alone).
 */
TAV_API uint32_t ARU_Detect_MsgGetBookKey(const void *message, uint32_t *key);

/** Reads LR and VR id of a message. Returns ARU_DETECT_OK; ARU_DETECT_IGNORED without them (outputs are left alone). */
TAV_API uint32_t ARU_Detect_MsgGetLrVr(const void *message, uint32_t *lrId, uint32_t *vrId);

/** Reads a message's event type. Returns ARU_DETECT_OK; ARU_DETECT_IGNORED without one (the output is left alone). */
TAV_API uint32_t ARU_Detect_MsgGetEventType(const void *message, uint32_t *eventType);

/**
 * Sends the acknowledgement of a subscription or unsubscription to the sender of the request.
 *
 * @param instance    the instance
 * @param key         key of the subscription
 * @param bookResult  0 for accepted, anything else for failed
 * @param request     the request; it stays the caller's
 * @return ARU_DETECT_OK; ARU_DETECT_BAD_ARG for a null request or when its header cannot be copied;
 *         ARU_DETECT_NO_MEMORY; ARU_DETECT_SEND_FAILED
 */
TAV_API uint32_t ARU_Detect_SendBookMsgAck(ARU_Detect_Instance *instance, uint32_t key, uint32_t bookResult,
                                           const void *request);

/*
 * Events.
 */

/**
 * Reports an event: finds the subscriptions that it satisfies, by the command-line rule when the last subscription had
 * the event type ARU_DETECT_EVENT_COMMAND_LINE, else by the ordinary rule, and notifies the subscriber of them with one
 * message.
 *
 * @param instance  the instance
 * @param arg1      event argument 1, handed to the callbacks
 * @param arg2      event argument 2, likewise
 * @return ARU_DETECT_OK, also when no subscription is satisfied; ARU_DETECT_BAD_ARG for a null instance;
 *         ARU_DETECT_NO_MEMORY when there is no memory for the notification; ARU_DETECT_SEND_FAILED
 */
TAV_API uint32_t ARU_Detect_Filter_Ex(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2);

/**
 * The ordinary rule: a subscription is satisfied when one of its conditions matches. Conditions that are the same cost
 * one call of match, and those that matched are tested last at the next event. Arguments and results as for
 * ARU_Detect_Filter_Ex.
 */
TAV_API uint32_t ARU_Detect_FilterEx(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2);

/**
 * The command-line rule: a subscription is satisfied when it has conditions and all of them match. Each subscription is
 * tested by itself, and those satisfied are tested last at the next event. Arguments and results as for
 * ARU_Detect_Filter_Ex.
 */
TAV_API uint32_t ARU_Detect_FilterEx4CliEvent(ARU_Detect_Instance *instance, uintptr_t arg1, uintptr_t arg2);

/**
 * Builds the notification of an event. The length field of a message has 16 bits: with the longest payload there is
 * room for some 12,000 keys; beyond that the field wraps, and the filter functions yield ARU_DETECT_SEND_FAILED,
 * because the bus refuses a message of that length.
 *
 * @param instance   the instance
 * @param bookInfos  head of the list of the satisfied subscriptions
 * @param count      how many there are
 * @param arg1       event argument 1, for the notify-fill callback
 * @param arg2       event argument 2
 * @return the message, the caller's to send or free; null when memory is short, and then no sequence number is used
 */
TAV_API void *ARU_Detect_BuildNotifyMsg(ARU_Detect_Instance *instance, const ARU_Detect_List *bookInfos, uint32_t count,
                                        uintptr_t arg1, uintptr_t arg2);

#endif
