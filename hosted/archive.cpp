#include "archive.h"

#include <cstring>

#include <algorithm>

#include "interfaces.h"
#include "paths.h"

namespace hosted {

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

uint32_t OpenForReading(const char *path, Archive *archive) {
    if (BEX_VFS_IsFileExist(path) == 0) {
        return ZIP_ER_NOENT;
    }
    int error = ZIP_ER_OK;
    archive->reset(zip_open(HostPath(path).Get(), ZIP_RDONLY, &error));
    return *archive ? 0 : CodeOf(error);
}

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

uint32_t MemberStream::Open(zip_t *zip, zip_uint64_t index, zip_uint64_t size) {
    content_.reset(zip_fopen_index(zip, index, 0));
    left_ = size;
    return content_ ? 0 : LastCode(zip);
}

uint32_t MemberStream::Read(void *buffer, uint32_t capacity, uint32_t *length) {
    if (code_ != 0) {
        return code_;
    }
    char beyond = 0;
    const bool atEnd = left_ == 0;
    void *const target = atEnd ? &beyond : buffer;
    const zip_uint64_t wanted = atEnd ? sizeof(beyond) : std::min<zip_uint64_t>(capacity, left_);
    const zip_int64_t got = zip_fread(content_.get(), target, wanted);
    if (got < 0) {
        code_ = CodeOf(zip_error_code_zip(zip_file_get_error(content_.get())));
    } else if ((got == 0) != atEnd) {
        code_ = ZIP_ER_INCONS;
    } else {
        left_ -= static_cast<zip_uint64_t>(got);
        *length = static_cast<uint32_t>(got);
    }
    return code_;
}

}  // namespace hosted
