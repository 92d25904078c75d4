// Secrets, and plain strings. The cipher texts and salted forms written out here were made with other implementations.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "bytes.h"
#include "platform/bex_crypt.h"
#include "platform/bex_string.h"
#include "tav_posix.h"

static bool noRandom = false;   // the random source fails
static bool noLinks = false;    // the file system has no hard links
static bool noRenames = false;  // nor can it rename without replacing

extern "C" int link(const char *from, const char *to) noexcept {
    const auto next = reinterpret_cast<decltype(&link)>(dlsym(RTLD_NEXT, "link"));
    return noLinks ? (errno = EPERM, -1) : next(from, to);
}

extern "C" int renameat2(int fromFolder, const char *from, int toFolder, const char *to, unsigned int flags) noexcept {
    const auto next = reinterpret_cast<decltype(&renameat2)>(dlsym(RTLD_NEXT, "renameat2"));
    return noRenames ? (errno = EINVAL, -1) : next(fromFolder, from, toFolder, to, flags);
}

extern "C" int RAND_priv_bytes_ex(OSSL_LIB_CTX *library, unsigned char *buffer, size_t size, unsigned int strength) {
    const auto next = reinterpret_cast<decltype(&RAND_priv_bytes_ex)>(dlsym(RTLD_NEXT, "RAND_priv_bytes_ex"));
    return noRandom ? 0 : next(library, buffer, size, strength);
}

namespace {

using std::string;

uint32_t Size(const string &text) {
    return static_cast<uint32_t>(text.size());
}

/** Encrypts with mode 1 or 2 and expects a code. Returns the text. */
string Encrypt(uint32_t mode, const string &plain, const char *context, uint32_t code = 0, uint32_t size = 433) {
    string out(size, '#');
    const Bytes vector = Filled(16, 'Z');
    EXPECT_EQ(BEX_CRYPT_Encrypt_Sec(plain.data(), Size(plain), out.data(), size, mode, context, vector.data()), code);
    return out.c_str();
}

/** Decrypts a text of mode 1 or 2, with nothing readable behind it, and expects a code. Returns what came out. */
string Decrypt(uint32_t mode, const string &text, const char *context, uint32_t code = 0, uint32_t size = 433) {
    const std::vector<char> exact(text.begin(), text.end());
    string out(size, '#');
    if (mode == 2) {
        EXPECT_EQ(BEX_Decrypt_AES256_Sec(exact.data(), Size(text), out.data(), &size, context), code);
        return out.substr(0, size);
    }
    EXPECT_EQ(BEX_CRYPT_Decrypt_Sec(exact.data(), Size(text), out.data(), size, 1, context), code);
    const bool byLook = *context == '\0' && BEX_CRYPT_IsCipher(exact.data(), Size(text)) == 8;  // of any context
    const uint32_t kind = code == 0 || code == ERANGE || byLook ? 8 : 0;
    EXPECT_EQ(SYSDT_IsStringCipher_CRYPT(exact.data(), Size(text), 1, context), kind);
    return out.c_str();
}

struct Secrets : testing::Test {
    Secrets() {
        setenv("TAV_WORK_PATH", folder_.Path().c_str(), 1);
        RunInFolder("umask 77 && mkdir etc && printf 'tavkey1\nkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkkk' > etc/tav.key");
    }
    ~Secrets() override { unsetenv("TAV_WORK_PATH"), unsetenv("TAV_KEY_FILE"); }

    void RunInFolder(const string &commands) const {
        ASSERT_EQ(std::system(("cd " + folder_.Path() + " && { " + commands + "; } 2>&-").c_str()), 0) << commands;
    }

