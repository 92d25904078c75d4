/*
 * The size of a head that is built.
 */
#ifndef EXTCFG_IMAGE_HEAD_H
#define EXTCFG_IMAGE_HEAD_H

#include <cstdint>

namespace extcfg {

/**
 * Returns the bytes of a head TLV as it is built, with or without a refer checksum; 0, and a report, when a head field
 * has no fixed length, as before start-up.
 */
uint32_t BuiltHeadSize(bool withRefer);

}  // namespace extcfg

#endif
