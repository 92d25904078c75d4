/*
 * The lookup of a TLV in a message whose TLVs are padded to 4 bytes, in host order and in network order.
 */
#include "common/words.h"
#include "tav_common.h"

namespace {

constexpr uint32_t kFirstTlv = 8;      // offset of the first TLV in a message
constexpr uint32_t kTlvHeadSize = 4;   // bytes of type and length
constexpr uint32_t kTlvAlignment = 4;  // the next TLV begins at a multiple of this

using Load16 = uint16_t (*)(const void *bytes);

/** Finds a TLV in a message whose numbers `load` reads. Every step is one of 4 bytes at least, so the walk ends. */
const void *FindTlv(uint16_t *valueLength, uint16_t type, const uint8_t *message, Load16 load) {
    const uint32_t totalLength = load(message);
    uint32_t at = kFirstTlv;
    do {  // callers are told that the first TLV is looked at even if the total length does not cover it
        const uint8_t *const tlv = message + at;
        const uint16_t length = load(tlv + 2);
        if (load(tlv) == type) {
            *valueLength = length;
            return tlv + kTlvHeadSize;
        }
        at += (kTlvHeadSize + length + kTlvAlignment - 1) / kTlvAlignment * kTlvAlignment;
    } while (at < totalLength);
    return nullptr;
}

}  // namespace

const void *TAV_TLV_Find(uint16_t *valueLength, uint16_t type, const void *message) {
    return FindTlv(valueLength, type, static_cast<const uint8_t *>(message), common::LoadWord<uint16_t>);
}

const void *TAV_TLV_Find_NTOH(uint16_t *valueLength, uint16_t type, const void *message) {
    return FindTlv(valueLength, type, static_cast<const uint8_t *>(message), common::LoadBigEndian<uint16_t>);
}
