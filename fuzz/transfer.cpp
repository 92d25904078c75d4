/*
 * Transfer messages: received ones of both byte orders, and requests of any TLVs.
 */
#include "common/words.h"
#include "ftpci/message.h"
#include "platform/dms_message.h"
#include "support.h"

/** Turns a message into the one of a host of the other byte order, TLV by TLV. */
static void ToOtherOrder(Bytes *message) {
    (*message)[2] |= ftpci::kOtherOrderFlag;
    TAVFTPCI_MsgHeaderSwapByteOrder(message->data(), 0, static_cast<uint32_t>(message->size()));
    for (size_t at = 32, next = 0; at + 4 <= message->size(); at = next) {
        uint8_t *const tlv = &(*message)[at];
        next = at + ftpci::TlvSize(tlv);
        if (next <= message->size()) {
            TAVFTPCI_SwapByteOrderByTlv(tlv, g_astTavftpciMsgByteOrderMapTbl, TAVFTPCI_BYTE_ORDER_MAP_SIZE, 0);
        }
        std::swap(tlv[0], tlv[1]);
        std::swap(tlv[2], tlv[3]);
    }
}

/** Receives any bytes from a host of the other order; sent back and forth once more, they stay. */
static void Receive(const Bytes &bytes) {
    Bytes message = Join({Host16(static_cast<uint16_t>(bytes.size() + 3)), {ftpci::kOtherOrderFlag}, bytes});
    if (TAVFTPCI_SwapMsgBodyByteOrder2Loc(message.data()) == TAVFTPCI_OK) {
        const Bytes local = message;
        ToOtherOrder(&message);
        assert(TAVFTPCI_SwapMsgBodyByteOrder2Loc(message.data()) == TAVFTPCI_OK && message == local);
        const void *tlv = &local.back() - 3;  // the last place for one
        assert(NFTPCI_GetDataByTlvType(local.data(), bytes.back(), &tlv) > 0 || tlv <= &local.back() - 3);
    }
}

/** Builds a request of any TLVs and sends it. */
static void Send(FuzzedDataProvider *input) {
    const NFTPCI_CommHandle handle = {1, 2};
    const NFTPCI_ReqParam param = {};
    NFTPCI_MsgMemBuf *buffer = NFTPCI_CreateReqMsg(&param, &handle);
    while (input->remaining_bytes() > 0) {
        const uint32_t length = input->ConsumeIntegral<uint32_t>() >> input->ConsumeIntegralInRange(0, 31);
        NFTPCI_AddTlvToMsg(&buffer, input->ConsumeIntegral<uint8_t>() & 15, length, Bytes(NFTPCI_MAX_MSG_SIZE).data());
    }
    assert(NFTPCI_ReqMsgSend(&buffer, 1, &handle) == NFTPCI_OK && buffer == nullptr);
}

/** The bus: a request is well formed. */
uint32_t TAV_AdjustSendMsg(uint32_t, uint32_t, uint32_t, void *message, uint32_t length) {
    const auto *bytes = static_cast<const uint8_t *>(message);
    uint32_t at = 32;
    while (at + 4 <= length) {
        at += ftpci::TlvSize(bytes + at);
    }
    assert(at == length);
    assert(length <= NFTPCI_MAX_MSG_SIZE);
    assert(common::LoadWord<uint16_t>(bytes) == length);
    DMS_MsgFree(1, message);
    return 0;
}

void Fuzz(FuzzedDataProvider *input) {
    input->ConsumeBool() ? Receive(input->ConsumeRemainingBytes<uint8_t>()) : Send(input);
}
