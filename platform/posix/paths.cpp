/*
 * The paths that the platform gives to its processes.
 */
#include <errno.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "interfaces.h"

namespace {

constexpr const char *kDefaultWorkPath = "/var/lib/tav/";

}  // namespace

uint32_t MEL_GetProcessCurrentPath(char *buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) {
        return EINVAL;
    }
    buffer[0] = '\0';
    char path[PATH_MAX];
    if (getcwd(path, sizeof path) == nullptr) {
        return static_cast<uint32_t>(errno);
    }
    snprintf_truncated_s(buffer, size, "%s", path);
    return 0;
}

void MEL_GetSysWorkPath(char *buffer, uint32_t size) {
    // A process with more rights than its starter does not let the starter choose where it writes.
    const char *path = secure_getenv("TAV_WORK_PATH");
    if (path == nullptr || path[0] == '\0') {
        path = kDefaultWorkPath;
    }
    const bool slashMissing = path[strlen(path) - 1] != '/';
    snprintf_truncated_s(buffer, size, "%s%s", path, slashMissing ? "/" : "");
}
