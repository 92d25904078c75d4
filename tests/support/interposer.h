/*
 * Stands between the library and the platform: the test program defines the platform's functions itself, which wins
 * over the platform library's, and calls on. So calls can be counted, listed and made to fail one by one, while
 * everything else stays real.
 */
#ifndef TAV_TESTS_INTERPOSER_H
#define TAV_TESTS_INTERPOSER_H

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace interposer {

/** Kinds of calls that are counted apart. */
enum class Call {
    kMalloc,
    kMsgAlloc,
    kSend,
    kMemCopy,
    kMemFill,
    kStrNCopy,
    kOpen,
    kRead,
    kWrite,
    kSeek,
    kClose,
    kStat,
    kMove,
    kZipCount,
    kZipSize,
    kUnzip,
    kDigest,
    kOther,
    kLogClose,
    kUnlisted,  // formatting, settings, ciphers, and the debug log's file but for its close
    kAny        // all of these together, but for kMemFill: fills wipe secrets, which must not fail in passing
};

/** What a failing platform call answers where it may answer with a code of its own. */
inline constexpr uint32_t kPlatformCode = 0x4d;

/** Ciphers that answer in place of the platform's, whatever the text. */
struct FakeCiphers {
    uint32_t kind, goodMode;           // what a text looks like; the mode in which it decrypts
    std::string goodContext;           // and the key context
    std::vector<uint8_t> digest = {};  // of a digest-based form
    std::string calls = {};            // mode or capacity, and context, of each decryption
    uint32_t Decrypt(uint32_t number, const char *context, bool isGood);
};
inline std::optional<FakeCiphers> g_ciphers;

/** Forgets all counts and plans. */
void Reset();

/** Makes the nth call (from 1) of a kind fail; their count begins anew. */
void FailNth(Call kind, uint32_t nth);

/** Makes calls fail by their place (from 0) among all listed calls since the last Reset. */
void FailListed(std::set<size_t> places);

/** Makes a failing write or read leave out this many bytes; by default it leaves out half. */
void SetMissingBytes(uint32_t count);

/** Shows a watcher each block that the library takes from now on, just before it is returned; until the next Reset. */
void WatchFreed(std::function<void(const uint8_t *block, uint32_t size)> watcher);

/** The name of the platform's function that failed first since the last Reset; empty when none did. */
const std::string &Failed();

/** Whose blocks the library has taken since the last call of this: memory module and name, as "1 tav_extcfg". */
std::set<std::string> TakenBy();

/** How many calls of a kind there were since the last Reset, or FailNth of this kind. */
uint32_t Count(Call kind);

/**
 * The calls since the last Reset of the kinds from kOpen to kOther, one text each: the function's name without what is
 * in front of its last underscore, and the arguments that are numbers or names; of paths the last component.
 */
const std::vector<std::string> &Listed();

}  // namespace interposer

#endif
