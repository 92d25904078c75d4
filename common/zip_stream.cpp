/*
 * Archives of one member as streams: a writer that collects text in memory, and a reader that hands out characters.
 */
#include "common/memory.h"
#include "platform/bex_string.h"
#include "platform/mel_assert.h"
#include "tav_common.h"

static_assert(sizeof(void *) != 4 || sizeof(TAV_ZipCb) == 272, "callers reckon with this size");

namespace {

constexpr char kModule[] = "tav_common";
constexpr common::Heap kHeap(kModule);

constexpr char kMember[] = "melcfg.cfg";
constexpr uint32_t kBufferStep = 0x80000;  // bytes; sizes of the writer's buffer are multiples of this
constexpr int32_t kLevel = 6;              // of compression
constexpr uint32_t kPathSize = TAV_ZIP_PATH_SIZE;

void CopyPath(char (&dest)[kPathSize], const char *path) {
    strncpy_s(dest, kPathSize, path, kPathSize - 1);
}

}  // namespace

uint32_t TAV_GetZipCbSize(void) {
    return sizeof(TAV_ZipCb);
}

uint32_t TAV_ZipStart(uintptr_t memModule, TAV_ZipCb *block, const char *path) {
    if (block == nullptr || path == nullptr) {
        return TAV_ZIP_FAILED;
    }
    block->buffer = kHeap.Take(kBufferStep, memModule);
    if (block->buffer == nullptr) {
        return TAV_ZIP_FAILED;
    }
    static_cast<char *>(block->buffer)[0] = '\0';  // goes into an archive that is made without text
    block->used = 0;
    block->size = kBufferStep;
    CopyPath(block->path, path);
    return 0;
}

uint32_t TAV_GetZipBufferSize(const TAV_ZipCb *block, uint32_t add) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    const uint64_t needed = uint64_t{block->used} + add + 1;
    if (needed <= block->size) {
        return 0;
    }
    // The size that callers are promised: one step more than needed when that is a multiple itself.
    const uint64_t size = needed / kBufferStep * kBufferStep + kBufferStep;
    return size <= UINT32_MAX ? static_cast<uint32_t>(size) : TAV_ZIP_FAILED;
}

uint32_t TAV_Zip(const TAV_ZipCb *block) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    // The text's terminator goes into the archive too: readers stop there.
    return BEX_ZipBuffer(block->used + 1, block->buffer, kMember, block->path, 0, kLevel);
}

uint32_t TAV_ZipEnd(TAV_ZipCb *block) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    kHeap.Return(block->buffer);
    block->buffer = nullptr;
    return 0;
}

uint32_t TAV_UnZipStart(TAV_ZipCb *block, const char *archivePath) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    char memberName[kPathSize] = {};
    const uint32_t result = CMF_GetZipFileNameInZip(archivePath, memberName);
    if (result != 0) {
        return result;
    }
    *block = {};
    CopyPath(block->path, archivePath);
    block->file = BEX_UnzipFileOpen(memberName, archivePath, 0);
    return block->file != nullptr ? 0 : TAV_ZIP_FAILED;
}

uint32_t TAV_UnZip(TAV_ZipCb *block, uint32_t *endFlag) {
    if (block == nullptr || endFlag == nullptr || block->file == nullptr) {
        return TAV_ZIP_FAILED;
    }
    if (BEX_UnzipFileRead(block->file, &block->buffer, &block->size) != 0) {
        return TAV_ZIP_FAILED;
    }
    block->used = 0;
    *endFlag = block->size == 0 ? 1 : 0;
    return 0;
}

int8_t TAV_GetCharFromZip(TAV_ZipCb *block) {
    if (block == nullptr) {
        return 0;
    }
    if (block->used >= block->size) {
        uint32_t endFlag = 0;
        if (TAV_UnZip(block, &endFlag) != 0 || endFlag != 0) {
            return 0;
        }
        if (block->used != 0) {  // cannot be as long as TAV_UnZip begins each chunk at its first byte
            MEL_Assert(kModule, __LINE__);
        }
    }
    if (block->buffer == nullptr) {
        return 0;
    }
    return static_cast<const int8_t *>(block->buffer)[block->used++];
}

uint32_t TAV_UnZipEnd(TAV_ZipCb *block) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    BEX_UnzipFileClose(block->file);
    block->file = nullptr;
    block->buffer = nullptr;  // it went with the member
    return 0;
}
