/*
 * Operations of the store, ciphers, streams and the log, with each of their platform calls failing in turn. Whatever
 * fails: the code is one that the operation's description names, nothing leaks, files and stores hold the old or the
 * new, and the same operation succeeds when it is tried again.
 */
#include <gmock/gmock.h>

#include <cerrno>
#include <functional>
#include <iostream>
#include <map>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"
#include "tav_crypt.h"

namespace {

using std::string;
using Codes = std::set<uint32_t>;
using Contents = std::map<string, Bytes>;  // what is seen of each thing

// What operations answer beside codes: no object; less than wanted, where there is no code for it.
constexpr uint32_t kNone = 0xA000, kPart = 0xA001;
constexpr uint32_t kAnyCode = 0xA002;  // stands for every code but 0 where failures are listed
constexpr uint32_t kFailed = UINT32_MAX, kPlatformCode = interposer::kPlatformCode;
constexpr uint32_t kNoMemory = TAV_ERR_NO_MEMORY, kCopy = TAV_ERR_COPY, kRead = TAV_ERR_READ;
constexpr uint32_t kInvalid = TAV_ERR_INVALID, kRefused = TAV_ERR_REFUSED;
constexpr uint32_t kRotateAt = 32u << 20;  // bytes of a log
// What a record holds: see TAV_GetPasswordType.
constexpr uint32_t kPlain = 0, kReversible = 1, kIrreversible = 2, kBadRecord = 0xFF;
constexpr uint32_t kSent = 1, kDigestBased = 2;  // modes of encryption
constexpr char kWord[] = "Corr3ct Horse;Stap", kWrong[] = "Corr3ct Horse;Stab";

const Bytes kBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(5))}), Tlv(13, {Tlv(14, Be32(2))})});
const Bytes kRefer = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(50)), Tlv(15, Be16(9))})})), kImage = Image(kBody);
constexpr uint32_t kBodySize = 70;
constexpr uint32_t kNoBody = 0;  // of a store that had no memory for the file

const auto Size = [](const auto &bytes) { return static_cast<uint32_t>(std::size(bytes)); };
const auto Result = [](int32_t result) { return static_cast<uint32_t>(result); };

uint32_t BodySize(const Store &store) {
    return store ? TAV_CalcExtCfgFileBodySize(store.get()) : kNone;
}

/** What operations work on: files, stores that were changed and not written, and records. */
struct World {
    NothingLeaks nothingLeaks;
    TempFolder folder;
    std::map<string, Store> stores;
    Record key = Class13(1), wider = MakeRecord(13, {{14, Host32(1)}, {15, Host16(88)}, {12, Text("more")}});
    Record spare[2] = {Class13(50, uint16_t{6}), Class13(50, uint16_t{6})};  // to be given away
    const string plainName = Path("a.dat"), zipName = Path("a.zip");
    const char *const plain = plainName.c_str(), *const zip = zipName.c_str();
    TAV_ZipCb block = {};
    uint32_t count = 0;
    uint8_t out[TAV_PWD_BUFFER_SIZE] = {};
    char *const text = reinterpret_cast<char *>(out);

    string Path(const string &name = {}) const { return folder.Path(name); }
    CfgLocal *At(const string &name) const { return stores.at(name).get(); }
    Store OpenAs(uint32_t mode, const string &name) const {
        return Open(mode, Path(name), name[0] == 'r' ? Path("old.dat") : "");
    }
    Record Take() { return std::move(spare[spare[0] ? 0 : 1]); }

