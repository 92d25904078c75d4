/*
 * A file-transfer client: sends one request of each kind to a transfer service (such as transfer_service).
 *
 * usage: transfer_client COMPONENT SERVICE SOURCE DESTINATION
 *
 * COMPONENT is this process's id on the message bus and SERVICE that of the service. The paths travel as they are; it
 * is for the service to find files by them.
 */
#include <cstdio>
#include <string_view>

#include "bus_process.h"
#include "numbers.h"
#include "tav_ftpci.h"

namespace {

// What the requests say. The service tells the meaning of these numbers; a real client keeps its own.
constexpr uint32_t kTask = 1;  // identifiers: a task, a step of it, and its transfer once that has one
constexpr uint32_t kStep = 2;
constexpr uint32_t kTransfer = 3;
constexpr uint32_t kConfiguration = 9;
constexpr uint32_t kMode = 1;
constexpr uint16_t kSession = 700;
constexpr uint8_t kLastBlock = 1;
constexpr std::string_view kContent = "interface 1\n mtu 1500\n";

/** Shows a request with its result. Throws std::runtime_error when it was not sent. */
void Show(const char *request, uint32_t result) {
    printf("%-30s -> 0x%x\n", request, result);
    if (result != NFTPCI_OK) {
        throw std::runtime_error(std::string(request) + " was not sent: is the service there?");
    }
}

void SendAll(const NFTPCI_CommHandle &handle, const char *source, const char *destination) {
    // A file that lies on this machine.
    Show("NFTPCI_AsyncPutDiskFile",
         NFTPCI_AsyncPutDiskFile(kTask, kStep, kConfiguration, kMode, kMode, source, destination, &handle));

    // A file whose content is here in memory: the request, then the content in blocks.
    Show("NFTPCI_AsyncPutMemBufReq",
         NFTPCI_AsyncPutMemBufReq(kTask, kStep, kConfiguration, kMode, kMode, destination, &handle));
    const NFTPCI_MemBufBlock block = {static_cast<uint32_t>(kContent.size()), kSession, kLastBlock, kContent.data()};
    Show("NFTPCI_AsyncTransMemBufBlock", NFTPCI_AsyncTransMemBufBlock(kTask, kStep, kTransfer, &block, &handle));

    // How far is it, and what became of it?
    Show("NFTPCI_AsyncTransFileProgress", NFTPCI_AsyncTransFileProgress(kTask, kStep, kTransfer, &handle));
    Show("NFTPCI_AsyncTransFileQuery", NFTPCI_AsyncTransFileQuery(kTask, kStep, kTransfer, &handle));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: transfer_client COMPONENT SERVICE SOURCE DESTINATION\n");
        return 2;
    }
    return RunAccounted("transfer_client", [&] {
        // Nothing is bound, for no answer is waited for: the bus takes our word for COMPONENT as long as no other user
        // has ever bound it and the service runs under our user.
        SendAll({ParseNumber(argv[1], "component"), ParseNumber(argv[2], "component")}, argv[3], argv[4]);
    });
}
