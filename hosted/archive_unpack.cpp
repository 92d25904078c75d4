/*
 * Unpacking an archive into a folder.
 */
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "archive.h"
#include "durable.h"
#include "interfaces.h"
#include "paths.h"

using hosted::MemberStream;

namespace {

/** Reads a whole member into a file. */
uint32_t ReadIntoFile(MemberStream *stream, int fd) {
    char chunk[hosted::kChunkSize];
    uint32_t code = 0;
    uint32_t length = 0;
    do {
        code = stream->Read(chunk, sizeof(chunk), &length);
        if (code == 0 && hosted::WriteAll(fd, chunk, length) < length) {
            code = ZIP_ER_WRITE;
        }
    } while (code == 0 && length != 0);
    return code;
}

/** Reads a member into a new file of an open folder, in place of what stands there; a directory is skipped. */
uint32_t UnpackMember(zip_t *zip, zip_uint64_t index, int folder) {
    const char *const path = zip_get_name(zip, index, ZIP_FL_ENC_RAW);
    if (path == nullptr) {
        return hosted::LastCode(zip);
    }
    const char *const name = hosted::LastComponent(path);
    if (*name == '\0' && name != path) {
        return 0;
    }
    MemberStream stream;
    zip_uint64_t size = 0;
    uint32_t code = hosted::StatedSize(zip, index, &size);
    if (code == 0) {
        code = stream.Open(zip, index, size);
    }
    if (code != 0) {
        return code;
    }
    // No name leads elsewhere: it holds no slash, no link is followed, and "", "." and ".." cannot be created.
    unlinkat(folder, name, 0);
    const int fd =
        openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, static_cast<mode_t>(hosted::kFileMode));
    if (fd < 0) {
        return ZIP_ER_OPEN;
    }
    code = ReadIntoFile(&stream, fd);
    close(fd);
    return code;
}

}  // namespace

uint32_t BEX_Unzip(const char *archive, const char *folder) {
    const hosted::HostPath host(folder);
    if (archive == nullptr || host.Get() == nullptr) {
        return ZIP_ER_INVAL;
    }
    hosted::Archive opened;
    uint32_t code = hosted::OpenForReading(archive, &opened);
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
