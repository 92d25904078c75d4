#include "interposer.h"

#include <dlfcn.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/dms_message.h"
#include "platform/mel_clock.h"
#include "platform/mel_environment.h"
#include "platform/mel_memory.h"

namespace interposer {
namespace {

struct State {
    std::map<Call, uint32_t> counts;
    Call failKind = Call::kOther;
    uint32_t failNth = 0;
    std::set<size_t> failPlaces;
    std::optional<uint32_t> missingBytes;
    std::vector<std::string> listed;
    std::string failed;
    std::function<void(const uint8_t *block, uint32_t size)> freeWatcher;
    std::map<void *, uint32_t> watched;  // blocks to show, and their sizes
};

State g_state;
std::set<BEX_VFS_File *> g_logFiles;  // open files of the debug log, which are no part of what is examined
unsigned g_depth = 0;  // above 0 inside a platform call: what the platform calls itself is its own affair

/** A call: its kind, and the function that names the kind. */
struct Here {
    Here(Call itsKind, const char *name = __builtin_FUNCTION()) : kind(itsKind), function(name) {}
    Call kind;
    const char *function;
};

/** Counts one call from the library, and lists it when it has words for the list. Returns whether it is to fail. */
template <typename... Words>
bool Fails(Here call, const Words &...words) {
    if (g_depth > 0) {
        return false;
    }
    ++g_state.counts[call.kind];
    const bool isOfAny = call.kind != Call::kMemFill;
    g_state.counts[Call::kAny] += isOfAny ? 1 : 0;
    bool fails = (g_state.failKind == call.kind || (g_state.failKind == Call::kAny && isOfAny)) &&
                 g_state.counts[g_state.failKind] == g_state.failNth;
    if constexpr (sizeof...(words) > 0) {
        std::ostringstream text;
        const char *blank = "";
        ((text << blank << words, blank = " "), ...);
        fails |= g_state.failPlaces.contains(g_state.listed.size());
        g_state.listed.push_back(text.str());
    }
    if (fails && g_state.failed.empty()) {
        g_state.failed = call.function;
    }
    return fails;
}

/** Counts a call that answers 0 or a code, and makes it unless it is to fail; it writes nothing then. */
template <typename Function, typename... Arguments>
uint32_t CodeOf(Here call, Function next, Arguments... arguments) {
    return Fails(call) ? kPlatformCode : next(arguments...);
}

std::string Formatted(const char *format, va_list arguments) {
    char text[8192];
    return std::string(text, static_cast<size_t>(vsnprintf(text, sizeof(text), format, arguments)));
}

uint32_t CutLength(uint32_t length) {
    uint32_t missing = g_state.missingBytes.value_or((length + 1) / 2);
    return length > missing ? length - missing : 0;
}

std::string NameOf(const char *path) {
    std::string whole(path);
    return whole.substr(whole.rfind('/') + 1);
}

/** A function of the platform, with everything that it calls in turn left uncounted. */
template <typename Function>
auto Uncounted(Function *function) {
    struct Depth {
        Depth() { ++g_depth; }
        ~Depth() { --g_depth; }
    };
    return [function](auto... arguments) {
        const Depth depth;
        return function(arguments...);
    };
}

}  // namespace

uint32_t FakeCiphers::Decrypt(uint32_t number, const char *context, bool isGood) {
    calls += std::to_string(number) + context + ".";
    return isGood && context == goodContext ? 0 : kPlatformCode;
}

void Reset() {
    g_state = State{};
}

void FailNth(Call kind, uint32_t nth) {
    g_state.failKind = kind;
    g_state.failNth = nth;
    g_state.counts[kind] = 0;
}

void FailListed(std::set<size_t> places) {
    g_state.failPlaces = std::move(places);
}

void SetMissingBytes(uint32_t count) {
    g_state.missingBytes = count;
}

void WatchFreed(std::function<void(const uint8_t *block, uint32_t size)> watcher) {
    g_state.freeWatcher = std::move(watcher);
}

const std::string &Failed() {
    return g_state.failed;
}

uint32_t Count(Call kind) {
    return g_state.counts[kind];
}

const std::vector<std::string> &Listed() {
    return g_state.listed;
}

// The platform's function of this name, which stands behind the one of this program.
#define PLATFORM(function)                                                                           \
    Uncounted([] {                                                                                   \
        static const auto next = reinterpret_cast<decltype(&function)>(dlsym(RTLD_NEXT, #function)); \
        return next;                                                                                 \
    }())

extern "C" {

void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line) {
    void *block = Fails(Call::kMalloc) ? nullptr : PLATFORM(MEL_Malloc_F)(handle, memPt, size, source, line);
    if (block != nullptr) {
        memset(block, 0xA5, size);  // so that it shows what is not set
    }
    if (g_state.freeWatcher && block != nullptr) {
        g_state.watched[block] = size;
    }
    return block;
}

void MEL_Free_F(void *block, const char *source, uint32_t line) {
    if (auto known = g_state.watched.extract(block)) {
        g_state.freeWatcher(static_cast<const uint8_t *>(block), known.mapped());
    }
    PLATFORM(MEL_Free_F)(block, source, line);
}

void *MEL_MemReAlloc(uintptr_t handle, uint8_t memPt, void *block, uint32_t size) {
    return Fails(Call::kMalloc) ? nullptr : PLATFORM(MEL_MemReAlloc)(handle, memPt, block, size);
}

void *MEL_MsgAlloc_F(uint32_t sender, uint32_t size, const char *source, uint32_t line) {
    return Fails(Call::kMsgAlloc) ? nullptr : PLATFORM(MEL_MsgAlloc_F)(sender, size, source, line);
}

uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t reserved, uint32_t code, void *message, uint32_t length) {
    // A message that cannot be sent is consumed all the same: the bus refuses a length beyond any message's, and frees.
    return PLATFORM(TAV_AdjustSendMsg)(receiver, reserved, code, message, Fails(Call::kSend) ? UINT32_MAX : length);
}

int memcpy_s(void *dest, size_t destMax, const void *src, size_t count) {
    return Fails(Call::kMemCopy) ? -1 : PLATFORM(memcpy_s)(dest, destMax, src, count);
}

int memset_s(void *dest, size_t destMax, int value, size_t count) {
    return Fails(Call::kMemFill) ? -1 : PLATFORM(memset_s)(dest, destMax, value, count);
}

int strncpy_s(char *dest, size_t destMax, const char *src, size_t count) {
    return Fails(Call::kStrNCopy) ? -1 : PLATFORM(strncpy_s)(dest, destMax, src, count);
}

BEX_VFS_File *BEX_VFS_FOpen(const char *path, const char *mode) {
    if (*mode == 'a') {
        return Fails(Call::kUnlisted) ? nullptr : *g_logFiles.insert(PLATFORM(BEX_VFS_FOpen)(path, mode)).first;
    }
    return Fails(Call::kOpen, "FOpen", NameOf(path), mode) ? nullptr : PLATFORM(BEX_VFS_FOpen)(path, mode);
}

uint32_t BEX_VFS_FRead(void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    bool fails = Fails(Call::kRead, "FRead", size * count);
    return PLATFORM(BEX_VFS_FRead)(buffer, fails ? CutLength(size * count) : size, count, file);
}

uint32_t BEX_VFS_FWrite(const void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    bool fails = Fails(Call::kWrite, "FWrite", size * count);
    return PLATFORM(BEX_VFS_FWrite)(buffer, fails ? CutLength(size * count) : size, count, file);
}

int32_t BEX_VFS_FSeek(BEX_VFS_File *file, int32_t offset, int32_t origin) {
    return Fails(Call::kSeek, "FSeek", offset) ? -1 : PLATFORM(BEX_VFS_FSeek)(file, offset, origin);
}

int32_t BEX_VFS_FFlush(BEX_VFS_File *file) {
    int32_t result = PLATFORM(BEX_VFS_FFlush)(file);
    return Fails(Call::kOther, "FFlush") ? -1 : result;
}

int32_t BEX_VFS_FClose(BEX_VFS_File *file) {
    bool fails = g_logFiles.erase(file) > 0 ? Fails(Call::kLogClose) : Fails(Call::kClose, "FClose");
    int32_t result = PLATFORM(BEX_VFS_FClose)(file);
    return fails ? -1 : result;
}

uint32_t BEX_VFS_Stat(const char *path, BEX_VFS_StatInfo *info) {
    return Fails(Call::kStat, "Stat", NameOf(path)) ? kPlatformCode : PLATFORM(BEX_VFS_Stat)(path, info);
}

uint32_t BEX_VFS_MoveFile(const char *from, const char *to) {
    return Fails(Call::kMove, "Move", NameOf(from), NameOf(to)) ? kPlatformCode : PLATFORM(BEX_VFS_MoveFile)(from, to);
}

uint32_t BEX_VFS_DeleteFile(const char *path) {
    return Fails(Call::kOther, "Delete", NameOf(path)) ? kPlatformCode : PLATFORM(BEX_VFS_DeleteFile)(path);
}

uint32_t BEX_VFS_IsFileExist(const char *path) {
    return Fails(Call::kOther, "Exists", NameOf(path)) ? 0 : PLATFORM(BEX_VFS_IsFileExist)(path);
}

uint32_t BEX_VFS_IsDirExist(const char *path) {
    return Fails(Call::kOther, "DirExists", NameOf(path)) ? 0 : PLATFORM(BEX_VFS_IsDirExist)(path);
}

uint32_t P_MEL_Mkdir(const char *path, uint32_t mode) {
    return Fails(Call::kOther, "Mkdir", NameOf(path), mode) ? kPlatformCode : PLATFORM(P_MEL_Mkdir)(path, mode);
}

uint32_t BEX_DeleteDir(const char *path) {
    uint32_t result = PLATFORM(BEX_DeleteDir)(path);
    return Fails(Call::kOther, "DeleteDir", NameOf(path)) ? kPlatformCode : result;
}

uint32_t BEX_VFS_FindFirst(const char *pattern, BEX_VFS_Find **search, BEX_VFS_FindEntry *entry) {
    return Fails(Call::kOther, "FindFirst", NameOf(pattern)) ? kPlatformCode
                                                             : PLATFORM(BEX_VFS_FindFirst)(pattern, search, entry);
}

uint32_t BEX_VFS_FindNext(BEX_VFS_Find *search, BEX_VFS_FindEntry *entry) {
    return Fails(Call::kOther, "FindNext") ? kPlatformCode : PLATFORM(BEX_VFS_FindNext)(search, entry);
}

void BEX_VFS_FindClose(BEX_VFS_Find *search) {
    Fails(Call::kOther, "FindClose");
    PLATFORM(BEX_VFS_FindClose)(search);
}

uint32_t BEX_VFS_SetFileModeEx(const char *path, uint32_t mode) {
    return Fails(Call::kOther, "SetMode", NameOf(path), mode) ? kPlatformCode
                                                              : PLATFORM(BEX_VFS_SetFileModeEx)(path, mode);
}

uint32_t P_MEL_Chown2MEL(const char *path, uint32_t flags) {
    return Fails(Call::kOther, "Chown", NameOf(path), flags) ? kPlatformCode : PLATFORM(P_MEL_Chown2MEL)(path, flags);
}

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t flags,
                       int32_t level) {
    if (Fails(Call::kOther, "Zip", length, NameOf(member), NameOf(archive), flags, level)) {
        std::ofstream(archive, std::ios::binary) << "half an archive";
        return kPlatformCode;
    }
    return PLATFORM(BEX_ZipBuffer)(length, data, member, archive, flags, level);
}

uint32_t BEX_UnzipGetNumofFiles(const char *archive, uint16_t *count) {
    return Fails(Call::kZipCount, "ZipCount", NameOf(archive)) ? kPlatformCode
                                                               : PLATFORM(BEX_UnzipGetNumofFiles)(archive, count);
}

uint32_t ZIP_GetUncompressSize(const char *member, const char *archive, uint32_t *size) {
    return Fails(Call::kZipSize, "ZipSize", NameOf(member), NameOf(archive))
               ? kPlatformCode
               : PLATFORM(ZIP_GetUncompressSize)(member, archive, size);
}

uint32_t BEX_UnzipToBuffer(uint32_t size, void *buffer, const char *member, const char *archive) {
    return Fails(Call::kUnzip, "Unzip", size, NameOf(member), NameOf(archive))
               ? kPlatformCode
               : PLATFORM(BEX_UnzipToBuffer)(size, buffer, member, archive);
}

uint32_t BEX_Unzip(const char *archive, const char *folder) {
    uint32_t result = PLATFORM(BEX_Unzip)(archive, folder);
    return Fails(Call::kOther, "UnzipAll", NameOf(archive)) ? kPlatformCode : result;
}

BEX_UnzipFile *BEX_UnzipFileOpen(const char *member, const char *archive, uint32_t flags) {
    return Fails(Call::kOther, "UnzipOpen", member, NameOf(archive), flags)
               ? nullptr
               : PLATFORM(BEX_UnzipFileOpen)(member, archive, flags);
}

uint32_t BEX_UnzipFileRead(BEX_UnzipFile *file, void **buffer, uint32_t *length) {
    return Fails(Call::kOther, "UnzipRead") ? kPlatformCode : PLATFORM(BEX_UnzipFileRead)(file, buffer, length);
}

void BEX_UnzipFileClose(BEX_UnzipFile *file) {
    Fails(Call::kOther, "UnzipClose");
    PLATFORM(BEX_UnzipFileClose)(file);
}

uint32_t MEL_SystimeGet(BEX_SysTime *time) {
    return Fails(Call::kOther, "Systime") ? kPlatformCode : PLATFORM(MEL_SystimeGet)(time);
}

uint32_t BEX_Crypt_Digest(const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength,
                          uint32_t capacity) {
    return Fails(Call::kDigest, "Digest", length)
               ? kPlatformCode
               : PLATFORM(BEX_Crypt_Digest)(data, length, digest, digestLength, capacity);
}

int strcpy_s(char *dest, size_t destMax, const char *src) {
    return Fails(Call::kUnlisted) ? -1 : PLATFORM(strcpy_s)(dest, destMax, src);
}

int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Formatted(format, arguments);
    va_end(arguments);
    return Fails(Call::kUnlisted) ? -1 : PLATFORM(sprintf_s)(dest, destMax, "%s", text.c_str());
}

