// Passwords, policy and cipher forms, on the hosted platform and on one whose ciphers are made up.
#include <dlfcn.h>

#include <numeric>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"
#include "tav_crypt.h"

using interposer::g_ciphers;
using std::string;

using Codes = std::vector<uint32_t>;
using Strings = std::vector<const char *>;
static constexpr uint32_t kFailed = 0xFFFFFFFF, kMismatch = 0x823, kNoMemory = 0x801611, kPlatform = 0x4d;
static constexpr uint32_t kDiffers = 7;  // what comparing strings answers here, so that it is not taken for a failure
static constexpr char kWord[] = "Corr3ct Horse;Stap";

static const char *g_missing = nullptr;  // names that look-ups do not find

// It goes on by a jump, for which this file is always optimised: so RTLD_NEXT means what stands behind its caller.
extern "C" void *dlsym(void *handle, const char *name) noexcept {
    static void *const real = dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.34");
    const bool isMissing = handle == RTLD_DEFAULT && g_missing != nullptr && strstr(g_missing, name) != nullptr;
    return isMissing ? nullptr : reinterpret_cast<decltype(&dlsym)>(real)(handle, name);
}

extern "C" int32_t BEX_StrCmp(const char *a, const char *b) {
    return string(a) == b ? 0 : kDiffers;
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
static string Encrypt(uint32_t mode, const char *context, uint32_t code = 0) {
    char text[433] = "";
    EXPECT_EQ(TAV_CRYPT_Encrypt_Sec(kWord, 18, text, sizeof(text), mode, context), code);
    return text;
}

static TAV_SYS_PASSWORD_S Stored(const string &text, uint32_t form) {
    TAV_SYS_PASSWORD_S record = {.text = {}, .form = static_cast<uint8_t>(form)};
    text.copy(record.text, sizeof(record.text));
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
        EXPECT_EQ(visible, Base93(data));
        EXPECT_EQ(TAV_AsciiUnvisible(visible.c_str(), again.data(), &count), 0u);
        EXPECT_EQ(again, digits) << length;
        uint16_t stated = 0;
        const uint32_t code = TAV_AsciiToBin(digits.data(), count, plain.data(), capacity, &stated);
        EXPECT_EQ(code, length == 0 ? kFailed : length % 4 == 2 ? kMismatch : 0) << length;
        digits.resize(digits.size() + 5);
        if (length % 4 == 2) {  // the decoder wants one word more
            plain.resize(plain.size() + 4);
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count + 5, plain.data(), capacity + 4, &stated), 0u) << length;
        } else {  // no room for the zeros behind the data; no whole words, or one more than stated
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count, Bytes(plain).data(), capacity - 1, nullptr), kFailed);
            EXPECT_EQ(TAV_AsciiToBin(digits.data(), count + i % 4 + 1, plain.data(), capacity, nullptr), kMismatch);
        }
        data.resize(plain.size());
        EXPECT_EQ(stated, length);
        EXPECT_EQ(plain, data) << length;
    }
    const std::pair<uint32_t, uint32_t> digitsOf[] = {{0, 0},        {1, 1},        {92, 1},        {93, 2},
                                                      {74805200, 4}, {74805201, 5}, {0xFFFFFFFF, 5}};
    for (const auto &[value, count] : digitsOf) {
        Bytes dirty(6, 0xEE);  // only digits up to the highest one are written
        EXPECT_EQ(TAV_LongToDesEnhSys(value, dirty.data()), 0u);
        EXPECT_EQ(std::find(dirty.begin(), dirty.end(), 0xEE) - dirty.begin(), count) << value;
    }
}

// What is found out about a text, and the results of comparing it with kWord and with another password.
struct Told {
    uint32_t kind, look, isIrreversible, isNotDigestBased, isNotSalted, verified, verifiedOther;
};