    const TempFolder folder_;
};

/** Expects that a text and a form of "Secret" open under their context, with room enough, and under no other one. */
void ExpectOpens(const char *context, const string &text, const string &form, const Bytes &digest) {
    EXPECT_EQ(Decrypt(1, text, context) + Decrypt(2, form.substr(0, 86), context, EINVAL), "Secret");
    EXPECT_EQ(Text(Decrypt(2, form, context, 0, 32)), digest);
    EXPECT_EQ(Decrypt(2, form, context, ERANGE, 31) + Decrypt(2, form + "AAAA", context, EINVAL), "");
    for (const char *const other : {"a", "ZPT-MOLD-CARDFRAM", "ZPT-MOLD-CARDFRAMe"}) {
        EXPECT_EQ(Decrypt(1, text, other, EBADMSG) + Decrypt(2, form, other, EBADMSG), "");
    }
    EXPECT_EQ(Decrypt(1, form, context, EINVAL) + Decrypt(2, text, context, EINVAL), "");
}

TEST_F(Secrets, TextsAreKnownAndTiedToTheirContext) {
    const Bytes digest = Hex("7e32a729b1226ed1270f282a8c63054d09b26bc9ec53ea69771ce38158dfade8");
    for (const auto &[context, text, form, older, olderForm] : std::vector<std::array<const char *, 5>>{
             {"", "$R4ho$WlpaWlpaWlpaWlpaWlpaWrZW7F03SrDn3aO0T5TEzLJd1uyTXBQ",
              "$D4ho$WlpaWlpaWlpaWlpaWlpaWgUFGK5FTHu4OYEmM8sw-lgsq70KTzggykmmbWCduh_TM2bd3AYjPD4LVTepaZ_UjA",
              "$rev1$WlpaWlpaWlpaWlpaWlpaWrZW7F03Siv8oWunhRpYOudnGevYamQ",
              "$dig1$WlpaWlpaWlpaWlpaWlpaWgUFGK5FTHu4OYEmM8sw-lgsq70KTzggykmmbWCduh_TUjmYN1h4qmyT6ZFzQrRPPA"},
             {"ZPT-MOLD-CARDFRAME", "$R4ho$WlpaWlpaWlpaWlpaWlpaWhUJ-CdEMQ4r6Q2QnjDOiz2wtzC12Es",
              "$D4ho$WlpaWlpaWlpaWlpaWlpaWj_N6g6xqSOSvmvusL3ziu3LwlcYBuI4fopfpO2vjRH90ctdUYibY4R-IzNVJOrN4g",
              "$rev1$WlpaWlpaWlpaWlpaWlpaWhUJ-CdEMTKHkqkvN20aSFe-izt269g",
              "$dig1$WlpaWlpaWlpaWlpaWlpaWj_N6g6xqSOSvmvusL3ziu3LwlcYBuI4fopfpO2vjRH9MZI-t6T8TAzNWEnhVlgusQ"}}) {
        EXPECT_EQ(Encrypt(1, "Secret", *context != '\0' ? context : nullptr), text);
        EXPECT_EQ(Encrypt(2, "Secret", context), form);
        ExpectOpens(context, text, form, digest);
        ExpectOpens(context, older, olderForm, digest);
    }
}

TEST_F(Secrets, TextsGoFromAnOldKeyToThePresentOne) {
    const auto rekey = [&](const string &text, const char *context, uint32_t code, uint32_t size = 433) {
        string out(size, '#');
        const string old = folder_.Path("etc/old");
        EXPECT_EQ(TAV_Posix_Rekey(old.c_str(), text.data(), Size(text), context, out.data(), size), code) << text;
        return string(out.c_str());
    };
    const string older = "$rev1$WlpaWlpaWlpaWlpaWlpaWrZW7F03Siv8oWunhRpYOudnGevYamQ";
    const string longest = Encrypt(1, string(287, 'p'), ""), form = Encrypt(2, "Secret", "a");
    EXPECT_EQ(rekey(older, "", ENOENT), "");
    RunInFolder("mv etc/tav.key etc/old");
    EXPECT_EQ(rekey(older, "a", EBADMSG), "");
    RunInFolder("[ ! -e etc/tav.key ]");  // the present key is not made for nothing
    EXPECT_EQ(Decrypt(1, rekey(older, "", 0, Size(older) + 1), ""), "Secret");
    RunInFolder("printf 'tavkey1\npppppppppppppppppppppppppppppppp' > etc/tav.key");
    EXPECT_EQ(Decrypt(1, rekey(longest, "", 0), ""), string(287, 'p'));
    EXPECT_EQ(Decrypt(2, rekey(form, "a", 0), "a"), Decrypt(2, Encrypt(2, "Secret", "a"), "a"));
    const string present = Encrypt(1, "Secret", "");
    EXPECT_NE(rekey(present, "", 0), present);
    EXPECT_EQ(rekey(present, "a", EBADMSG) + rekey(form, "", EBADMSG) + rekey(longest, "", ERANGE, 432), "");
    EXPECT_EQ(Decrypt(1, longest, "", ENOKEY) + Decrypt(2, form, "a", ENOKEY) + Decrypt(1, older, "", EBADMSG), "");
    RunInFolder("mv etc/tav.key etc/older");
    EXPECT_EQ(rekey(present, "", ENOKEY) + rekey("Secret", "", EINVAL), "");
    RunInFolder("chmod 644 etc/old");
    EXPECT_EQ(rekey(longest, "", EACCES), "");
}

TEST_F(Secrets, TextsKeepToTheirRoom) {
    for (uint32_t length = 1; length <= 287; ++length) {
        const string plain(length, 'p');
        const uint32_t size = 6 + (8 * (32 + length) + 5) / 6 + 1;  // 221 for 128 bytes
        const string text = Encrypt(1, plain, "context", 0, size);
        EXPECT_EQ(Encrypt(1, plain, "context", ERANGE, size - 1), "");
        EXPECT_EQ(text.find_first_of("?\" "), string::npos);
        EXPECT_EQ(Decrypt(1, text, "context", 0, length + 1), plain);
        EXPECT_EQ(Decrypt(1, text, "context", ERANGE, length), "");
    }
    EXPECT_EQ(Decrypt(1, Encrypt(1, "", ""), ""), "");
    EXPECT_EQ(Encrypt(1, string(288, 'p'), "", ERANGE, 999) + Encrypt(2, "a", "", ERANGE, 92), "");
    EXPECT_EQ(Encrypt(1, string("a\0b", 3), "", EINVAL) + Encrypt(3, "a", "", EINVAL), "");
}

TEST_F(Secrets, SaltedFormsAreKnownAndBoundTheirCost) {
    const string pbkdf2 = "$pbkdf2-sha256$4096$c2FsdA$xeR41ZKIyEGqUw22hFxMjZYok6ABzk4RpJY4c6qYE0o";
    const string tail = "$U29kaXVtQ2hsb3JpZGU$cCO9yzr9c0hGHAbNgf046_2o-7qQT44-qbVD9lRdofI";
    const string scrypt = "$scrypt$ln=14,r=8,p=1" + tail;
    for (const string word : {"password", "pleaseletmein", "Password", "passwor", ""}) {
        EXPECT_EQ(BEX_VerifySystemPassword(word.data(), Size(word), pbkdf2.c_str()) == 0, word == "password");
        EXPECT_EQ(BEX_VerifySystemPassword(word.data(), Size(word), scrypt.c_str()) == 0, word == "pleaseletmein");
    }
    for (const uint32_t size : {89u, 88u, Size(pbkdf2) + 1, Size(pbkdf2)}) {
        string own(size, '#'), older(size, '#');
        uint32_t result = 7;
        EXPECT_EQ(BEX_CRYPT_PasswordEx("Secret", 6, own.data(), &result, size) + result == 0, size > 88);
        EXPECT_EQ(BEX_VerifySystemPassword("Secret", 6, own.c_str()) == 0, size > 88);
        BEX_CRYPT_Password_4096("password", 8, Text("salt").data(), 4, older.data(), size);
        EXPECT_EQ(older.c_str(), size > Size(pbkdf2) ? pbkdf2 : "");
    }
    const string hash = tail.substr(20), salt = tail.substr(0, 20), head = "$scrypt$ln=";
    const struct {
        uint32_t verified;
        std::vector<string> forms;
    } rows[] = {
        {EACCES, {head + "16,r=8,p=4" + tail, head + "15,r=1,p=1" + tail}},
        {EOPNOTSUPP,
         {head + "17,r=8,p=1" + tail, head + "16,r=1,p=1" + tail, head + "16,r=9,p=1" + tail,
          head + "16,r=8,p=5" + tail, head + "0,r=8,p=1" + tail, head + "01,r=8,p=1" + tail, head + "15,r=8,p=0" + tail,
          head + "99999999999,r=8,p=1" + tail, scrypt.substr(0, scrypt.size() - 1), scrypt + "AA",
          head + "14,r=8,p=1$+/.=" + hash, head + "14,r=8,p=1$" + string(87, 'A') + hash, "$pbkdf2-sha256$10000" + tail,
          "$pbkdf2-sha256$4096$c2FsdA$xeR4"}},
        {EINVAL,
         {head + "+1,r=8,p=1" + tail, head + " 1,r=8,p=1" + tail, head + "15,r=8" + tail, head + "-1,r=8,p=1" + tail,
          head + ",r=8,p=1" + tail, head + "14,r=8,p=1$" + hash, head + "14,r=8,p=1" + salt + "$", scrypt + "$",
          scrypt + " ", "$" + scrypt, "$pbkdf2-sha256$" + tail, "$scrypt$", ""}}};
    for (const auto &[verified, forms] : rows) {
        for (const string &form : forms) {
            const uint32_t look = verified == EINVAL ? EINVAL : 0;
            EXPECT_EQ(BEX_CRYPT_IsPasswordCipher(form.data(), Size(form)), look) << form;
            EXPECT_EQ(BEX_VerifySystemPassword("Secret", 6, form.c_str()), verified) << form;
            EXPECT_EQ(ERR_peek_error(), 0u) << form;  // left to the host
        }
    }
    EXPECT_EQ(BEX_CRYPT_IsPasswordCipher(string(scrypt + '\0').data(), Size(scrypt) + 1), EINVAL);
}

TEST_F(Secrets, NoChangedTextIsAccepted) {
    const string texts[] = {"$scrypt$ln=1,r=1,p=1$c2FsdA$SYOgNl4qONvtGLPVoPlMoHYwKpIKR0MyuyV46vE47ws",
                            Encrypt(1, "Secrets", "context"), Encrypt(2, "Secret", "context")};
    ASSERT_EQ(BEX_VerifySystemPassword("Secret", 6, texts[0].c_str()), 0u);
    for (const string &text : texts) {
        for (size_t i = 0; i < (text.size() + 1) * 512; ++i) {  // every byte before and instead of every byte
            string changed = text;
            changed.replace(i / 512, i / 256 % 2, 1, static_cast<char>(i));
            if (changed.c_str() != text) {
                const uint32_t kind = BEX_CRYPT_IsCipher(changed.data(), Size(changed));
                const uint32_t code = changed.compare(2, 3, text, 2, 3) == 0 ? EBADMSG : ENOKEY;
                EXPECT_EQ(Decrypt(1, changed, "context", kind == 8 ? code : EINVAL), "");
                EXPECT_EQ(Decrypt(2, changed, "context", kind == 6 ? code : EINVAL), "");
                EXPECT_NE(BEX_VerifySystemPassword("Secret", 6, changed.data()), 0u) << changed;
            }
        }
    }
}

/** What is refused leaves an empty text. */
TEST_F(Secrets, Refusals) {
    const Bytes bytes = Filled(65, 's');
    char out[200];
    uint8_t digest[32];
    uint32_t length = 32;
    const auto emptied = [&](uint32_t code) { return std::exchange(out[0], '#') == '\0' ? code : ~code; };
    const auto encrypt = [&](const char *plain, uint32_t mode, const uint8_t *vector) {
        return emptied(BEX_CRYPT_Encrypt_Sec(plain, 1, out, 200, mode, "", vector));
    };
    const auto older = [&](const char *password, const uint8_t *salt, uint32_t saltSize) {
        return emptied(BEX_CRYPT_Password_4096(password, 1, salt, saltSize, out, 200));
    };
    const char *const null = nullptr;
    EXPECT_EQ((std::vector{encrypt(null, 1, bytes.data()),
                           encrypt("x", 1, nullptr),
                           encrypt("x", 3, bytes.data()),
                           older("x", nullptr, 1),
                           older("x", bytes.data(), 0),
                           older("x", bytes.data(), 65),
                           older(null, bytes.data(), 64),
                           emptied(BEX_CRYPT_PasswordEx(null, 1, out, &length, 200)),
                           emptied(BEX_CRYPT_Decrypt_Sec(null, 1, out, 200, 1, "")),
                           emptied(TAV_Posix_Rekey("", "x", 1, "", out, 200)),
                           BEX_CRYPT_PasswordEx("x", 1, out, nullptr, 0),
                           BEX_CRYPT_Password_4096("x", 1, bytes.data(), 1, nullptr, 9),
                           BEX_CRYPT_Encrypt_Sec("x", 1, nullptr, 9, 1, "", bytes.data()),
                           BEX_CRYPT_Decrypt_Sec("x", 1, out, 0, 1, ""),
                           TAV_Posix_Rekey("", "x", 1, "", out, 0),
                           BEX_Decrypt_AES256_Sec("x", 1, nullptr, &length, ""),
                           BEX_Decrypt_AES256_Sec("x", 1, digest, nullptr, ""),
                           BEX_VerifySystemPassword("x", 1, null),
                           BEX_CRYPT_IsPasswordCipher(null, 1),
                           BEX_Crypt_Digest(nullptr, 1, digest, &length, 32),
                           BEX_Crypt_Digest("x", 1, nullptr, &length, 32),
                           BEX_Crypt_Digest("x", 1, digest, nullptr, 32)}),
              std::vector<uint32_t>(22, EINVAL));
    EXPECT_EQ(older("x", bytes.data(), 64), ~0u) << "the longest salt";
    EXPECT_EQ(BEX_Crypt_Digest("x", 1, digest, &length, 31), uint32_t{ERANGE});
    EXPECT_EQ(length, 0u);
    EXPECT_EQ(BEX_Crypt_Digest(nullptr, 0, digest, &length, 32), 0u);
    EXPECT_EQ(Bytes(digest, digest + length), Sha256({}));
}

TEST_F(Secrets, KeyFileIsPrivateAndWhole) {
    const string text = Encrypt(1, "Secret", "");
    for (const string spoil :
         {"chmod 640 tav.key", "chmod 602 tav.key", "truncate -s 39 tav.key", "echo >> tav.key",
          "mv tav.key k && ln -s k tav.key", "rm tav.key && mkfifo -m 600 tav.key", "sed -i s/1/2/ tav.key",
          "chown 1 tav.key || chmod 644 tav.key", "chmod 770 .", "chmod 1703 .", "chown 1 . || chmod 777 ."}) {
        RunInFolder("cp -a etc good && cd etc && { " + spoil + "; }");
        EXPECT_EQ(Encrypt(1, "Secret", "", EACCES) + Decrypt(1, text, "", EACCES), "") << spoil;
        RunInFolder("rm -r etc && mv good etc");
        EXPECT_EQ(Decrypt(1, text, ""), "Secret");
    }
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.Path("etc"));
    setenv("TAV_KEY_FILE", "tav.key", 1);  // found here, and from nowhere else
    EXPECT_EQ(Encrypt(1, "Secret", "", EACCES) + Decrypt(1, text, "", EACCES), "");
    std::filesystem::current_path(before);
}

