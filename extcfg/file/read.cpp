/*
 * Reading files whole, plain or out of an archive.
 */
#include "extcfg/file/read.h"

#include "common/log.h"
#include "extcfg/file/names.h"
#include "extcfg/memory.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "tav_extcfg.h"

namespace {

constexpr char kUnzip[] = "TAV_UnZipExtCfgFileToBuffer";  // the name under which its helpers log

/** Returns whether a size is one that a file or member may have. */
bool IsLoadable(uint32_t size) {
    return size >= 1 && size <= TAV_EXT_MAX_FILE_SIZE;
}

/** Refuses an archive that is too large or does not hold exactly one member. */
uint32_t CheckArchive(const char *path) {
    uint32_t size = 0;
    uint32_t result = TAV_GetFileSize(path, &size);
    if (result != TAV_OK) {
        // The platform's own code, as the interface says; the plain reader gives TAV_ERR_OPEN.
        LOG_AS(kUnzip, "Get %s size failed, return 0x%x", path, result);
        return result;
    }
    if (size > TAV_EXT_MAX_FILE_SIZE) {
        LOG_AS(kUnzip, "File %s too large, size=%d", path, size);
        return TAV_ERR_READ;
    }
    uint16_t memberCount = 0;
    result = BEX_UnzipGetNumofFiles(path, &memberCount);
    if (result != 0) {
        LOG_AS(kUnzip, "Get file num of %s failed, return 0x%x", path, result);
        return result;
    }
    if (memberCount != 1) {
        LOG_AS(kUnzip, "File num of %s must be one, now is %d", path, memberCount);
        return TAV_ERR_INVALID;
    }
    return TAV_OK;
}

/** Finds an archive's only member: its name (TAV_EXT_PATH_SIZE bytes at `member`) and its size, which is loadable. */
uint32_t FindMember(const char *path, char *member, uint32_t *size) {
    uint32_t result = extcfg::MemberName(path, member);
    if (result != TAV_OK) {
        LOG_AS(kUnzip, "Replace suffix of %s failed, return 0x%x", path, result);
        return result;
    }
    result = ZIP_GetUncompressSize(member, path, size);
    if (result != 0) {
        LOG_AS(kUnzip, "GetUncompressSize of %s failed, return 0x%x", path, result);
        return result;
    }
    if (!IsLoadable(*size)) {
        LOG_AS(kUnzip, "File %s uncompressed size %d is invalid", path, *size);
        return TAV_ERR_READ;
    }
    return TAV_OK;
}

}  // namespace

uint32_t TAV_ReadFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path) {
    FAIL_IF_NULL(TAV_ERR_NULL, buffer, size, path);
    *buffer = nullptr;
    *size = 0;
    uint32_t fileSize = 0;
    const uint32_t result = TAV_GetFileSize(path, &fileSize);
    FAIL_UNLESS(TAV_ERR_OPEN, result == TAV_OK, "Get %s size failed, return 0x%x", path, result);
    FAIL_UNLESS(TAV_ERR_READ, IsLoadable(fileSize), "File %s empty or too large, size=%d", path, fileSize);
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "rb");
    FAIL_UNLESS(TAV_ERR_OPEN, file != nullptr, "Open %s failed", path);
    extcfg::OwnedBuffer data(static_cast<uint8_t *>(extcfg::kHeap.Take(fileSize)));
    const uint32_t amount = data != nullptr ? BEX_VFS_FRead(data.get(), fileSize, 1, file) : 0;
    BEX_VFS_FClose(file);
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, data);
    if (amount != fileSize) {
        data.reset();  // before the failure is reported
        FAIL(TAV_ERR_READ, "Read %s failed, len=%d, return 0x%x", path, fileSize, amount);
    }
    *buffer = data.release();
    *size = fileSize;
    return TAV_OK;
}

uint32_t TAV_UnZipExtCfgFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path) {
    FAIL_IF_NULL(TAV_ERR_NULL, buffer, size, path);
    *buffer = nullptr;
    *size = 0;
    uint32_t result = CheckArchive(path);
    if (result != TAV_OK) {
        return result;
    }
    char member[TAV_EXT_PATH_SIZE] = {};
    uint32_t memberSize = 0;
    result = FindMember(path, member, &memberSize);
    if (result != TAV_OK) {
        return result;
    }
    extcfg::OwnedBuffer data(static_cast<uint8_t *>(extcfg::kHeap.Take(memberSize)));
    FAIL_IF_NULL(TAV_ERR_NO_MEMORY, data);
    result = BEX_UnzipToBuffer(memberSize, data.get(), member, path);
    if (result != 0) {
        data.reset();  // before the failure is reported
        FAIL(TAV_ERR_OPEN, "uncompressed size %d in %s failed, return 0x%x", memberSize, path, result);
    }
    *buffer = data.release();
    *size = memberSize;
    return TAV_OK;
}

uint32_t extcfg::ReadImage(uint8_t **buffer, uint32_t *size, const char *path) {
    return IsArchive(path) ? TAV_UnZipExtCfgFileToBuffer(buffer, size, path) : TAV_ReadFileToBuffer(buffer, size, path);
}
