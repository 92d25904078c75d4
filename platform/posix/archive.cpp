/*
 * Zip archives, on libzip.
 *
 * Codes are libzip's error codes (ZIP_ER_...). A member goes by the last component of its name, on both sides: the
 * folders that another tool may have stored with it do not count.
 */
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <memory>

#include "durable.h"
#include "interfaces.h"

namespace {

// An archive that is only read, or whose changes are given up.
struct Discard {
    void operator()(zip_t *zip) const { zip_discard(zip); }
};
using Archive = std::unique_ptr<zip_t, Discard>;

struct CloseMember {
    void operator()(zip_file_t *member) const { zip_fclose(member); }
};
using Member = std::unique_ptr<zip_file_t, CloseMember>;

// The error of an archive as a code that is never 0.
uint32_t CodeOf(int zipError) {
    return static_cast<uint32_t>(zipError != ZIP_ER_OK ? zipError : ZIP_ER_INTERNAL);
}

uint32_t LastCode(zip_t *zip) {
    return CodeOf(zip_error_code_zip(zip_get_error(zip)));
}

const char *LastComponent(const char *name) {
    const char *const slash = strrchr(name, '/');
    return slash != nullptr ? slash + 1 : name;
}

// Opens an archive for reading. Only regular files are opened: a pipe would hang the caller.
uint32_t OpenForReading(const char *path, Archive *archive) {
    if (BEX_VFS_IsFileExist(path) == 0) {
        return ZIP_ER_NOENT;
    }
    int error = ZIP_ER_OK;
    archive->reset(zip_open(path, ZIP_RDONLY, &error));
    return *archive ? 0 : CodeOf(error);
}

// A member of an open archive.
struct FoundMember {
    Archive archive;         // open as long as this lives
    zip_uint64_t index = 0;  // the member's place in it
    zip_uint64_t size = 0;   // its uncompressed size in bytes
};

// Opens an archive and finds a member in it.
uint32_t OpenAndFind(const char *path, const char *name, FoundMember *member) {
    if (path == nullptr || name == nullptr) {
        return ZIP_ER_INVAL;
    }
    const uint32_t code = OpenForReading(path, &member->archive);
    if (code != 0) {
        return code;
    }
    zip_t *const zip = member->archive.get();
    const zip_int64_t found = zip_name_locate(zip, LastComponent(name), ZIP_FL_NODIR | ZIP_FL_ENC_RAW);
    zip_stat_t status;
    if (found < 0 || zip_stat_index(zip, static_cast<zip_uint64_t>(found), 0, &status) != 0) {
        return LastCode(zip);
    }
    if ((status.valid & ZIP_STAT_SIZE) == 0) {
        return ZIP_ER_INCONS;
    }
    member->index = static_cast<zip_uint64_t>(found);
    member->size = status.size;
    return 0;
}

// Reads exactly `size` bytes of a member, and its end: only there the checksum is compared.
uint32_t ReadWhole(zip_file_t *member, void *buffer, uint32_t size) {
    uint32_t done = 0;
    zip_int64_t got = 1;
    while (done < size && got > 0) {
        got = zip_fread(member, static_cast<char *>(buffer) + done, size - done);
        done += got > 0 ? static_cast<uint32_t>(got) : 0;
    }
    char beyond = 0;
    if (done == size) {
        got = zip_fread(member, &beyond, sizeof beyond);
    }
    if (got < 0) {
        return CodeOf(zip_error_code_zip(zip_file_get_error(member)));
    }
    return done == size && got == 0 ? 0 : ZIP_ER_INCONS;
}

// Adds the data to a new archive as its only member.
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
    const bool set = zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, level) == 0;
    return set ? 0 : LastCode(zip);
}

// Writes an archive with one member over the file at `path`.
uint32_t WriteArchive(const char *path, const char *name, const void *data, uint32_t length, uint32_t level) {
    int error = ZIP_ER_OK;
    Archive archive(zip_open(path, ZIP_CREATE | ZIP_TRUNCATE, &error));
    if (!archive) {
        return CodeOf(error);
    }
    const uint32_t code = AddMember(archive.get(), name, data, length, level);
    if (code != 0) {
        return code;
    }
    if (zip_close(archive.get()) != 0) {
        return LastCode(archive.get());
    }
    archive.release();  // a successful close has freed it
    return 0;
}

// Brings a finished archive to stable storage, with the permission bits of a configuration file.
uint32_t FinishArchive(const char *path) {
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_OPEN;
    }
    const bool finished = fchmod(fd, kFileMode) == 0 && SyncData(fd) == 0;
    close(fd);
    return finished ? 0 : ZIP_ER_WRITE;
}

}  // namespace

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t /*flags*/,
                       int32_t level) {
    const char *const name = member != nullptr ? LastComponent(member) : "";
    if (data == nullptr || *name == '\0' || archive == nullptr || level < 1 || level > 9) {
        return ZIP_ER_INVAL;
    }
    // The archive grows under another name and takes its own only when it is complete and on stable storage.
    char draft[PATH_MAX];
    if (sprintf_s(draft, sizeof draft, "%s.XXXXXX", archive) < 0) {
        return ZIP_ER_INVAL;
    }
    const int fd = mkostemp(draft, O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_TMPOPEN;
    }
    close(fd);
    uint32_t code = WriteArchive(draft, name, data, length, static_cast<uint32_t>(level));
    if (code == 0) {
        code = FinishArchive(draft);
    }
    if (code == 0 && RenameDurably(draft, archive) != 0) {
        code = ZIP_ER_RENAME;
    }
    if (code != 0) {
        unlink(draft);
    }
    return code;
}

uint32_t BEX_UnzipGetNumofFiles(const char *archive, uint16_t *count) {
    if (archive == nullptr || count == nullptr) {
        return ZIP_ER_INVAL;
    }
    Archive opened;
    const uint32_t code = OpenForReading(archive, &opened);
    if (code != 0) {
        return code;
    }
    const zip_int64_t entries = zip_get_num_entries(opened.get(), 0);
    *count = entries < UINT16_MAX ? static_cast<uint16_t>(entries) : UINT16_MAX;
    return 0;
}

uint32_t ZIP_GetUncompressSize(const char *member, const char *archive, uint32_t *size) {
    if (size == nullptr) {
        return ZIP_ER_INVAL;
    }
    FoundMember found;
    const uint32_t code = OpenAndFind(archive, member, &found);
    if (code != 0) {
        return code;
    }
    if (found.size > UINT32_MAX) {
        return ZIP_ER_OPNOTSUPP;
    }
    *size = static_cast<uint32_t>(found.size);
    return 0;
}

uint32_t BEX_UnzipToBuffer(uint32_t size, void *buffer, const char *member, const char *archive) {
    if (buffer == nullptr) {
        return ZIP_ER_INVAL;
    }
    FoundMember found;
    const uint32_t code = OpenAndFind(archive, member, &found);
    if (code != 0) {
        return code;
    }
    if (found.size != size) {
        return ZIP_ER_INCONS;
    }
    const Member content(zip_fopen_index(found.archive.get(), found.index, 0));
    return content ? ReadWhole(content.get(), buffer, size) : LastCode(found.archive.get());
}
