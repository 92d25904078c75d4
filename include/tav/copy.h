/*
 * A configuration file copied byte for byte.
 */
#ifndef TAV_COPY_H
#define TAV_COPY_H

#include <string>

#include "tav/error.h"
#include "tav/session.h"

namespace tav {

/** How a file is copied. */
struct CopyOptions {
    ReadOptions read = {};    /**< how the file is read; how long to wait for the target's lock, too */
    bool replaces = false;    /**< whether a target that is there loses what it holds */
    std::string comment = {}; /**< what the target's history keeps about it, UTF-8 */
};

/**
 * Copies a file that loads to another, plain or archive by the names of both, with every byte of the image: also those
 * that no record shows, and the modify time. The target is changed under its lock and in one step, as by a session; its
 * mode and owner stay.
 *
 * @return false when the target holds the same image already; it is not touched then. Throws Error: as Snapshot for the
 *         file; as Session for the target, and TAV_ERR_REFUSED when it is there and may not be replaced;
 *         TAV_ERR_INVALID when both are the same file, or the target is no configuration file that loads
 */
TAV_VISIBLE bool Copy(const std::string &from, const std::string &to, const CopyOptions &options = {});

}  // namespace tav

#endif
