/*
 * Zip archives, on libzip.
 *
 * Codes are libzip's error codes (ZIP_ER_...). A member goes by the last component of its name, on both sides: the
 * folders that another tool may have stored with it do not count.
 */
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>
#include <memory>
#include <new>

#include "durable.h"
#include "interfaces.h"
#include "paths.h"

namespace {

constexpr uint32_t kChunkSize = 0x10000;  // a member is read in pieces of so many bytes

// An archive that is only read, or whose changes are given up.
struct Discard {
    void operator()(zip_t *zip) const { zip_discard(zip); }
};
using Archive = std::unique_ptr<zip_t, Discard>;

// What an archive is read from or written to.
struct FreeSource {
    void operator()(zip_source_t *source) const { zip_source_free(source); }
};
using Source = std::unique_ptr<zip_source_t, FreeSource>;

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
    archive->reset(zip_open(HostPath(path).Get(), ZIP_RDONLY, &error));
    return *archive ? 0 : CodeOf(error);
}

// Tells the uncompressed size in bytes that an archive states for a member.
uint32_t StatedSize(zip_t *zip, zip_uint64_t index, zip_uint64_t *size) {
    zip_stat_t status;
    if (zip_stat_index(zip, index, 0, &status) != 0) {
        return LastCode(zip);
    }
    if ((status.valid & ZIP_STAT_SIZE) == 0) {
        return ZIP_ER_INCONS;
    }
    *size = status.size;
    return 0;
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
    if (found < 0) {
        return LastCode(zip);
    }
    member->index = static_cast<zip_uint64_t>(found);
    return StatedSize(zip, member->index, &member->size);
}

// A member that is read from its beginning to its end.
struct Stream {
    Member content;
    zip_uint64_t left = 0;  // bytes of the stated size that have not come out yet
    uint32_t code = 0;      // of the read that failed; so do all after it
};

uint32_t OpenStream(zip_t *zip, zip_uint64_t index, zip_uint64_t size, Stream *stream) {
    stream->content.reset(zip_fopen_index(zip, index, 0));
    stream->left = size;
    return stream->content ? 0 : LastCode(zip);
}

// Reads up to `capacity` bytes, which must be more than 0 before the end; 0 bytes are the end. The end is read too:
// only there the checksum is compared. More or less than the stated size is an error.
uint32_t ReadNext(Stream *stream, void *buffer, uint32_t capacity, uint32_t *length) {
    if (stream->code != 0) {
        return stream->code;
    }
    char beyond = 0;
    const bool atEnd = stream->left == 0;
    void *const target = atEnd ? &beyond : buffer;
    const zip_uint64_t wanted = atEnd ? sizeof beyond : std::min<zip_uint64_t>(capacity, stream->left);
    const zip_int64_t got = zip_fread(stream->content.get(), target, wanted);
    if (got < 0) {
        stream->code = CodeOf(zip_error_code_zip(zip_file_get_error(stream->content.get())));
    } else if ((got == 0) != atEnd) {
        stream->code = ZIP_ER_INCONS;
    } else {
        stream->left -= static_cast<zip_uint64_t>(got);
        *length = static_cast<uint32_t>(got);
    }
    return stream->code;
}

// Reads a whole member into a buffer of its stated size.
uint32_t ReadWhole(Stream *stream, void *buffer) {
    auto *target = static_cast<char *>(buffer);
    uint32_t code = 0;
    uint32_t length = 0;
    do {
        code = ReadNext(stream, target, UINT32_MAX, &length);
        target += length;
    } while (code == 0 && length != 0);
    return code;
}

// Writes a piece of a file, all of it or it is an error.
uint32_t WriteChunk(int fd, const char *chunk, uint32_t length) {
    const auto put = [=](uint32_t offset, uint32_t size) { return write(fd, chunk + offset, size); };
    return TransferAll(length, put) == length ? 0 : ZIP_ER_WRITE;
}

// Reads a whole member into a file.
uint32_t ReadIntoFile(Stream *stream, int fd) {
    char chunk[kChunkSize];
    uint32_t code = 0;
    uint32_t length = 0;
    do {
        code = ReadNext(stream, chunk, sizeof chunk, &length);
        if (code == 0) {
            code = WriteChunk(fd, chunk, length);
        }
    } while (code == 0 && length != 0);
    return code;
}

// Reads a member into a new file of an open folder, in place of what stands there; a directory is skipped.
uint32_t UnpackMember(zip_t *zip, zip_uint64_t index, int folder) {
    const char *const path = zip_get_name(zip, index, ZIP_FL_ENC_RAW);
    if (path == nullptr) {
        return LastCode(zip);
    }
    const char *const name = LastComponent(path);
    if (*name == '\0' && name != path) {
        return 0;
    }
    Stream stream;
    zip_uint64_t size = 0;
    uint32_t code = StatedSize(zip, index, &size);
    if (code == 0) {
        code = OpenStream(zip, index, size, &stream);
    }
    if (code != 0) {
        return code;
    }
    // No name leads elsewhere: it holds no slash, no link is followed, and "", "." and ".." cannot be created.
    unlinkat(folder, name, 0);
    const int fd = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(kFileMode));
    if (fd < 0) {
        return ZIP_ER_OPEN;
    }
    code = ReadIntoFile(&stream, fd);
    close(fd);
    return code;
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

