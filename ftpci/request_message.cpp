/*
 * The build buffer of a request: header, TLVs, sending; and the search of a message for a TLV.
 */
#include "ftpci/message.h"
#include "platform/bex_string.h"
#include "platform/dms_message.h"
#include "platform/mel_memory.h"

namespace {

constexpr char kModule[] = "tav_ftpci";

/* What a request carries in its envelope. */
constexpr uint8_t kInterface = 1;
constexpr uint8_t kSubInterface = 3;
constexpr uint32_t kMessageCode = 0x103;

/** Finds the first TLV of a type whose header lies inside the message, or none. */
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

/** Makes a bus message of a finished request, or none. */
uint8_t *MakeBusMessage(const NFTPCI_MsgMemBuf &buffer, uint8_t requestClass, uint32_t sender) {
    void *message = MEL_MsgAlloc_F(sender, buffer.used, kModule, __LINE__);
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
    ftpci::Store(uint32_t{0}, bytes + ftpci::kReservedAt);
    ftpci::Store(static_cast<uint16_t>(buffer.used), bytes + ftpci::kTotalLengthAt);
    return bytes;
}

}  // namespace

NFTPCI_MsgMemBuf *NFTPCI_CreateReqMsg(const NFTPCI_ReqParam *param, const NFTPCI_CommHandle *handle) {
    if (param == nullptr || handle == nullptr) {
        return nullptr;
    }
    /* Memory handle 0: a request stands on no module of the library, on purpose. */
    void *block = MEL_Malloc_F(0, g_aucMelMemPt[0], sizeof(NFTPCI_MsgMemBuf), kModule, __LINE__);
    if (block == nullptr) {
        return nullptr;
    }
    memset_s(block, sizeof(NFTPCI_MsgMemBuf), 0, sizeof(NFTPCI_MsgMemBuf));
    auto *buffer = static_cast<NFTPCI_MsgMemBuf *>(block);
    ftpci::Store(param->id1, buffer->message + ftpci::kId1At);
    ftpci::Store(param->id2, buffer->message + ftpci::kId2At);
    ftpci::Store(param->id3, buffer->message + ftpci::kId3At);
    ftpci::Store(param->operation, buffer->message + ftpci::kOperationAt);
    buffer->used = NFTPCI_MSG_HEADER_SIZE;
    return buffer;
}

uint32_t NFTPCI_MsgMemBufFree(NFTPCI_MsgMemBuf *buffer) {
    if (buffer != nullptr) {
        MEL_Free_F(buffer, kModule, __LINE__);
    }
    return NFTPCI_OK;
}

uint32_t NFTPCI_AddTlvToMsg(NFTPCI_MsgMemBuf **buffer, uint16_t type, uint32_t length, const void *value) {
    if (value == nullptr || buffer == nullptr || *buffer == nullptr) {
        return NFTPCI_FAILED;
    }
    NFTPCI_MsgMemBuf &request = **buffer;
    /* In 64 bits: a length near 2^32 must not wrap around to a small one. */
    if (uint64_t{request.used} + length + NFTPCI_TLV_HEADER_SIZE > NFTPCI_MAX_MSG_SIZE) {
        return NFTPCI_FAILED;
    }
    if (FindTlv(request.message, request.used, type) != nullptr) {
        return NFTPCI_FAILED;
    }
    uint8_t *tlv = request.message + request.used;
    ftpci::Store(type, tlv);
    ftpci::Store(static_cast<uint16_t>(length), tlv + ftpci::kTlvLengthAt);
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
    const uint8_t *found = FindTlv(bytes, ftpci::Load<uint16_t>(bytes + ftpci::kTotalLengthAt), type);
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
    /* The bus owns the message from here on, also when it does not take it to the receiver. */
    if (TAV_AdjustSendMsg(handle->receiver, 0, kMessageCode, message, length) != 0) {
        return NFTPCI_FAILED;
    }
    NFTPCI_MsgMemBufFree(*buffer);
    *buffer = nullptr;
    return NFTPCI_OK;
}
