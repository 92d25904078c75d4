/*
 * Byte order of received messages: a table names the conversion of each TLV's value, a walk applies it.
 */
#include <sys/types.h>

#include <algorithm>

#include "common/log.h"
#include "ftpci/message.h"

namespace {

// Values of fewer bytes hold no word, and are not even looked up.
constexpr uint32_t kShortestLookedUp = 2;

// Handed to the conversions, which ignore it.
constexpr uintptr_t kContext = 1;

/** Where words stand in a value: `count` words of `width` bytes from `offset` on. */
struct ValueForm {
    uint32_t minLength;  // bytes that the value must have
    uint32_t offset;
    uint32_t width;
    uint32_t count;
};

constexpr ValueForm kNumber = {4, 0, 4, 1};
constexpr ValueForm kSessionId = {4, 0, 2, 1};  // the last two bytes stay, as callers are told
constexpr ValueForm kIpv6Address = {16, 0, 4, 4};
constexpr ValueForm kFileResult = {260, 256, 4, 1};  // behind a file name

/** Reverses the bytes of `count` adjacent words of `width` bytes. */
void ReverseWords(uint8_t *first, uint32_t width, uint32_t count) {
    for (uint32_t i = 0; i < count; ++i, first += width) {
        std::reverse(first, first + width);
    }
}

/** Converts the value of a TLV; reports one that is too short as the given function. */
uint32_t ConvertValue(const char *function, void *tlv, const ValueForm &form) {
    auto *bytes = static_cast<uint8_t *>(tlv);
    const uint32_t length = ftpci::TlvLength(bytes);
    if (length < form.minLength) {
        LOG_AS(function, "TLV(T=%u, L=%u), less expect len %zd.", uint32_t{ftpci::TlvType(bytes)}, length,
               static_cast<ssize_t>(form.minLength));
        return TAVFTPCI_FAILED;
    }
    ReverseWords(bytes + NFTPCI_TLV_HEADER_SIZE + form.offset, form.width, form.count);
    return TAVFTPCI_OK;
}

/** Clears the flag by which a message is in the other byte order. */
void ClearOtherOrder(uint8_t *message) {
    message[ftpci::kFlagsAt] = static_cast<uint8_t>(message[ftpci::kFlagsAt] & ~ftpci::kOtherOrderFlag);
}

/** Converts the value of a TLV by the library's own table. */
uint32_t ConvertByOwnTable(void *tlv) {
    return TAVFTPCI_SwapByteOrderByTlv(tlv, g_astTavftpciMsgByteOrderMapTbl, TAVFTPCI_BYTE_ORDER_MAP_SIZE, kContext);
}

}  // namespace

const TAVFTPCI_ByteOrderMap g_astTavftpciMsgByteOrderMapTbl[TAVFTPCI_BYTE_ORDER_MAP_SIZE] = {
    {0, TAVFTPCI_SwapCFGID},
    {1, TAVFTPCI_SwapSessionId},
    {2, nullptr},
    {3, nullptr},
    {4, TAVFTPCI_SwapSrcIPV4},
    {5, TAVFTPCI_SwapSrcIPV6},
    {6, TAVFTPCI_SwapDestIPV4},
    {7, TAVFTPCI_SwapDestIPV6},
    {8, TAVFTPCI_SwapSrcIfIdex},
    {9, TAVFTPCI_SwapVpnInstID},
    {10, TAVFTPCI_SwapDestPortNum},
    {11, nullptr},
    {12, nullptr},
    {13, nullptr},
    {14, nullptr},
    {15, nullptr},
    {16, nullptr},
    {17, nullptr},
    {18, nullptr},
    {19, TAVFTPCI_SwapFileRet},
    {20, nullptr},
    {21, nullptr},
    {24, TAVFTPCI_SwapSrcPortNum},
};

uint32_t TAVFTPCI_SwapCFGID(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapSessionId(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kSessionId);
}

