/*
 * Names and sizes of files: suffixes, absolute paths, and how large a file is.
 */
#include "extcfg/file/names.h"

#include "common/log.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "tav_extcfg.h"

uint32_t TAV_GetFileSize(const char *path, uint32_t *size) {
    FAIL_IF_NULL(TAV_ERR_NULL, path, size);
    BEX_VFS_StatInfo info = {};
    const uint32_t result = BEX_VFS_Stat(path, &info);
    if (result != 0) {
        *size = 0;
        return result;
    }
    // Cut to 32 bits, a huge file would pass for a small one.
    *size = info.size > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(info.size);
    return TAV_OK;
}

uint32_t TAV_CheckFileSuffix(const char *name, const char *suffix) {
    FAIL_IF_NULL(0u, name, suffix);
    const uint32_t nameLength = BEX_StrLen(name);
    const uint32_t suffixLength = BEX_StrLen(suffix);
    FAIL_UNLESS(0, suffixLength < nameLength, "Suffix len %d too large, filename len %d", suffixLength, nameLength);
    return BEX_StrCmp(name + nameLength - suffixLength, suffix) == 0 ? 1 : 0;
}

uint32_t TAV_ReplaceFileSuffix(const char *name, const char *suffix, char *out, uint32_t outSize) {
    FAIL_IF_NULL(TAV_ERR_INVALID, name, suffix, out, BEX_StrRChr(name, '.'));
    // The old suffix stays and the new one follows the whole name: archives out there hold members of such names.
    return sprintf_s(out, outSize, "%s%s", name, suffix) < 0 ? TAV_ERR_COPY : TAV_OK;
}

uint32_t TAV_GetAbsPath(const char *path, char *out, uint32_t outSize) {
    FAIL_IF_NULL(TAV_ERR_NULL, path, out);
    if (path[0] == '/') {
        return outSize != 0 && strncpy_s(out, outSize, path, outSize - 1) == 0 ? TAV_OK : TAV_ERR_COPY;
    }
    // Without a current directory the name must not come to mean a file below the root.
    if (MEL_GetProcessCurrentPath(out, outSize) != 0) {
        return TAV_ERR_COPY;
    }
    const uint32_t length = BEX_StrLen(out);
    snprintf_truncated_s(out + length, outSize - length, "/%s", path);
    return TAV_OK;
}

bool extcfg::IsArchive(const char *path) {
    return TAV_CheckFileSuffix(path, ".zip") == 1;
}

uint32_t extcfg::MemberName(const char *path, char *member) {
    return TAV_ReplaceFileSuffix(path, ".dat", member, TAV_EXT_PATH_SIZE);
}
