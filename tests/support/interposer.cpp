#include "interposer.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>

#include "platform/bex_crypt.h"
#include "platform/bex_rbt.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/mel_memory.h"

namespace interposer {
namespace {

struct State {
    std::array<uint32_t, static_cast<size_t>(Call::kKinds)> counts{};
    Call failKind = Call::kKinds;
    uint32_t failNth = 0;
    std::set<size_t> failPlaces;
    std::optional<uint32_t> missingBytes;
    std::vector<std::string> listed;
};

State g_state;
std::set<BEX_VFS_File *> g_logFiles;  // open files of the debug log, which are no part of what is examined
unsigned g_depth = 0;  // above 0 inside a platform call: what the platform calls itself is its own affair

/** Counts one call from the library; tells whether it is to fail. */
bool Hit(Call kind) {
    if (g_depth > 0) {
        return false;
    }
    uint32_t count = ++g_state.counts[static_cast<size_t>(kind)];
    return kind == g_state.failKind && count == g_state.failNth;
}

/** As Hit, for a call that is listed. */
bool HitListed(Call kind, const std::string &text) {
    if (g_depth > 0) {
        return false;
    }
    bool fail = g_state.failPlaces.count(g_state.listed.size()) > 0;
    g_state.listed.push_back(text);
    return Hit(kind) || fail;
}

uint32_t CutLength(uint32_t length) {
    uint32_t missing = g_state.missingBytes.value_or((length + 1) / 2);
    return length > missing ? length - missing : 0;
}

std::string NameOf(const char *path) {
    std::string whole(path);
    return whole.substr(whole.rfind('/') + 1);
}

/** Finds the platform's own function behind the one of this program. */
template <class Function>
Function *Next(const char *name) {
    void *found = dlsym(RTLD_NEXT, name);
    if (found == nullptr) {
        std::fprintf(stderr, "no %s behind the test program\n", name);
        std::abort();
    }
    return reinterpret_cast<Function *>(found);
}

/** Calls the platform, with everything that it calls in turn left uncounted. */
template <class Function, class... Arguments>
auto CallOn(Function *function, Arguments... arguments) {
    struct Depth {
        Depth() { ++g_depth; }
        ~Depth() { --g_depth; }
    } depth;
    return function(arguments...);
}

}  // namespace

void Reset() {
    g_state = State{};
}

void FailNth(Call kind, uint32_t nth) {
    g_state.failKind = kind;
    g_state.failNth = nth;
    g_state.counts[static_cast<size_t>(kind)] = 0;
}

void FailListed(std::set<size_t> places) {
    g_state.failPlaces = std::move(places);
}

void SetMissingBytes(uint32_t count) {
    g_state.missingBytes = count;
}

uint32_t Count(Call kind) {
    return g_state.counts[static_cast<size_t>(kind)];
}

const std::vector<std::string> &Listed() {
    return g_state.listed;
}

}  // namespace interposer

using namespace interposer;

// Calls the platform's function of the same name.
#define CALL_ON(function, ...)                                                                 \
    ([&] {                                                                                     \
        static const auto next = Next<std::remove_reference_t<decltype(function)>>(#function); \
        return CallOn(next __VA_OPT__(, ) __VA_ARGS__);                                        \
    }())

extern "C" {

void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line) {
    return Hit(Call::kMalloc) ? nullptr : CALL_ON(MEL_Malloc_F, handle, memPt, size, source, line);
}

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    return Hit(Call::kMemCopy) ? static_cast<int>(kPlatformCode) : CALL_ON(memcpy_s, dest, destMax, src, count);
}

BEX_VFS_File *BEX_VFS_FOpen(const char *path, const char *mode) {
    if (*mode == 'a') {
        return *g_logFiles.insert(CALL_ON(BEX_VFS_FOpen, path, mode)).first;
    }
    bool fail = HitListed(Call::kOpen, "FOpen " + NameOf(path) + " " + mode);
    return fail ? nullptr : CALL_ON(BEX_VFS_FOpen, path, mode);
}

uint32_t BEX_VFS_FRead(void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    bool fail = HitListed(Call::kRead, "FRead " + std::to_string(size * count));
    return CALL_ON(BEX_VFS_FRead, buffer, fail ? CutLength(size * count) : size, count, file);
}

uint32_t BEX_VFS_FWrite(const void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    bool fail = HitListed(Call::kWrite, "FWrite " + std::to_string(size * count));
    return CALL_ON(BEX_VFS_FWrite, buffer, fail ? CutLength(size * count) : size, count, file);
}

