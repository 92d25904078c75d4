/*
 * Reading archives from memory: what was opened once is read whole, whatever becomes of its name meanwhile. And a
 * backup can be read, which still holds the member of the name that it had.
 */
#include "session/archive.h"

#include <fmt/format.h>
#include <zip.h>

#include <cstring>
#include <memory>

#include "session/errors.h"
#include "tav_extcfg.h"

namespace session {

namespace {

struct Close {
    void operator()(zip_t *archive) const { zip_discard(archive); }
    void operator()(zip_file_t *member) const { zip_fclose(member); }
};
using Archive = std::unique_ptr<zip_t, Close>;
using Member = std::unique_ptr<zip_file_t, Close>;

Archive OpenArchive(const Block &bytes) {
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t *source = zip_source_buffer_create(bytes.bytes.get(), bytes.size, 0, &error);
    Archive archive(source != nullptr ? zip_open_from_source(source, ZIP_RDONLY, &error) : nullptr);
    if (source != nullptr && archive == nullptr) {
        zip_source_free(source);
    }
    zip_error_fini(&error);
    return archive;
}

/** The part of a member's name behind its folders, which do not count. */
const char *LastComponent(const char *name) {
    const char *const slash = strrchr(name, '/');
    return slash != nullptr ? slash + 1 : name;
}

}  // namespace

Block Unpack(const Block &archive, const std::string &member, const std::string &place) {
    const auto refuse = [&](const std::string &why) { throw tav::Error(TAV_ERR_INVALID, place, why); };
    const Archive opened = OpenArchive(archive);
    if (opened == nullptr) {
        refuse("it is not an archive, or a damaged one");
    }
    if (const zip_int64_t count = zip_get_num_entries(opened.get(), 0); count != 1) {
        refuse(fmt::format("the archive has {} members, it must have one", count));
    }
    zip_stat_t status;
    if (zip_stat_index(opened.get(), 0, ZIP_FL_ENC_RAW, &status) != 0) {
        refuse("the archive's member is damaged");
    }
    if (!member.empty() && LastComponent(status.name) != member) {
        refuse(fmt::format("the archive's member is named {}, not {}: was the archive renamed?",
                           LastComponent(status.name), member));
    }
    if (status.size == 0 || status.size > TAV_EXT_MAX_FILE_SIZE) {
        refuse(fmt::format("the archive's member has {} bytes, it must have 1 byte to 100 MiB", status.size));
    }
    Block block(static_cast<size_t>(status.size));
    const Member content(zip_fopen_index(opened.get(), 0, 0));
    char beyond = 0;
    const bool isWhole =
        content != nullptr &&
        zip_fread(content.get(), block.bytes.get(), block.size) == static_cast<zip_int64_t>(block.size) &&
        zip_fread(content.get(), &beyond, 1) == 0;  // this one checks the checksum
    if (!isWhole) {
        refuse("the archive's member is damaged");
    }
    return block;
}

}  // namespace session
