/*
 * The cheap look at a file's checksum, which trusts what the head states.
 */
#include "common/log.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
#include "platform/bex_string.h"

using extcfg::TlvLength;
using extcfg::TlvValue;

uint32_t TAV_ExtCfgGetChecksumFromFile(const char *path, uint8_t *out, uint32_t outSize) {
    FAIL_IF_NULL(0u, path, out);
    if (outSize < TAV_EXT_CHECKSUM_SIZE) {
        return 0;
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    const uint32_t result = TAV_ReadFileToBuffer(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK) {
        return 0;
    }
    uint8_t *head = TAV_ExtTlvFind(image, size, EXT_TLV_HDR);
    if (head == nullptr) {
        return 0;
    }
    uint8_t *checksum = TAV_ExtTlvFind(TlvValue(head), TlvLength(head), EXT_TLV_CHECKSUM);
    if (checksum == nullptr || TlvLength(checksum) > outSize) {
        return 0;
    }
    return memcpy_s(out, outSize, TlvValue(checksum), TlvLength(checksum)) == 0 ? TlvLength(checksum) : 0;
}
