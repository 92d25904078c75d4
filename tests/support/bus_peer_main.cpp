/*
 * Another process on the bus, which does what it is told: a command a line on standard input, its result a line on
 * standard output. bus_peer.h starts it and says what it can do.
 */
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include <bit>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "platform/dms_message.h"
#include "platform/mel_environment.h"
#include "tav_ftpci.h"
#include "tav_posix_bus.h"

namespace {

std::map<uint32_t, TAV_Posix_BusPort *> ports;

/** Reads the next number of a command; 0 when there is none. */
uint32_t Number(std::istream &command) {
    uint32_t number = 0;
    command >> number;
    return number;
}

/** A message whose last four bytes are its number, sent. */
uint32_t SendNumbered(uint32_t sender, uint32_t receiver, uint32_t size, uint32_t number) {
    auto *const message = static_cast<uint8_t *>(MEL_MsgAlloc_F(sender, size, "peer", 1));
    memset(message, 0x5A, size);
    memcpy(message + size - sizeof(number), &number, sizeof(number));
    return TAV_AdjustSendMsg(receiver, 0, 0, message, size);
}

/** What has been received: who sent it, its length, the number in its last four bytes. */
struct Received {
    uint32_t code, sender, length, number;
};

Received Receive(uint32_t id, int32_t timeoutMs) {
    void *message = nullptr;
    Received received{0, 0, 0, 0};
    received.code = TAV_Posix_BusReceive(ports[id], timeoutMs, &message, &received.length);
    if (received.code == 0) {
        received.sender = DMS_MsgSendCidGet(message);
        memcpy(&received.number, static_cast<uint8_t *>(message) + received.length - 4, 4);
        DMS_MsgFree(id, message);
    }
    return received;
}

void Bind(std::istream &command) {
    const uint32_t id = Number(command);
    std::cout << TAV_Posix_BusBind(id, &ports[id]);
}

void Unbind(std::istream &command) {
    TAV_Posix_BusUnbind(std::exchange(ports[Number(command)], nullptr));
    std::cout << 0;
}

void Serve(std::istream &command) {
    const uint32_t id = Number(command), kind = Number(command);
    std::cout << TAV_Posix_BusServe(ports[id], kind, UINT32_MAX, Number(command));
}

void Find(std::istream &command) {
    uint32_t id = 0;
    const uint32_t kind = Number(command);
    const uint32_t code = CMF_GetPIDByVR(kind, 0, UINT32_MAX, Number(command), &id);
    std::cout << (code == 0 ? int64_t{id} : -int64_t{code});
}

void Send(std::istream &command) {
    const uint32_t sender = Number(command), receiver = Number(command), size = Number(command);
    const uint32_t interfaces = Number(command);  // the interface in hundreds, and its part
    void *const message = MEL_MsgAlloc_F(sender, size, "peer", 1);
    memset(message, 0x5A, size);
    DMS_MEL_MSG_SET_INTF(message, static_cast<uint8_t>(interfaces / 100));
    DMS_MEL_MSG_SET_SUB_INTF(message, static_cast<uint8_t>(interfaces % 100));
    std::cout << TAV_AdjustSendMsg(receiver, 0, Number(command), message, size);
}

void ReceiveOne(std::istream &command) {
    const uint32_t id = Number(command);
    const Received received = Receive(id, static_cast<int32_t>(Number(command)));
    std::cout << (received.code == 0 ? -int64_t{received.sender} : int64_t{received.code});
}

/** Asks what became of a transfer, with three identifiers from a number on. */
void Query(std::istream &command) {
    NFTPCI_CommHandle handle = {};
    handle.sender = Number(command);
    handle.receiver = Number(command);
    const uint32_t id = Number(command);
    std::cout << NFTPCI_AsyncTransFileQuery(id, id + 1, id + 2, &handle);
}

/** Receives such a question, in whatever byte order: its length, its identifiers, the operation. */
void ReceiveQuery(std::istream &command) {
    void *message = nullptr;
    uint32_t length = 0;
    const uint32_t code = TAV_Posix_BusReceive(ports[Number(command)], 5000, &message, &length);
    if (code != 0) {
        std::cout << code;
        return;
    }
    TAVFTPCI_SwapMsgBodyByteOrder2Loc(message);
    uint16_t stated = 0, operation = 0;
    uint32_t ids[3] = {};
    memcpy(&stated, message, sizeof(stated));
    memcpy(ids, static_cast<uint8_t *>(message) + 8, sizeof(ids));
    memcpy(&operation, static_cast<uint8_t *>(message) + 24, sizeof(operation));
    std::cout << stated << " " << ids[0] << " " << ids[1] << " " << ids[2] << " " << operation;
    DMS_MsgFree(0, message);
}

void TellByteOrder(std::istream & /*command*/) {
    std::cout << (std::endian::native == std::endian::big ? "big" : "little");
}

/** Sends numbered messages; one that is told to be full is sent again, any other failure is counted by its code. */
void Stream(std::istream &command) {
    const uint32_t sender = Number(command), receiver = Number(command), count = Number(command);
    std::map<uint32_t, uint32_t> outcomes;
    for (uint32_t i = 1; i <= count; ++i) {
        uint32_t code = SendNumbered(sender, receiver, 64, i);
        while (code == EAGAIN) {
            usleep(1000);
            code = SendNumbered(sender, receiver, 64, i);
        }
        usleep(code == 0 ? 0 : 1000);
        ++outcomes[code];
    }
    for (const auto &[code, times] : outcomes) {
        std::cout << code << ":" << times << " ";
    }
}

/** Receives until the last number has come or none comes for a while: how many, and how many were out of order. */
void Drain(std::istream &command) {
    const uint32_t id = Number(command), last = Number(command);
    uint32_t count = 0, wrong = 0, before = 0;
    for (Received received{}; before != last && received.code == 0;) {
        received = Receive(id, 5000);
        if (received.code == 0) {
            ++count;
            wrong += received.number <= before;
            before = received.number;
        }
    }
    std::cout << count << " " << wrong;
}

/** Sends back what it receives until nothing comes for a while. */
void Echo(std::istream &command) {
    const uint32_t id = Number(command);
    std::cout << 0 << std::endl;
    for (Received received = Receive(id, 2000); received.code == 0; received = Receive(id, 2000)) {
        SendNumbered(id, received.sender, received.length, received.number);
    }
    std::cout << 0;
}

}  // namespace

int main() {
    const std::map<std::string, void (*)(std::istream &)> commands = {
        {"bind", Bind}, {"unbind", Unbind},      {"serve", Serve},        {"find", Find},
        {"send", Send}, {"query", Query},        {"asked", ReceiveQuery}, {"order", TellByteOrder},
        {"echo", Echo}, {"receive", ReceiveOne}, {"stream", Stream},      {"drain", Drain},
    };
    for (std::string line; std::getline(std::cin, line);) {
        std::istringstream command(line);
        std::string name;
        command >> name;
        commands.at(name)(command);
        std::cout << std::endl;
    }
    for (const auto &[id, port] : ports) {
        TAV_Posix_BusUnbind(port);
    }
    return 0;
}
