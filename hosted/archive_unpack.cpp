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

// What an archive may take of the file system that it is unpacked into, which is often one in memory. As much as the
// longest configuration file; every file takes whole pages, and one that is empty takes one for its name.
constexpr zip_uint64_t kMaxUnpacked = 104'857'600;
constexpr zip_uint64_t kPage = 4096;

/** Checks that what an archive's members are stated to take together is within the limit. */
uint32_t CheckSizes(zip_t *zip, zip_uint64_t entries) {
    zip_uint64_t left = kMaxUnpacked;
    for (zip_uint64_t index = 0; index < entries; ++index) {
        zip_uint64_t size = 0;
        const uint32_t code = hosted::StatedSize(zip, index, &size);
        if (code != 0) {
            return code;
        }
        if (size > left || left < kPage) {
            return ZIP_ER_OPNOTSUPP;
        }
        left -= size != 0 ? (size + kPage - 1) / kPage * kPage : kPage;  // no less than 0: the limit is whole pages
    }
    return 0;
}

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
    const auto entries = static_cast<zip_uint64_t>(zip_get_num_entries(opened.get(), 0));
    code = CheckSizes(opened.get(), entries);
    if (code != 0) {
        return code;
    }
    const int fd = open(host.Get(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        return ZIP_ER_OPEN;
    }
    for (zip_uint64_t index = 0; code == 0 && index < entries; ++index) {
        code = UnpackMember(opened.get(), index, fd);
    }
    close(fd);
    return code;
}
