/*
 * Reading archives: what they hold, and members as a whole or piece by piece.
 */
#include <cstdlib>

#include <new>

#include "archive.h"
#include "interfaces.h"

using hosted::FoundMember;
using hosted::MemberStream;
using hosted::OpenAndFind;

struct BEX_UnzipFile {
    FoundMember member;
    MemberStream stream;  // reads the member, so it goes first
    char chunk[hosted::kChunkSize];
};

namespace {

/** Reads a whole member into a buffer of its stated size. */
uint32_t ReadWhole(MemberStream *stream, void *buffer) {
    auto *target = static_cast<char *>(buffer);
    uint32_t code = 0;
    uint32_t length = 0;
    do {
        code = stream->Read(target, UINT32_MAX, &length);
        target += length;
    } while (code == 0 && length != 0);
    return code;
}

}  // namespace

uint32_t BEX_UnzipGetNumofFiles(const char *archive, uint16_t *count) {
    if (archive == nullptr || count == nullptr) {
        return ZIP_ER_INVAL;
    }
    hosted::Archive opened;
    const uint32_t code = hosted::OpenForReading(archive, &opened);
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
    MemberStream stream;
    code = stream.Open(found.archive.get(), found.index, found.size);
    return code == 0 ? ReadWhole(&stream, buffer) : code;
}

BEX_UnzipFile *BEX_UnzipFileOpen(const char *member, const char *archive, uint32_t /*flags*/) {
    void *const memory = malloc(sizeof(BEX_UnzipFile));
    if (memory == nullptr) {
        return nullptr;
    }
    auto *const file = new (memory) BEX_UnzipFile;
    FoundMember &found = file->member;
    if (OpenAndFind(archive, member, &found) != 0 ||
        file->stream.Open(found.archive.get(), found.index, found.size) != 0) {
        BEX_UnzipFileClose(file);
        return nullptr;
    }
    return file;
}

uint32_t BEX_UnzipFileRead(BEX_UnzipFile *file, void **buffer, uint32_t *length) {
    if (file == nullptr || buffer == nullptr || length == nullptr) {
        return ZIP_ER_INVAL;
    }
    const uint32_t code = file->stream.Read(file->chunk, sizeof(file->chunk), length);
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