TEST_F(Secrets, ProcessesAgreeOnOneKey) {
    const string old = "$rev1$WlpaWlpaWlpaWlpaWlpaWrZW7F03Siv8oWunhRpYOudnGevYamQ";
    for (int round = 0; round < 40; ++round) {
        RunInFolder("rm -r etc");
        EXPECT_EQ(Decrypt(1, old, "", ENOENT), "");  // makes no key
        noRandom = true;
        EXPECT_EQ(Encrypt(1, "Secret", "", EIO), "");
        noRandom = false;
        noLinks = noRenames = true;
        EXPECT_EQ(Encrypt(1, "Secret", "", EINVAL), "");
        RunInFolder("rmdir etc");  // no half file
        noLinks = round % 2 == 0;
        noRenames = !noLinks;
        const uint32_t before = TAV_Posix_KeyFilesMade();
        for (const char *const name : {"a", "b", "c", "d"}) {
            if (fork() == 0) {
                WriteFile(folder_.Path(name), Text(Encrypt(1, name, "")));
                _exit(static_cast<int>(TAV_Posix_KeyFilesMade() - before));
            }
        }
        int made = 0;
        for (int status = 0; wait(&status) > 0;) {
            made += WEXITSTATUS(status);
        }
        EXPECT_EQ(made, 1);
        for (const char *const name : {"a", "b", "c", "d"}) {
            const Bytes text = ReadFile(folder_.Path(name));
            EXPECT_EQ(Decrypt(1, string(text.begin(), text.end()), ""), name);
        }
        EXPECT_EQ(Decrypt(1, old, "", EBADMSG), "");
        RunInFolder("[ $(stat -c %a etc etc/* | tr '\n' .) = 700.600. ]");
        setenv("TAV_KEY_FILE", folder_.Path("etc/other").c_str(), 1);  // from now on
    }
}