int32_t BEX_VFS_FPrintf(BEX_VFS_File *file, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Formatted(format, arguments);
    va_end(arguments);
    return Fails(Call::kUnlisted) ? -1 : PLATFORM(BEX_VFS_FPrintf)(file, "%s", text.c_str());
}

int32_t BEX_VFS_FTell(BEX_VFS_File *file) {
    return Fails(Call::kUnlisted) ? -1 : PLATFORM(BEX_VFS_FTell)(file);
}

uint32_t MEL_GetProcessCurrentPath(char *buffer, uint32_t size) {
    return CodeOf(Call::kUnlisted, PLATFORM(MEL_GetProcessCurrentPath), buffer, size);
}

uint32_t MEL_GetEnvValue(uint32_t number, uint32_t *value) {
    return CodeOf(Call::kUnlisted, PLATFORM(MEL_GetEnvValue), number, value);
}

uint32_t CMF_GetPIDByVR(uint32_t component, uint32_t reserved, uint32_t vr, uint32_t vsId, uint32_t *componentId) {
    return CodeOf(Call::kUnlisted, PLATFORM(CMF_GetPIDByVR), component, reserved, vr, vsId, componentId);
}

uint32_t BEX_CRYPT_IsPasswordCipher(const char *text, uint32_t length) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_IsPasswordCipher), text, length);
}