static void ExpectTold(const string &stored, const Told &told) {
    const char *const text = stored.c_str();
    EXPECT_EQ(TAV_CRYPT_IsCipher(text, static_cast<uint32_t>(stored.size()), nullptr, "c"), told.kind) << text;
    EXPECT_EQ(TAV_IsStringCipher_EnhExp(text), told.look) << text;
    EXPECT_EQ(TAV_IsStringIrreversibleCipher(text), told.isIrreversible) << text;
    EXPECT_EQ(TAV_IsStringV5SHACipher(text, "c"), told.isNotDigestBased) << text;
    EXPECT_EQ(TAV_IsStringSHACipher(text), told.isNotSalted) << text;
    EXPECT_EQ(TAV_VerifySystemPassword(kWord, text, "c"), told.verified) << text;
    EXPECT_EQ(TAV_VerifySystemPassword("corr3ct Horse;Stap", text, "c"), told.verifiedOther) << text;
}

TEST(CipherForms, OnlyWhatDecryptsCounts) {
    const struct {
        uint32_t kind, goodMode;
        const char *goodContext;
        uint32_t result, mode, byLook;  // mode 9: not written
        const char *decryptions;
    } rows[] = {{0, 0, "", 0, 9, 0, ""},       {1, 0, "", 1, 9, 1, ""},        {2, 0, "", 2, 9, 0, "0.1."},
                {2, 1, "", 0, 9, 2, "0.1."},   {7, 1, "", 7, 1, 7, "1.1."},    {7, 2, "", 7, 2, 0, "1.2.1."},
                {7, 0, "", 0, 9, 0, "1.2.1."}, {7, 1, "c", 0, 9, 0, "1.2.1."}, {8, 0, "c", 8, 9, 8, "0c."},
                {8, 0, "", 0, 9, 8, "0c."},    {11, 0, "c", 11, 9, 11, "0c."}, {11, 1, "c", 0, 9, 11, "0c."},
                {12, 0, "", 12, 9, 0, "0.1."}, {6, 1, "", 0, 9, 6, "0.1."},    {4, 0, "", 4, 9, 0, "0.1."}};
    for (const auto &row : rows) {
        SCOPED_TRACE(testing::Message() << row.kind << " " << row.goodMode << row.goodContext);
        g_ciphers = {row.kind, row.goodMode, row.goodContext};
        uint32_t mode = 9;
        EXPECT_EQ(TAV_CRYPT_IsCipher("text", 4, &mode, "c"), row.result);
        EXPECT_EQ(mode, row.mode);
        EXPECT_EQ(TAV_IsStringCipher_EnhExp("text"), row.byLook);
        EXPECT_EQ(g_ciphers->calls, row.decryptions);
        EXPECT_EQ(TAV_CRYPT_IsCipher("text", 4, nullptr, "c"), row.result);
    }
    g_ciphers = {9, 0, "c"};
    DebugLog log;
    for (const auto &[length, kind] : {std::pair(432u, 9u), std::pair(433u, 1u)}) {
        EXPECT_EQ(TAV_CRYPT_IsCipher(string(length, 'a').c_str(), length, nullptr, "c"), kind);
        EXPECT_EQ(TAV_IsStringCipher_EnhExp(string(length, 'a').c_str()), kind);
    }
    log.Expect({{"TAV_CRYPT_IsCipher", "dataStrLen exceed"}});
    g_ciphers.reset();
}

TEST(CipherForms, DigestBasedFormIsAnEncryptedDigestOf32Bytes) {
    const char *const word = "286";  // its digest begins with a zero byte, where a comparison of strings would end
    for (uint32_t at = 15; at < 39; ++at) {
        g_ciphers = {at / 3, 0, "c", Slice(Join({Sha256(Text(word)), {0}}), 0, 31 + at % 3)};
        const bool isCandidate = at >= 18 && at < 36, isWhole = at % 3 == 1;
        EXPECT_EQ(TAV_IsStringV5SHACipher(string(500, 'a').c_str(), "c"), isCandidate && isWhole ? 0 : 1) << at;
        EXPECT_EQ(TAV_IsStringV5SHACipher("text", "d"), 1u);
        EXPECT_EQ(TAV_VerifyV5SHACipher(word, "text", "d"), 1u);
        EXPECT_EQ(TAV_VerifyV5SHACipher(word, "text", "c"), isWhole ? 0 : kMismatch) << at;
        g_ciphers->digest[30] ^= 1;
        EXPECT_EQ(TAV_VerifyV5SHACipher(word, "text", "c"), kMismatch);
        EXPECT_EQ(g_ciphers->calls, string(isCandidate ? "256c.256d." : "") + "433d.433c.433c.");
    }
    g_ciphers.reset();
}