TEST(Strings, AreComparedFoundAndLowered) {
    EXPECT_EQ(BEX_StrNCmp("a1", "a2", 1), 0);
    EXPECT_LT(BEX_StrNCmp("a1", "a2", 2), 0);
    EXPECT_EQ((std::array{BEX_StrNCmp("", nullptr, 1), BEX_StrCmp("", nullptr), BEX_StrICmp("", nullptr)}),
              (std::array{1, 1, 1}));
    EXPECT_EQ((std::array{BEX_StrNCmp(nullptr, "", 1), BEX_StrCmp(nullptr, ""), BEX_StrICmp(nullptr, "")}),
              (std::array{-1, -1, -1}));
    EXPECT_EQ((std::array{BEX_StrNCmp(nullptr, "a", 0), BEX_StrCmp(nullptr, nullptr), BEX_StrICmp("AZ[", "az[")}),
              (std::array{0, 0, 0}));
    EXPECT_GT(BEX_StrICmp("Z", "["), 0) << "as small letters";
    EXPECT_EQ(BEX_StrLen(nullptr), 0u);
    EXPECT_EQ(BEX_StrStr(nullptr, "a"), nullptr);
    EXPECT_EQ(BEX_StrRChr(nullptr, 'a'), nullptr);
    BEX_StrToLower(nullptr);
    char text[] = "AZ@[\xC0z";
    BEX_StrToLower(text);
    EXPECT_STREQ(text, "az@[\xC0z");
    EXPECT_EQ(BEX_StrStr(text, "@["), text + 2);
    EXPECT_EQ(BEX_StrStr(text, "A"), nullptr);
}

