// Passwords, policy and cipher forms, on the hosted platform and on one whose ciphers are made up. In tables "-" stands
// for none, "@" for 65,536 letters, "_" for a space; Short() makes one character of a result.
#include <dlfcn.h>

#include <numeric>
#include <sstream>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"
#include "tav_crypt.h"

using interposer::g_ciphers;
using std::string;

static constexpr uint32_t kFailed = TAV_CRYPT_FAILED;
static constexpr char kWord[] = "Corr3ct Horse;Stap";

static const char *g_missing = nullptr;  // names that look-ups do not find

// It goes on by a jump, for which this file is always optimised: so RTLD_NEXT means what stands behind its caller.
extern "C" void *dlsym(void *handle, const char *name) noexcept {
    static void *const real = dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34");
    const bool isMissing = handle == RTLD_DEFAULT && g_missing != nullptr && strstr(g_missing, name) != nullptr;
    return isMissing ? nullptr : reinterpret_cast<decltype(&dlsym)>(real)(handle, name);
}

// Strings that differ do so by 7: a comparison of them is not taken for a failure.
extern "C" int32_t BEX_StrCmp(const char *a, const char *b) {
    return string(a) == b ? 0 : 7;
}

static char Short(uint32_t result) {
    static const std::map<uint32_t, char> names = {{0, '0'},   {1, '1'},     {2, '2'},       {0x4d, 'd'},
                                                   {255, 'F'}, {0x823, '#'}, {kFailed, '-'}, {0x801611, 'm'}};
    return names.contains(result) ? names.at(result) : 'x';
}

// Frames bytes and writes them in visible base 93.
static string Base93(const Bytes &data) {
    const Bytes frame = Join({Be16(static_cast<uint32_t>(data.size())), data, Filled((2 + data.size()) * 3 % 4, 0)});
    string text;
    for (size_t at = 0; at < frame.size(); at += 4) {
        uint64_t rest = (256u * frame[at] + frame[at + 1]) * 65536ull + 256u * frame[at + 2] + frame[at + 3];
        for (int i = 0; i < 5; ++i, rest /= 93) {
            text += rest % 93 == 30 ? '~' : static_cast<char>('!' + rest % 93);
        }
    }
    return text;
}

// The salted digest form of kWord with more bytes behind it; `flipped` are places where the data are changed.
static string SaltedDigest(size_t more = 0, const std::vector<size_t> &flipped = {}) {
    const Bytes salt = Text("0123456789ab");
    Bytes data = Join({{0, 1, 12, 0x5A}, salt, Sha256(Join({salt, Text(kWord)})), Filled(more, 7)});
    data[0] = std::accumulate(data.begin() + 1, data.end() - 1, uint8_t{0}, std::bit_xor<uint8_t>());
    for (const size_t at : flipped) {
        data[at] ^= 3;
    }
    return Base93(data);
}

// kWord as a reversible text (mode 1) or in the digest-based form (mode 2) of the hosted platform.
static string Encrypt(uint32_t mode, const char *context) {
    char text[433] = "";
    EXPECT_EQ(TAV_CRYPT_Encrypt_Sec(kWord, 18, text, sizeof text, mode, context), 0u);
    return text;
}

static TAV_SYS_PASSWORD_S Stored(const string &text, uint32_t form) {
    TAV_SYS_PASSWORD_S record = {.text = {}, .form = static_cast<uint8_t>(form)};
    text.copy(record.text, sizeof record.text);
    return record;
}