TEST(CipherForms, SaltedDigest) {
    const auto expect = [](const string &text, bool isRecognised, uint32_t verified) {
        ExpectTold(text,
                   isRecognised ? Told{0, 0, 1, 1, 0, verified, kMismatch} : Told{0, 0, 0, 1, 1, kFailed, kFailed});
        EXPECT_EQ(TAV_VerifySHACipher(kWord, text.c_str()), verified);
    };
    for (size_t at = 0; at < 48; ++at) {  // check byte, version, marker, one that does not matter, salt, digest
        const uint32_t verified = at < 4 ? 0 : kMismatch;
        const bool isChecked = at < 47, isMended = at == 0 || at >= 3;  // the check leaves the last byte out
        expect(SaltedDigest(0, {at}), !isChecked, verified);
        expect(SaltedDigest(0, {at, 0}), isChecked && isMended, verified);
    }
    expect(SaltedDigest(1), true, 0);
    expect(SaltedDigest(2), false, kMismatch);
    expect(SaltedDigest(3), false, kFailed);
    expect(SaltedDigest(53), false, kFailed);
    EXPECT_EQ(TAV_VerifySHACipher(kWord, string(128, '!').c_str()), kMismatch) << "no whole words";
    EXPECT_EQ(TAV_VerifySHACipher(kWord, string(129, '!').c_str()), kFailed) << "too long to be looked at";
    interposer::Reset();
    EXPECT_EQ(TAV_VerifySHACipher(kWord, SaltedDigest().c_str()), 0u);
    EXPECT_EQ(TAV_VerifyV5SHACipher(kWord, Encrypt(2, "c").c_str(), "c"), 0u);
    EXPECT_EQ(interposer::Listed(), (std::vector<string>{"Digest 30 33", "Digest 18 33"})) << "sizes and rooms";
    expect(Base93({1, 1, 12}), true, kMismatch);
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
        EXPECT_EQ(TAV_CheckSystemPassword(&empty), 0u);
        EXPECT_EQ(column == 0 ? TAV_GetPasswordType(&empty) : 0, 0u);
    }
    g_ciphers.reset();
}

