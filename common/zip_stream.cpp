/*
 * Archives of one member as streams: a writer that collects text in memory, a reader that hands out characters, and the
 * temporary directory in which the only member's name is found.
 */
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "platform/mel_assert.h"
#include "platform/mel_memory.h"
#include "tav_common.h"

static_assert(sizeof(void *) != 4 || sizeof(TAV_ZipCb) == 272, "callers reckon with this size");

namespace {

constexpr char kModule[] = "tav_common";
constexpr char kMember[] = "melcfg.cfg";
constexpr char kTempBase[] = "/mnt/tmpfs/tmpunzippath";

constexpr uint32_t kBufferStep = 0x80000; /* bytes; sizes of the writer's buffer are multiples of this */
constexpr int32_t kLevel = 6;             /* of compression */
constexpr uint32_t kDirMode = 0755;       /* permission bits of the temporary directories */
constexpr uint32_t kPathSize = TAV_ZIP_PATH_SIZE;
constexpr uint32_t kFilePathSize = 2 * kPathSize; /* bytes of the path of a file in a temporary directory */

void CopyPath(char (&dest)[kPathSize], const char *path) {
    strncpy_s(dest, kPathSize, path, kPathSize - 1);
}

/** Makes a directory, or finds it made by somebody else in the meantime. Returns 0, else a code. */
uint32_t MakeDir(const char *path) {
    const uint32_t result = P_MEL_Mkdir(path, kDirMode);
    return result != 0 && BEX_VFS_IsDirExist(path) == 0 ? result : 0;
}

/** Forms the name of a temporary directory, which begins with a slash. */
void FormDirName(char *name, uint32_t size, const BEX_SysTime &now, const MEL_CpuTick &tick) {
    snprintf_truncated_s(name, size, "/Y%04u%02u%02uH%02u%02u%02uM%uN%u%u", now.year, now.month, now.day, now.hour,
                         now.minute, now.second, now.millisecond, tick.high, tick.low);
}

bool IsSelfOrParent(const char *name) {
    return BEX_StrCmp(name, ".") == 0 || BEX_StrCmp(name, "..") == 0;
}

void DeleteFileIn(const char *dir, const char *name) {
    char path[kFilePathSize] = {};
    snprintf_truncated_s(path, kFilePathSize, "%s/%s", dir, name);
    BEX_VFS_DeleteFile(path);
}

/** Tells the name of the first file in a directory, and removes the directory with all that is in it. */
uint32_t TakeNameAndRemove(const char *dir, char *name) {
    char pattern[kPathSize] = {};
    snprintf_truncated_s(pattern, kPathSize, "%s/%s", dir, "*");
    BEX_VFS_Find *search = nullptr;
    BEX_VFS_FindEntry entry = {};
    uint32_t result = BEX_VFS_FindFirst(pattern, &search, &entry);
    if (result != 0) {
        BEX_DeleteDir(dir);
        return result;
    }
    bool found = false;
    for (; result == 0; result = BEX_VFS_FindNext(search, &entry)) {
        if (IsSelfOrParent(entry.name)) {
            continue;
        }
        if (!found) {
            strncpy_s(name, kPathSize, entry.name, kPathSize - 1);
            found = true;
        }
        DeleteFileIn(dir, entry.name);
    }
    BEX_DeleteDir(dir);
    BEX_VFS_FindClose(search);
    return found ? 0 : TAV_ZIP_FAILED;
}

}  // namespace

uint32_t TAV_GetZipCbSize(void) {
    return sizeof(TAV_ZipCb);
}

uint32_t TAV_ZipStart(uintptr_t memModule, TAV_ZipCb *block, const char *path) {
    if (block == nullptr || path == nullptr) {
        return TAV_ZIP_FAILED;
    }
    block->buffer = MEL_Malloc_F(memModule, g_aucMelMemPt[0], kBufferStep, kModule, __LINE__);
    if (block->buffer == nullptr) {
        return TAV_ZIP_FAILED;
    }
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
    /* One step more than needed when that is a multiple itself, on purpose. */
    const uint64_t size = needed / kBufferStep * kBufferStep + kBufferStep;
    return size <= UINT32_MAX ? static_cast<uint32_t>(size) : TAV_ZIP_FAILED;
}

uint32_t TAV_Zip(const TAV_ZipCb *block) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    /* The text's terminator goes into the archive too, on purpose: readers stop there. */
    return BEX_ZipBuffer(block->used + 1, block->buffer, kMember, block->path, 0, kLevel);
}

uint32_t TAV_ZipEnd(TAV_ZipCb *block) {
    if (block == nullptr) {
        return TAV_ZIP_FAILED;
    }
    if (block->buffer != nullptr) {
        MEL_Free_F(block->buffer, kModule, __LINE__);
        block->buffer = nullptr;
    }
    return 0;
}

uint32_t CMF_GetUnZipTmpDir(char *path, uint32_t size) {
    constexpr uint32_t kBaseLength = sizeof kTempBase - 1;
    if (path == nullptr) {
        return TAV_ZIP_FAILED;
    }
    uint32_t result = BEX_VFS_IsDirExist(kTempBase) == 0 ? MakeDir(kTempBase) : 0;
    if (result != 0) {
        return result;
    }
    strcpy_s(path, size, kTempBase);
    BEX_SysTime now = {};
    result = MEL_SystimeGet(&now);
    if (result != 0) {
        return result;
    }
    MEL_CpuTick tick = {};
    MEL_GetCpuTick(&tick);
    if (size <= kBaseLength + 1) {
        return TAV_ZIP_FAILED;
    }
    char *const name = path + kBaseLength;
    FormDirName(name, size - kBaseLength, now, tick);
    if (BEX_VFS_IsDirExist(path) != 0) {
        /* The counter has moved on; a second name that is taken as well is not to be expected. */
        MEL_GetCpuTick(&tick);
        FormDirName(name, size - kBaseLength, now, tick);
    }
    return MakeDir(path);
}

uint32_t CMF_GetZipFileNameInZip(const char *archivePath, char *memberName) {
    if (archivePath == nullptr || memberName == nullptr) {
        return TAV_ZIP_FAILED;
    }
    uint16_t count = 0;
    uint32_t result = BEX_UnzipGetNumofFiles(archivePath, &count);
    if (result != 0) {
        return result;
    }
    if (count != 1) {
        return TAV_ZIP_FAILED;
    }
    char dir[kPathSize] = {};
    result = CMF_GetUnZipTmpDir(dir, kPathSize);
    if (result != 0) {
        return result;
    }
    result = BEX_Unzip(archivePath, dir);
    if (result != 0) {
        BEX_DeleteDir(dir);
        return result;
    }
    return TakeNameAndRemove(dir, memberName);
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
    memset_s(block, sizeof *block, 0, sizeof *block);
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
        if (block->used != 0) { /* a guard for those who read on after a change of TAV_UnZip */
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
    block->buffer = nullptr; /* it went with the member */
    return 0;
}