TEST(Base93Code, EveryLengthAndWhereTheRoundingsDisagree) {
    Random random(93);
    for (uint32_t i = 0; i <= 68; ++i) {
        const uint32_t length = i > 64 ? 0xFFFF + i - 68 : i;
        Bytes data(length), digits(Base93(data).size()), again(digits.size()), plain(digits.size() / 5 * 4 - 2);
        std::generate(data.begin(), data.end(), [&] { return static_cast<uint8_t>(random()); });
        auto capacity = static_cast<uint32_t>(plain.size()), count = 0u;
        EXPECT_EQ(TAV_BinToAscii(ExactBlock(data).get(), static_cast<uint16_t>(length), digits.data(), &count), 0u);
        string visible(count, '#');
        EXPECT_EQ(TAV_AsciiVisible(digits.data(), count, visible.data(), count - 1), 1u);
        EXPECT_EQ(TAV_AsciiVisible(digits.data(), count, visible.data(), count), 0u);
        EXPECT_TRUE(visible == Base93(data) && TAV_AsciiUnvisible(visible.c_str(), again.data(), &count) == 0);
        EXPECT_EQ(again, digits) << length;
        uint16_t stated = 0;
        const uint32_t code = TAV_AsciiToBin(digits.data(), count, plain.data(), capacity, &stated);
        EXPECT_EQ(code, length == 0 ? kFailed : length % 4 == 2 ? 0x823 : 0) << length;
        digits.resize(digits.size() + 5);
        if (length % 4 == 2) {  // the decoder wants one word more
            plain.resize(plain.size() + 4);
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count + 5, plain.data(), capacity + 4, &stated), 0u) << length;
        } else {  // no room for the zeros behind the data; no whole words, or one more than stated
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count, Bytes(plain).data(), capacity - 1, nullptr), kFailed);
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count + i % 4 + 1, plain.data(), capacity, nullptr), 0x823u);
        }
        data.resize(plain.size());
        EXPECT_TRUE(stated == length && plain == data) << length;
    }
    const uint32_t values[] = {0, 1, 92, 93, 74805200, 74805201, 0xFFFFFFFF}, sizes[] = {0, 1, 1, 2, 4, 5, 5};
    for (size_t i = 0; i < 7; ++i) {
        Bytes dirty(6, 0xEE);  // only digits up to the highest one are written
        EXPECT_TRUE(TAV_LongToDesEnhSys(values[i], dirty.data()) == 0 && dirty[sizes[i]] == 0xEE) << values[i];
        EXPECT_TRUE(sizes[i] == 0 || dirty[sizes[i] - 1] != 0xEE) << values[i];
    }
}

// Tells of a text: a cipher, by its look, irreversible, digest-based, a salted digest; results of passwords.
static string Told(const string &stored) {
    const char *const text = stored.c_str();
    return {Short(TAV_CRYPT_IsCipher(text, static_cast<uint32_t>(stored.size()), nullptr, "c")),
            Short(TAV_IsStringCipher_EnhExp(text)),
            Short(TAV_IsStringIrreversibleCipher(text)),
            Short(TAV_IsStringV5SHACipher(text, "c")),
            Short(TAV_IsStringSHACipher(text)),
            Short(TAV_VerifySystemPassword(kWord, text, "c")),
            Short(TAV_VerifySystemPassword("corr3ct Horse;Stap", text, "c")),
            Short(TAV_VerifySHACipher(kWord, text))};
}

TEST(CipherForms, OnlyWhatDecryptsCounts) {
    std::istringstream table(R"(
        0 0 - 0 9 0 -   1 0 - 1 9 1 -   2 0 - 2 9 0 0.1.   2 1 - 0 9 2 0.1.   7 1 - 7 1 7 1.1.   7 2 - 7 2 0 1.2.1.
        7 0 - 0 9 0 1.2.1.   7 1 c 0 9 0 1.2.1.   8 0 c 8 9 8 0c.   8 0 - 0 9 8 0c.   11 0 c 11 9 11 0c.
        11 1 c 0 9 11 0c.   12 0 - 12 9 0 0.1.   6 1 - 0 9 6 0.1.   4 0 - 4 9 0 0.1.)");
    string context, calls;
    for (uint32_t kind, goodMode, result, mode, byLook, found;
         table >> kind >> goodMode >> context >> result >> mode >> byLook >> calls;) {
        g_ciphers = {kind, goodMode, context == "-" ? "" : context};
        EXPECT_TRUE(TAV_CRYPT_IsCipher("text", 4, &(found = 9), "c") == result && found == mode) << kind << goodMode;
        EXPECT_EQ(TAV_IsStringCipher_EnhExp("text"), byLook) << kind << goodMode;
        EXPECT_EQ(g_ciphers->calls, calls == "-" ? "" : calls) << kind << goodMode;
        EXPECT_EQ(TAV_CRYPT_IsCipher("text", 4, nullptr, "c"), result);
    }
    g_ciphers = {9, 0, "c"};
    DebugLog log;
    EXPECT_EQ(Told(string(432, 'a')).substr(0, 2), "xx");
    EXPECT_EQ(Told(string(433, 'a')).substr(0, 2), "11");
    log.Expect({{"TAV_CRYPT_IsCipher", "dataStrLen exceed"}});
    g_ciphers.reset();
}