    World() {
        setenv("TAV_TMPFS_PATH", Path("tmp").c_str(), 1);
        std::filesystem::create_directory(Path("tmp"));
        WriteFile(plain, kImage);
        WriteFile(Path("old.dat"), kRefer);
        WriteFile(Path("refers.dat"), Image(kBody, Slice(kRefer, kChecksumAt, kHeadSize)));
        EXPECT_EQ(TAV_ZipBufferToExtCfgFile(kImage.data(), Size(kImage), zip), TAV_OK);
        for (const string name : {"a.dat", "a.zip", "refers.dat"}) {
            stores[name] = OpenAs(TAV_EXT_MODE_READ_WRITE, name);
            EXPECT_EQ(TAV_ExtCfgSetRecord(0, Class13(1, uint16_t{77}).get(), At(name)), TAV_OK);
        }
    }

    /** What can be seen from outside: bodies of stores and of files that load, other files as they are. */
    Contents Look() const {
        Contents all;
        for (const auto &entry : std::filesystem::recursive_directory_iterator(Path())) {
            const string name = entry.path().string().substr(Path().size() + 1);
            if (const Store store = OpenAs(TAV_EXT_MODE_READ_ONLY, name)) {
                all[name] = *BodyOf(store);
            } else if (name != "tmp/tmpunzippath") {
                all[name] = entry.is_regular_file() && !name.ends_with(".zip") ? ReadFile(entry.path()) : Bytes();
            }
        }
        for (const auto &[name, store] : stores) {
            all["store of " + name] = *BodyOf(store);
        }
        return all;
    }
};

/** What a failure leaves: all as it was before, or perhaps something between the old and the new. */
enum Leaves { kWhole, kTorn };

struct Operation {
    string name;
    uint32_t usual;  // what it answers when nothing fails
    Codes failures;  // what else it may answer
    std::function<uint32_t(World &)> run;
    Leaves leaves = kWhole;
};

MATCHER_P(IsAmong, codes, "") {
    *result_listener << "in hexadecimal " << std::hex << arg;
    return codes.contains(arg) || (arg != 0 && codes.contains(kAnyCode));
}

auto CountOpenFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/** Runs an operation once with a platform call failing, or none, and expects that its files are closed. */
uint32_t RunOnce(const Operation &operation, World &world, uint32_t failing = 0) {
    const auto filesBefore = CountOpenFiles();
    interposer::Reset();
    interposer::FailNth(interposer::Call::kAny, failing);
    const uint32_t code = operation.run(world);
    interposer::FailNth(interposer::Call::kAny, 0);
    EXPECT_EQ(CountOpenFiles(), filesBefore);
    return code;
}

/** How an operation goes when nothing fails. */
struct Usual {
    Contents after;
    uint32_t again;  // what it answers the second time
};

/** Fails one platform call of an operation. Returns the call's name; nothing when there are not so many. */
string FailOne(const Operation &operation, uint32_t nth, const Usual &usual) {
    World world;
    const Contents before = world.Look();
    const uint32_t code = RunOnce(operation, world, nth);
    const string failed = interposer::Failed();
    SCOPED_TRACE(operation.name + ", call " + std::to_string(nth) + " fails: " + failed);
    const bool isUsual = code == operation.usual;
    Contents seen = world.Look();
    if (isUsual) {
        std::erase_if(seen, [](const auto &entry) { return entry.first.ends_with(".bak"); });
    } else {
        EXPECT_THAT(code, IsAmong(operation.failures));
        EXPECT_NE(failed, "") << "another code, and nothing has failed";
    }
    if (operation.leaves == kWhole) {
        EXPECT_EQ(seen, isUsual ? usual.after : before);
    }
    const uint32_t retried = RunOnce(operation, world);
    if (retried == operation.usual) {
        EXPECT_EQ(world.Look(), usual.after) << "after the retry";
    } else {
        EXPECT_TRUE(isUsual) << "the retry fails with " << std::hex << retried;
        EXPECT_EQ(retried, usual.again);
    }
    return failed;
}

uint32_t SetInPlace(World &world) {
    WriteFile(world.Path("old.dat"), kRefer);  // a failure before may have torn it
    return TAV_ExtCfgSetRecordToFile(0, world.Take().get(), world.Path("old.dat").c_str(), nullptr);
}

