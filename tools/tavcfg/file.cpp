#include "file.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "errors.h"
#include "tav_extcfg.h"

namespace fs = std::filesystem;

namespace tavcfg {

namespace {

/** Longest absolute name: the library's buffers, less the four characters of ".bak" and of a member's ".dat". */
constexpr size_t kMaxPath = TAV_EXT_PATH_SIZE - 1 - 4;

}  // namespace

File NamedFile(const std::string &given) {
    if (given.empty()) {
        throw UsageError("a file name is empty");
    }
    std::error_code error;
    const fs::path real = fs::canonical(given, error);  // where links lead: its name tells what it is
    File file{given, (error ? fs::absolute(given) : real).string(), {}};
    if (file.path.size() > kMaxPath) {
        throw Failure(fmt::format("cannot use {}: its absolute name has {} characters, at most {} are possible", given,
                                  file.path.size(), kMaxPath));
    }
    if (TAV_CheckFileSuffix(file.path.c_str(), ".zip") == 1) {
        file.member = file.path + ".dat";
    }
    return file;
}

bool Exists(const File &file) {
    std::error_code error;
    const fs::file_status status = fs::symlink_status(file.path, error);
    if (status.type() == fs::file_type::none) {
        throw Failure(fmt::format("cannot look at {}: {}", file.given, error.message()));
    }
    return status.type() != fs::file_type::not_found;
}

bool SameFile(const File &a, const File &b) {
    std::error_code error;
    return a.path == b.path || fs::equivalent(a.path, b.path, error);
}

std::string ReadText(const std::string &name) {
    struct Close {
        void operator()(std::FILE *file) const { fclose(file); }
    };
    static bool hasReadInput = false;
    const bool isInput = name == "-";
    if (isInput && std::exchange(hasReadInput, true)) {
        throw UsageError("standard input is named twice, and can be read once");
    }
    const std::unique_ptr<std::FILE, Close> file(isInput ? nullptr : fopen(name.c_str(), "rb"));
    std::FILE *source = isInput ? stdin : file.get();
    std::string text;
    if (source != nullptr) {
        char buffer[1 << 16];
        while (const size_t count = fread(buffer, 1, sizeof(buffer), source)) {
            text.append(buffer, count);
        }
    }
    if (source == nullptr || ferror(source) != 0) {
        throw Failure(fmt::format("cannot read {}: {}", isInput ? "standard input" : name,
                                  std::generic_category().message(errno)));
    }
    return text;
}

}  // namespace tavcfg