TEST(CipherForms, DigestBasedFormIsAnEncryptedDigestOf32Bytes) {
    const char *const word = "286";  // its digest begins with a zero byte, where a comparison of strings would end
    for (uint32_t at = 15; at < 39; ++at) {
        g_ciphers = {at / 3, 0, "c", Slice(Join({Sha256(Text(word)), {0}}), 0, 31 + at % 3)};
        const bool isCandidate = at >= 18 && at < 36, isWhole = at % 3 == 1;
        EXPECT_EQ(TAV_IsStringV5SHACipher(string(500, 'a').c_str(), "c"), isCandidate && isWhole ? 0 : 1) << at;
        EXPECT_TRUE(TAV_IsStringV5SHACipher("text", "d") == 1 && TAV_VerifyV5SHACipher(word, "text", "d") == 1) << at;
        EXPECT_EQ(TAV_VerifyV5SHACipher(word, "text", "c"), isWhole ? 0 : 0x823) << at;
        g_ciphers->digest[30] ^= 1;
        EXPECT_EQ(TAV_VerifyV5SHACipher(word, "text", "c"), 0x823u);
        EXPECT_EQ(g_ciphers->calls, string(isCandidate ? "256c.256d." : "") + "433d.433c.433c.");
    }
    g_ciphers.reset();
}

TEST(CipherForms, SaltedDigest) {
    for (size_t at = 0; at < 48; ++at) {  // check byte, version, marker, one that does not matter, salt, digest
        const string same = at < 4 ? "0" : "#", yes = "00110" + same + "#" + same, no = "00011--" + same;
        EXPECT_EQ(Told(SaltedDigest(0, {at})), at < 47 ? no : yes) << at;  // the check leaves the last byte out
        EXPECT_EQ(Told(SaltedDigest(0, {at, 0})), (at == 0 || at >= 3) && at < 47 ? yes : no) << at;
    }
    EXPECT_EQ(Told(SaltedDigest(1)) + Told(SaltedDigest(2)) + Told(SaltedDigest(3)), "001100#000011--#00011---");
    EXPECT_EQ(Told(SaltedDigest(53)) + Told(Base93({1, 1, 12})), "00011---00110###");
}

TEST(Records, FormsByLengths) {
    const uint32_t lengths[] = {16, 17, 24, 25, 32, 33, 128, 129, 268, 269, 432, 433};
    const uint32_t most[][5] = {
        {0, 432, 432, 432, 433}, {128, 128, 128, 128, 128}, {128, 268, 268, 268, 128}, {16, 16, 16, 16, 16},
        {16, 24, 32, 16, 433},   {128, 128, 128, 128, 128}, {128, 268, 268, 268, 433}, {0, 0, 0, 0, 0}};
    const uint32_t columns[] = {0, 0, 1, 3, 1, 3, 2, 3, 3, 4};  // of the kinds: plain, 2 and 4, 6, others, digest-based
    for (uint32_t at = 0; at < 8 * 10 * 12; ++at) {
        const uint32_t form = at / 120, kind = at / 12 % 10, length = lengths[at % 12], column = columns[kind];
        g_ciphers = {column < 4 ? kind : 6, column < 4 ? 1u : 9u, "", Filled(column < 4 ? 0 : 32, 0)};
        const TAV_SYS_PASSWORD_S record = Stored(string(length, 'a'), form), empty = Stored("", form);
        const uint32_t least = form == 4 && (column == 1 || column == 2) && length > 16 ? most[form][column] : 0;
        const bool isAllowed = length >= least && length <= most[form][column];
        EXPECT_EQ(TAV_CheckSystemPassword(&record), isAllowed ? 0 : 1) << form << " " << kind << " " << length;
        EXPECT_EQ(TAV_CheckSystemPassword(&empty) + (column == 0 ? TAV_GetPasswordType(&empty) : 0), 0u);
    }
    g_ciphers.reset();
}