uint32_t BEX_VerifySystemPassword(const char *password, uint32_t length, const char *stored) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_VerifySystemPassword), password, length, stored);
}

uint32_t BEX_CRYPT_Encrypt_Sec(const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *keyContext, const uint8_t *vector) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_Encrypt_Sec), plain, length, output, size, mode, keyContext,
                  vector);
}

uint32_t BEX_CRYPT_Salt(uint8_t *buffer, uint32_t length) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_Salt), buffer, length);
}

uint32_t BEX_CRYPT_Password_4096(const char *password, uint32_t passwordLength, const uint8_t *salt,
                                 uint32_t saltLength, char *output, uint32_t outputSize) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_Password_4096), password, passwordLength, salt, saltLength,
                  output, outputSize);
}

uint32_t BEX_CRYPT_PasswordEx(const char *password, uint32_t passwordLength, char *output, uint32_t *resultWord,
                              uint32_t outputSize) {
    return CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_PasswordEx), password, passwordLength, output, resultWord,
                  outputSize);
}

uint32_t CRYPT_random(void *buffer, uint32_t length) {
    return CodeOf(Call::kUnlisted, PLATFORM(CRYPT_random), buffer, length);
}

uint32_t BEX_CRYPT_IsCipher(const char *text, uint32_t length) {
    const bool fails = Fails(Call::kUnlisted);
    return fails ? 0 : g_ciphers ? g_ciphers->kind : PLATFORM(BEX_CRYPT_IsCipher)(text, length);
}

uint32_t BEX_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *context) {
    return g_ciphers
               ? g_ciphers->Decrypt(mode, context, size == 433 && mode == g_ciphers->goodMode)
               : CodeOf(Call::kUnlisted, PLATFORM(BEX_CRYPT_Decrypt_Sec), cipher, length, output, size, mode, context);
}

uint32_t BEX_Decrypt_AES256_Sec(const char *text, uint32_t length, void *output, uint32_t *outputLength,
                                const char *context) {
    if (!g_ciphers) {
        return CodeOf(Call::kUnlisted, PLATFORM(BEX_Decrypt_AES256_Sec), text, length, output, outputLength, context);
    }
    const uint32_t capacity = *outputLength;
    *outputLength = static_cast<uint32_t>(g_ciphers->digest.size());
    std::copy(g_ciphers->digest.begin(), g_ciphers->digest.end(), static_cast<uint8_t *>(output));
    return g_ciphers->Decrypt(capacity, context, length == strlen(text));
}

}  // extern "C"

}  // namespace interposer
