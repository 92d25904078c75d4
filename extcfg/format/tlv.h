/*
 * A TLV's header and the sizes of TLVs, for the layers that look at TLVs.
 */
#ifndef EXTCFG_FORMAT_TLV_H
#define EXTCFG_FORMAT_TLV_H

#include "common/words.h"
#include "tav_extcfg.h"

namespace extcfg {

/** Returns a TLV's type. */
inline uint32_t TlvType(const uint8_t *tlv) {
    return common::LoadBigEndian<uint32_t>(tlv);
}

/** Returns the length of a TLV's value in bytes. */
inline uint32_t TlvLength(const uint8_t *tlv) {
    return common::LoadBigEndian<uint32_t>(tlv + sizeof(uint32_t));
}

/** Returns a TLV's value. */
inline uint8_t *TlvValue(uint8_t *tlv) {
    return tlv + TAV_EXT_TLV_HEAD_SIZE;
}

/** Returns the bytes of a whole TLV. Wraps for lengths that no sequence can hold; TAV_ExtTlvVerify refuses those. */
inline uint32_t TlvSize(const uint8_t *tlv) {
    return TlvLength(tlv) + TAV_EXT_TLV_HEAD_SIZE;
}

/** Adds two byte counts; one that would not fit stays at 0xFFFFFFFF, which is more than any file may have. */
inline uint32_t AddSizes(uint32_t a, uint32_t b) {
    return a > UINT32_MAX - b ? UINT32_MAX : a + b;
}

}  // namespace extcfg

#endif
