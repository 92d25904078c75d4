/*
 * Paths: where the environment of a process says that things are, and where the fixed folders really stand.
 */
#ifndef HOSTED_PATHS_H
#define HOSTED_PATHS_H

#include <climits>

namespace hosted {

/**
 * Reads a variable of the environment that decides where the process reads and writes. A process with more rights than
 * its starter does not let the starter choose that.
 *
 * @return the value, valid as long as the environment does not change; null when it is not set, empty, or not to be
 *         trusted
 */
const char *TrustedSetting(const char *variable);

/**
 * Returns the path that an environment variable sets, or a fallback when TrustedSetting gives null.
 */
inline const char *PathSetting(const char *variable, const char *fallback) {
    const char *const path = TrustedSetting(variable);
    return path != nullptr ? path : fallback;
}

/**
 * A path that a caller gave, as the system is to be asked for it: what lies below the fixed folder /mnt/tmpfs is looked
 * for below TAV_TMPFS_PATH when that is set. Callers go on with the path they know; every call maps it anew, once.
 */
class HostPath {
  public:
    /** @param path  the caller's path, which this object may refer to as long as it lives; may be null */
    explicit HostPath(const char *path);
    HostPath(const HostPath &) = delete;
    HostPath &operator=(const HostPath &) = delete;

    /** The path for the system; null when none was given, or when it gets too long. */
    const char *Get() const { return path_; }

  private:
    const char *path_;       // the caller's path or `mapped_`
    char mapped_[PATH_MAX];  // filled in only when the path is mapped
};

}  // namespace hosted

#endif