TEST(Records, EveryFormOfTheHostedPlatform) {
    char older[433] = "", newer[433] = "";
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(kWord, 18, older, 433), 0u);
    EXPECT_EQ(TAV_EncryptSystemPassword(kWord, newer, 433), 0u);
    const string sent = Encrypt(1, "in");
    constexpr uint32_t F = kFailed, D = kDiffers, I = 0xFF;  // I: an invalid record
    const Codes plain = {I, 0, 0, I, I, 0, 0, I}, reversible = {1, 0, 1, I, I, 0, 1, I}, no = {F, D, D, F, F, F, F, F};
    const Codes irreversible = {2, 0, 2, I, 2, 0, 2, I}, yes = {0, D, D, 0, 0, 0, 0, F},
                valid = {0, D, 0, F, 0, D, 0, F};
    const struct {
        string text;
        Told told;
        Codes types, verified, verifiedOfAnyKind;  // by a record's form
    } rows[] = {
        {kWord, {0, 0, 0, 1, 1, F, F}, plain, {F, 0, 0, F, F, F, F, F}, {F, 0, 0, F, F, 0, 0, F}},
        {Encrypt(1, ""), {0, 8, 0, 1, 1, F, F}, reversible, no, {D, D, D, F, F, D, D, F}},
        {Encrypt(1, "c"), {8, 8, 0, 1, 1, F, F}, reversible, {0, 0, 0, F, F, F, F, F}, {0, 0, 0, F, F, 0, 0, F}},
        {Encrypt(2, ""), {0, 0, 1, 1, 1, F, F}, irreversible, no, {F, D, F, F, F, D, F, F}},
        {Encrypt(2, "c"), {0, 0, 0, 0, 1, 0, kMismatch}, plain, yes, {F, D, D, F, F, D, D, F}},
        {older, {0, 0, 1, 1, 1, 0, F}, irreversible, yes, valid},
        {newer, {0, 0, 1, 1, 1, 0, F}, irreversible, yes, valid},
        {"$scrypt$ln=20,r=8,p=1$c2FsdA$aGFzaA", {0, 0, 1, 1, 1, F, F}, irreversible, no, {F, D, F, F, F, D, F, F}},
        {SaltedDigest(), {0, 0, 1, 1, 0, 0, kMismatch}, irreversible, yes, valid}};
    for (const auto &row : rows) {
        Codes types, verified, ofAnyKind, ofAnyKindSent;
        for (uint32_t form = 0; form < 8; ++form) {
            const TAV_SYS_PASSWORD_S record = Stored(row.text, form), same = record;
            types.push_back(TAV_GetPasswordType(&record));
            verified.push_back(TAV_VerifySystemPassword_Enh(kWord, record.text, "c"));
            ofAnyKind.push_back(TAV_VerifyEncryptSystemPassword_Enh(kWord, "in", &record, "c"));
            ofAnyKindSent.push_back(TAV_VerifyEncryptSystemPassword_Enh(sent.c_str(), "in", &record, "c"));
            EXPECT_EQ(memcmp(&same, &record, sizeof(record)), 0) << "changed";
        }
        SCOPED_TRACE(row.text);
        ExpectTold(row.text, row.told);
        EXPECT_EQ(types, row.types);
        EXPECT_EQ(verified, row.verified);
        EXPECT_EQ(ofAnyKind, row.verifiedOfAnyKind);
        EXPECT_EQ(ofAnyKindSent, row.verifiedOfAnyKind);
    }
}

// What the stored text itself is good for, to one who has read it: refused, unless the contexts are one or the key is
// lost.
TEST(Records, WhoKnowsTheStoredText) {
    char salted[433] = "";
    EXPECT_EQ(TAV_EncryptSystemPassword(kWord, salted, 433), 0u);
    const TempFolder folder;
    setenv("TAV_KEY_FILE", folder.Path("other.key").c_str(), 1);
    const string ofOtherKey = Encrypt(1, "c");
    unsetenv("TAV_KEY_FILE");
    const struct {
        string text;
        uint32_t byForm, byKind, withOneContext;
    } rows[] = {{salted, kFailed, kFailed, kFailed},
                {Encrypt(1, "c"), kDiffers, kDiffers, 0},
                {ofOtherKey, kFailed, 0, 0},
                {"damaged", kFailed, kFailed, kFailed}};
    for (const auto &[text, byForm, byKind, withOneContext] : rows) {
        const TAV_SYS_PASSWORD_S record = Stored(text, 0);
        EXPECT_EQ(TAV_VerifySystemPassword_Enh(text.c_str(), record.text, "c"), byForm) << text;
        EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(text.c_str(), "in", &record, "c"), byKind) << text;
        EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(text.c_str(), "c", &record, "c"), withOneContext) << text;
    }
}

