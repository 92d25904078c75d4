// What comes over servers: taken only when it is a whole message from the sender that its subject names, and in the
// other byte order only when its reader can convert it. Then it is what was sent.
#include "fleet/bus_wire.h"
#include "support.h"

static Bytes Reversed(Bytes bytes) {
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

void Fuzz(FuzzedDataProvider *input) {
    const bool isForeign = input->ConsumeBool();
    const auto word = [=](const Bytes &bytes) { return isForeign ? Reversed(bytes) : bytes; };
    const Bytes interfaces = input->ConsumeBool() ? Bytes{1, 3} : input->ConsumeBytes<uint8_t>(2);
    const Bytes sound = Join({word(Host32(0x54415642)), word(Host16(1)), interfaces, word(Host32(9)), word(Host32(7))});
    const bool isSound = input->ConsumeBool() && interfaces.size() == 2;
    const Bytes padding(input->ConsumeBool() ? 65480u : 0);
    const Bytes travelled = Join({isSound ? sound : Bytes(), padding, input->ConsumeRemainingBytes<uint8_t>()});
    const fleet::Unpacked unpacked =
        fleet::Unpack({reinterpret_cast<const char *>(travelled.data()), travelled.size()}, 9, 7);
    const bool fits = travelled.size() >= 20 + 16 && travelled.size() <= 20 + 65535;
    const bool isReadable = !isForeign || interfaces == Bytes{1, 3};
    assert(unpacked.code != 0 || fits);
    assert(!isSound || (unpacked.code == 0) == (fits && isReadable));
    if (unpacked.code == 0 && isSound) {
        Bytes expected(travelled.begin() + 20, travelled.end());
        if (isForeign) {
            std::swap(expected[0], expected[1]);
            expected[2] ^= 4;
        }
        assert(Bytes(unpacked.content.begin(), unpacked.content.end()) == expected);
        assert(unpacked.envelope.sender == 9 && unpacked.envelope.receiver == 7);
    }
}