TEST(Records, EveryFormOfTheHostedPlatform) {
    char older[433] = "", newer[433] = "";
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(kWord, 18, older, 433) + TAV_EncryptSystemPassword(kWord, newer, 433), 0u);
    const string sent = Encrypt(1, "in");  // rows: what is told; then by a record's form, the type and two results
    const string rows[][5] = {{kWord, "00011--", "F00FF00F", "-00-----", "-00--00-"},
                              {Encrypt(1, ""), "0x011--", "101FF01F", "-xx-----", "xxx--xx-"},
                              {Encrypt(1, "c"), "xx011--", "101FF01F", "000-----", "000--00-"},
                              {Encrypt(2, ""), "00111--", "202F202F", "-xx-----", "-x---x--"},
                              {Encrypt(2, "c"), "000010#", "F00FF00F", "0xx0000-", "-xx--xx-"},
                              {older, "001110-", "202F202F", "0xx0000-", "0x0-0x0-"},
                              {newer, "001110-", "202F202F", "0xx0000-", "0x0-0x0-"},
                              {SaltedDigest(), "001100#", "202F202F", "0xx0000-", "0x0-0x0-"}};
    for (const auto &[text, told, types, verified, verifiedEncrypted] : rows) {
        string got[4];
        for (uint32_t form = 0; form < 8; ++form) {
            const TAV_SYS_PASSWORD_S record = Stored(text, form), same = record;
            got[0] += Short(TAV_GetPasswordType(&record));
            got[1] += Short(TAV_VerifySystemPassword_Enh(kWord, record.text, "c"));
            got[2] += Short(TAV_VerifyEncryptSystemPassword_Enh(kWord, "in", &record, "c"));
            got[3] += Short(TAV_VerifyEncryptSystemPassword_Enh(sent.c_str(), "in", &record, "c"));
            EXPECT_EQ(memcmp(&same, &record, sizeof record), 0) << "changed";
        }
        EXPECT_EQ(Told(text).substr(0, 7) + got[0] + got[1], told + types + verified) << text;
        EXPECT_EQ(got[2] + got[3], verifiedEncrypted + verifiedEncrypted) << text;
    }
}

TEST(Records, ChangedTextsNeitherVerifyNorHarm) {
    const string originals[] = {SaltedDigest(), Encrypt(1, ""), Encrypt(2, "c"), kWord,
                                "$pbkdf2-sha256$4096$c2FsdA$xeR41ZKIyEGqUw22hFxMjZYok6ABzk4RpJY4c6qYE0o"};
    Random random(1);
    for (uint32_t round = 0; round < 4000; ++round) {
        string text = originals[round % 5];
        text.replace(random() % (text.size() + 1), random() % 3, random() % 3, static_cast<char>(random()));
        const TAV_SYS_PASSWORD_S record = Stored(text.append(random() % 7 == 0 ? 300 : 0, 'a').c_str(), random() % 8);
        const string told = Told(record.text) + Short(TAV_VerifySystemPassword_Enh(kWord, record.text, "c"));
        TAV_VerifyEncryptSystemPassword_Enh(kWord, "", &record, "");
        const bool isExcused = round % 5 == 0 || record.text == originals[round % 5];  // some bytes do not matter
        EXPECT_TRUE(isExcused || (told[0] == '0' && told[5] != '0' && told[8] != '0')) << record.text;
    }
}

static const char *Pointer(string &word) {
    std::replace(word.begin(), word.end(), '_', ' ');
    word = word[0] == '@' ? string(65536, 'a') + word.substr(1) : word;
    return word == "-" ? nullptr : word.c_str();
}