int Sign(int32_t order) {
    return (order > 0) - (order < 0);
}

TEST(Strings, AreOrderedByTheFirstDifference) {
    for (size_t size = 0; size < 20; ++size) {
        for (size_t at = 0; at <= size; ++at) {
            for (const char other : {'\0', '\1', 'b', '\xFF'}) {
                string a(size, 'a'), b = a;
                b.replace(at, 1, 1, other);                                      // at the end, it is longer
                b.replace(std::min(at + 2, size), 1, at + 2 < size ? "A" : "");  // says the opposite, and is not asked
                const auto part = static_cast<uint32_t>(std::min(a.size(), b.size()));
                const int bytes = Sign(memcmp(a.data(), b.data(), part)), text = Sign(strcmp(a.c_str(), b.c_str()));
                EXPECT_EQ(Sign(BEX_MemCmp(a.data(), b.data(), part)), bytes) << size << " " << at;
                EXPECT_EQ((std::array{Sign(BEX_StrCmp(a.c_str(), b.c_str())), Sign(BEX_StrCmp(b.c_str(), a.c_str()))}),
                          (std::array{text, -text}));
                for (uint32_t count = 0; count < 22; ++count) {
                    EXPECT_EQ(Sign(BEX_StrNCmp(a.c_str(), b.c_str(), count)),
                              Sign(strncmp(a.c_str(), b.c_str(), count)));
                }
            }
        }
    }
}

