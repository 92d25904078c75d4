/*
 * The build buffer of a request: header, TLVs, sending; and the search of a message for a TLV.
 */
#include "common/memory.h"
#include "ftpci/message.h"
#include "platform/bex_string.h"

namespace {

constexpr common::Heap kHeap("tav_ftpci");

// Requests are accounted to no memory module.
constexpr uintptr_t kMemModule = 0;

// What a request carries in its envelope.
constexpr uint8_t kInterface = 1;
constexpr uint8_t kSubInterface = 3;
constexpr uint32_t kMessageCode = 0x103;

/** Finds the first TLV of a type whose header lies inside the message; null when there is none. */
const uint8_t *FindTlv(const uint8_t *message, uint32_t length, uint16_t type) {
    for (uint32_t at = NFTPCI_MSG_HEADER_SIZE; at + NFTPCI_TLV_HEADER_SIZE <= length;) {
        const uint8_t *tlv = message + at;
        if (ftpci::TlvType(tlv) == type) {
            return tlv;
        }
        at += ftpci::TlvSize(tlv);
    }
    return nullptr;
}

/** Makes a bus message of a finished request; null when it cannot. */
uint8_t *MakeBusMessage(const NFTPCI_MsgMemBuf &buffer, uint8_t requestClass, uint32_t sender) {
    void *message = kHeap.TakeMessage(sender, buffer.used);
    if (message == nullptr) {
        return nullptr;
    }
    DMS_MEL_MSG_SET_INTF(message, kInterface);
    DMS_MEL_MSG_SET_SUB_INTF(message, kSubInterface);
    if (memcpy_s(message, buffer.used, buffer.message, buffer.used) != 0) {
        DMS_MsgFree(sender, message);
        return nullptr;
    }
    auto *bytes = static_cast<uint8_t *>(message);
    bytes[ftpci::kClassAt] = requestClass;
    common::StoreWord(uint32_t{0}, bytes + ftpci::kReservedAt);
    common::StoreWord(static_cast<uint16_t>(buffer.used), bytes + ftpci::kTotalLengthAt);
    return bytes;
}

}  // namespace

NFTPCI_MsgMemBuf *NFTPCI_CreateReqMsg(const NFTPCI_ReqParam *param, const NFTPCI_CommHandle *handle) {
    if (param == nullptr || handle == nullptr) {
        return nullptr;
    }
    auto *buffer = kHeap.New<NFTPCI_MsgMemBuf>(kMemModule);
    if (buffer == nullptr) {
        return nullptr;
    }
    common::StoreWord(param->id1, buffer->message + ftpci::kId1At);
    common::StoreWord(param->id2, buffer->message + ftpci::kId2At);
    common::StoreWord(param->id3, buffer->message + ftpci::kId3At);
    common::StoreWord(param->operation, buffer->message + ftpci::kOperationAt);
    buffer->used = NFTPCI_MSG_HEADER_SIZE;
    return buffer;
}

uint32_t NFTPCI_MsgMemBufFree(NFTPCI_MsgMemBuf *buffer) {
    kHeap.Return(buffer);
    return NFTPCI_OK;
}

uint32_t NFTPCI_AddTlvToMsg(NFTPCI_MsgMemBuf **buffer, uint16_t type, uint32_t length, const void *value) {
    if (value == nullptr || buffer == nullptr || *buffer == nullptr) {
        return NFTPCI_FAILED;
    }
    NFTPCI_MsgMemBuf &request = **buffer;
    // In 64 bits: a length near 2^32 must not wrap around to a small one.
    if (uint64_t{request.used} + length + NFTPCI_TLV_HEADER_SIZE > NFTPCI_MAX_MSG_SIZE) {
        return NFTPCI_FAILED;
    }
    if (FindTlv(request.message, request.used, type) != nullptr) {
        return NFTPCI_FAILED;
    }
    uint8_t *tlv = request.message + request.used;
    common::StoreWord(type, tlv);
    common::StoreWord(static_cast<uint16_t>(length), tlv + ftpci::kTlvLengthAt);
    if (memcpy_s(tlv + NFTPCI_TLV_HEADER_SIZE, length, value, length) != 0) {
        return NFTPCI_COPY_FAILED;
    }
    request.used += ftpci::TlvSize(tlv);
    return NFTPCI_OK;
}

uint32_t NFTPCI_GetDataByTlvType(const void *message, uint16_t type, const void **tlv) {
    if (message == nullptr || tlv == nullptr) {
        return NFTPCI_FAILED;
    }
    const auto *bytes = static_cast<const uint8_t *>(message);
    const uint8_t *found = FindTlv(bytes, common::LoadWord<uint16_t>(bytes + ftpci::kTotalLengthAt), type);
    if (found == nullptr) {
        return NFTPCI_FAILED;
    }
    *tlv = found;
    return NFTPCI_OK;
}

uint32_t NFTPCI_ReqMsgSend(NFTPCI_MsgMemBuf **buffer, uint8_t requestClass, const NFTPCI_CommHandle *handle) {
    if (buffer == nullptr || *buffer == nullptr || handle == nullptr) {
        return NFTPCI_FAILED;
    }
    const uint32_t length = (*buffer)->used;
    uint8_t *message = MakeBusMessage(**buffer, requestClass, handle->sender);
    if (message == nullptr) {
        return NFTPCI_FAILED;
    }
    // The bus owns the message from here on, also when it does not take it to the receiver.
    if (TAV_AdjustSendMsg(handle->receiver, 0, kMessageCode, message, length) != 0) {
        return NFTPCI_FAILED;
    }
    NFTPCI_MsgMemBufFree(*buffer);
    *buffer = nullptr;
    return NFTPCI_OK;
}