uint32_t ReadStream(const char *path) {
    TAV_ZipCb block = {};
    const uint32_t code = TAV_UnZipStart(&block, path);
    TAV_GetCharFromZip(&block);
    const bool isRead = block.used == 1;
    TAV_UnZipEnd(&block);
    return code != 0 || isRead ? code : kPart;
}

uint32_t WriteStream(TAV_ZipCb *block, const char *path) {
    return TAV_ZipStart(0, block, path) != 0 ? kFailed : TAV_Zip(block) | TAV_ZipEnd(block);
}

/** Writes a line to a log of some size, which may be moved away first. */
uint32_t WriteLog(uint32_t size) {
    const string path = LogFolder() + "/sweep.log", old = path + ".old";
    MakeSparseFile(path, size);
    const int32_t code = TAV_DEBUG_WriteLogFile("sweep", "Sweep", 1, "a line");
    EXPECT_EQ(std::filesystem::file_size(FileExists(old) ? old : path) / kRotateAt, size / kRotateAt);
    std::filesystem::remove(path);
    std::filesystem::remove(old);
    return Result(code);
}

uint32_t OpenAndQuery(const World &world) {
    return BodySize(Store(TAV_ExtCfgOpenAndQuery(0, world.key.get(), world.zip, nullptr)));
}

uint32_t GetField(World &world) {
    return TAV_ExtCfgRecordGetFieldValue(world.key.get(), 14, 4, world.out, nullptr);
}

std::vector<Operation> StoreOperations() {
    const Codes flush = {kNoMemory, kCopy, kRefused, TAV_ERR_OPEN, TAV_ERR_NOT_FOUND, kPlatformCode};
    const Codes checksum = {kRead, kCopy, kInvalid}, startsEmpty = {kNone, kNoBody};
    std::vector<Operation> all = {
        {"query", 0, {kNoMemory}, [](World &w) { return TAV_ExtCfgStartQuery(0, w.key.get(), w.At("a.dat")); }},
        {"open and query", kBodySize, {kNone}, [](World &w) { return OpenAndQuery(w); }},
        {"get", 1, {}, [](World &w) { return TAV_ExtCfgGetRecord(0, w.key.get(), w.At("a.dat")) != nullptr; }},
        {"get a field", 0, {kCopy}, [](World &w) { return GetField(w); }},
        {"add", 0, {kNoMemory}, [](World &w) { return Add(w.stores["a.dat"], 0, w.Take()); }},
        {"delete", 0, {}, [](World &w) { return TAV_ExtCfgDelRecord(0, w.key.get(), w.At("a.dat")); }},
        {"checksum", 0, checksum, [](World &w) { return TAV_GetExtCfgFileChecksum(w.plain, w.out, 32); }},
        {"archive's checksum", 0, checksum, [](World &w) { return TAV_GetExtCfgFileChecksum(w.zip, w.out, 32); }},
        {"stated checksum", 32, {0}, [](World &w) { return TAV_ExtCfgGetChecksumFromFile(w.plain, w.out, 32); }},
        {"path", 0, {kCopy}, [](World &w) { return TAV_GetAbsPath("a", w.text, 256); }}};
    for (const string name : {"a.dat", "a.zip", "refers.dat"}) {
        const auto open = [name](uint32_t mode) { return [=](World &w) { return BodySize(w.OpenAs(mode, name)); }; };
        all.push_back({"open read-only " + name, kBodySize, {kNone}, open(TAV_EXT_MODE_READ_ONLY)});
        all.push_back({"open read-write " + name, kBodySize, startsEmpty, open(TAV_EXT_MODE_READ_WRITE)});
        all.push_back({"open write-only " + name, kNoBody, {kNone}, open(TAV_EXT_MODE_WRITE_ONLY)});
        all.push_back({"flush " + name, 0, flush, [=](World &w) { return TAV_ExtCfgFlush(w.At(name)); }});
    }
    return all;
}

