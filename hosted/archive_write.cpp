/*
 * Writing an archive with one member.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include <algorithm>
#include <memory>

#include "archive.h"
#include "durable.h"
#include "interfaces.h"
#include "paths.h"

using hosted::Archive;
using hosted::LastCode;

namespace {

/** What libzip writes a new archive to. */
struct FreeSource {
    void operator()(zip_source_t *source) const { zip_source_free(source); }
};
using Source = std::unique_ptr<zip_source_t, FreeSource>;

/** Gives a member the system time, GMT. Left to itself, libzip would take that of the time zone. */
int SetTime(zip_t *zip, zip_uint64_t index) {
    BEX_SysTime now = {};
    BEX_SystimeGet(&now);
    const int year = std::clamp<int>(now.year, 1980, 2107) - 1980;  // what an archive can say
    const int date = year << 9 | now.month << 5 | now.day;
    const int time = now.hour << 11 | now.minute << 5 | now.second / 2;
    return zip_file_set_dostime(zip, index, static_cast<zip_uint16_t>(time), static_cast<zip_uint16_t>(date), 0);
}

/** Adds the data to a new archive as its only member. */
uint32_t AddMember(zip_t *zip, const char *name, const void *data, uint32_t length, uint32_t level) {
    zip_source_t *const source = zip_source_buffer(zip, data, length, 0);
    if (source == nullptr) {
        return LastCode(zip);
    }
    const zip_int64_t index = zip_file_add(zip, name, source, ZIP_FL_ENC_GUESS);
    if (index < 0) {
        zip_source_free(source);
        return LastCode(zip);
    }
    const auto member = static_cast<zip_uint64_t>(index);
    const bool isSet = zip_set_file_compression(zip, member, ZIP_CM_DEFLATE, level) == 0 && SetTime(zip, member) == 0;
    return isSet ? 0 : LastCode(zip);
}

/** Writes a piece of a new archive. Returns its length, or -1. */
zip_int64_t WritePiece(int fd, const void *piece, zip_uint64_t length) {
    const auto wanted = static_cast<uint32_t>(length);
    return hosted::WriteAll(fd, piece, wanted) == wanted ? static_cast<zip_int64_t>(wanted) : -1;
}

/**
 * Moves to where the next piece belongs: the member's sizes are only known, and filled in, behind it. Returns 0, or -1.
 */
zip_int64_t SeekPiece(int fd, void *arguments, zip_uint64_t length) {
    const auto *const to = ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, arguments, length, nullptr);
    return to != nullptr && lseek(fd, to->offset, to->whence) >= 0 ? 0 : -1;
}

/**
 * Serves libzip as the place of a new archive, which is an open, empty file. Left to itself, libzip would write to a
 * name of its own and not sync it.
 */
zip_int64_t ServeDraft(void *descriptor, void *data, zip_uint64_t length, zip_source_cmd_t command) {
    const int fd = *static_cast<const int *>(descriptor);
    switch (command) {
        case ZIP_SOURCE_SUPPORTS:
            return ZIP_SOURCE_SUPPORTS_WRITABLE;
        case ZIP_SOURCE_STAT:
            zip_stat_init(static_cast<zip_stat_t *>(data));
            return sizeof(zip_stat_t);
        case ZIP_SOURCE_WRITE:
            return WritePiece(fd, data, length);
        case ZIP_SOURCE_SEEK_WRITE:
            return SeekPiece(fd, data, length);
        case ZIP_SOURCE_TELL_WRITE:
            return lseek(fd, 0, SEEK_CUR);
        case ZIP_SOURCE_ERROR: {
            const int codes[] = {ZIP_ER_WRITE, errno};
            memcpy(data, codes, sizeof(codes));
            return sizeof(codes);
        }
        default:
            return 0;  // nothing to prepare, to undo or to read
    }
}

/** Makes an open, empty file the place of a new archive, as long as `fd` lives. */
uint32_t CreateArchive(int *fd, Archive *archive) {
    zip_error_t error;
    zip_error_init(&error);
    Source draft(zip_source_function_create(ServeDraft, fd, &error));
    archive->reset(draft ? zip_open_from_source(draft.get(), ZIP_TRUNCATE, &error) : nullptr);
    if (*archive) {
        static_cast<void>(draft.release());  // the archive's now
    }
    const uint32_t code = *archive ? 0 : hosted::CodeOf(zip_error_code_zip(&error));
    zip_error_fini(&error);
    return code;
}

/**
 * Writes an archive with one member into an open, empty file and brings it to stable storage, with the permission bits
 * of a configuration file.
 */
uint32_t WriteArchive(const char *name, const void *data, uint32_t length, uint32_t level, int fd) {
    Archive archive;
    uint32_t code = CreateArchive(&fd, &archive);
    if (code == 0) {
        code = AddMember(archive.get(), name, data, length, level);
    }
    if (code != 0) {
        return code;
    }
    if (zip_close(archive.get()) != 0) {
        return LastCode(archive.get());
    }
    static_cast<void>(archive.release());  // a successful close has freed it
    return fchmod(fd, hosted::kFileMode) == 0 && hosted::SyncData(fd) == 0 ? 0 : ZIP_ER_WRITE;
}

}  // namespace

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t /*flags*/,
                       int32_t level) {
    const char *const name = member != nullptr ? hosted::LastComponent(member) : "";
    const hosted::HostPath host(archive);
    if (data == nullptr || *name == '\0' || host.Get() == nullptr || level < 1 || level > 9) {
        return ZIP_ER_INVAL;
    }
    // The archive is written under another name and takes its own only when it is complete and on stable storage.
    char draft[PATH_MAX];
    if (sprintf_s(draft, sizeof(draft), "%s.XXXXXX", host.Get()) < 0) {
        return ZIP_ER_INVAL;
    }
    const int fd = mkostemp(draft, O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_TMPOPEN;
    }
    uint32_t code = WriteArchive(name, data, length, static_cast<uint32_t>(level), fd);
    close(fd);
    if (code == 0 && hosted::RenameDurably(draft, host.Get()) != 0) {
        code = ZIP_ER_RENAME;
    }
    if (code != 0) {
        unlink(draft);
    }
    return code;
}