// Writes a piece of a new archive. Returns its length, or -1.
zip_int64_t WritePiece(int fd, const void *piece, zip_uint64_t length) {
    const auto wanted = static_cast<uint32_t>(length);
    return WriteChunk(fd, static_cast<const char *>(piece), wanted) == 0 ? static_cast<zip_int64_t>(wanted) : -1;
}

// Moves to where the next piece belongs: the member's sizes are only known, and filled in, behind it. Returns 0, or -1.
zip_int64_t SeekPiece(int fd, void *arguments, zip_uint64_t length) {
    const auto *const to = ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, arguments, length, nullptr);
    return to != nullptr && lseek(fd, to->offset, to->whence) >= 0 ? 0 : -1;
}

// Serves libzip as the place of a new archive, which is an open, empty file. Left to itself, libzip would write to a
// name of its own and not sync it.
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
            memcpy(data, codes, sizeof codes);
            return sizeof codes;
        }
        default:
            return 0;  // nothing to prepare, to undo or to read
    }
}

// Makes an open, empty file the place of a new archive, as long as `fd` lives.
uint32_t CreateArchive(int *fd, Archive *archive) {
    zip_error_t error;
    zip_error_init(&error);
    Source draft(zip_source_function_create(ServeDraft, fd, &error));
    archive->reset(draft ? zip_open_from_source(draft.get(), ZIP_TRUNCATE, &error) : nullptr);
    if (*archive) {
        draft.release();  // the archive's now
    }
    const uint32_t code = *archive ? 0 : CodeOf(zip_error_code_zip(&error));
    zip_error_fini(&error);
    return code;
}

// Writes an archive with one member into an open, empty file and brings it to stable storage, with the permission bits
// of a configuration file.
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
    archive.release();  // a successful close has freed it
    return fchmod(fd, kFileMode) == 0 && SyncData(fd) == 0 ? 0 : ZIP_ER_WRITE;
}

}  // namespace

struct BEX_UnzipFile {
    FoundMember member;
    Stream stream;  // reads the member, so it goes first
    char chunk[kChunkSize];
};

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t /*flags*/,
                       int32_t level) {
    const char *const name = member != nullptr ? LastComponent(member) : "";
    const HostPath host(archive);
    if (data == nullptr || *name == '\0' || host.Get() == nullptr || level < 1 || level > 9) {
        return ZIP_ER_INVAL;
    }
    // The archive is written under another name and takes its own only when it is complete and on stable storage.
    char draft[PATH_MAX];
    if (sprintf_s(draft, sizeof draft, "%s.XXXXXX", host.Get()) < 0) {
        return ZIP_ER_INVAL;
    }
    const int fd = mkostemp(draft, O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_TMPOPEN;
    }
    uint32_t code = WriteArchive(name, data, length, static_cast<uint32_t>(level), fd);
    close(fd);
    if (code == 0 && RenameDurably(draft, host.Get()) != 0) {
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
    uint32_t code = OpenAndFind(archive, member, &found);
    if (code != 0) {
        return code;
    }
    if (found.size != size) {
        return ZIP_ER_INCONS;
    }
    Stream stream;
    code = OpenStream(found.archive.get(), found.index, found.size, &stream);
    return code == 0 ? ReadWhole(&stream, buffer) : code;
}

uint32_t BEX_Unzip(const char *archive, const char *folder) {
    const HostPath host(folder);
    if (archive == nullptr || host.Get() == nullptr) {
        return ZIP_ER_INVAL;
    }
    Archive opened;
    uint32_t code = OpenForReading(archive, &opened);
    if (code != 0) {
        return code;
    }
    const int fd = open(host.Get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_OPEN;
    }
    const zip_int64_t entries = zip_get_num_entries(opened.get(), 0);
    for (zip_int64_t index = 0; code == 0 && index < entries; ++index) {
        code = UnpackMember(opened.get(), static_cast<zip_uint64_t>(index), fd);
    }
    close(fd);
    return code;
}

BEX_UnzipFile *BEX_UnzipFileOpen(const char *member, const char *archive, uint32_t /*flags*/) {
    void *const memory = malloc(sizeof(BEX_UnzipFile));
    if (memory == nullptr) {
        return nullptr;
    }
    auto *const file = new (memory) BEX_UnzipFile;
    FoundMember &found = file->member;
    if (OpenAndFind(archive, member, &found) != 0 ||
        OpenStream(found.archive.get(), found.index, found.size, &file->stream) != 0) {
        BEX_UnzipFileClose(file);
        return nullptr;
    }
    return file;
}

uint32_t BEX_UnzipFileRead(BEX_UnzipFile *file, void **buffer, uint32_t *length) {
    if (file == nullptr || buffer == nullptr || length == nullptr) {
        return ZIP_ER_INVAL;
    }
    const uint32_t code = ReadNext(&file->stream, file->chunk, sizeof file->chunk, length);
    if (code == 0) {
        *buffer = file->chunk;
    }
    return code;
}

void BEX_UnzipFileClose(BEX_UnzipFile *file) {
    if (file != nullptr) {
        file->~BEX_UnzipFile();
        free(file);
    }
}
