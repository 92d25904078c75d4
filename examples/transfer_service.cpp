/*
 * The receiving end of file-transfer requests: prints each request that comes, TLV by TLV. It transfers nothing and
 * answers nothing; transfer_client sends it something to print.
 *
 * usage: transfer_service COMPONENT [COUNT]
 *
 * COMPONENT is this process's id on the message bus. It ends after COUNT requests, and by SIGINT or SIGTERM.
 */
#include <cinttypes>
#include <cstdio>
#include <limits>
#include <vector>

#include "bus_process.h"
#include "tav_ftpci.h"
#include "transfer_arguments.h"

namespace {

/* Offsets in the header of a message, in bytes. */
constexpr size_t kClassAt = 3;
constexpr size_t kIdsAt = 8; /* three, 32 bits each */
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

/** The name of a request by its class and operation code. */
const char *RequestName(uint8_t requestClass, uint16_t operation) {
    switch (operation) {
        case NFTPCI_OP_PUT:
            return requestClass == NFTPCI_CLASS_DISK_FILE ? "put disk file" : "put memory buffer";
        case NFTPCI_OP_MEM_BLOCK:
            return "memory block";
        case NFTPCI_OP_PROGRESS:
            return "progress";
        case NFTPCI_OP_QUERY:
            return "query";
        default:
            return "unknown request";
    }
}

void PrintTlv(uint16_t type, Bytes value) {
    const TlvText text = TextOf(type);
    std::printf("    %2u %-14s", type, text.text);
    if (text.shown == Shown::kNumber && value.size() == sizeof(uint32_t)) {
        std::printf("%" PRIu32 "\n", Load<uint32_t>(value.data()));
    } else if (text.shown == Shown::kName) {
        std::printf("%.*s\n", static_cast<int>(value.size()), reinterpret_cast<const char *>(value.data()));
    } else {
        std::printf("%zu bytes\n", value.size());
    }
}

/** Prints the TLVs of a message, up to one that is cut off by its end. */
void PrintTlvs(Bytes tlvs) {
    while (tlvs.size() >= NFTPCI_TLV_HEADER_SIZE) {
        const auto type = Load<uint16_t>(tlvs.data());
        const auto length = Load<uint16_t>(tlvs.data() + sizeof(type));
        tlvs = tlvs.subspan(NFTPCI_TLV_HEADER_SIZE);
        if (length > tlvs.size()) {
            break;
        }
        PrintTlv(type, tlvs.first(length));
        tlvs = tlvs.subspan(length);
    }
    if (!tlvs.empty()) {
        std::printf("    the last TLV is cut off\n");
    }
}

/** Prints a message, brought into local order first. Every length in it is checked: anyone may have sent it. */
void PrintMessage(uint32_t sender, std::vector<uint8_t> message) {
    if (message.size() < NFTPCI_MSG_HEADER_SIZE || Load<uint16_t>(message.data()) != message.size()) {
        std::printf("component %" PRIu32 ": a message of %zu bytes whose header is not that of a request\n", sender,
                    message.size());
        return;
    }
    TAVFTPCI_SwapMsgBodyByteOrder2Loc(message.data());
    const uint8_t *header = message.data();
    std::printf("component %" PRIu32 ": %s (%" PRIu32 ", %" PRIu32 ", %" PRIu32 ")\n", sender,
                RequestName(header[kClassAt], Load<uint16_t>(header + kOperationAt)), Load<uint32_t>(header + kIdsAt),
                Load<uint32_t>(header + kIdsAt + 4), Load<uint32_t>(header + kIdsAt + 8));
    PrintTlvs(Bytes(message).subspan(NFTPCI_MSG_HEADER_SIZE));
}

/** Serves a number of requests, or as long as nobody stops it. */
void Serve(uint32_t componentId, uint32_t count) {
    const int stopSignals = CatchStopSignals();
    BusPort port(componentId);
    std::printf("serving as component %" PRIu32 "\n", componentId);
    while (count > 0) {
        if (WaitForInput({stopSignals, port.Fd()})[0]) {
            return;
        }
        if (const std::optional<BusMessage> message = port.Receive()) {
            const Bytes content = message->Content();
            PrintMessage(message->Sender(), {content.begin(), content.end()});
            --count;
        }
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2 && argc != 3) {
        std::fprintf(stderr, "usage: transfer_service COMPONENT [COUNT]\n");
        return 2;
    }
    return RunAccounted("transfer_service", [&] {
        const uint32_t componentId = NumberArgument(argv[1], "component");
        Serve(componentId, argc == 3 ? NumberArgument(argv[2], "count") : std::numeric_limits<uint32_t>::max());
    });
}
