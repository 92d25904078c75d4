/*
 * The paths that the platform gives to its processes, and those that it takes from them.
 */
#include "paths.h"

#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "durable.h"
#include "interfaces.h"

namespace hosted {

namespace {

constexpr char kTmpfsPath[] = "/mnt/tmpfs";

/** What a path has behind the fixed folder: nothing, or a slash and more. Null when it does not lie there. */
const char *BelowTmpfs(const char *path) {
    constexpr size_t kLength = sizeof(kTmpfsPath) - 1;
    const bool below = strncmp(path, kTmpfsPath, kLength) == 0 && (path[kLength] == '/' || path[kLength] == '\0');
    return below ? path + kLength : nullptr;
}

}  // namespace

const char *TrustedSetting(const char *variable) {
    const char *const value = secure_getenv(variable);
    return value != nullptr && value[0] != '\0' ? value : nullptr;
}

HostPath::HostPath(const char *path) : path_(path) {
    const char *const rest = path != nullptr ? BelowTmpfs(path) : nullptr;
    const char *const root = rest != nullptr ? TrustedSetting("TAV_TMPFS_PATH") : nullptr;
    if (root != nullptr) {
        path_ = sprintf_s(mapped_, sizeof(mapped_), "%s%s", root, rest) >= 0 ? mapped_ : nullptr;
    }
}

}  // namespace hosted

uint32_t MEL_GetProcessCurrentPath(char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) {
        return EINVAL;
    }
    buffer[0] = '\0';
    char path[PATH_MAX];
    if (getcwd(path, sizeof(path)) == nullptr) {
        return hosted::LastError();
    }
    snprintf_truncated_s(buffer, size, "%s", path);
    return 0;
}

void MEL_GetSysWorkPath(char *buffer, uint32_t size) {
    const char *const path = hosted::PathSetting("TAV_WORK_PATH", "/var/lib/tav/");
    const bool slashMissing = path[strlen(path) - 1] != '/';
    snprintf_truncated_s(buffer, size, "%s%s", path, slashMissing ? "/" : "");
}