/** The operations that may leave something between the old and the new when a call fails. */
std::vector<Operation> TearingOperations() {
    const Codes memory = {kNoMemory};
    const Codes write = {kNoMemory, kCopy, kRefused, TAV_ERR_OPEN, TAV_ERR_NOT_FOUND, kPlatformCode};
    const Codes inPlace = {kNoMemory, kCopy, kRefused, TAV_ERR_OPEN, TAV_ERR_NOT_FOUND, kRead};
    const Codes build = {kNoMemory, kInvalid, TAV_ERR_NULL};
    const Codes stream = {kFailed, kPlatformCode, ENOENT}, set = {kNoMemory, kFailed};
    std::vector<Operation> all = {
        {"add to a new VS", 0, memory, [](World &w) { return Add(w.stores["a.dat"], 8, w.Take()); }},
        {"build and add", 0, build, [](World &w) { return Add(w.stores["a.dat"], 0, Class13(9, 4)); }},
        {"set", 0, set, [](World &w) { return TAV_ExtCfgSetRecord(0, w.wider.get(), w.At("a.zip")); }},
        {"set in place", 0, inPlace, [](World &w) { return SetInPlace(w); }},
        {"write a stream", 0, stream, [](World &w) { return WriteStream(&w.block, w.zip); }}};
    for (const string name : {"a.dat", "a.zip", "refers.dat"}) {
        const string copy = name[0] + name;
        const auto run = [=](World &w) { return TAV_WriteExtCfgFile(w.Path(copy).c_str(), w.At(name)); };
        all.push_back({"write " + name, 0, write, run});
    }
    for (Operation &operation : all) {
        operation.leaves = kTorn;
    }
    return all;
}

std::vector<Operation> OtherOperations() {
    const Codes stream = {kFailed, kPlatformCode, kPart, EINVAL};
    return {{"read a stream", 0, stream, [](World &w) { return ReadStream(w.zip); }},
            {"log", 0, {kFailed}, [](World &) { return WriteLog(0); }},
            {"rotate the log", 0, {kFailed}, [](World &) { return WriteLog(kRotateAt); }}};
}

string Encrypted(uint32_t mode, const char *context) {
    char text[TAV_PWD_BUFFER_SIZE] = "";
    EXPECT_EQ(TAV_CRYPT_Encrypt_Sec(kWord, Size(kWord) - 1, text, sizeof(text), mode, context), 0u);
    return text;
}

string Salted() {
    char text[TAV_PWD_BUFFER_SIZE] = "";
    EXPECT_EQ(TAV_CRYPT_EncryptPassword4096(kWord, Size(kWord) - 1, text, sizeof(text)), 0u);
    return text;
}

