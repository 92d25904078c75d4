/*
 * Compression of what the history keeps.
 */
#ifndef SESSION_COMPRESS_H
#define SESSION_COMPRESS_H

#include <span>
#include <string>

#include "session/files.h"

namespace session {

/** Compresses bytes, with a checksum that tells damage. Throws std::bad_alloc. */
Block Compress(std::span<const uint8_t> bytes);

/** Brings compressed bytes back. Throws Error (TAV_ERR_INVALID) when they are damaged. */
Block Decompress(const Block &compressed, const std::string &place);

}  // namespace session

#endif
