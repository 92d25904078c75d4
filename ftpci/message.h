/*
 * Layout of a transfer message: a header, then TLVs back to back, at any alignment.
 */
#ifndef FTPCI_MESSAGE_H
#define FTPCI_MESSAGE_H

#include <cstdint>

#include "common/words.h"
#include "tav_ftpci.h"

namespace ftpci {

/** Offsets in the header, in bytes. */
inline constexpr uint32_t kTotalLengthAt = 0;  // 16 bits: bytes of the message, this header included
inline constexpr uint32_t kFlagsAt = 2;        // 8 bits
inline constexpr uint32_t kClassAt = 3;        // 8 bits: request class
inline constexpr uint32_t kReservedAt = 4;     // 32 bits: 0
inline constexpr uint32_t kId1At = 8;          // 32 bits each: the identifiers
inline constexpr uint32_t kId2At = 12;
inline constexpr uint32_t kId3At = 16;
inline constexpr uint32_t kOperationAt = 24;  // 16 bits: operation code; 4 zero bytes precede it, 6 follow

/** Flag: identifiers, operation code and TLVs are in the other byte order. */
inline constexpr uint8_t kOtherOrderFlag = 0x04;

/** Offset of the length in a TLV, in bytes; its type, 16 bits as well, stands at the beginning. */
inline constexpr uint32_t kTlvLengthAt = 2;

inline uint16_t TlvType(const uint8_t *tlv) {
    return common::LoadWord<uint16_t>(tlv);
}

/** Bytes of a TLV's value. */
inline uint16_t TlvLength(const uint8_t *tlv) {
    return common::LoadWord<uint16_t>(tlv + kTlvLengthAt);
}

/** Bytes from a TLV to the next one. */
inline uint32_t TlvSize(const uint8_t *tlv) {
    return NFTPCI_TLV_HEADER_SIZE + TlvLength(tlv);
}

}  // namespace ftpci

/** The build buffer: a message in the making. */
struct NFTPCI_MsgMemBuf {
    uint32_t reserved;                     // 0
    uint32_t used;                         // bytes of the message so far
    uint8_t message[NFTPCI_MAX_MSG_SIZE];  // the message as it will be sent
};
static_assert(sizeof(NFTPCI_MsgMemBuf) == 4248);

#endif
