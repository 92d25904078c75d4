/*
 * The frame of a file: its head, and the TLVs that follow.
 */
#ifndef TAVCFG_FRAME_H
#define TAVCFG_FRAME_H

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "image.h"
#include "model.h"
#include "tav_extcfg.h"

namespace tavcfg {

/** One TLV inside an image. */
struct Tlv {
    uint32_t type;
    uint8_t *value;
    uint32_t length;
};

/** A sequence of TLVs. */
struct TlvList {
    std::vector<Tlv> tlvs;
    uint32_t walked = 0;   // bytes that the complete TLVs take
    bool isWhole = false;  // they fill the sequence exactly, and there is at least one
};

/** The top level of a file. Points into the image. */
struct Frame {
    std::vector<Tlv> head;  // the head's fields
    uint32_t headSize = 0;  // bytes of the head with its TLV header: the offset of the body
    std::vector<Tlv> body;  // what follows the head

    /** The first head field of a type, or null. */
    const Tlv *HeadField(uint32_t type) const;
};

/** The checksum of a body. */
using Checksum = std::array<uint8_t, TAV_EXT_CHECKSUM_SIZE>;

/** Lists the TLVs of a sequence, as far as they are complete. */
TlvList ListTlvs(uint8_t *first, uint32_t length);

/** Takes an image apart. Throws Problem when its TLVs do not fill it, or the head does not come first. */
Frame ReadFrame(const Image &image);

/** Where a pointer into the image points, in bytes from its start. */
uint32_t OffsetIn(const Image &image, const uint8_t *place);

/** Computes the checksum of an image's body. */
Checksum BodyChecksum(const Image &image, const Frame &frame);

/** A TLV's value as bytes. */
Bytes ValueOf(const Tlv &tlv);

}  // namespace tavcfg

#endif
