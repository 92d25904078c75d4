/*
 * The name of an archive's only member, found by unpacking the archive into a temporary directory.
 */
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "tav_common.h"

namespace {

constexpr char kTempBase[] = "/mnt/tmpfs/tmpunzippath";

constexpr uint32_t kDirMode = 0755;  // permission bits of the temporary directories
constexpr uint32_t kPathSize = TAV_ZIP_PATH_SIZE;
constexpr uint32_t kFilePathSize = 2 * kPathSize;  // bytes of the path of a file in a temporary directory

/** Makes a directory, or finds it made by another process in the meantime. Returns 0, else a code. */
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

/**
 * Deletes the files that a search finds.
 *
 * @param dir        the directory that is searched
 * @param search     the search
 * @param entry      what it found first; overwritten
 * @param firstName  where the name of the first file goes
 * @return 0; TAV_ZIP_FAILED when there is no file
 */
uint32_t DeleteFound(const char *dir, BEX_VFS_Find *search, BEX_VFS_FindEntry *entry, char *firstName) {
    bool found = false;
    do {
        if (IsSelfOrParent(entry->name)) {
            continue;
        }
        if (!found) {
            strncpy_s(firstName, kPathSize, entry->name, kPathSize - 1);
            found = true;
        }
        DeleteFileIn(dir, entry->name);
    } while (BEX_VFS_FindNext(search, entry) == 0);
    return found ? 0 : TAV_ZIP_FAILED;
}

/** Removes a directory with the files in it. Returns 0 and the name of the first file, else a code. */
uint32_t RemoveDir(const char *dir, char *firstName) {
    char pattern[kPathSize] = {};
    snprintf_truncated_s(pattern, kPathSize, "%s/%s", dir, "*");
    BEX_VFS_Find *search = nullptr;
    BEX_VFS_FindEntry entry = {};
    uint32_t result = BEX_VFS_FindFirst(pattern, &search, &entry);
    if (result != 0) {
        BEX_DeleteDir(dir);
        return result;
    }
    result = DeleteFound(dir, search, &entry, firstName);
    BEX_DeleteDir(dir);
    BEX_VFS_FindClose(search);
    return result;
}

}  // namespace

uint32_t CMF_GetUnZipTmpDir(char *path, uint32_t size) {
    constexpr uint32_t kBaseLength = sizeof(kTempBase) - 1;
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
        // The counter has moved on; a second name that is taken as well is not to be expected.
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
    return RemoveDir(dir, memberName);
}
