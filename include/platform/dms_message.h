/*
 * Platform message bus: datagrams between components.
 *
 * A component is an endpoint of the bus, known by its id; 0 stands for one that is not known, and is nobody's. A
 * message is one block that holds what travels, in the layout of whoever uses it, and in front of it, out of sight, an
 * envelope: sender and receiver components, the receiver's instance id, and the interface and sub-interface numbers.
 * The functions below read and write the envelope; they expect a message of MEL_MsgAlloc_F or one that the bus has
 * delivered.
 */
#ifndef PLATFORM_DMS_MESSAGE_H
#define PLATFORM_DMS_MESSAGE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Takes a message. Its content is undefined; its envelope names the sender and is zero otherwise.
 *
 * @param sender  component id of the sender
 * @param size    bytes that will travel at most
 * @param source  name of the source module, a string that stays as it is while the process runs
 * @param line    source line of the call
 * @return the message, aligned to 8 bytes, to be sent with TAV_AdjustSendMsg or returned with DMS_MsgFree; null when
 *         memory is short
 */
void *MEL_MsgAlloc_F(uint32_t sender, uint32_t size, const char *source, uint32_t line);

/**
 * Returns a message that is not sent, or one that was received. A null message is ignored.
 *
 * @param owner    component id under which it was taken, or which received it
 * @param message  the message
 */
void DMS_MsgFree(uint32_t owner, void *message);

/**
 * Sends a message, and waits for a moment at most when the receiver takes no more just then. The message belongs to the
 * bus from here on, also when sending fails.
 *
 * @param receiver  component id of the receiver
 * @param reserved  0
 * @param code      a word of the envelope that the receiver reads with DMS_MsgRecvIidGet: its instance id, or a
 *                  message code
 * @param message   a message of MEL_MsgAlloc_F
 * @param length    bytes that travel, from the message's beginning
 * @return 0; else a code: no such receiver, one that takes no more messages now, a length beyond the message's size or
 *         one that the bus does not carry
 */
uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t reserved, uint32_t code, void *message, uint32_t length);

/** Returns the component id of the sender. */
uint32_t DMS_MsgSendCidGet(const void *message);

/** Sets the component id of the sender. */
void DMS_MsgSendCidSet(void *message, uint32_t componentId);

/** Returns the component id of the receiver. */
uint32_t DMS_MsgRecvCidGet(const void *message);

/** Sets the component id of the receiver. */
void DMS_MsgRecvCidSet(void *message, uint32_t componentId);

/** Returns the receiver's instance id; 0 until the message is sent. */
uint32_t DMS_MsgRecvIidGet(const void *message);

/** Returns the interface number. */
uint8_t DMS_MEL_MSG_GET_INTF(const void *message);

/** Sets the interface number. */
void DMS_MEL_MSG_SET_INTF(void *message, uint8_t interfaceNumber);

/** Returns the sub-interface number. */
uint8_t DMS_MEL_MSG_GET_SUB_INTF(const void *message);

/** Sets the sub-interface number. */
void DMS_MEL_MSG_SET_SUB_INTF(void *message, uint8_t subInterfaceNumber);

#ifdef __cplusplus
}
#endif

#endif
