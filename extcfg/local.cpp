/*
 * The CfgLocal: one open configuration file.
 */
#include "common/log.h"
#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"

CfgLocal *TAV_ExtCfgLocalCreate(uint32_t mode, const char *fileName, const char *referName) {
    TAV_NONE_IF_NULL(fileName);
    TAV_LOG("Mode %d, Filename %s", mode, fileName);
    auto *local = static_cast<CfgLocal *>(TAV_TAKE(sizeof(CfgLocal)));
    TAV_NONE_IF_NULL(local);
    memset_s(local, sizeof(*local), 0, sizeof(*local));
    local->magic = extcfg::kMagic;
    /* The mode is kept in a byte; a value that a byte would cut to another mode is a read-write one like any other. */
    local->mode = mode <= UINT8_MAX ? static_cast<uint8_t>(mode) : uint8_t{TAV_EXT_MODE_READ_WRITE};
    TAV_GetAbsPath(fileName, local->filePath, sizeof(local->filePath));
    TAV_LOG("File Path %s", local->filePath);
    if (referName != nullptr) {
        local->referFlag = 1;
        TAV_GetAbsPath(referName, local->referPath, sizeof(local->referPath));
        TAV_LOG("Refer File Path %s", local->referPath);
    }
    extcfg::InitList(&local->vsList);
    return local;
}

void TAV_ExtCfgLocalFree(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_LOG("Invalid CfgLocal");
        return;
    }
    TAV_LOG("Filename %s", local->filePath);
    while (auto *vs = extcfg::FirstOf<TAV_ExtCfgVsNode>(&local->vsList)) {
        SLL_Delete(&local->vsList, &vs->link);
        TAV_ExtCfgVsNodeFree(vs);
    }
    local->magic = 0;
    TAV_GIVE_BACK(local);
}

uint32_t TAV_GetAbsPath(const char *path, char *out, uint32_t outSize) {
    if (path == nullptr || out == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    if (path[0] == '/') {
        return outSize != 0 && strncpy_s(out, outSize, path, outSize - 1) == 0 ? TAV_OK : TAV_ERR_COPY;
    }
    /* Without a current directory the name must not come to mean a file below the root. */
    if (MEL_GetProcessCurrentPath(out, outSize) != 0) {
        return TAV_ERR_COPY;
    }
    const uint32_t length = BEX_StrLen(out);
    snprintf_truncated_s(out + length, outSize - length, "/%s", path);
    return TAV_OK;
}
