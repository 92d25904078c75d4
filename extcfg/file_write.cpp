/*
 * Writing a finished image: as a whole new file, as a new archive, or over part of an existing file.
 */
#include "common/log.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "tav_extcfg.h"

namespace {

constexpr uint32_t kFileMode = 0640;
constexpr int32_t kCompressionLevel = 6;

}  // namespace

uint32_t TAV_WriteBufferToFile(const void *data, uint32_t length, const char *path) {
    if (data == nullptr || path == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "wb+");
    if (file == nullptr) {
        TAV_FAIL(TAV_ERR_OPEN, "Open %s failed", path);
    }
    P_MEL_Chown2MEL(path, 0);
    const uint32_t amount = BEX_VFS_FWrite(data, length, 1, file);
    BEX_VFS_FFlush(file);
    BEX_VFS_FClose(file);
    BEX_VFS_SetFileModeEx(path, kFileMode);
    if (amount != length) {
        TAV_FAIL(TAV_ERR_REFUSED, "Write %s failed, len=%d, return 0x%x", path, length, amount);
    }
    return TAV_OK;
}

uint32_t TAV_ZipBufferToExtCfgFile(const void *data, uint32_t length, const char *path) {
    if (data == nullptr || path == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    if (length == 0) {
        TAV_FAIL(TAV_ERR_INVALID, "Empty file data");
    }
    char member[TAV_EXT_PATH_SIZE] = {};
    uint32_t result = TAV_ReplaceFileSuffix(path, ".dat", member, sizeof(member));
    if (result != TAV_OK) {
        TAV_FAIL(result, "Replace suffix of %s failed, return 0x%x", path, result);
    }
    result = BEX_ZipBuffer(length, data, member, path, 0, kCompressionLevel);
    if (result != 0) {
        TAV_FAIL(result, "Zip to %s failed, len=%d, return 0x%x", path, length, result);
    }
    return TAV_OK;
}

uint32_t TAV_WriteFileAtOffset(const void *data, uint32_t length, const char *path, uint32_t offset) {
    if (data == nullptr || path == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "rb+");
    if (file == nullptr) {
        TAV_FAIL(TAV_ERR_OPEN, "Open %s failed", path);
    }
    /* What was written, or, when there was no getting to the offset, the seek's code. */
    uint32_t amount = 0;
    const int32_t result = BEX_VFS_FSeek(file, static_cast<int32_t>(offset), BEX_VFS_SEEK_SET);
    if (result != 0) {
        TAV_LOG("Report error: 0x%x", result);
        amount = static_cast<uint32_t>(result);
    } else {
        amount = BEX_VFS_FWrite(data, length, 1, file);
        BEX_VFS_FFlush(file);
    }
    BEX_VFS_FClose(file);
    if (result != 0 || amount != length) {
        TAV_FAIL(TAV_ERR_REFUSED, "Write %s failed, len=%d, return 0x%x", path, length, amount);
    }
    return TAV_OK;
}
