// Datagrams on the bus: a port receives what is a message for it, whole and with zeros behind it, and nothing else.
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/dms_message.h"
#include "support.h"
#include "tav_posix_bus.h"

void Fuzz(FuzzedDataProvider *input) {
    static TAV_Posix_BusPort *port = nullptr;
    static const int fd = (TAV_Posix_BusBind(7, &port), socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const Bytes sound = Join({Host32(0x54415642), Host16(1), {3, 4}, Host32(9), Host32(7), Host32(0x55)});
    const Bytes begin = input->ConsumeBool() ? sound : Bytes(), padding(input->ConsumeBool() ? 65480u : 0);
    const Bytes datagram = Join({begin, padding, input->ConsumeRemainingBytes<uint8_t>()});
    sockaddr_un address = {AF_UNIX, {}};
    Scratch("bus/7").copy(address.sun_path, sizeof(address.sun_path) - 1);
    sendto(fd, datagram.data(), datagram.size(), 0, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    const bool isMessage = datagram.size() >= 20 + 16 && datagram.size() <= 20 + 65535 &&
                           std::equal(&sound[0], &sound[6], &datagram[0]) &&
                           std::equal(&sound[12], &sound[16], &datagram[12]) && Slice(datagram, 8, 12) != Host32(0);
    void *message = nullptr;
    uint32_t length = 0;
    assert((TAV_Posix_BusReceive(port, 0, &message, &length) == 0) == isMessage);
    if (isMessage) {
        const Bytes expected = Join({Slice(datagram, 20, datagram.size()), Bytes(0x10000)});
        assert(std::equal(expected.begin(), expected.end(), static_cast<uint8_t *>(message)));
        assert(length + 20 == datagram.size() && Host32(DMS_MsgSendCidGet(message)) == Slice(datagram, 8, 12));
    }
    DMS_MsgFree(7, message);
}
