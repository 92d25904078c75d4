/*
 * The digest by which files are told apart.
 */
#include <algorithm>

#include "common/log.h"
#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "tav_extcfg.h"

namespace {

constexpr uint32_t kDigestBufferSize = 33;  // what the platform's digest asks for

}  // namespace

uint32_t TAV_CalcChecksum(const void *data, uint32_t length, uint8_t *out, uint32_t outSize) {
    FAIL_IF_NULL(TAV_ERR_NULL, data, out);
    uint8_t digest[kDigestBufferSize] = {};
    uint32_t digestLength = outSize;
    const uint32_t result = BEX_Crypt_Digest(data, length, digest, &digestLength, sizeof(digest));
    FAIL_UNLESS(TAV_ERR_COPY, result == 0, "Report error: 0x%x", result);
    digestLength = std::min({digestLength, outSize, kDigestBufferSize});
    return memcpy_s(out, outSize, digest, digestLength) == 0 ? TAV_OK : TAV_ERR_COPY;
}
