/*
 * The numbered settings of a process: variables of its environment.
 */
#include <cerrno>

#include "interfaces.h"
#include "number.h"
#include "paths.h"

uint32_t MEL_GetEnvValue(uint32_t number, uint32_t *value) {
    char name[sizeof("TAV_ENV_4294967295")];
    if (value == nullptr || sprintf_s(name, sizeof(name), "TAV_ENV_%u", number) < 0) {
        return EINVAL;
    }
    const char *const setting = hosted::TrustedSetting(name);
    if (setting == nullptr) {
        return ENOENT;
    }
    return hosted::ParseNumber(setting, value) ? 0 : EINVAL;
}
