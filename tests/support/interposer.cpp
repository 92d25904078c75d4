#include "interposer.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <unordered_map>
#include <utility>

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

constexpr int kPoison = 0xA5;

struct State {
    std::map<Call, uint32_t> counts;
    Call failKind = Call::kOther;
    uint32_t failNth = 0;
    std::set<size_t> failPlaces;
    std::optional<uint32_t> missingBytes;
    std::vector<std::string> listed;
    std::string failed;
    std::function<void(const uint8_t *block, uint32_t size)> freeWatcher;
};

// Calls are counted, listed and made to fail in the thread that asks for it.
thread_local State g_state;
thread_local std::set<BEX_VFS_File *> g_logFiles;  // open ones of the debug log, no part of what is examined
thread_local std::set<std::string> g_takenBy;      // in whose names
thread_local unsigned g_depth = 0;  // above 0 inside a platform call: what the platform calls itself is its own affair

/** What a function that fails answers. */
template <typename Result>
Result Failure() {
    if constexpr (std::is_pointer_v<Result>) {
        return nullptr;
    } else {
        return static_cast<Result>(std::is_signed_v<Result> ? -1 : kPlatformCode);
    }
}

/** Writes an argument that the list shows: a name without its folder, or a number. */
template <typename Argument>
void Show(std::ostream &out, Argument argument) {
    if constexpr (std::is_same_v<Argument, const char *>) {
        const std::string path(argument);
        out << ' ' << path.substr(path.rfind('/') + 1);
    } else if constexpr (std::is_arithmetic_v<Argument>) {
        out << ' ' << argument;
    }
}

bool IsListed(Call kind) {
    return kind >= Call::kOpen && kind <= Call::kOther;
}

/** Counts one call from the library, and lists it. Returns whether it is to fail. */
template <typename... Arguments>
bool Fails(Call kind, const char *function, Arguments... arguments) {
    if (g_depth > 0) {
        return false;
    }
    ++g_state.counts[kind];
    const bool isOfAny = kind != Call::kMemFill;
    g_state.counts[Call::kAny] += isOfAny ? 1 : 0;
    bool fails = (g_state.failKind == kind || (g_state.failKind == Call::kAny && isOfAny)) &&
                 g_state.counts[g_state.failKind] == g_state.failNth;
    if (IsListed(kind)) {
        const std::string name(function);
        std::ostringstream text;
        text << name.substr(name.rfind('_') + 1);
        (Show(text, arguments), ...);
        fails |= g_state.failPlaces.contains(g_state.listed.size());
        g_state.listed.push_back(text.str());
    }
    if (fails && g_state.failed.empty()) {
        g_state.failed = function;
    }
    return fails;
}

/** Makes a call, unless it is to fail: then it does nothing. */
template <typename Function, typename... Arguments>
auto MakeOrFail(Call kind, const char *name, Function next, Arguments... arguments) {
    return Fails(kind, name, arguments...) ? Failure<decltype(next(arguments...))>() : next(arguments...);
}

/** Makes a call, which may fail all the same. */
template <typename Function, typename... Arguments>
auto MakeAndFail(Call kind, const char *name, Function next, Arguments... arguments) {
    const auto result = next(arguments...);
    return Fails(kind, name, arguments...) ? Failure<decltype(next(arguments...))>() : result;
}

/** The blocks that the library has taken, and their sizes; one thread may return what another has taken. */
class Blocks {
  public:
    void Add(void *block, uint32_t size) {
        const std::lock_guard lock(mutex_);
        sizes_[block] = size;
    }
    auto Extract(void *block) {
        const std::lock_guard lock(mutex_);
        return sizes_.extract(block);
    }

  private:
    std::mutex mutex_;
    std::unordered_map<void *, uint32_t> sizes_;
} g_blocks;

// Behind each block stand some bytes that nobody may write. The address sanitizer has its own.
#ifdef __SANITIZE_ADDRESS__
constexpr uint32_t kGuardSize = 0;
#else
constexpr uint32_t kGuardSize = 16;
#endif

/** The size of a block with its guard; such a size that there cannot be one stays as it is. */
uint32_t Guarded(uint32_t size) {
    return size <= UINT32_MAX - kGuardSize ? size + kGuardSize : size;
}

/** Notes a new block, and fills it from a place on, so that it shows what is not set. */
void *Poisoned(void *block, uint32_t size, uint32_t from) {
    if (block != nullptr) {
        g_blocks.Add(block, size);
        memset(static_cast<uint8_t *>(block) + from, kPoison, Guarded(size) - from);
    }
    return block;
}

