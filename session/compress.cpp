/*
 * Compression by zstd.
 */
#include "session/compress.h"

#include <zstd.h>

#include <memory>
#include <new>

#include "tav/error.h"
#include "tav_extcfg.h"

namespace session {

namespace {

struct Free {
    void operator()(ZSTD_CCtx *context) const { ZSTD_freeCCtx(context); }
};

}  // namespace

Block Compress(std::span<const uint8_t> bytes) {
    const std::unique_ptr<ZSTD_CCtx, Free> context(ZSTD_createCCtx());
    Block block(ZSTD_compressBound(bytes.size()));
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    ZSTD_CCtx_setParameter(context.get(), ZSTD_c_checksumFlag, 1);
    const size_t size = ZSTD_compress2(context.get(), block.bytes.get(), block.size, bytes.data(), bytes.size());
    if (ZSTD_isError(size) != 0) {
        throw std::bad_alloc();  // the room is enough, so nothing else is left
    }
    block.size = size;
    return block;
}

Block Decompress(const Block &compressed, const std::string &place) {
    const auto size = ZSTD_getFrameContentSize(compressed.bytes.get(), compressed.size);
    if (size > TAV_EXT_MAX_FILE_SIZE) {  // an error, too, is such a number
        throw tav::Error(TAV_ERR_INVALID, place, "this copy is damaged");
    }
    Block block(static_cast<size_t>(size));
    if (ZSTD_decompress(block.bytes.get(), block.size, compressed.bytes.get(), compressed.size) != block.size) {
        throw tav::Error(TAV_ERR_INVALID, place, "this copy is damaged");
    }
    return block;
}

}  // namespace session
