/*
 * The CfgLocal: one open configuration file.
 */
#include "extcfg/store/local.h"

#include "common/log.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/id_index.h"
#include "extcfg/nodes/list.h"
#include "extcfg/nodes/valid.h"

CfgLocal *TAV_ExtCfgLocalCreate(uint32_t mode, const char *fileName, const char *referName) {
    FAIL_IF_NULL(nullptr, fileName);
    LOG("Mode %d, Filename %s", mode, fileName);
    auto *local = extcfg::kHeap.New<CfgLocal>();
    FAIL_IF_NULL(nullptr, local);
    local->magic = extcfg::kMagic;
    // The mode is kept in a byte; a value that a byte would cut to another mode is a read-write one like any other.
    local->mode = mode <= UINT8_MAX ? static_cast<uint8_t>(mode) : uint8_t{TAV_EXT_MODE_READ_WRITE};
    TAV_GetAbsPath(fileName, local->filePath, sizeof(local->filePath));
    LOG("File Path %s", local->filePath);
    if (referName != nullptr) {
        local->referFlag = 1;
        TAV_GetAbsPath(referName, local->referPath, sizeof(local->referPath));
        LOG("Refer File Path %s", local->referPath);
    }
    extcfg::InitList(&local->vsList);
    extcfg::InitIdIndex(&local->vsIndex);
    return local;
}

void TAV_ExtCfgLocalFree(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        LOG("Invalid CfgLocal");
        return;
    }
    LOG("Filename %s", local->filePath);
    extcfg::DropIdIndex(&local->vsIndex);
    for (TAV_ExtCfgVsNode *vs : extcfg::SystemsOf(local)) {
        SLL_Delete(&local->vsList, &vs->link);
        TAV_ExtCfgVsNodeFree(vs);
    }
    TAV_ExtCfgRecordNodeFree(local->queryDeleted);
    local->magic = 0;
    extcfg::kHeap.Return(local);
}

const char *extcfg::ReferPath(const CfgLocal *local) {
    return local->referFlag != 0 ? local->referPath : nullptr;
}
