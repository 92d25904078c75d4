/*
 * Following links to the real file.
 */
#include "session/place.h"

#include <fmt/format.h>

#include <filesystem>

#include "session/errors.h"
#include "tav_extcfg.h"

namespace fs = std::filesystem;

namespace session {

namespace {

constexpr int kMaxLinks = 40;  // as many as the kernel follows

/** Follows links of the last component, also those that lead to no file: a commit would make that file. */
fs::path FollowLinks(const std::string &given) {
    fs::path path = given;
    std::error_code error;
    for (int i = 0; fs::is_symlink(fs::symlink_status(path, error)); ++i) {
        if (i == kMaxLinks) {
            FailOfSystem(TAV_ERR_OPEN, given, "cannot be found", ELOOP);
        }
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            FailOfSystem(TAV_ERR_OPEN, given, "its link cannot be read", error.value());
        }
        path = path.parent_path() / target;  // an absolute target replaces all
    }
    return path;
}

}  // namespace

void RequireNoZero(const std::string &path) {
    if (path.find('\0') != std::string::npos) {  // behind which the system would see nothing
        throw tav::Error(TAV_ERR_INVALID, path.c_str(), "the name of a file cannot hold a zero byte");
    }
}

Place Resolve(const std::string &given) {
    if (given.empty()) {
        throw tav::Error(TAV_ERR_INVALID, "", "the name of the file is empty");
    }
    RequireNoZero(given);
    const fs::path path = FollowLinks(given);
    const fs::path parent = path.has_parent_path() ? path.parent_path() : ".";
    std::error_code error;
    const fs::path folder = fs::canonical(parent, error);
    const auto refuseFolder = [&](int code) {
        FailOfSystem(TAV_ERR_OPEN, given, "its folder " + parent.string() + " cannot be used", code);
    };
    if (error) {
        refuseFolder(error.value());
    }
    Place place{given, folder.string(), path.filename()};
    if (place.name.empty() || place.name == "." || place.name == "..") {
        throw tav::Error(TAV_ERR_INVALID, given, "this names a folder, not a file");
    }
    if (!fs::is_directory(folder, error)) {
        refuseFolder(ENOTDIR);
    }
    const size_t length = place.Draft().size() + std::string(".dat").size();
    if (length >= TAV_EXT_PATH_SIZE) {
        throw tav::Error(TAV_ERR_INVALID, given,
                         fmt::format("its absolute name is {} characters too long; move it, or shorten its name",
                                     length - TAV_EXT_PATH_SIZE + 1));
    }
    return place;
}

}  // namespace session
