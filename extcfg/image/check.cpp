/*
 * Checking a file image: its structure, and each field of its head.
 *
 * The one recursion of the format lives here: checking a head reads the refer file's checksum, which checks that file's
 * head. It ends after one level, because the refer file is checked without a refer file of its own.
 */
#include <algorithm>

#include "common/log.h"
#include "extcfg/file/read.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
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

constexpr uint8_t kVersionMajor = 0x08;       // most significant byte of every accepted version
constexpr uint32_t kPaddedChecksumSize = 36;  // a checksum with four bytes behind it, which mean nothing

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

/** Returns whether the head (its value, `length` bytes) holds every field that it must. */
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

/** Returns whether a checksum field of either type may have this length. */
bool IsChecksumLength(uint32_t type, uint32_t length) {
    return length == TAV_EXT_CHECKSUM_SIZE || (type == EXT_TLV_CHECKSUM && length == kPaddedChecksumSize);
}

/** A walk over the fields of a head, and the checksums that have passed on the way, or null. */
struct HeadWalk {
    TAV_ExtCfgFileContext *file;
    const uint8_t *ownPassed;
    const uint8_t *referPassed;

    /** Returns where the checksum of a field's type is noted; null for other types. */
    const uint8_t **Passed(uint32_t type) {
        return type == EXT_TLV_CHECKSUM ? &ownPassed : type == EXT_TLV_REFER_CHECKSUM ? &referPassed : nullptr;
    }
};

/** Returns whether a field says again what has passed. With the log on each is checked, because checks report. */
bool SaysAgain(const uint8_t *passed, uint32_t type, const uint8_t *value, uint32_t length) {
    return passed != nullptr && TAV_GetDebugFlag() == 0 && IsChecksumLength(type, length) &&
           BEX_MemCmp(value, passed, TAV_EXT_CHECKSUM_SIZE) == 0;
}

/**
 * Checks a field of a head. A head may state a checksum any number of times: it is computed once, or each of them would
 * cost another pass over the body or the refer file.
 */
uint32_t CheckField(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    auto *walk = static_cast<HeadWalk *>(context);
    const uint8_t **passed = walk->Passed(type);
    if (passed == nullptr || !SaysAgain(*passed, type, value, length)) {
        const uint32_t result = TAV_CheckExtCfgFileHeadEachField(type, value, length, walk->file);
        if (result != TAV_OK) {
            return result;
        }
    }
    if (passed != nullptr) {
        *passed = value;
    }
    if (type == EXT_TLV_CHECKSUM) {
        walk->file->storedChecksum = value;
    }
    return TAV_OK;
}

}  // namespace

uint32_t TAV_CheckExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context) {
    FAIL_IF_NULL(TAV_ERR_NULL, image, context);
    FAIL_UNLESS(TAV_ERR_INVALID, TAV_ExtTlvVerify(image, size) == 0, "First TLV is invalid");
    FAIL_UNLESS(TAV_ERR_INVALID, TlvType(image) == EXT_TLV_HDR, "First TLV must be HDR TLV, now is %d", TlvType(image));
    const uint32_t total = SumOfTlvs(image, size);
    FAIL_UNLESS(TAV_ERR_INVALID, total == size, "File size %d, TLV total len is %d", size, total);
    uint8_t *head = TlvValue(image);
    const uint32_t headLength = TlvLength(image);
    FAIL_UNLESS(TAV_ERR_NOT_FOUND, HasMandatoryFields(head, headLength, context->referPath != nullptr),
                "Null pointer, return 0x%x", TAV_ERR_NOT_FOUND);
    context->image = image;
    context->imageSize = size;
    context->headSize = TlvSize(image);
    HeadWalk walk = {context, nullptr, nullptr};
    const uint32_t result = TAV_ExtTlvProcForEach(CheckField, head, headLength, &walk);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileHeadEachField(uint32_t type, uint8_t *value, uint32_t length, void *context) {
    const TAV_ExtTlvProcFunc check = TAV_GetExtTlvProcFunc(type, g_astExtCfgFileHeadCheckFuncTbl);
    FAIL_IF_NULL(TAV_ERR_INVALID, check);
    return check(type, value, length, context);
}

uint32_t TAV_CheckExtCfgFileVersion(uint32_t, uint8_t *value, uint32_t length, void *) {
    FAIL_UNLESS(TAV_ERR_INVALID, length == sizeof(uint32_t), "Invalid size %d", length);
    // The lower three bytes are free: every format of this major version is read.
    FAIL_UNLESS(TAV_ERR_INVALID, value[0] == kVersionMajor, "Invalid version 0x%x",
                common::LoadBigEndian<uint32_t>(value));
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileModifyTime(uint32_t, uint8_t *value, uint32_t length, void *) {
    FAIL_UNLESS(TAV_ERR_INVALID, length == sizeof(BEX_SysTime), "Invalid size %d", length);
    // Which time it is does not matter here; it only has to convert.
    uint8_t scratch[sizeof(BEX_SysTime)] = {};
    const uint32_t result = TAV_ExtTlvConvertEndian(EXT_TLV_MODIFY_TIME, length, value, scratch);
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    FAIL_UNLESS(TAV_ERR_INVALID, IsChecksumLength(EXT_TLV_CHECKSUM, length), "Invalid size %d", length);
    auto *file = static_cast<TAV_ExtCfgFileContext *>(context);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result =
        TAV_CalcChecksum(file->image + file->headSize, file->imageSize - file->headSize, checksum, sizeof(checksum));
    FAIL_UNLESS(TAV_ERR_DIGEST, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_DIGEST);
    FAIL_UNLESS(TAV_ERR_INVALID, BEX_MemCmp(value, checksum, sizeof(checksum)) == 0, "Checksum mismatch");
    file->storedChecksum = value;
    return TAV_OK;
}

uint32_t TAV_CheckExtCfgFileReferChecksum(uint32_t, uint8_t *value, uint32_t length, void *context) {
    FAIL_UNLESS(TAV_ERR_INVALID, IsChecksumLength(EXT_TLV_REFER_CHECKSUM, length), "Invalid size %d", length);
    const auto *file = static_cast<const TAV_ExtCfgFileContext *>(context);
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    const uint32_t result = TAV_GetExtCfgFileChecksum(file->referPath, checksum, sizeof(checksum));
    FAIL_UNLESS(TAV_ERR_INVALID, result == TAV_OK, "Error code 0x%x, return 0x%x", result, TAV_ERR_INVALID);
    FAIL_UNLESS(TAV_ERR_INVALID, BEX_MemCmp(value, checksum, sizeof(checksum)) == 0, "Refer checksum mismatch");
    return TAV_OK;
}

uint32_t TAV_GetExtCfgFileChecksum(const char *path, uint8_t *out, uint32_t outSize) {
    FAIL_IF_NULL(TAV_ERR_NULL, path, out);
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = extcfg::ReadImage(&image, &size, path);
    const extcfg::OwnedBuffer owned(image);
    FAIL_UNLESS(TAV_ERR_READ, result == TAV_OK && image != nullptr, "Read %s failed, return 0x%x", path, result);
    // Without a refer path a file that carries a refer checksum fails: chains of refer files stay one level deep.
    TAV_ExtCfgFileContext context = {};
    result = TAV_CheckExtCfgFileData(image, size, &context);
    const uint32_t length = std::min(outSize, TAV_EXT_CHECKSUM_SIZE);
    if (result == TAV_OK && length != 0 && memcpy_s(out, outSize, context.storedChecksum, length) != 0) {
        return TAV_ERR_COPY;
    }
    return result;
}
