/*
 * The hosted platform's message bus, for the processes that receive: binding a component, receiving, and telling the
 * other processes which component serves a virtual system.
 *
 * Messages are taken, read, sent and returned through platform/dms_message.h. Codes are errno values. All functions may
 * be called by several threads at a time, but a port must be at rest when it is unbound. A port belongs to one process:
 * a child that is forked without exec leaves it alone. docs/hosted-platform.md says what is promised, and who may send
 * what; docs/fleet.md what differs where TAV_BUS_URL is set and messages go over servers, to other machines, too.
 */
#ifndef TAV_POSIX_BUS_H
#define TAV_POSIX_BUS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The longest message in bytes: what the length word at a message's beginning can tell. */
#define TAV_POSIX_BUS_MAX_MESSAGE 65535u

/** The shortest message in bytes: the header that every message begins with. */
#define TAV_POSIX_BUS_MIN_MESSAGE 16u

/** Messages that may wait for a component beyond those that the kernel keeps. */
#define TAV_POSIX_BUS_MAX_WAITING 1024u

/** Stands for a user who is not known, and for all beyond the users that are counted one by one. */
#define TAV_POSIX_BUS_SEVERAL_USERS 0xFFFFFFFFu

/** A component that this process has bound. */
typedef struct TAV_Posix_BusPort TAV_Posix_BusPort;

/** What this process has done on the bus. The sums begin anew after 2^32. */
typedef struct TAV_Posix_BusCounts {
    uint32_t alive;        /**< messages that are taken or received, and neither sent nor returned yet */
    uint32_t sent;         /**< messages sent */
    uint32_t sendFailures; /**< messages that could not be sent */
    uint32_t received;     /**< messages received */
    uint32_t refused; /**< datagrams dropped: no whole message for the port, or a sender that is not what it claims */
} TAV_Posix_BusCounts;

/** Datagrams of one user that a port has dropped. */
typedef struct TAV_Posix_BusRefusal {
    uint32_t user;      /**< user id, as the kernel knows it; or TAV_POSIX_BUS_SEVERAL_USERS */
    uint32_t count;     /**< how many; begins anew after 2^32 */
    uint32_t process;   /**< process id of who sent the last one; 0 when it is not known */
    uint32_t component; /**< component that the last one named as its sender, rightly or not; 0 when it named none */
} TAV_Posix_BusRefusal;

/**
 * Receives what a port has dropped of one user.
 *
 * @param refusal  valid during the call
 * @param context  the word given to TAV_Posix_BusVisitRefusals
 */
typedef void (*TAV_Posix_BusRefusalVisitor)(const TAV_Posix_BusRefusal *refusal, void *context);

/**
 * Binds a component, so that messages to it are kept until they are received. Makes the folder of the bus when only
 * that is missing, and withdraws what a process that was killed has announced for the component.
 *
 * @param componentId  id of the component, not 0, which means an unknown one
 * @param port         where the port goes, the caller's until TAV_Posix_BusUnbind; left alone on failure
 * @return 0; EADDRINUSE when a live process, this one included, has bound the component, and when a file that is no
 *         socket, or not this user's to remove, stands where its socket should; EACCES when another user has had it,
 *         also for root, when the folder is closed to this user, and when it is not safe (docs/hosted-platform.md);
 *         ENAMETOOLONG when TAV_BUS_PATH is too long; EINVAL for a null argument, component 0, and when TAV_BUS_PATH
 *         is no absolute path; else the system's code. Over servers, where it takes 2 seconds at most, and 2 a server
 *         to connect: EADDRINUSE also when who has bound it does not answer; EACCES when a server does not allow it or
 *         refuses the process; ECONNREFUSED without a server; ENOTCONN, ECONNRESET or ETIMEDOUT when the connection is
 *         away; ENOTSUP in a process that was forked from one that has used the bus; EINVAL for settings that are
 *         none; ELIBACC or ELIBBAD without the module
 */
uint32_t TAV_Posix_BusBind(uint32_t componentId, TAV_Posix_BusPort **port);

/**
 * Unbinds a component. Withdraws what it serves and drops the messages that wait for it. Null is ignored.
 *
 * @param port  the port; no other thread uses it, and nobody may use it afterwards
 */
void TAV_Posix_BusUnbind(TAV_Posix_BusPort *port);

/**
 * Receives the next message. Behind its end there are at least 64 KiB of zero bytes that may be read.
 *
 * Every call takes all datagrams out of the kernel's queue, which is short and common to all senders, and keeps those
 * that are messages for later calls, up to TAV_POSIX_BUS_MAX_WAITING. When as many wait, the others stay in the kernel.
 *
 * @param port       the port
 * @param timeoutMs  time limit in milliseconds; 0 looks once, -1 waits without limit. Datagrams that are dropped do not
 *                   extend it
 * @param message    where the message goes, the caller's until DMS_MsgFree; left alone on failure
 * @param length     where its length in bytes goes; left alone on failure
 * @return 0; ETIMEDOUT when there was no message in time; EINTR when a signal came; ENOMEM when memory is short, and
 *         the message waits on; EINVAL for a null argument; else the system's code. Over servers, once no message
 *         waits: EADDRINUSE when the connection was away and another process has bound the component meanwhile,
 *         ENOTCONN when it has ended for good; the port is of no more use then
 */
uint32_t TAV_Posix_BusReceive(TAV_Posix_BusPort *port, int32_t timeoutMs, void **message, uint32_t *length);

/**
 * Returns a descriptor that is readable while datagrams or messages wait, or there is a failure to be received that
 * stays, for poll(2) and its like, and for nothing else. It belongs to the port, which must not be null.
 */
int TAV_Posix_BusFd(const TAV_Posix_BusPort *port);

/**
 * Announces that the port's component serves a virtual system, in place of an earlier announcement. From then on
 * CMF_GetPIDByVR answers it in every process on the same bus that trusts this process's user.
 *
 * @param port       the port; the announcement goes with it
 * @param component  number of the kind of component, not 0; 180 is the subscriber of events
 * @param vr         the virtual router
 * @param vsId       the virtual system
 * @return 0; EPERM or EACCES when another user has announced it and the folder does not let this user replace it;
 *         EINVAL for a null port and for kind 0; EIO without random numbers; else the system's code. Over servers:
 *         EACCES when the server does not allow it; ENOTCONN or ECONNRESET when the connection is away
 */
uint32_t TAV_Posix_BusServe(const TAV_Posix_BusPort *port, uint32_t component, uint32_t vr, uint32_t vsId);

/**
 * Tells who has sent what a port dropped, a user at a time in the order of their first datagrams. Beyond 31 users, all
 * others are counted as one.
 *
 * @param port     the port, not null
 * @param visitor  called once a user; may use the bus
 * @param context  handed to the visitor
 */
void TAV_Posix_BusVisitRefusals(TAV_Posix_BusPort *port, TAV_Posix_BusRefusalVisitor visitor, void *context);

/**
 * Reports what this process has done on the bus. Exact when no other thread uses the bus meanwhile.
 *
 * @param counts  where the counts go; not null
 */
void TAV_Posix_BusAccount(TAV_Posix_BusCounts *counts);

#ifdef __cplusplus
}
#endif

#endif
