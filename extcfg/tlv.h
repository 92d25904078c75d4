/*
 * A TLV's header, for the rooms that look at TLVs.
 */
#ifndef EXTCFG_TLV_H
#define EXTCFG_TLV_H

#include "extcfg/byte_order.h"
#include "tav_extcfg.h"

namespace extcfg {

/** Returns a TLV's type. */
inline uint32_t TlvType(const uint8_t *tlv) {
    return LoadBigEndian32(tlv);
}

/** Returns the length of a TLV's value in bytes. */
inline uint32_t TlvLength(const uint8_t *tlv) {
    return LoadBigEndian32(tlv + sizeof(uint32_t));
}

/** Returns a TLV's value. */
inline uint8_t *TlvValue(uint8_t *tlv) {
    return tlv + TAV_EXT_TLV_HEAD_SIZE;
}

/** Returns the bytes of a whole TLV. Wraps for lengths that no sequence can hold; TAV_ExtTlvVerify refuses those. */
inline uint32_t TlvSize(const uint8_t *tlv) {
    return TlvLength(tlv) + TAV_EXT_TLV_HEAD_SIZE;
}

}  // namespace extcfg

#endif