uint32_t TAVFTPCI_SwapSrcIPV4(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapSrcIPV6(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kIpv6Address);
}

uint32_t TAVFTPCI_SwapDestIPV4(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapDestIPV6(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kIpv6Address);
}

uint32_t TAVFTPCI_SwapSrcIfIdex(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapVpnInstID(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapDestPortNum(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapFileRet(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kFileResult);
}

uint32_t TAVFTPCI_SwapSrcPortNum(void *tlv, uintptr_t) {
    return ConvertValue(__func__, tlv, kNumber);
}

uint32_t TAVFTPCI_SwapByteOrderByTlv(void *tlv, const TAVFTPCI_ByteOrderMap *table, uint32_t count, uintptr_t context) {
    const auto *bytes = static_cast<const uint8_t *>(tlv);
    const uint32_t type = ftpci::TlvType(bytes);
    const TAVFTPCI_ByteOrderMap *end = table + count;
    const TAVFTPCI_ByteOrderMap *entry =
        std::find_if(table, end, [type](const TAVFTPCI_ByteOrderMap &candidate) { return candidate.type == type; });
    FAIL_UNLESS(TAVFTPCI_FAILED, entry != end, "Unknow TLV (T=%u, L=%u)", type, uint32_t{ftpci::TlvLength(bytes)});
    return entry->swap != nullptr ? entry->swap(tlv, context) : TAVFTPCI_OK;
}

int32_t TAVFTPCI_MsgHeaderSwapByteOrder(void *message, uint32_t logValue, uint32_t length) {
    FAIL_UNLESS(-1, length >= NFTPCI_MSG_HEADER_SIZE, "msg len too small (%u < Common Header(%zd))", logValue,
                static_cast<ssize_t>(NFTPCI_MSG_HEADER_SIZE));
    auto *bytes = static_cast<uint8_t *>(message);
    ReverseWords(bytes + ftpci::kId1At, sizeof(uint32_t), 4);  // the identifiers and the reserved word behind them
    ReverseWords(bytes + ftpci::kOperationAt, sizeof(uint16_t), 1);
    return NFTPCI_MSG_HEADER_SIZE;
}

uint32_t TAVFTPCI_SwapMsgBodyByteOrder2Loc(void *message) {
    auto *bytes = static_cast<uint8_t *>(message);
    if ((bytes[ftpci::kFlagsAt] & ftpci::kOtherOrderFlag) == 0) {
        return TAVFTPCI_OK;
    }
    const uint32_t total = common::LoadWord<uint16_t>(bytes + ftpci::kTotalLengthAt);  // always in local order
    // A report about the header names the request class, by which the log's readers know the message.
    const int32_t headerSize = TAVFTPCI_MsgHeaderSwapByteOrder(message, bytes[ftpci::kClassAt], total);
    FAIL_UNLESS(TAVFTPCI_FAILED, headerSize >= 0, "change msg header fail");
    uint32_t at = NFTPCI_MSG_HEADER_SIZE;
    while (at + NFTPCI_TLV_HEADER_SIZE <= total) {
        uint8_t *tlv = bytes + at;
        ReverseWords(tlv, sizeof(uint16_t), 2);  // type and length, also of a TLV that is cut off
        const uint32_t type = ftpci::TlvType(tlv);
        const uint32_t length = ftpci::TlvLength(tlv);
        at += ftpci::TlvSize(tlv);
        if (at > total) {
            break;
        }
        if (length >= kShortestLookedUp && ConvertByOwnTable(tlv) != TAVFTPCI_OK) {
            LOG("change (T=%u, L=%u) fail.", length, type);  // in this order: the log's readers know it so
        }
    }
    ClearOtherOrder(bytes);
    return TAVFTPCI_OK;
}

uint32_t TAVFTPCI_SwapMsgBodyByteOrder2Net(void *message) {
    ClearOtherOrder(static_cast<uint8_t *>(message));
    return TAVFTPCI_OK;
}
