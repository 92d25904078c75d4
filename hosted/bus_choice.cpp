/*
 * Which transport carries messages, and the module of the one that is not this machine's.
 *
 * The module stands beside this library and nowhere else: whoever can put something there could replace this library
 * itself. All the same a place that others may write to is refused, as a file or folder may be opened by mistake.
 */
#include "bus_choice.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <mutex>

#include "bus_port.h"
#include "interfaces.h"
#include "local_transport.h"
#include "paths.h"

namespace hosted {

namespace {

constexpr const char *kModuleName = "/libtav_fleet_bus.so";

/** The module, once it is loaded, and whether a failure has been told. */
struct Module {
    std::mutex loading;
    const BusTransport *transport = nullptr;
    bool isTold = false;
};
constinit Module module;

/** Tells why there is no module, once. Returns the code. */
[[gnu::cold]] uint32_t Complain(uint32_t code, const char *path, const char *why) {
    if (!module.isTold) {
        fprintf(stderr, "TAV_BUS_URL: %s: %s\n", path, why);
        module.isTold = true;
    }
    return code;
}

/** Returns whether nobody but this process's user and root may change a file or folder. */
bool IsClosed(const char *path) {
    struct stat status = {};
    return stat(path, &status) == 0 && (status.st_uid == geteuid() || status.st_uid == 0) &&
           (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

/** Finds the module beside this library, past links. Returns false when there is none. */
bool FindModule(char (&folder)[PATH_MAX], char (&path)[PATH_MAX]) {
    Dl_info here = {};
    if (dladdr(&kLocalTransport, &here) == 0 || here.dli_fname[0] != '/' ||
        realpath(here.dli_fname, folder) == nullptr) {
        return false;
    }
    *strrchr(folder, '/') = '\0';
    return sprintf_s(path, sizeof(path), "%s%s", folder, kModuleName) >= 0;
}

uint32_t LoadModule(const BusTransport **transport) {
    char folder[PATH_MAX] = "", path[PATH_MAX] = "";
    if (!FindModule(folder, path)) {
        return Complain(ELIBACC, kModuleName + 1, "it is looked for beside libtav_posix.so, whose path is not known");
    }
    if (access(path, F_OK) != 0) {
        return Complain(ELIBACC, path, strerror(errno));
    }
    if (!IsClosed(folder) || !IsClosed(path)) {
        return Complain(ELIBACC, path, "others may write to it or to its folder");
    }
    void *const handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return Complain(ELIBACC, path, dlerror());
    }
    const auto entry = reinterpret_cast<BusModuleEntry>(dlsym(handle, kBusModuleEntryName));
    *transport = entry != nullptr ? entry(&kBusHost, kBusModuleVersion) : nullptr;
    return *transport != nullptr ? 0 : Complain(ELIBBAD, path, "it is of another build");
}

}  // namespace

uint32_t ChooseTransport(const BusTransport **transport) {
    if (TrustedSetting("TAV_BUS_URL") == nullptr) {
        *transport = &kLocalTransport;
        return 0;
    }
    const std::lock_guard lock(module.loading);
    const uint32_t code = module.transport == nullptr ? LoadModule(&module.transport) : 0;
    *transport = module.transport;
    return code;
}

}  // namespace hosted