// L: strict, basic, skip length; C: least length and classes; S: any byte, question mark, space; Q: length.
TEST(Policy, Tables) {
    std::istringstream table(R"(
        L - u 000 -1  L * u 001 16f9  L **** u 000 16f9  L **a* u 000 0  L a*** u 000 0  L Abc123. u 100 824
        L Abc123. u 101 0  L Abc1234 u 000 0  L Abc1234. u 100 0  L @ - 000 824  L @ - 001 0  L @ - 011 efc
        L @Abc123. - 100 824  L ABCdef12 u 110 efd  L ABCDE12# u 100 efd  L ABCdef#_ u 100 efd  L abcde12# u 100 efd
        L ABC12# u 010 0  L ABCabc12 u 010 efc  L abc12# u 010 efc  L ABCabc# u 010 efc  L aa aa 000 0
        L Nimda99# Admin 100 f01  L xADMIN9# admiN 100 f01  L Abc1234. - 100 0  L Root123# x#321toor 100 aba0
        L Root123# #321toOr 100 f01  L Abc1234. @ 100 f01  L Root123# xroot123 100 0  L Root123# xrOOT123#x 100 aba0
        C abcdef - 62 821  C abcde1 - 62 0  C abc1. - 62 824  C abcde1 BCD 62 822  C abcde1 dcb 62 822
        C aA1. A1 44 822  C abcde1 xabcde1 62 0  C a- - 03 821  C aA1. - 44 0  C aA1. - 50 824  C aA11 - 44 821
        C /:@[`{ - 62 821  C /:[`{ - 02 821  C 09AZ - 03 821  C azAZ - 02 0  C - - 62 -1  C @ - 01 821
        C @aaaaa. - 62 821  C @aaaa. - 62 824  S a?b - 000 -1  S a?b - 010 0  S a?b - 101 -1  S a_b - 001 0
        S a_b - 110 -1  S "a_b" - 000 0  S "a"b" - 000 0  S "a_"b" - 000 -1  S "a_b - 000 -1  S "" - 111 -1
        S " - 000 -1  S """ - 111 -1  S "a_"b" - 001 0  S a_"b - 000 -1  Q "a_b" - 5 0  Q "a_b" - 4 -1  Q "a"_b" - 6 -1
        Q "a"_b" - 3 0  Q ""_" - 4 -1  Q "ab"" - 5 0  Q " - 1 0  Q " - 0 -1  Q a" - 2 -1  Q - - 3 -1)");
    string check, word, other, on;
    for (uint32_t result; table >> check >> word >> other >> on >> std::hex >> result;) {
        const char *const text = Pointer(word), *const name = Pointer(other);
        const uint8_t first = on[0] & 15, second = on[1] & 15;
        const uint32_t code = check == "L"   ? TAV_CheckLocUserPassword(text, name, first, second, nullptr, on[2] & 1)
                              : on == "62"   ? TAV_CheckPasswordComplexity(text, name)
                              : check == "C" ? TAV_CheckPasswordComplexityEx(text, name, first, second)
                              : check == "S" ? TAV_StrValidate(text, on[2] & 1, second, first)
                                             : TAV_ValidateStrWithQuotes(text, first);
        EXPECT_EQ(code, result) << check << word.substr(0, 20) << " " << other.substr(0, 20) << " " << on;
    }
    for (uint32_t byte = 1; byte < 256; ++byte) {
        EXPECT_EQ(TAV_StrValidate(string(2, static_cast<char>(byte)).c_str(), 0, 0, 0) == 0,
                  byte > 0x20 && byte < 0x7F && byte != '?' && byte != '"');
    }
}

TEST(Policy, HistoryOfTwenty) {
    const TAV_SYS_PASSWORD_S plain = Stored(kWord, 1), other = Stored("a", 1), invalid = Stored(kWord, 7);
    const TAV_SYS_PASSWORD_S cipher = Stored(Encrypt(1, "ZPT-MOLD-CARDFRAME"), 2);
    for (size_t place = 0; place < 42; ++place) {
        const char *history[21] = {other.text, nullptr, invalid.text};
        history[place / 2] = place % 2 == 0 ? plain.text : cipher.text;
        EXPECT_EQ(TAV_CheckLocUserPassword(kWord, "u", 1, 0, history, 0), place < 40 ? 0xEFB : 0) << place;
        EXPECT_EQ(TAV_PasswordSameWithHistory(kWord, 0, place % 3 != 0, history), place < 40 && place % 3 != 0 ? 1 : 0);
    }
}

// Tells whether the frames of the call before hold six letters out of the password's middle, and wipes them.
[[gnu::noinline]] static bool StackHoldsWord() {
    char stack[32768];
    asm volatile("" : "=m"(stack));
    const bool holds = std::string_view(stack, sizeof stack).find({kWord + 8, 6}) != string::npos;
    memset(stack, 0, sizeof stack);
    asm volatile("" : : "m"(stack));
    return holds;
}

// The results of an operation, when it goes well and with each of its calls of the platform failing.
static string Results(const std::function<uint32_t()> &run) {
    string results = {Short(run())};  // the loader binds what is called, which saves registers on the stack
    for (uint32_t nth = 1; nth == results.size(); ++nth) {
        const NothingLeaks nothingLeaks;
        interposer::Reset();
        interposer::WatchFreed([](const uint8_t *block, uint32_t size) {
            EXPECT_EQ(std::count(block, block + size, 0), size) << "not wiped";
        });
        interposer::FailNth(interposer::Call::kAny, nth);
        StackHoldsWord();
        const uint32_t result = run();
#ifdef NDEBUG  // copies of a platform that is not optimised, or sanitized, stay there whatever the library does
        EXPECT_FALSE(StackHoldsWord()) << results;
#endif
        results += interposer::Count(interposer::Call::kAny) >= nth ? string(1, Short(result)) : "";
    }
    interposer::Reset();
    return results;
}

TEST(Secrecy, NothingStaysWhateverFails) {
    const string salted = SaltedDigest(), digested = Encrypt(2, "c"), cipher = Encrypt(1, "c"), sent = Encrypt(1, "in");
    const TAV_SYS_PASSWORD_S plain = Stored(kWord, 1), bound = Stored(cipher, 2);
    g_pfn_SYSDT_IsStringCipher_CRYPT = [](auto...) { return 1u; };  // a cipher is a password itself
    Bytes digits(25), out(25);
    uint32_t n = 0;
    char text[433];
    const std::pair<string, std::function<uint32_t()>> rows[] = {
        {"0--", [&] { return TAV_CRYPT_EncryptPassword4096(kWord, 18, text, 433); }},
        {"0-", [&] { return TAV_EncryptSystemPassword(kWord, text, 433); }},
        {"0-d", [&] { return TAV_CRYPT_Encrypt_Sec(kWord, 18, text, 433, 0, "c"); }},
        {"0--", [&] { return TAV_BinToAscii(kWord, 17, digits.data(), &n); }},
        {"0--", [&] { return TAV_AsciiToBin(digits.data(), n, out.data(), 25, nullptr); }},
        {"0--m--d", [&] { return TAV_VerifySHACipher(kWord, salted.c_str()); }},
        {"0111", [&] { return TAV_IsStringV5SHACipher(digested.c_str(), "c"); }},
        {"011", [&] { return TAV_VerifyV5SHACipher(kWord, digested.c_str(), "c"); }},
        {"100011", [&] { return TAV_PasswordAndUsernameSimilarCheck("my Corr3ct Horse;Stap", kWord, 1); }},
        {"000011", [&] { return TAV_PasswordAndUsernameSimilarCheck("horse", kWord, 1); }},
        {"x000", [&] { return TAV_CRYPT_IsCipher(cipher.c_str(), 73, nullptr, "c"); }},
        {"0-x0", [&] { return TAV_VerifyEncryptSystemPassword_Enh(sent.c_str(), "in", &plain, "c"); }},
        {"0-xx--0--", [&] { return TAV_VerifyEncryptSystemPassword_Enh(bound.text, "in", &bound, "c"); }}};
    for (const auto &[results, run] : rows) {
        EXPECT_EQ(Results(run), results) << (&results - &rows->first) / 2;
    }
    g_pfn_SYSDT_IsStringCipher_CRYPT = nullptr;
}

TEST(Hooks, AreLookedUpUntilFound) {
    const TAV_SYS_PASSWORD_S record = Stored(Encrypt(1, "c"), 2);
    for (uint32_t found = 0; found < 32; ++found) {
        const bool hasIs = found & 1, hasOld = (found & 6) == 6, hasEx = found & 8, hasRandom = found & 16;
        const string missing = string(hasIs ? "" : "SYSDT_IsStringCipher_CRYPT ") +
                               (hasEx ? "" : "BEX_CRYPT_PasswordEx ") + (found & 2 ? "" : "BEX_CRYPT_Salt ") +
                               (found & 4 ? "" : "BEX_CRYPT_Password_4096 ") + (hasRandom ? "" : "CRYPT_random");
        g_missing = missing.c_str();
        g_pfn_SYSDT_IsStringCipher_CRYPT = nullptr, g_pfn_BEX_CRYPT_Salt = nullptr, g_pfn_CRYPT_random = nullptr;
        g_pfn_BEX_CRYPT_Password_4096 = nullptr, g_pfn_BEX_CRYPT_PasswordEx = nullptr;
        char text[433] = "";
        EXPECT_EQ(TAV_EncryptSystemPassword(kWord, text, 433), hasEx || hasOld ? 0 : kFailed);
        EXPECT_EQ(strlen(text), hasEx ? 88u : hasOld ? 86u : 0u);
        EXPECT_EQ(TAV_GetRandomValue() != TAV_GetRandomValue(), hasRandom);
        EXPECT_EQ(TAV_SYSDT_IsStringCipher_CRYPT(record.text, 73, 1, "c"), hasIs ? 8 : kFailed);
        EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(kWord, "", &record, "c"), 0u);  // unasked, it tries to decrypt
        g_missing = nullptr;
    }
}
