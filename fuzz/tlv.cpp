// Padded TLVs, in both byte orders. The caller owns what the message's length claims, and the few bytes behind it.
#include "support.h"
#include "tav_common.h"

void Fuzz(FuzzedDataProvider *input) {
    const auto type = input->ConsumeIntegral<uint16_t>();
    const Bytes any = Join({input->ConsumeRemainingBytes<uint8_t>(), Bytes(0x10003)});
    for (const int high : {0, 1}) {  // place of a word's high byte
        const uint8_t *const bytes = any.data();
        const Bytes message(bytes, bytes + std::max((bytes[high] << 8 | bytes[1 - high]) + 3, 12));
        const auto find = high == Host16(1)[0] ? TAV_TLV_Find : TAV_TLV_Find_NTOH;
        uint16_t length = 0;
        const auto *value = static_cast<const uint8_t *>(find(&length, type, message.data()));
        assert(value == nullptr ? length == 0 : (value[high - 2] << 8 | value[-1 - high]) == length);
    }
}