/** Expects that nobody has written behind a block. */
void ExpectGuard(const void *block, uint32_t size) {
    const auto *const guard = static_cast<const uint8_t *>(block) + size;
    EXPECT_TRUE(std::all_of(guard, guard + Guarded(size) - size, [](uint8_t byte) { return byte == kPoison; }))
        << "written behind a block of " << size << " bytes";
}

std::string Formatted(const char *format, va_list arguments) {
    char text[8192];
    return std::string(text, static_cast<size_t>(vsnprintf(text, sizeof(text), format, arguments)));
}

uint32_t CutLength(uint32_t length) {
    uint32_t missing = g_state.missingBytes.value_or((length + 1) / 2);
    return length > missing ? length - missing : 0;
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

std::set<std::string> TakenBy() {
    return std::exchange(g_takenBy, {});
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

// Defines a function of the platform that is made or fails.
#define STAND_IN(kind, result, function, parameters, ...)                          \
    result function parameters {                                                   \
        return MakeOrFail(Call::kind, #function, PLATFORM(function), __VA_ARGS__); \
    }

extern "C" {

void *MEL_Malloc_F(uintptr_t handle, uint8_t memPt, uint32_t size, const char *source, uint32_t line) {
    if (g_depth == 0) {
        g_takenBy.insert(std::to_string(handle) + " " + source);
    }
    return Poisoned(
        MakeOrFail(Call::kMalloc, __func__, PLATFORM(MEL_Malloc_F), handle, memPt, Guarded(size), source, line), size,
        0);
}

void MEL_Free_F(void *block, const char *source, uint32_t line) {
    if (const auto known = g_blocks.Extract(block)) {
        if (g_state.freeWatcher) {
            g_state.freeWatcher(static_cast<const uint8_t *>(block), known.mapped());
        }
        ExpectGuard(block, known.mapped());
        memset(block, kPoison, known.mapped());
    }
    PLATFORM(MEL_Free_F)(block, source, line);
}

void *MEL_MemReAlloc(uintptr_t handle, uint8_t memPt, void *block, uint32_t size) {
    const auto known = g_blocks.Extract(block);  // before another thread may get the same one
    const uint32_t oldSize = known ? known.mapped() : 0;
    void *const grown =
        MakeOrFail(Call::kMalloc, __func__, PLATFORM(MEL_MemReAlloc), handle, memPt, block, Guarded(size));
    if (grown == nullptr && known) {
        g_blocks.Add(block, oldSize);
    }
    return Poisoned(grown, size, std::min(size, oldSize));
}

void *MEL_MsgAlloc_F(uint32_t sender, uint32_t size, const char *source, uint32_t line) {
    void *const message = MakeOrFail(Call::kMsgAlloc, __func__, PLATFORM(MEL_MsgAlloc_F), sender, size, source, line);
    return message != nullptr ? memset(message, kPoison, size) : nullptr;
}

uint32_t TAV_AdjustSendMsg(uint32_t receiver, uint32_t reserved, uint32_t code, void *message, uint32_t length) {
    // A message that cannot be sent is consumed all the same: the bus refuses a length beyond any message's, and frees.
    const bool fails = Fails(Call::kSend, __func__);
    return PLATFORM(TAV_AdjustSendMsg)(receiver, reserved, code, message, fails ? UINT32_MAX : length);
}

STAND_IN(kMemCopy, int, memcpy_s, (void *to, size_t room, const void *from, size_t count), to, room, from, count)
STAND_IN(kMemFill, int, memset_s, (void *to, size_t room, int value, size_t count), to, room, value, count)
STAND_IN(kStrNCopy, int, strncpy_s, (char *to, size_t room, const char *from, size_t count), to, room, from, count)
STAND_IN(kUnlisted, int, strcpy_s, (char *to, size_t room, const char *from), to, room, from)

BEX_VFS_File *BEX_VFS_FOpen(const char *path, const char *mode) {
    const bool isLog = *mode == 'a';
    BEX_VFS_File *const file =
        MakeOrFail(isLog ? Call::kUnlisted : Call::kOpen, __func__, PLATFORM(BEX_VFS_FOpen), path, mode);
    if (isLog && file != nullptr) {
        g_logFiles.insert(file);
    }
    return file;
}

uint32_t BEX_VFS_FRead(void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    const bool fails = Fails(Call::kRead, __func__, size * count);
    return PLATFORM(BEX_VFS_FRead)(buffer, fails ? CutLength(size * count) : size, count, file);
}

uint32_t BEX_VFS_FWrite(const void *buffer, uint32_t size, uint32_t count, BEX_VFS_File *file) {
    const bool fails = Fails(Call::kWrite, __func__, size * count);
    return PLATFORM(BEX_VFS_FWrite)(buffer, fails ? CutLength(size * count) : size, count, file);
}

STAND_IN(kSeek, int32_t, BEX_VFS_FSeek, (BEX_VFS_File * file, int32_t offset, int32_t origin), file, offset, origin)
STAND_IN(kUnlisted, int32_t, BEX_VFS_FTell, (BEX_VFS_File * file), file)

int32_t BEX_VFS_FFlush(BEX_VFS_File *file) {
    return MakeAndFail(Call::kOther, __func__, PLATFORM(BEX_VFS_FFlush), file);
}

int32_t BEX_VFS_FClose(BEX_VFS_File *file) {
    const bool isLog = g_logFiles.erase(file) > 0;
    return MakeAndFail(isLog ? Call::kLogClose : Call::kClose, __func__, PLATFORM(BEX_VFS_FClose), file);
}

STAND_IN(kStat, uint32_t, BEX_VFS_Stat, (const char *path, BEX_VFS_StatInfo *info), path, info)
STAND_IN(kMove, uint32_t, BEX_VFS_MoveFile, (const char *from, const char *to), from, to)
STAND_IN(kOther, uint32_t, BEX_VFS_DeleteFile, (const char *path), path)
STAND_IN(kOther, uint32_t, BEX_VFS_SetFileModeEx, (const char *path, uint32_t mode), path, mode)
STAND_IN(kOther, uint32_t, P_MEL_Chown2MEL, (const char *path, uint32_t flags), path, flags)
STAND_IN(kOther, uint32_t, P_MEL_Mkdir, (const char *path, uint32_t mode), path, mode)

uint32_t BEX_VFS_IsFileExist(const char *path) {
    return Fails(Call::kOther, __func__, path) ? 0 : PLATFORM(BEX_VFS_IsFileExist)(path);
}

uint32_t BEX_VFS_IsDirExist(const char *path) {
    return Fails(Call::kOther, __func__, path) ? 0 : PLATFORM(BEX_VFS_IsDirExist)(path);
}

uint32_t BEX_DeleteDir(const char *path) {
    return MakeAndFail(Call::kOther, __func__, PLATFORM(BEX_DeleteDir), path);
}

STAND_IN(kOther, uint32_t, BEX_VFS_FindFirst, (const char *pattern, BEX_VFS_Find **search, BEX_VFS_FindEntry *entry),
         pattern, search, entry)
STAND_IN(kOther, uint32_t, BEX_VFS_FindNext, (BEX_VFS_Find * search, BEX_VFS_FindEntry *entry), search, entry)

void BEX_VFS_FindClose(BEX_VFS_Find *search) {
    Fails(Call::kOther, __func__);
    PLATFORM(BEX_VFS_FindClose)(search);
}

uint32_t BEX_ZipBuffer(uint32_t length, const void *data, const char *member, const char *archive, uint32_t flags,
                       int32_t level) {
    if (Fails(Call::kOther, __func__, length, member, archive, flags, level)) {
        std::ofstream(archive, std::ios::binary) << "half an archive";
        return kPlatformCode;
    }
    return PLATFORM(BEX_ZipBuffer)(length, data, member, archive, flags, level);
}

STAND_IN(kZipCount, uint32_t, BEX_UnzipGetNumofFiles, (const char *archive, uint16_t *count), archive, count)
STAND_IN(kZipSize, uint32_t, ZIP_GetUncompressSize, (const char *member, const char *archive, uint32_t *size), member,
         archive, size)
STAND_IN(kUnzip, uint32_t, BEX_UnzipToBuffer, (uint32_t size, void *buffer, const char *member, const char *archive),
         size, buffer, member, archive)

uint32_t BEX_Unzip(const char *archive, const char *folder) {
    return MakeAndFail(Call::kOther, __func__, PLATFORM(BEX_Unzip), archive, folder);
}

STAND_IN(kOther, BEX_UnzipFile *, BEX_UnzipFileOpen, (const char *member, const char *archive, uint32_t flags), member,
         archive, flags)
STAND_IN(kOther, uint32_t, BEX_UnzipFileRead, (BEX_UnzipFile * file, void **buffer, uint32_t *length), file, buffer,
         length)

void BEX_UnzipFileClose(BEX_UnzipFile *file) {
    Fails(Call::kOther, __func__);
    PLATFORM(BEX_UnzipFileClose)(file);
}

STAND_IN(kOther, uint32_t, MEL_SystimeGet, (BEX_SysTime * time), time)
STAND_IN(kDigest, uint32_t, BEX_Crypt_Digest,
         (const void *data, uint32_t length, uint8_t *digest, uint32_t *digestLength, uint32_t capacity), data, length,
         digest, digestLength, capacity)

int sprintf_s(char *dest, size_t destMax, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Formatted(format, arguments);
    va_end(arguments);
    return MakeOrFail(Call::kUnlisted, __func__, PLATFORM(sprintf_s), dest, destMax, "%s", text.c_str());
}

int32_t BEX_VFS_FPrintf(BEX_VFS_File *file, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = Formatted(format, arguments);
    va_end(arguments);
    return MakeOrFail(Call::kUnlisted, __func__, PLATFORM(BEX_VFS_FPrintf), file, "%s", text.c_str());
}

STAND_IN(kUnlisted, uint32_t, MEL_GetProcessCurrentPath, (char *buffer, uint32_t size), buffer, size)
STAND_IN(kUnlisted, uint32_t, MEL_GetEnvValue, (uint32_t number, uint32_t *value), number, value)
STAND_IN(kUnlisted, uint32_t, CMF_GetPIDByVR,
         (uint32_t component, uint32_t reserved, uint32_t vr, uint32_t vsId, uint32_t *id), component, reserved, vr,
         vsId, id)
STAND_IN(kUnlisted, uint32_t, BEX_CRYPT_IsPasswordCipher, (const char *text, uint32_t length), text, length)
STAND_IN(kUnlisted, uint32_t, BEX_VerifySystemPassword, (const char *word, uint32_t length, const char *stored), word,
         length, stored)
STAND_IN(kUnlisted, uint32_t, BEX_CRYPT_Encrypt_Sec,
         (const char *plain, uint32_t length, char *output, uint32_t size, uint32_t mode, const char *context,
          const uint8_t *vector),
         plain, length, output, size, mode, context, vector)
STAND_IN(kUnlisted, uint32_t, BEX_CRYPT_Salt, (uint8_t * buffer, uint32_t length), buffer, length)
STAND_IN(kUnlisted, uint32_t, BEX_CRYPT_Password_4096,
         (const char *word, uint32_t length, const uint8_t *salt, uint32_t saltLength, char *output, uint32_t size),
         word, length, salt, saltLength, output, size)
STAND_IN(kUnlisted, uint32_t, BEX_CRYPT_PasswordEx,
         (const char *word, uint32_t length, char *output, uint32_t *resultWord, uint32_t size), word, length, output,
         resultWord, size)
STAND_IN(kUnlisted, uint32_t, CRYPT_random, (void *buffer, uint32_t length), buffer, length)

uint32_t BEX_CRYPT_IsCipher(const char *text, uint32_t length) {
    const bool fails = Fails(Call::kUnlisted, __func__);
    return fails ? 0 : g_ciphers ? g_ciphers->kind : PLATFORM(BEX_CRYPT_IsCipher)(text, length);
}

uint32_t BEX_CRYPT_Decrypt_Sec(const char *cipher, uint32_t length, char *output, uint32_t size, uint32_t mode,
                               const char *context) {
    if (g_ciphers) {
        return g_ciphers->Decrypt(mode, context, size == 433 && mode == g_ciphers->goodMode);
    }
    return MakeOrFail(Call::kUnlisted, __func__, PLATFORM(BEX_CRYPT_Decrypt_Sec), cipher, length, output, size, mode,
                      context);
}

uint32_t BEX_Decrypt_AES256_Sec(const char *text, uint32_t length, void *output, uint32_t *outputLength,
                                const char *context) {
    if (!g_ciphers) {
        return MakeOrFail(Call::kUnlisted, __func__, PLATFORM(BEX_Decrypt_AES256_Sec), text, length, output,
                          outputLength, context);
    }
    const uint32_t capacity = *outputLength;
    *outputLength = static_cast<uint32_t>(g_ciphers->digest.size());
    std::copy(g_ciphers->digest.begin(), g_ciphers->digest.end(), static_cast<uint8_t *>(output));
    return g_ciphers->Decrypt(capacity, context, length == strlen(text));
}

}  // extern "C"

}  // namespace interposer