TEST(Policy, PasswordsOfLocalUsers) {
    enum Demands { kLax = 0, kStrict = 1, kBasic = 2, kAnyLength = 4 };
    const auto expect = [](uint32_t code, const char *userName, uint32_t demands, Strings passwords) {
        for (const char *password : passwords) {
            const uint32_t strict = demands & kStrict, basic = demands & kBasic, skipLength = demands & kAnyLength;
            EXPECT_EQ(TAV_CheckLocUserPassword(password, userName, strict, basic, nullptr, skipLength), code)
                << testing::PrintToString(password).substr(0, 40) << " " << demands;
        }
    };
    const string none = string(65536, 'a'), seven = none + "Abc123.";  // their lengths count as 0 and 7
    expect(0xFFFFFFFF, "u", kLax, {nullptr});
    expect(0x16F9, "u", kAnyLength, {"", "*", "****"});
    expect(0x824, nullptr, kLax, {none.c_str()});
    expect(0x824, nullptr, kStrict, {"Abc123.", seven.c_str()});
    expect(0xEFC, nullptr, kBasic | kAnyLength, {none.c_str()});
    expect(0xEFC, "u", kBasic, {"ABCabc12", "abc12#", "ABCabc#"});
    expect(0xEFD, "u", kStrict, {"ABCDE12#", "ABCdef# ", "abcde12#", "ABCdef12"});
    expect(0xEFD, "u", kStrict | kBasic, {"ABCdef12"});
    expect(0xF01, "Admin", kStrict, {"Nimda99#", "xADMIN9#"});
    expect(0xF01, "#321toOr", kStrict, {"Root123#"});
    expect(0xF01, none.c_str(), kStrict, {"Abc1234."});
    expect(0xABA0, "x#321toor", kStrict, {"Root123#"});
    expect(0xABA0, "xrOOT123#x", kStrict, {"Root123#"});
    expect(0, nullptr, kAnyLength, {none.c_str(), "Abc1234."});
    expect(0, nullptr, kStrict, {"Abc1234."});
    expect(0, "u", kLax, {"**a*", "a***", "Abc1234", "u"});
    expect(0, "u", kBasic, {"ABC12#"});
    expect(0, "xroot123", kStrict | kAnyLength, {"Abc123.", "Root123#"});
}

TEST(Policy, Complexity) {
    const string none = string(65536, 'a'), five = none + "aaaa.", six = none + "aaaaa.";  // their lengths wrap
    const struct {
        const char *password, *userName;
        uint32_t minLength, minClasses, code;
    } rows[] = {
        {"abcdef", nullptr, 6, 2, 0x821},     {"abcde1", nullptr, 6, 2, 0},         {"abc1.", nullptr, 6, 2, 0x824},
        {"abcde1", "BCD", 6, 2, 0x822},       {"abcde1", "dcb", 6, 2, 0x822},       {"aA1.", "A1", 4, 4, 0x822},
        {"abcde1", "xabcde1", 6, 2, 0},       {"a-", nullptr, 0, 3, 0x821},         {"aA1.", nullptr, 4, 4, 0},
        {"aA1.", nullptr, 5, 0, 0x824},       {"aA11", nullptr, 4, 4, 0x821},       {"/:@[`{", nullptr, 6, 2, 0x821},
        {"/:[`{", nullptr, 0, 2, 0x821},      {"09AZ", nullptr, 0, 3, 0x821},       {"azAZ", nullptr, 0, 2, 0},
        {nullptr, nullptr, 6, 2, 0xFFFFFFFF}, {none.c_str(), nullptr, 0, 1, 0x821}, {six.c_str(), nullptr, 6, 2, 0x821},
        {five.c_str(), nullptr, 6, 2, 0x824}};
    for (const auto &[password, userName, minLength, minClasses, code] : rows) {
        EXPECT_EQ(TAV_CheckPasswordComplexityEx(password, userName, minLength, minClasses), code) << &password;
        if (minLength == 6) {
            EXPECT_EQ(TAV_CheckPasswordComplexity(password, userName), code);
        }
    }
}