/** How long a comparison takes must not tell how much of a guess is right. */
TEST(Strings, TakeATimeThatDependsOnLengthsAlone) {
    const auto size = uint32_t{1} << 20;
    const string secret(size, 's'), first = 'x' + secret.substr(1), last = secret.substr(1) + 'x';
    const auto ratio = [&](const auto &compare) {  // of the least times with the last and the first byte wrong
        std::array<std::chrono::nanoseconds, 2> least = {std::chrono::hours(1), std::chrono::hours(1)};
        for (int round = 0; round < 60; ++round) {
            const auto begin = std::chrono::steady_clock::now();
            EXPECT_NE(compare((round % 2 == 0 ? last : first).c_str()), 0);
            least[round % 2] =
                std::min<std::chrono::nanoseconds>(least[round % 2], std::chrono::steady_clock::now() - begin);
        }
        return static_cast<double>(least[0].count()) / static_cast<double>(least[1].count());
    };
    EXPECT_LT(ratio([&](const char *guess) { return BEX_StrCmp(secret.c_str(), guess); }), 1.4);
    EXPECT_LT(ratio([&](const char *guess) { return BEX_StrNCmp(secret.c_str(), guess, size); }), 1.4);
    EXPECT_LT(ratio([&](const char *guess) { return BEX_MemCmp(secret.c_str(), guess, size); }), 1.4);
}

}  // namespace
