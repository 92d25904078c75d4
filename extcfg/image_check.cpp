/*
 * Checking a file image: its structure, and each field of its head.
 *
 * The one recursion of the format lives here: checking a head reads the refer file's checksum, which checks that file's
 * head. It ends after one level, because the refer file is checked without a refer file of its own.
 */
#include <algorithm>

#include "common/log.h"
#include "extcfg/file_read.h"
#include "extcfg/memory.h"
#include "extcfg/tlv.h"
#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "platform/mel_clock.h"

using extcfg::TlvLength;
using extcfg::TlvSize;
using extcfg::TlvType;
using extcfg::TlvValue;

const TAV_ExtTlvProcRow g_astExtCfgFileHeadCheckFuncTbl[5] = {
    {EXT_TLV_VERSION, TAV_CheckExtCfgFileVersion},
    {EXT_TLV_MODIFY_TIME, TAV_CheckExtCfgFileModifyTime},
    {EXT_TLV_CHECKSUM, TAV_CheckExtCfgFileChecksum},
    {EXT_TLV_REFER_CHECKSUM, TAV_CheckExtCfgFileReferChecksum},
    {0, nullptr},
};

namespace {

constexpr uint32_t kDigestBufferSize = 33; /* what the platform's digest asks for */
constexpr uint8_t kVersionMajor = 0x08;    /* most significant byte of every accepted version */

/** Adds up the complete top-level TLVs of an image, whose first TLV is complete. */
uint32_t SumOfTlvs(uint8_t *image, uint32_t size) {
    uint32_t left = size;
    for (uint8_t *tlv = image; tlv != nullptr;) {
        uint8_t *next = TAV_ExtTlvGetNext(tlv, left);
        left -= TlvSize(tlv);
        tlv = next;
    }
    return size - left;
}

/** Tells whether the head (its value, `length` bytes) holds every field that it must. */
bool HasMandatoryFields(uint8_t *head, uint32_t length, bool withRefer) {
    for (const TAV_ExtTlvProcRow *row = g_astExtCfgFileHeadCheckFuncTbl; row->func != nullptr; ++row) {
        if (row->type == EXT_TLV_REFER_CHECKSUM && !withRefer) {
            continue;
        }
        if (TAV_ExtTlvFind(head, length, row->type) == nullptr) {
            return false;
        }
    }
    return true;
}

}  // namespace

uint32_t TAV_CalcChecksum(const void *data, uint32_t length, uint8_t *out, uint32_t outSize) {
    if (data == nullptr || out == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    uint8_t digest[kDigestBufferSize] = {};
    uint32_t digestLength = outSize;
    const uint32_t result = BEX_Crypt_Digest(data, length, digest, &digestLength, sizeof(digest));
    if (result != 0) {
        TAV_FAIL(TAV_ERR_COPY, "Report error: 0x%x", result);
    }
    digestLength = std::min({digestLength, outSize, kDigestBufferSize});
    return memcpy_s(out, outSize, digest, digestLength) == 0 ? TAV_OK : TAV_ERR_COPY;
}

uint32_t TAV_CheckExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context) {
    if (image == nullptr || context == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    if (TAV_ExtTlvVerify(image, size) != 0) {
        TAV_FAIL(TAV_ERR_INVALID, "First TLV is invalid");
    }
    if (TlvType(image) != EXT_TLV_HDR) {
        TAV_FAIL(TAV_ERR_INVALID, "First TLV must be HDR TLV, now is %d", TlvType(image));
    }
    const uint32_t total = SumOfTlvs(image, size);
    if (total != size) {
        TAV_FAIL(TAV_ERR_INVALID, "File size %d, TLV total len is %d", size, total);
    }
    uint8_t *head = TlvValue(image);
    const uint32_t headLength = TlvLength(image);
    if (!HasMandatoryFields(head, headLength, context->referPath != nullptr)) {
        TAV_FAIL_NULL(TAV_ERR_NOT_FOUND);
    }
    context->image = image;
    context->imageSize = size;
    context->headSize = TlvSize(image);
    const uint32_t result = TAV_ExtTlvProcForEach(TAV_CheckExtCfgFileHeadEachField, head, headLength, context);
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_INVALID, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    }
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileHeadEachField(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    const TAV_ExtTlvProcFunc check = TAV_GetExtTlvProcFunc(type, g_astExtCfgFileHeadCheckFuncTbl);
    TAV_RETURN_IF_NULL(check, TAV_ERR_INVALID);
    return check(type, value, length, context);
}

uint32_t TAV_CheckExtCfgFileVersion(uint32_t, uint8_t *value, uint32_t length, void *) {
    if (length != sizeof(uint32_t)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid size %d", length);
    }
    /* The lower three bytes are free: any later format of this major version is read. */
    if (value[0] != kVersionMajor) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid version 0x%x", extcfg::LoadBigEndian32(value));
    }
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileModifyTime(uint32_t, uint8_t *value, uint32_t length, void *) {
    if (length != sizeof(BEX_SysTime)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid size %d", length);
    }
    /* The time itself is nobody's business here; it only has to convert. */
    uint8_t scratch[sizeof(BEX_SysTime)] = {};
    const uint32_t result = TAV_ExtTlvConvertEndian(EXT_TLV_MODIFY_TIME, length, value, scratch);
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_INVALID, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    }
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    /* 36 bytes pass as well, on purpose: the first 32 are the checksum. */
    constexpr uint32_t kTolerated = 4;
    if ((length & ~kTolerated) != TAV_EXT_CHECKSUM_SIZE) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid size %d", length);
    }
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result =
        TAV_CalcChecksum(file->image + file->headSize, file->imageSize - file->headSize, checksum, sizeof(checksum));
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_DIGEST, "Error code 0x%x, return 0x%x", result, TAV_ERR_DIGEST);
    }
    if (BEX_MemCmp(value, checksum, sizeof(checksum)) != 0) {
        TAV_FAIL(TAV_ERR_INVALID, "Checksum mismatch");
    }
    file->storedChecksum = value;
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileReferChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    if (length != TAV_EXT_CHECKSUM_SIZE) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid size %d", length);
    }
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result = TAV_GetExtCfgFileChecksum(file->referPath, checksum, sizeof(checksum));
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_INVALID, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    }
    if (BEX_MemCmp(value, checksum, sizeof(checksum)) != 0) {
        TAV_FAIL(TAV_ERR_INVALID, "Refer checksum mismatch");
    }
    return TAV_OK;
}

uint32_t TAV_GetExtCfgFileChecksum(const char *path, uint8_t *out, uint32_t outSize) {
    if (path == nullptr || out == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = extcfg::ReadImage(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK || image == nullptr) {
        TAV_FAIL(TAV_ERR_READ, "Read %s failed, return 0x%x", path, result);
    }
    /* No refer path, on purpose: a file that carries a refer checksum fails, and chains stay one level deep. */
    TAV_ExtCfgFileContext context = {};
    result = TAV_CheckExtCfgFileData(image, size, &context);
    if (result == TAV_OK && memcpy_s(out, outSize, context.storedChecksum, TAV_EXT_CHECKSUM_SIZE) != 0) {
        return TAV_ERR_COPY;
    }
    return result;
}