TEST(Policy, ConfigurationStrings) {
    enum Allowed { kNone = 0, kSpace = 1, kQuestionMark = 2, kAnyByte = 4, kAll = 7 };
    const auto expect = [](uint32_t code, uint32_t allowed, Strings texts) {
        for (const char *text : texts) {
            const uint32_t questionMark = allowed & kQuestionMark, anyByte = allowed & kAnyByte;
            EXPECT_EQ(TAV_StrValidate(text, allowed & kSpace, questionMark, anyByte), code) << text << " " << allowed;
        }
    };
    expect(0, kNone, {"", R"("a b")", R"("a"b")"});
    expect(0, kQuestionMark, {"a?b"});
    expect(0, kSpace, {"a b", R"("a "b")"});
    expect(kFailed, kNone, {"a?b", R"("a "b")", R"("a b)", R"(")", R"(a "b)"});
    expect(kFailed, kAnyByte | kSpace, {"a?b"});
    expect(kFailed, kAnyByte | kQuestionMark, {"a b"});
    expect(kFailed, kAll, {R"("")", R"(""")"});
    const std::tuple<const char *, uint32_t, uint32_t> inQuotes[] = {
        {R"("a b")", 5, 0},    {R"("a b")", 4, kFailed}, {R"("a" b")", 6, kFailed},
        {R"("a" b")", 3, 0},   {R"("" ")", 4, kFailed},  {R"("ab"")", 5, 0},
        {R"(")", 1, 0},        {R"(")", 0, kFailed},     {R"(a")", 2, kFailed},
        {nullptr, 3, kFailed}, {"\"a\0\" \"", 6, 0}};
    for (const auto &[text, length, code] : inQuotes) {
        EXPECT_EQ(TAV_ValidateStrWithQuotes(text, length), code) << length;
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
    const bool holds = std::string_view(stack, sizeof(stack)).find({kWord + 8, 6}) != string::npos;
    memset(stack, 0, sizeof(stack));
    asm volatile("" : : "m"(stack));
    return holds;
}

// The results of an operation, when it goes well and with each of its calls of the platform failing. A word that is not
// the password may stay on the stack.
static Codes Results(const std::function<uint32_t()> &run, [[maybe_unused]] bool looksAtStack = true) {
    Codes results = {run()};  // the loader binds what is called, which saves registers on the stack
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
        EXPECT_FALSE(looksAtStack && StackHoldsWord()) << nth;
#endif
        if (interposer::Count(interposer::Call::kAny) >= nth) {
            results.push_back(result);
        }
    }
    interposer::Reset();
    return results;
}

TEST(Secrecy, NothingStaysWhateverFails) {
    const string salted = SaltedDigest(), digested = Encrypt(2, "c"), cipher = Encrypt(1, "c"), sent = Encrypt(1, "in");
    const TAV_SYS_PASSWORD_S plain = Stored(kWord, 1), bound = Stored(cipher, 2);
    // A cipher is a password itself.
    g_pfn_SYSDT_IsStringCipher_CRYPT = [](const char *text, uint32_t length, uint32_t mode, const char *context) {
        EXPECT_EQ(length, strlen(text));
        EXPECT_EQ(mode, 1u);
        EXPECT_STREQ(context, "");
        return 1u;
    };
    Bytes digits(25), out(25);
    constexpr uint32_t F = kFailed, D = kDiffers;
    uint32_t n = 0;
    char text[433];
    const std::pair<Codes, std::function<uint32_t()>> rows[] = {
        {{0, F, F}, [&] { return TAV_CRYPT_EncryptPassword4096(kWord, 18, text, 433); }},
        {{0, F}, [&] { return TAV_EncryptSystemPassword(kWord, text, 433); }},
        {{0, F, kPlatform}, [&] { return TAV_CRYPT_Encrypt_Sec(kWord, 18, text, 433, 0, "c"); }},
        {{0, F, F}, [&] { return TAV_BinToAscii(kWord, 17, digits.data(), &n); }},
        {{0, F, F}, [&] { return TAV_AsciiToBin(digits.data(), n, out.data(), 25, nullptr); }},
        {{0, F, F, kNoMemory, F, F, kPlatform}, [&] { return TAV_VerifySHACipher(kWord, salted.c_str()); }},
        {{0, 1, 1, 1}, [&] { return TAV_IsStringV5SHACipher(digested.c_str(), "c"); }},
        {{0, 1, 1}, [&] { return TAV_VerifyV5SHACipher(kWord, digested.c_str(), "c"); }},
        {{1, 0, 0, 0, 1, 1}, [&] { return TAV_PasswordAndUsernameSimilarCheck("my Corr3ct Horse;Stap", kWord, 1); }},
        {{0, 0, 0, 0, 1, 1}, [&] { return TAV_PasswordAndUsernameSimilarCheck("horse", kWord, 1); }},
        {{8, 0, 0, 0}, [&] { return TAV_CRYPT_IsCipher(cipher.c_str(), 73, nullptr, "c"); }},
        {{8, 0, 0}, [&] { return TAV_IsStringCipher_EnhExp(cipher.c_str()); }},
        {{0, kPlatform}, [&] { return TAV_CRYPT_Decrypt(cipher.c_str(), text, 433, "c"); }},
        {{0x822, 0, 0, 0, 0x822, 0x822}, [&] { return TAV_CheckPasswordComplexity("a1root", "Toor"); }},
        {{0, 0, 0, 0, 0xF01, 0xF01, 0, 0, 0, 0xABA0, 0xABA0},
         [&] { return TAV_CheckLocUserPassword(kWord, "Someone", 1, 1, nullptr, 0); }},
        {{0, F, D, 0}, [&] { return TAV_VerifyEncryptSystemPassword_Enh(sent.c_str(), "in", &plain, "c"); }},
        {{0, F, D, D, F, F, 0, F, F},
         [&] { return TAV_VerifyEncryptSystemPassword_Enh(bound.text, "in", &bound, "c"); }}};
    for (const auto &[results, run] : rows) {
        EXPECT_EQ(Results(run), results) << (&results - &rows->first) / 2;
    }
    g_pfn_SYSDT_IsStringCipher_CRYPT = nullptr;
}

TEST(Secrecy, NoFailureLetsAWrongWordIn) {
    char older[433] = "";
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(kWord, 18, older, 433), 0u);
    for (const string &stored : {string(kWord), Encrypt(1, "c"), Encrypt(2, "c"), SaltedDigest(), string(older)}) {
        for (uint32_t form = 0; form < 7; ++form) {
            const TAV_SYS_PASSWORD_S record = Stored(stored, form);
            const auto none = [&](const auto &verify) {
                const Codes results = Results([&] { return verify("Corr3ct Horse;Stab"); }, false);
                return std::count(results.begin(), results.end(), 0u) == 0;
            };
            EXPECT_TRUE(none([&](auto word) { return TAV_VerifySystemPassword_Enh(word, record.text, "c"); }));
            EXPECT_TRUE(none([&](auto word) { return TAV_VerifyEncryptSystemPassword_Enh(word, "c", &record, "c"); }));
        }
    }
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
        EXPECT_EQ(TAV_GetRandomValue() != kFailed, hasRandom);
        EXPECT_EQ(Encrypt(1, "c", hasRandom ? 0 : kFailed).empty(), !hasRandom);
        EXPECT_EQ(TAV_SYSDT_IsStringCipher_CRYPT(record.text, 73, 1, "c"), hasIs ? 8 : kFailed);
        EXPECT_EQ(TAV_VerifyEncryptSystemPassword_Enh(kWord, "", &record, "c"), 0u);  // unasked, it tries to decrypt
        g_missing = nullptr;
    }
    g_pfn_CRYPT_random = [](void *buffer, uint32_t length) { return memset(buffer, 'Z', length) == nullptr ? 1u : 0u; };
    EXPECT_EQ(Encrypt(1, "c").substr(6, 21), "WlpaWlpaWlpaWlpaWlpaW") << "a vector of 16 random bytes";
    EXPECT_EQ(TAV_GetRandomValue(), 0x5A5A5A5A);
    g_pfn_CRYPT_random = nullptr;
}
