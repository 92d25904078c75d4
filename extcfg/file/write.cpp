/*
 * Writing a finished image: as a whole new file, as a new archive, or over part of an existing file.
 */
#include "extcfg/file/write.h"

#include "common/log.h"
#include "extcfg/file/names.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "tav_extcfg.h"

namespace {

constexpr uint32_t kFileMode = 0640;
constexpr int32_t kCompressionLevel = 6;

}  // namespace

uint32_t TAV_WriteBufferToFile(const void *data, uint32_t length, const char *path) {
    FAIL_IF_NULL(TAV_ERR_NULL, data, path);
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "wb+");
    FAIL_UNLESS(TAV_ERR_OPEN, file != nullptr, "Open %s failed", path);
    P_MEL_Chown2MEL(path, 0);
    const uint32_t amount = BEX_VFS_FWrite(data, length, 1, file);
    BEX_VFS_FFlush(file);
    BEX_VFS_FClose(file);
    BEX_VFS_SetFileModeEx(path, kFileMode);
    FAIL_UNLESS(TAV_ERR_REFUSED, amount == length, "Write %s failed, len=%d, return 0x%x", path, length, amount);
    return TAV_OK;
}

uint32_t TAV_ZipBufferToExtCfgFile(const void *data, uint32_t length, const char *path) {
    FAIL_IF_NULL(TAV_ERR_NULL, data, path);
    FAIL_UNLESS(TAV_ERR_INVALID, length != 0, "Empty file data");
    char member[TAV_EXT_PATH_SIZE] = {};
    uint32_t result = extcfg::MemberName(path, member);
    FAIL_UNLESS(result, result == TAV_OK, "Replace suffix of %s failed, return 0x%x", path, result);
    result = BEX_ZipBuffer(length, data, member, path, 0, kCompressionLevel);
    FAIL_UNLESS(result, result == 0, "Zip to %s failed, len=%d, return 0x%x", path, length, result);
    return TAV_OK;
}

uint32_t TAV_WriteFileAtOffset(const void *data, uint32_t length, const char *path, uint32_t offset) {
    FAIL_IF_NULL(TAV_ERR_NULL, data, path);
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "rb+");
    FAIL_UNLESS(TAV_ERR_OPEN, file != nullptr, "Open %s failed", path);
    const int32_t result = BEX_VFS_FSeek(file, static_cast<int32_t>(offset), BEX_VFS_SEEK_SET);
    auto amount = static_cast<uint32_t>(result);  // what a report shows: the seek's code, or the bytes written
    if (result != 0) {
        LOG("Report error: 0x%x", result);
    } else {
        amount = BEX_VFS_FWrite(data, length, 1, file);
        BEX_VFS_FFlush(file);
    }
    BEX_VFS_FClose(file);
    FAIL_UNLESS(TAV_ERR_REFUSED, result == 0 && amount == length, "Write %s failed, len=%d, return 0x%x", path, length,
                amount);
    return TAV_OK;
}

uint32_t extcfg::WriteImage(const void *data, uint32_t length, const char *path) {
    return IsArchive(path) ? TAV_ZipBufferToExtCfgFile(data, length, path) : TAV_WriteBufferToFile(data, length, path);
}
