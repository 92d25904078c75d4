/*
 * Opening and closing a store.
 */
#include "common/log.h"
#include "extcfg/nodes/valid.h"
#include "extcfg/store/local.h"
#include "tav_extcfg_nodes.h"

CfgLocal *TAV_ExtCfgOpen(uint32_t mode, const char *fileName, const char *referName) {
    FAIL_IF_NULL(nullptr, fileName);
    CfgLocal *local = TAV_ExtCfgLocalCreate(mode, fileName, referName);
    FAIL_IF_NULL(nullptr, local);
    if (local->mode == TAV_EXT_MODE_WRITE_ONLY) {
        return local;
    }
    TAV_ExtCfgFileContext context = {};
    context.local = local;
    context.referPath = extcfg::ReferPath(local);
    const uint32_t result = TAV_LoadExtCfgFile(local->filePath, &context);
    if (result == TAV_OK) {
        return local;
    }
    LOG("Load file %s failed, return 0x%x", local->filePath, result);
    // A file that is not there, or of which nothing was loaded, starts an empty store; the next flush makes it.
    if (local->mode != TAV_EXT_MODE_READ_ONLY && local->vsList.count == 0) {
        return local;
    }
    TAV_ExtCfgLocalFree(local);
    return nullptr;
}

uint32_t TAV_ExtCfgClose(CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, extcfg::IsValid(local), "Invalid CfgLocal");
    TAV_ExtCfgEndQuery(local);
    TAV_ExtCfgLocalFree(local);
    return TAV_OK;
}

CfgLocal *TAV_ExtCfgOpenAndQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, const char *fileName,
                                 const char *referName) {
    FAIL_IF_NULL(nullptr, condition, fileName);
    CfgLocal *local = TAV_ExtCfgOpen(TAV_EXT_MODE_READ_ONLY, fileName, referName);
    FAIL_IF_NULL(nullptr, local);
    const uint32_t result = TAV_ExtCfgStartQuery(vsId, condition, local);
    if (result != TAV_OK) {
        LOG("Start query return 0x%x, VS %d filename %s", result, vsId, fileName);
        TAV_ExtCfgClose(local);
        return nullptr;
    }
    return local;
}