std::vector<Operation> CryptOperations() {
    const string sent = Encrypted(kSent, "c"), digest = Encrypted(kDigestBased, ""), salted = Salted();
    const string older = R"(Y+y$!qp~a#d;'t:d;'t:8J&t:^9z+B6;7wYQ`w,')Ov\I4eTgSCcWFP@qV)Oz=oDO)";
    const Codes cipher = {kFailed, kPlatformCode}, digesting = {kFailed, kNoMemory, kPlatformCode}, untold = {0};
    const Codes alike = {TAV_PWD_LIKE_NAME, TAV_PWD_NAME_LIKE_PASSWORD};
    const uint32_t named = TAV_PWD_CONTAINS_NAME, length = Size(kWord) - 1, size = TAV_PWD_BUFFER_SIZE;
    std::vector<Operation> all = {
        {"encrypt", 0, cipher,
         [=](World &w) { return TAV_CRYPT_Encrypt_Sec(kWord, length, w.text, size, kSent, "c"); }},
        {"decrypt", 0, {kPlatformCode}, [=](World &w) { return TAV_CRYPT_Decrypt(sent.c_str(), w.text, size, "c"); }},
        {"salt", 0, {kFailed}, [=](World &w) { return TAV_CRYPT_EncryptPassword(kWord, w.text, size); }},
        {"old", 0, {kFailed}, [=](World &w) { return TAV_CRYPT_EncryptPassword4096(kWord, length, w.text, size); }},
        {"kind", 1, untold, [=](World &) { return TAV_CRYPT_IsCipher(sent.c_str(), Size(sent), nullptr, "c") > 1; }},
        {"kind by look", 1, untold, [=](World &) { return TAV_IsStringCipher_EnhExp(sent.c_str()) > 1; }},
        {"irreversible", 1, untold, [=](World &) { return TAV_IsStringIrreversibleCipher(salted.c_str()); }},
        {"digest-based", 0, {1}, [=](World &) { return TAV_VerifyV5SHACipher(kWord, digest.c_str(), ""); }},
        {"salted digest", 0, digesting, [=](World &) { return TAV_VerifySHACipher(kWord, older.c_str()); }},
        {"base 93", 0, {kFailed}, [](World &w) { return TAV_BinToAscii(kWord, 17, w.out, &w.count); }},
        {"complexity", named, untold, [](World &) { return TAV_CheckPasswordComplexity("a1root", "Toor"); }},
        {"likeness", 0, {1}, [](World &) { return TAV_PasswordAndUsernameSimilarCheck(kWord, "Someone", 1); }},
        {"new", 0, alike, [](World &) { return TAV_CheckLocUserPassword(kWord, "Someone", 1, 1, nullptr, 0); }}};
    World world;
    const auto with = [&](const string &name, const Codes &failures, auto run) {
        all.push_back({name, run(world), failures, run});
    };
    const struct {
        string text;
        uint8_t form;  // of the record: which texts it may hold
    } records[] = {{kWord, 1}, {sent, 0}, {sent, 2}, {digest, 6}, {salted, 6}, {older, 6}};
    for (const auto &[stored, form] : records) {
        TAV_SYS_PASSWORD_S record = {.text = {}, .form = form};
        stored.copy(record.text, sizeof(record.text) - 1);
        const char *const context = stored == digest ? "" : "c";
        with("type", {kPlain, kReversible, kIrreversible, kBadRecord},
             [=](World &) { return TAV_GetPasswordType(&record); });
        with("check", {1}, [=](World &) { return TAV_CheckSystemPassword(&record); });
        for (const char *const word : {kWord, kWrong}) {  // no failure lets a wrong word in
            with("verify sent", {kAnyCode},
                 [=](World &) { return TAV_VerifyEncryptSystemPassword_Enh(word, "c", &record, context); });
            with("verify", {kAnyCode},
                 [=](World &) { return TAV_VerifySystemPassword_Enh(word, record.text, context); });
            EXPECT_EQ(all.back().usual == 0, word == kWord);
            EXPECT_EQ(all.end()[-2].usual == 0, word == kWord);
        }
    }
    return all;
}

TEST(Sweep, EveryOperationAndEveryCall) {
    setenv("TMPDIR", "/dev/shm", 1);  // no failure here is the disk's, so nobody need wait for it
    const DebugLog log;
    std::set<string> functions;
    uint32_t operations = 0, points = 0;
    for (const auto &table : {StoreOperations(), TearingOperations(), OtherOperations(), CryptOperations()}) {
        for (const Operation &operation : table) {
            SCOPED_TRACE(operation.name);
            World clean;
            uint32_t nth = 0;
            EXPECT_EQ(RunOnce(operation, clean), operation.usual);
            Usual usual = {.after = clean.Look(), .again = 0};
            usual.again = RunOnce(operation, clean);
            for (string failed; !(failed = FailOne(operation, ++nth, usual)).empty(); ++points) {
                functions.insert(failed);
            }
            ++operations;
        }
    }
    std::cout << operations << " operations, " << points << " calls that failed, of " << functions.size()
              << " functions\n";
}

}  // namespace