int32_t BEX_VFS_FSeek(BEX_VFS_File *file, int32_t offset, int32_t origin) {
    bool fail = HitListed(Call::kSeek, "FSeek " + std::to_string(offset));
    return fail ? -1 : CALL_ON(BEX_VFS_FSeek, file, offset, origin);
}

int32_t BEX_VFS_FFlush(BEX_VFS_File *file) {
    bool fail = HitListed(Call::kFlush, "FFlush");
    int32_t result = CALL_ON(BEX_VFS_FFlush, file);
    return fail ? -1 : result;
}

int32_t BEX_VFS_FClose(BEX_VFS_File *file) {
    bool fail = g_logFiles.erase(file) > 0 ? Hit(Call::kLogClose) : HitListed(Call::kClose, "FClose");
    int32_t result = CALL_ON(BEX_VFS_FClose, file);
    return fail ? -1 : result;
}

uint32_t BEX_VFS_Stat(const char *path, BEX_VFS_StatInfo *info) {
    return HitListed(Call::kStat, "Stat " + NameOf(path)) ? kPlatformCode : CALL_ON(BEX_VFS_Stat, path, info);
}

uint32_t BEX_VFS_MoveFile(const char *from, const char *to) {
    bool fail = HitListed(Call::kMove, "Move " + NameOf(from) + " " + NameOf(to));
    return fail ? kPlatformCode : CALL_ON(BEX_VFS_MoveFile, from, to);
}

uint32_t BEX_VFS_DeleteFile(const char *path) {
    return HitListed(Call::kDelete, "Delete " + NameOf(path)) ? kPlatformCode : CALL_ON(BEX_VFS_DeleteFile, path);
}

uint32_t BEX_VFS_IsFileExist(const char *path) {
    return HitListed(Call::kExists, "Exists " + NameOf(path)) ? 0 : CALL_ON(BEX_VFS_IsFileExist, path);
}

uint32_t BEX_VFS_SetFileModeEx(const char *path, uint32_t mode) {
    bool fail = HitListed(Call::kSetMode, "SetMode " + NameOf(path) + " " + std::to_string(mode));
    return fail ? kPlatformCode : CALL_ON(BEX_VFS_SetFileModeEx, path, mode);
}

uint32_t P_MEL_Chown2MEL(const char *path, uint32_t flags) {
    bool fail = HitListed(Call::kChown, "Chown " + NameOf(path) + " " + std::to_string(flags));
    return fail ? kPlatformCode : CALL_ON(P_MEL_Chown2MEL, path, flags);
}

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t flags,
                       int32_t level) {
    bool fail = HitListed(Call::kZip, "Zip " + std::to_string(length) + " " + NameOf(member) + " " + NameOf(archive) +
                                          " " + std::to_string(flags) + " " + std::to_string(level));
    if (fail) {
        std::ofstream(archive, std::ios::binary) << "half an archive";
        return kPlatformCode;
    }
    return CALL_ON(BEX_ZipBuffer, length, data, member, archive, flags, level);
}

uint32_t BEX_UnzipGetNumofFiles(const char *archive, uint16_t *count) {
    bool fail = HitListed(Call::kZipCount, "ZipCount " + NameOf(archive));
    return fail ? kPlatformCode : CALL_ON(BEX_UnzipGetNumofFiles, archive, count);
}

uint32_t ZIP_GetUncompressSize(const char *member, const char *archive, uint32_t *size) {
    bool fail = HitListed(Call::kZipSize, "ZipSize " + NameOf(member) + " " + NameOf(archive));
    return fail ? kPlatformCode : CALL_ON(ZIP_GetUncompressSize, member, archive, size);
}

uint32_t BEX_UnzipToBuffer(uint32_t size, void *buffer, const char *member, const char *archive) {
    bool fail = HitListed(Call::kUnzip, "Unzip " + std::to_string(size) + " " + NameOf(member) + " " + NameOf(archive));
    return fail ? kPlatformCode : CALL_ON(BEX_UnzipToBuffer, size, buffer, member, archive);
}

uint32_t BEX_Crypt_Digest(const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength,
                          uint32_t capacity) {
    bool fail = HitListed(Call::kDigest, "Digest " + std::to_string(length));
    return fail ? kPlatformCode : CALL_ON(BEX_Crypt_Digest, data, length, digest, digestLength, capacity);
}

BEX_RBT_Node *BEX_RBT_NextNode(BEX_RBT_Tree *tree, BEX_RBT_Node *node) {
    if (node == nullptr) {
        Hit(Call::kNextOfNone);
    }
    return CALL_ON(BEX_RBT_NextNode, tree, node);
}

}  // extern "C"
