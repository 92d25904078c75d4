/*
 * Loading: a file is read whole, checked, parsed into the context's store, and its image let go.
 */
#include "common/log.h"
#include "extcfg/file/read.h"
#include "extcfg/memory.h"
#include "tav_extcfg.h"

uint32_t TAV_LoadExtCfgFile(const char *path, TAV_ExtCfgFileContext *context) {
    LOG("Load %s start", path == nullptr ? "(null)" : path);
    FAIL_IF_NULL(TAV_ERR_NULL, path, context);
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = extcfg::ReadImage(&image, &size, path);
    extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK || image == nullptr) {
        LOG("Read %s failed, return 0x%x", path, result);
    } else {
        result = TAV_ParseExtCfgFileData(image, size, context);
        if (result != TAV_OK) {
            LOG("TAV_ParseExtCfgFile failed, return 0x%x", result);
        }
    }
    owned.reset();  // before the end is reported
    // Where these pointed is gone.
    context->image = nullptr;
    context->foundValue = nullptr;
    context->storedChecksum = nullptr;
    LOG("Load %s end", path);
    return result;
}
