/*
 * Loading: a file is read whole, checked, parsed, and let go.
 */
#include "common/log.h"
#include "extcfg/file_read.h"
#include "extcfg/memory.h"

uint32_t TAV_LoadExtCfgFile(const char *path, TAV_ExtCfgFileContext *context) {
    TAV_LOG("Load %s start", path == nullptr ? "(null)" : path);
    if (path == nullptr || context == nullptr) {
        TAV_FAIL_NULL(TAV_ERR_NULL);
    }
    uint8_t *image = nullptr;
    uint32_t size = 0;
    uint32_t result = extcfg::ReadImage(&image, &size, path);
    extcfg::OwnedBuffer owned(image);
    if (result != TAV_OK || image == nullptr) {
        TAV_LOG("Read %s failed, return 0x%x", path, result);
    } else {
        result = TAV_ParseExtCfgFileData(image, size, context);
        if (result != TAV_OK) {
            TAV_LOG("TAV_ParseExtCfgFile failed, return 0x%x", result);
        }
    }
    owned.reset(); /* before the end is reported */
    TAV_LOG("Load %s end", path);
    return result;
}
