/*
 * Reading files whole, plain or out of an archive, and the small helpers about names and sizes.
 */
#include "extcfg/file_read.h"

#include "common/log.h"
#include "extcfg/memory.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "tav_extcfg.h"

namespace {

/** Tells whether a size is one that a file or member may have. */
bool IsLoadable(uint32_t size) {
    return size >= 1 && size <= TAV_EXT_MAX_FILE_SIZE;
}

}  // namespace

uint32_t TAV_GetFileSize(const char *path, uint32_t *size) {
    if (path == nullptr || size == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    BEX_VFS_StatInfo info = {};
    const uint32_t result = BEX_VFS_Stat(path, &info);
    if (result != 0) {
        *size = 0;
        return result;
    }
    /* Cut to 32 bits, a huge file would pass for a small one. */
    *size = info.size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(info.size);
    return TAV_OK;
}

uint32_t TAV_CheckFileSuffix(const char *name, const char *suffix) {
    if (name == nullptr || suffix == nullptr) {
        TAV_FAIL_NULL(0u);
    }
    const uint32_t nameLength = BEX_StrLen(name);
    const uint32_t suffixLength = BEX_StrLen(suffix);
    if (suffixLength >= nameLength) {
        TAV_FAIL(0, "Suffix len %d too large, filename len %d", suffixLength, nameLength);
    }
    return BEX_StrCmp(name + nameLength - suffixLength, suffix) == 0 ? 1 : 0;
}

uint32_t TAV_ReplaceFileSuffix(const char *name, const char *suffix, char *out, uint32_t outSize) {
    if (name == nullptr || suffix == nullptr || out == nullptr || BEX_StrRChr(name, '.') == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_INVALID);
    }
    /* The suffix is put behind the whole name; the old one stays, on purpose: archives out there hold such members. */
    return sprintf_s(out, outSize, "%s%s", name, suffix) < 0 ? TAV_ERR_COPY : TAV_OK;
}

uint32_t TAV_ReadFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path) {
    if (buffer == nullptr || size == nullptr || path == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    *buffer = nullptr;
    *size = 0;
    uint32_t fileSize = 0;
    const uint32_t result = TAV_GetFileSize(path, &fileSize);
    if (result != TAV_OK) {
        TAV_FAIL(TAV_ERR_OPEN, "Get %s size failed, return 0x%x", path, result);
    }
    if (!IsLoadable(fileSize)) {
        TAV_FAIL(TAV_ERR_READ, "File %s empty or too large, size=%d", path, fileSize);
    }
    BEX_VFS_File *file = BEX_VFS_FOpen(path, "rb");
    if (file == nullptr) {
        TAV_FAIL(TAV_ERR_OPEN, "Open %s failed", path);
    }
    auto *data = static_cast<uint8_t *>(TAV_TAKE(fileSize));
    if (data == nullptr) {
        BEX_VFS_FClose(file);
        TAV_FAIL_NULL(TAV_ERR_NO_MEMORY);
    }
    const uint32_t amount = BEX_VFS_FRead(data, fileSize, 1, file);
    BEX_VFS_FClose(file);
    if (amount != fileSize) {
        TAV_GIVE_BACK(data);
        TAV_FAIL(TAV_ERR_READ, "Read %s failed, len=%d, return 0x%x", path, fileSize, amount);
    }
    *buffer = data;
    *size = fileSize;
    return TAV_OK;
}

uint32_t TAV_UnZipExtCfgFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path) {
    if (buffer == nullptr || size == nullptr || path == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    *buffer = nullptr;
    *size = 0;
    uint32_t archiveSize = 0;
    uint32_t result = TAV_GetFileSize(path, &archiveSize);
    if (result != TAV_OK) {
        /* The size's own code, on purpose not the one that the plain reader gives. */
        TAV_FAIL(result, "Get %s size failed, return 0x%x", path, result);
    }
    if (archiveSize > TAV_EXT_MAX_FILE_SIZE) {
        TAV_FAIL(TAV_ERR_READ, "File %s too large, size=%d", path, archiveSize);
    }
    uint16_t memberCount = 0;
    result = BEX_UnzipGetNumofFiles(path, &memberCount);
    if (result != 0) {
        TAV_FAIL(result, "Get file num of %s failed, return 0x%x", path, result);
    }
    if (memberCount != 1) {
        TAV_FAIL(TAV_ERR_INVALID, "File num of %s must be one, now is %d", path, memberCount);
    }
    char member[TAV_EXT_PATH_SIZE] = {};
    result = TAV_ReplaceFileSuffix(path, ".dat", member, sizeof(member));
    if (result != TAV_OK) {
        TAV_FAIL(result, "Replace suffix of %s failed, return 0x%x", path, result);
    }
    uint32_t memberSize = 0;
    result = ZIP_GetUncompressSize(member, path, &memberSize);
    if (result != 0) {
        TAV_FAIL(result, "GetUncompressSize of %s failed, return 0x%x", path, result);
    }
    if (!IsLoadable(memberSize)) {
        TAV_FAIL(TAV_ERR_READ, "File %s uncompressed size %d is invalid", path, memberSize);
    }
    auto *data = static_cast<uint8_t *>(TAV_TAKE(memberSize));
    TAV_RETURN_IF_NULL(data, TAV_ERR_NO_MEMORY);
    result = BEX_UnzipToBuffer(memberSize, data, member, path);
    if (result != 0) {
        TAV_GIVE_BACK(data);
        TAV_FAIL(TAV_ERR_OPEN, "uncompressed size %d in %s failed, return 0x%x", memberSize, path, result);
    }
    *buffer = data;
    *size = memberSize;
    return TAV_OK;
}

uint32_t extcfg::ReadImage(uint8_t **buffer, uint32_t *size, const char *path) {
    return TAV_CheckFileSuffix(path, ".zip") == 1 ? TAV_UnZipExtCfgFileToBuffer(buffer, size, path)
                                                  : TAV_ReadFileToBuffer(buffer, size, path);
}
