/*
 * The receiving end of file-transfer requests: prints each request that comes, TLV by TLV. It transfers nothing and
 * answers nothing; transfer_client sends it something to print.
 *
 * usage: transfer_service COMPONENT [COUNT]
 *
 * COMPONENT is this process's id on the message bus. It ends by SIGINT or SIGTERM, and after COUNT requests when that
 * is given; messages that are no requests are reported and do not count.
 */
#include <array>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "bus_process.h"
#include "numbers.h"
#include "platform/dms_message.h"
#include "tav_ftpci.h"

namespace {

// What a request carries in its envelope.
constexpr uint8_t kInterface = 1;
constexpr uint8_t kSubInterface = 3;
constexpr uint32_t kMessageCode = 0x103;

// Offsets in the header of a message, in bytes.
constexpr size_t kClassAt = 3;
constexpr size_t kIdsAt = 8;  // three, 32 bits each
constexpr size_t kOperationAt = 24;

/** How the value of a TLV is shown. */
enum class Shown { kNumber, kName, kSize };

struct TlvText {
    uint16_t type;
    const char *text;
    Shown shown;
};
constexpr TlvText kTlvTexts[] = {
    {NFTPCI_TLV_CFG_ID, "configuration", Shown::kNumber},
    {NFTPCI_TLV_SESSION_ID, "session", Shown::kNumber},
    {NFTPCI_TLV_BLOCK_ATTR, "attribute", Shown::kNumber},
    {NFTPCI_TLV_TRANSFER_MODE, "mode", Shown::kNumber},
    {NFTPCI_TLV_SOURCE_NAME, "source", Shown::kName},
    {NFTPCI_TLV_DEST_NAME, "destination", Shown::kName},
    {NFTPCI_TLV_DATA, "data", Shown::kSize},
};

/** The text of a TLV; one of an unknown type is shown by its size. */
TlvText TextOf(uint16_t type) {
    for (const TlvText &each : kTlvTexts) {
        if (each.type == type) {
            return each;
        }
    }
    return {type, "unknown", Shown::kSize};
}

struct RequestText {
    uint8_t requestClass;
    uint16_t operation;
    const char *text;
};
constexpr RequestText kRequestTexts[] = {
    {NFTPCI_CLASS_DISK_FILE, NFTPCI_OP_PUT, "put disk file"},
    {NFTPCI_CLASS_MEM_BUFFER, NFTPCI_OP_PUT, "put memory buffer"},
    {NFTPCI_CLASS_MEM_BUFFER, NFTPCI_OP_MEM_BLOCK, "memory block"},
    {NFTPCI_CLASS_QUERY, NFTPCI_OP_PROGRESS, "progress"},
    {NFTPCI_CLASS_QUERY, NFTPCI_OP_QUERY, "query"},
};

/** The name of a request; null when there is none of this class and operation code. */
const char *RequestName(uint8_t requestClass, uint16_t operation) {
    for (const RequestText &each : kRequestTexts) {
        if (each.requestClass == requestClass && each.operation == operation) {
            return each.text;
        }
    }
    return nullptr;
}

/** A name up to its terminator, with escapes for what a terminal could take as a command, and for the backslash. */
std::string NameText(Bytes name) {
    std::string text;
    for (const uint8_t byte : name) {
        if (byte == '\0') {
            break;
        }
        if (byte >= 0x20 && byte < 0x7F && byte != '\\') {
            text += static_cast<char>(byte);
        } else {
            char escape[sizeof("\\xff")];
            snprintf(escape, sizeof(escape), "\\x%02x", byte);
            text += escape;
        }
    }
    return text;
}

void PrintTlv(uint16_t type, Bytes value) {
    const TlvText text = TextOf(type);
    printf("    %2u %-14s", type, text.text);
    if (text.shown == Shown::kNumber && value.size() == sizeof(uint32_t)) {
        printf("%" PRIu32 "\n", Load<uint32_t>(value.data()));
    } else if (text.shown == Shown::kName) {
        printf("%s\n", NameText(value).c_str());
    } else {
        printf("%zu bytes\n", value.size());
    }
}

/** Prints the TLVs of a message, up to one that is cut off by its end, be it right behind the length. */
void PrintTlvs(Bytes tlvs) {
    while (!tlvs.empty()) {
        const bool whole = tlvs.size() >= NFTPCI_TLV_HEADER_SIZE;
        const size_t length = whole ? Load<uint16_t>(tlvs.data() + sizeof(uint16_t)) : 0;
        if (!whole || length > tlvs.size() - NFTPCI_TLV_HEADER_SIZE) {
            printf("    the last TLV is cut off\n");
            return;
        }
        PrintTlv(Load<uint16_t>(tlvs.data()), tlvs.subspan(NFTPCI_TLV_HEADER_SIZE, length));
        tlvs = tlvs.subspan(NFTPCI_TLV_HEADER_SIZE + length);
    }
}

/** Returns whether the envelope and the stated length of a message are those of a request. */
bool LooksLikeRequest(const BusMessage &message) {
    return DMS_MEL_MSG_GET_INTF(message.Get()) == kInterface &&
           DMS_MEL_MSG_GET_SUB_INTF(message.Get()) == kSubInterface &&
           DMS_MsgRecvIidGet(message.Get()) == kMessageCode && message.Content().size() >= NFTPCI_MSG_HEADER_SIZE &&
           Load<uint16_t>(message.Get()) == message.Content().size();
}

/**
 * Prints a request, brought into local order first. Everything in it is checked: anyone may have sent it.
 *
 * @return whether it is one
 */
bool PrintRequest(const BusMessage &message) {
    printf("component %" PRIu32 ": ", message.Sender());
    std::vector<uint8_t> request(message.Content().begin(), message.Content().end());
    const char *name = nullptr;
    if (LooksLikeRequest(message)) {
        TAVFTPCI_SwapMsgBodyByteOrder2Loc(request.data());
        name = RequestName(request[kClassAt], Load<uint16_t>(&request[kOperationAt]));
    }
    if (name == nullptr) {
        printf("a message of %zu bytes that is no request\n", request.size());
        return false;
    }
    const auto ids = Load<std::array<uint32_t, 3>>(&request[kIdsAt]);
    printf("%s (%" PRIu32 ", %" PRIu32 ", %" PRIu32 ")\n", name, ids[0], ids[1], ids[2]);
    PrintTlvs(Bytes(request).subspan(NFTPCI_MSG_HEADER_SIZE));
    return true;
}

/** Serves until it is stopped, or until so many requests have come. */
void Serve(uint32_t componentId, uint64_t count) {
    const int stopSignals = CatchStopSignals();
    BusPort port(componentId);
    printf("serving as component %" PRIu32 "\n", componentId);
    uint64_t served = 0;
    while (served < count) {
        if (WaitForInput({stopSignals, port.Fd()})[0]) {
            return;
        }
        if (const std::optional<BusMessage> message = port.Receive(); message && PrintRequest(*message)) {
            ++served;
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 3) {
        fprintf(stderr, "usage: transfer_service COMPONENT [COUNT]\n");
        return 2;
    }
    return RunAccounted("transfer_service", [&] {
        const uint64_t count = argc == 3 ? ParseNumber(argv[2], "count") : UINT64_MAX;
        Serve(ParseNumber(argv[1], "component"), count);
    });
}
