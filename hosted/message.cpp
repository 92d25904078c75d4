/*
 * Messages of the bus: blocks of the accounting allocator, and access to their envelopes.
 */
#include "message.h"

#include <cstdio>
#include <cstdlib>

#include <atomic>

#include "interfaces.h"

namespace hosted {

namespace {

constexpr const char *kModule = "tav_posix_bus";  // as which the bus returns messages
constexpr uint32_t kLiveMark = 0x4D534721;

constinit std::atomic<uint32_t> liveMessages{0};

[[noreturn, gnu::cold]] void RefuseMessage(const void *content, const char *caller) {
    fprintf(stderr, "%s: %p is not a live message\n", caller, content);
    abort();
}

}  // namespace

MessageHeader *TakeMessage(uint32_t size, uint32_t tail, const char *source, uint32_t line) {
    const uint64_t whole = sizeof(MessageHeader) + uint64_t{size} + tail;
    if (whole > UINT32_MAX) {
        return nullptr;
    }
    void *const block = MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], static_cast<uint32_t>(whole), source, line);
    if (block == nullptr) {
        return nullptr;
    }
    liveMessages.fetch_add(1, std::memory_order_relaxed);
    auto *const message = static_cast<MessageHeader *>(block);
    *message = {kLiveMark, size, {kEnvelopeMagic, kEnvelopeVersion, 0, 0, 0, 0, 0}};
    return message;
}

void ReturnMessage(MessageHeader *message) {
    // Written through a volatile view: the compiler may drop a store into a block that is about to go.
    *static_cast<volatile uint32_t *>(&message->mark) = 0;
    liveMessages.fetch_sub(1, std::memory_order_relaxed);
    MEL_Free_F(message, kModule, __LINE__);
}

MessageHeader *HeaderOfMessage(const void *content, const char *caller) {
    const bool aligned = reinterpret_cast<uintptr_t>(content) % alignof(MessageHeader) == 0;
    if (content == nullptr || !aligned) {
        RefuseMessage(content, caller);
    }
    MessageHeader *const header = static_cast<MessageHeader *>(const_cast<void *>(content)) - 1;
    if (header->mark != kLiveMark) {
        RefuseMessage(content, caller);
    }
    return header;
}

uint32_t LiveMessages() {
    return liveMessages.load(std::memory_order_relaxed);
}

}  // namespace hosted

void *MEL_MsgAlloc_F(uint32_t sender, uint32_t size, const char *source, uint32_t line) {
    hosted::MessageHeader *const message = hosted::TakeMessage(size, 0, source, line);
    if (message == nullptr) {
        return nullptr;
    }
    message->envelope.sender = sender;
    return message->Content();
}

void DMS_MsgFree(uint32_t /*owner*/, void *message) {
    if (message != nullptr) {
        hosted::ReturnMessage(hosted::HeaderOfMessage(message, __func__));
    }
}

uint32_t DMS_MsgSendCidGet(const void *message) {
    return hosted::HeaderOfMessage(message, __func__)->envelope.sender;
}

void DMS_MsgSendCidSet(void *message, uint32_t componentId) {
    hosted::HeaderOfMessage(message, __func__)->envelope.sender = componentId;
}

uint32_t DMS_MsgRecvCidGet(const void *message) {
    return hosted::HeaderOfMessage(message, __func__)->envelope.receiver;
}

void DMS_MsgRecvCidSet(void *message, uint32_t componentId) {
    hosted::HeaderOfMessage(message, __func__)->envelope.receiver = componentId;
}

uint32_t DMS_MsgRecvIidGet(const void *message) {
    return hosted::HeaderOfMessage(message, __func__)->envelope.code;
}

uint8_t DMS_MEL_MSG_GET_INTF(const void *message) {
    return hosted::HeaderOfMessage(message, __func__)->envelope.interfaceNumber;
}

void DMS_MEL_MSG_SET_INTF(void *message, uint8_t interfaceNumber) {
    hosted::HeaderOfMessage(message, __func__)->envelope.interfaceNumber = interfaceNumber;
}

uint8_t DMS_MEL_MSG_GET_SUB_INTF(const void *message) {
    return hosted::HeaderOfMessage(message, __func__)->envelope.subInterfaceNumber;
}

void DMS_MEL_MSG_SET_SUB_INTF(void *message, uint8_t subInterfaceNumber) {
    hosted::HeaderOfMessage(message, __func__)->envelope.subInterfaceNumber = subInterfaceNumber;
}
