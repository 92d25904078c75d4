/*
 * Marks as JSON, replaced in one step.
 */
#include "fleet/store_mark.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <system_error>

#include "tav/error.h"
#include "tav_session.h"

namespace fleet {

namespace {

using Json = nlohmann::ordered_json;

Json ToJson(const Mark &mark) {
    return {{"store", mark.store},
            {"generation", mark.generation},
            {"sequence", mark.sequence},
            {"checksum", mark.checksum}};
}

std::optional<Mark> MarkOf(const Json &json, const char *name) {
    if (!json.contains(name)) {
        return {};
    }
    const Json &mark = json[name];
    return Mark{mark.at("store"), mark.at("generation"), mark.at("sequence"), mark.at("checksum")};
}

/** Writes a new file and brings it to the disk. Returns false and errno on failure. */
bool WriteFile(const std::string &path, const std::string &text) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return false;
    }
    const bool isWritten = fchmod(fd, 0600) == 0 &&  // whatever the umask
                           write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) && fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return isWritten;
}

}  // namespace

std::optional<Mark> Marks::Find(const std::string &checksum) const {
    return is && is->checksum == checksum ? is : was && was->checksum == checksum ? was : std::nullopt;
}

std::string MarkFile(const std::string &path) {
    const std::filesystem::path file(path);
    return (file.parent_path() / ("." + file.filename().string() + ".follow")).string();
}

Marks ReadMarks(const std::string &path) {
    try {
        std::ifstream file(MarkFile(path));
        const Json json = Json::parse(file);
        return {MarkOf(json, "is"), MarkOf(json, "was")};
    } catch (const Json::exception &) {
        return {};
    }
}

void WriteMarks(const std::string &path, const Marks &marks) {
    Json json = Json::object();
    for (const auto &[name, mark] : {std::pair("is", marks.is), std::pair("was", marks.was)}) {
        if (mark) {
            json[name] = ToJson(*mark);
        }
    }
    const std::string file = MarkFile(path), next = file + ".next";
    if (!WriteFile(next, json.dump() + "\n") || rename(next.c_str(), file.c_str()) != 0) {
        throw tav::Error(TAV_ERR_NOT_SAVED, file, std::generic_category().message(errno));
    }
}

}  // namespace fleet
