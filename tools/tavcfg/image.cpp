#include "image.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <new>
#include <system_error>

#include "errors.h"
#include "platform/bex_zip.h"
#include "platform/mel_memory.h"
#include "tav_extcfg.h"

namespace fs = std::filesystem;

namespace tavcfg {

namespace {

/** Throws Damage for a file that was read and cannot be what it should be. */
[[noreturn]] void RefuseContent(const File &file, const std::string &why) {
    throw Damage(fmt::format("cannot read {}: {}", file.given, why));
}

Image ReadPlain(const File &file) {
    RequireReadable(file);
    uint8_t *buffer = nullptr;
    Image image;
    const uint32_t code = TAV_ReadFileToBuffer(&buffer, &image.size, file.path.c_str());
    image.data.reset(buffer);
    if (code != TAV_OK) {
        throw Failure(fmt::format("cannot read {}: {}", file.given, tav::CodeText(code)));
    }
    return image;
}

/**
 * Reads the only member of an archive through the platform. The library's own reader derives the member's name from
 * the archive's, so it cannot read the backup of an archive; and it does not tell what is wrong.
 */
Image ReadArchive(const File &file) {
    RequireReadable(file);
    const char *archive = file.path.c_str();
    const char *member = file.member.c_str();
    uint16_t count = 0;
    if (BEX_UnzipGetNumofFiles(archive, &count) != 0) {
        RefuseContent(file, "it is not an archive, or a damaged one");
    }
    if (count != 1) {
        RefuseContent(file, fmt::format("the archive has {} members, it must have one", count));
    }
    Image image;
    if (ZIP_GetUncompressSize(member, archive, &image.size) != 0) {
        RefuseContent(file, fmt::format("the archive's member is not named {} (see convert --any-member)",
                                        fs::path(file.member).filename().string()));
    }
    if (image.size == 0 || image.size > TAV_EXT_MAX_FILE_SIZE) {
        RefuseContent(file,
                      fmt::format("the archive's member has {} bytes, it must have 1 byte to 100 MiB", image.size));
    }
    image.data.reset(
        static_cast<uint8_t *>(MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], image.size, "tavcfg", __LINE__)));
    if (image.data == nullptr) {
        throw std::bad_alloc();
    }
    if (BEX_UnzipToBuffer(image.size, image.data.get(), member, archive) != 0) {
        RefuseContent(file, "the archive's member is damaged");
    }
    return image;
}

}  // namespace

void BlockFree::operator()(uint8_t *block) const {
    MEL_Free_F(block, "tavcfg", __LINE__);
}

void RequireReadable(const File &file) {
    const auto refuse = [&](const std::string &why) {
        throw Failure(fmt::format("cannot read {}: {}", file.given, why));
    };
    std::error_code error;
    const fs::file_status status = fs::status(file.path, error);
    if (std::error_code ignored; !fs::exists(status) && fs::exists(file.path + ".bak", ignored)) {
        refuse(fmt::format("it is missing, but a backup lies beside it, {0}.bak; recover it: tavcfg recover {0}",
                           file.given));
    }
    if (!fs::exists(status)) {
        refuse(error ? error.message() : "No such file or directory");
    }
    if (!fs::is_regular_file(status)) {
        refuse(fs::is_directory(status) ? "it is a directory" : "it is not a regular file");
    }
    if (access(file.path.c_str(), R_OK) != 0) {
        refuse(std::generic_category().message(errno));
    }
    const uintmax_t size = fs::file_size(file.path, error);
    if (!error && size == 0) {
        RefuseContent(file, "it is empty");
    }
    if (!error && size > TAV_EXT_MAX_FILE_SIZE) {
        RefuseContent(file,
                      fmt::format("{} has {} bytes, more than 100 MiB", file.IsArchive() ? "the archive" : "it", size));
    }
}

Image ReadImage(const File &file) {
    return file.IsArchive() ? ReadArchive(file) : ReadPlain(file);
}

}  // namespace tavcfg
