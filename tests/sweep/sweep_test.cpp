/*
 * Every operation of every subsystem, with each of its platform calls failing in turn. Whatever fails: the code is one
 * that the operation's description names, nothing leaks, files and stores hold the old or the new, and the same
 * operation succeeds when it is tried again.
 */
#include <cstring>
#include <functional>
#include <iostream>
#include <map>

#include "aru_detect.h"
#include "debug_log.h"
#include "detect/message.h"
#include "interposer.h"
#include "platform/dms_message.h"
#include "store.h"
#include "tav_crypt.h"
#include "tav_ftpci.h"
#include "tav_posix_bus.h"
#include "tav_queue.h"
#include "tav_vector.h"

namespace {

using std::string;
using Codes = std::set<uint32_t>;
using Contents = std::map<string, size_t>;  // names and hashes

// In the tables: no object was returned; less than wanted, where there is no code for it; every code but 0.
constexpr uint32_t kNone = 0xA000, kPart = 0xA001, kAnyCode = 0xA002;
constexpr uint32_t kFailed = UINT32_MAX, kCode = interposer::kPlatformCode, kNoMemory = TAV_ERR_NO_MEMORY;
constexpr uint32_t kBad = TAV_ERR_INVALID, kCopy = TAV_ERR_COPY, kRead = TAV_ERR_READ, kRefused = TAV_ERR_REFUSED;
constexpr uint32_t kDetector = 7, kSubscriber = 9, kVs = 3, kVr = 2, kRotateAt = 32u << 20;
constexpr char kWord[] = "Corr3ct Horse;Stap", kWrong[] = "Corr3ct Horse;Stab";
constexpr NFTPCI_CommHandle kEnds = {71, kSubscriber};
constexpr NFTPCI_MemBufBlock kData = {4, 5, 6, "data"};

const Bytes kBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(5))}), Tlv(13, {Tlv(14, Be32(2))})});
const Bytes kRefer = Image(VsTlv(0, {Tlv(13, {Tlv(14, Be32(50)), Tlv(15, Be16(9))})})), kImage = Image(kBody);
const auto Size = [](const auto &bytes) { return static_cast<uint32_t>(std::size(bytes)); };
const auto Result = [](int32_t result) { return static_cast<uint32_t>(result); };

uint32_t Register(ARU_Detect_Handle *handle, uint32_t type) {
    const auto match = [](auto, auto, auto, auto, auto) { return 1u; };
    return ARU_Detect_RegisterCond(kVs, handle, type, nullptr, match, nullptr, nullptr, nullptr);
}

/** A message of the subscriber, with a condition of type 100. */
std::shared_ptr<void> Letter(uint16_t operation, uint16_t key) {
    const struct {
        detect::Header header;
        detect::LrVrTlv ids;
        detect::WordTlv event, key;
        detect::TlvHeader condition;
    } letter = {{48, 0, 14, 1, operation, 0, 0}, {{2, 8}, 1, 1}, {{17, 4}, 1}, {{18, 4}, key}, {100, 0}};
    void *const message = MEL_MsgAlloc_F(kSubscriber, sizeof letter, "tests", 0);
    return {std::memcpy(message, &letter, sizeof letter), [](void *taken) { DMS_MsgFree(kSubscriber, taken); }};
}

uint32_t BodySize(const Store &store) {
    return store ? TAV_CalcExtCfgFileBodySize(store.get()) : kNone;
}

/** What operations work on: files, stores that were changed and not written, records, and a detecting process. */
struct World {
    NothingLeaks nothingLeaks;
    TempFolder folder;
    std::map<string, Store> stores;
    Record key = Class13(1), wider = MakeRecord(13, {{14, Host32(1)}, {15, Host16(88)}, {12, Text("more")}});
    Record spare[2] = {Class13(50, uint16_t{6}), Class13(50, uint16_t{6})};  // to be given away
    TAV_Posix_BusPort *port = nullptr;
    ARU_Detect_Handle *handle = nullptr;
    VEC_Vector *const vector = VEC_VectorInit_F(0, 1, "tests", 1), *copies[2] = {};
    std::shared_ptr<void> subscribe, unsubscribe;
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
    ARU_Detect_Instance *Instance() const { return ARU_Detect_VS_LIST_NodeSeek(handle->vsList, kVs)->instance; }
    Record Take() { return std::move(spare[spare[0] ? 0 : 1]); }

    World() {
        setenv("TAV_BUS_PATH", Path().c_str(), 1), setenv("TAV_ENV_5", "2", 1);
        setenv("TAV_TMPFS_PATH", Path("tmp").c_str(), 1);
        std::filesystem::create_directory(Path("tmp"));
        WriteFile(plain, kImage), WriteFile(Path("old.dat"), kRefer);
        WriteFile(Path("refers.dat"), Image(kBody, Slice(kRefer, kChecksumAt, kHeadSize)));
        EXPECT_EQ(TAV_ZipBufferToExtCfgFile(&kImage[0], Size(kImage), zip), TAV_OK);
        for (const string name : {"a.dat", "a.zip", "refers.dat"}) {
            stores[name] = OpenAs(TAV_EXT_MODE_READ_WRITE, name);
            EXPECT_EQ(TAV_ExtCfgSetRecord(0, Class13(1, uint16_t{77}).get(), At(name)), TAV_OK);
        }
        EXPECT_EQ(TAV_Posix_BusBind(kSubscriber, &port) + TAV_Posix_BusServe(port, 180, kVr, kVs), 0u);
        handle = ARU_Detect_Init(1, kDetector, kVs, nullptr, nullptr, 0);
        EXPECT_EQ(Register(handle, 100) + ARU_Detect_ProcMsg(kVs, handle, Letter(18, 1).get()), 0u);
        subscribe = Letter(18, 2), unsubscribe = Letter(19, 1);
        Receive();
    }
    ~World() {
        ARU_Detect_UnInit(handle), TAV_Posix_BusUnbind(port);
        VEC_VectorFree_F(vector), VEC_VectorFree_F(copies[0]), VEC_VectorFree_F(copies[1]);
    }

    /** Tells how many messages the subscriber got, and how long they are. */
    size_t Receive() const {
        size_t all = 0;
        void *message = nullptr;
        for (uint32_t length = 0; TAV_Posix_BusReceive(port, 0, &message, &length) == 0; all = all * 1000 + length) {
            DMS_MsgFree(kSubscriber, message);
        }
        return all;
    }

    /** What can be seen from outside: bodies of stores and of files that load, other files as they are. */
    Contents Look() const {
        const auto hash = [](const Bytes &bytes) { return std::hash<string>()(string(bytes.begin(), bytes.end())); };
        const auto hashBody = [hash](const Store &store) {
            Bytes body(BodySize(store));
            EXPECT_EQ(TAV_BuildExtCfgFileBody(store.get(), &body[0], Size(body)), TAV_OK);
            return hash(body);
        };
        Contents all = {{"received", Receive()}, {"items", static_cast<size_t>(VEC_VectorCount(vector))}};
        all["told"] = ARU_Detect_Filter(kVs, handle, 0, 0) + Receive();
        for (const auto &entry : std::filesystem::recursive_directory_iterator(Path())) {
            const string name = entry.path().string().substr(Path().size() + 1);
            if (const Store store = OpenAs(TAV_EXT_MODE_READ_ONLY, name)) {
                all[name] = hashBody(store);
            } else if (name != "tmp/tmpunzippath") {
                all[name] = entry.is_regular_file() && !name.ends_with(".zip") ? hash(ReadFile(entry.path())) : 0;
            }
        }
        for (const auto &[name, store] : stores) {
            all["store of " + name] = hashBody(store);
        }
        return all;
    }
};

struct Operation {
    string name;
    uint32_t usual;  // what it answers when nothing fails
    Codes failures;  // what else it may answer
    std::function<uint32_t(World &)> run;
    bool tears = false;  // a failure may leave something between the old and the new
};

/** Runs an operation once, and expects that it returns all files and messages that it takes. */
uint32_t RunOnce(const Operation &operation, World &world, uint32_t failing = 0) {
    const auto files = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
    TAV_Posix_BusCounts before, after;
    TAV_Posix_BusAccount(&before);
    const auto filesBefore = files();
    interposer::Reset();
    interposer::FailNth(interposer::Call::kAny, failing);
    const uint32_t code = operation.run(world);
    interposer::FailNth(interposer::Call::kAny, 0);
    TAV_Posix_BusAccount(&after);
    EXPECT_TRUE(files() == filesBefore && after.alive == before.alive) << "files or messages left over";
    return code;
}

/** Fails one platform call of an operation, and returns its name; nothing when there are not so many. */
string FailOne(const Operation &operation, uint32_t nth, const Contents &after, uint32_t again) {
    World world;
    const Contents before = world.Look();
    const uint32_t code = RunOnce(operation, world, nth), usual = operation.usual;
    const string failed = interposer::Failed();
    SCOPED_TRACE(operation.name + ", call " + std::to_string(nth) + " fails: " + failed);
    const bool isKnown = operation.failures.contains(code) || (code != 0 && operation.failures.contains(kAnyCode));
    EXPECT_TRUE(code == usual || (isKnown && !failed.empty())) << std::hex << code;
    Contents seen = world.Look();
    if (code == usual) {
        std::erase_if(seen, [](const auto &entry) { return entry.first.ends_with(".bak"); });
    }
    EXPECT_TRUE(operation.tears || seen == (code == usual ? after : before)) << testing::PrintToString(seen);
    const uint32_t retried = RunOnce(operation, world);
    EXPECT_TRUE(retried == usual || (code == usual && retried == again)) << std::hex << retried;
    EXPECT_TRUE(retried != usual || world.Look() == after) << "after the retry";
    return failed;
}

uint32_t SetInPlace(World &world) {
    WriteFile(world.Path("old.dat"), kRefer);  // a failure before may have torn it
    return TAV_ExtCfgSetRecordToFile(0, world.Take().get(), world.Path("old.dat").c_str(), nullptr);
}

uint32_t Detect(const World &world) {
    ARU_Detect_Handle *const handle = ARU_Detect_Init(1, kDetector, kVs, nullptr, nullptr, 0);
    const uint32_t code = handle == nullptr ? kNone : Register(handle, 100);
    const uint32_t subscribed = ARU_Detect_ProcMsg(kVs, handle, world.subscribe.get());
    return ARU_Detect_UnInit(handle), code != 0 ? code : subscribed;
}

uint32_t ReadStream(const string &path) {
    TAV_ZipCb block = {};
    const uint32_t code = TAV_UnZipStart(&block, path.c_str());
    TAV_GetCharFromZip(&block);
    return TAV_UnZipEnd(&block), code != 0 || block.used == 1 ? code : kPart;
}

/** Writes a line to a log of some size, which may be moved away first. */
uint32_t WriteLog(uint32_t size) {
    const string path = LogFolder() + "/sweep.log", old = path + ".old";
    MakeSparseFile(path, size);
    const int32_t code = TAV_DEBUG_WriteLogFile("sweep", "Sweep", 1, "a line");
    EXPECT_EQ(std::filesystem::file_size(FileExists(old) ? old : path) / kRotateAt, size / kRotateAt);
    return std::remove(path.c_str()), std::remove(old.c_str()), Result(code);
}

uint32_t WriteStream(TAV_ZipCb *block, const char *path) {
    return TAV_ZipStart(0, block, path) != 0 ? kFailed : TAV_Zip(block) | TAV_ZipEnd(block);
}

// What an operation does, in terms of the world w.
#define DO(...) [=]([[maybe_unused]] World &w) -> uint32_t { return __VA_ARGS__; }

std::vector<Operation> StoreOperations() {
    const Codes flush = {kNoMemory, kCopy, kRefused, TAV_ERR_OPEN, TAV_ERR_NOT_FOUND, kCode};
    const Codes inPlace = {kNoMemory, kCopy, kRefused, TAV_ERR_OPEN, TAV_ERR_NOT_FOUND, kRead};
    std::vector<Operation> all = {
        {"query", 0, {kNoMemory}, DO(TAV_ExtCfgStartQuery(0, w.key.get(), w.At("a.dat")))},
        {"open and query", 70, {kNone}, DO(BodySize(Store(TAV_ExtCfgOpenAndQuery(0, w.key.get(), w.zip, nullptr))))},
        {"get", 1, {}, DO(TAV_ExtCfgGetRecord(0, w.key.get(), w.At("a.dat")) != nullptr)},
        {"get a field", 0, {kCopy}, DO(TAV_ExtCfgRecordGetFieldValue(w.key.get(), 14, 4, w.out, nullptr))},
        {"add", 0, {kNoMemory}, DO(Add(w.stores["a.dat"], 0, w.Take()))},
        {"add to a new VS", 0, {kNoMemory}, DO(Add(w.stores["a.dat"], 8, w.Take())), true},
        {"build and add", 0, {kNoMemory, kBad, TAV_ERR_NULL}, DO(Add(w.stores["a.dat"], 0, Class13(9, 4))), true},
        {"set", 0, {kNoMemory, kFailed}, DO(TAV_ExtCfgSetRecord(0, w.wider.get(), w.At("a.zip"))), true},
        {"delete", 0, {}, DO(TAV_ExtCfgDelRecord(0, w.key.get(), w.At("a.dat")))},
        {"checksum of a file", 0, {kRead, kCopy, kBad}, DO(TAV_GetExtCfgFileChecksum(w.plain, w.out, 32))},
        {"checksum of an archive", 0, {kRead, kCopy, kBad}, DO(TAV_GetExtCfgFileChecksum(w.zip, w.out, 32))},
        {"stated checksum", 32, {0}, DO(TAV_ExtCfgGetChecksumFromFile(w.plain, w.out, 32))},
        {"set in place", 0, inPlace, DO(SetInPlace(w)), true},
        {"path", 0, {kCopy}, DO(TAV_GetAbsPath("a", w.text, 256))}};
    for (const string name : {"a.dat", "a.zip", "refers.dat"}) {
        const string copy = name[0] + name;
        all.push_back({"open read-only " + name, 70, {kNone}, DO(BodySize(w.OpenAs(1, name)))});
        all.push_back({"open read-write " + name, 70, {kNone, 0, 20, 50}, DO(BodySize(w.OpenAs(0, name)))});
        all.push_back({"open write-only " + name, 0, {kNone}, DO(BodySize(w.OpenAs(2, name)))});
        all.push_back({"flush " + name, 0, flush, DO(TAV_ExtCfgFlush(w.At(name)))});
        all.push_back({"write " + name, 0, flush, DO(TAV_WriteExtCfgFile(w.Path(copy).c_str(), w.At(name))), true});
    }
    return all;
}

std::vector<Operation> OtherOperations() {
    return {{"detect", 0, {kNone, 1, 2, 3, 4}, DO(Detect(w)), true},
            {"subscribe", 0, {2, 3, 4}, DO(ARU_Detect_ProcMsg(kVs, w.handle, w.subscribe.get())), true},
            {"unsubscribe", 0, {}, DO(ARU_Detect_ProcMsg(kVs, w.handle, w.unsubscribe.get())), true},
            {"register", 0, {3}, DO(Register(w.handle, 101))},
            {"filter", 0, {3, 4}, DO(ARU_Detect_Filter(kVs, w.handle, 0, 0))},
            {"filter by command line", 0, {3, 4}, DO(ARU_Detect_FilterEx4CliEvent(w.Instance(), 0, 0))},
            {"put a file", 0, {kFailed}, DO(NFTPCI_AsyncPutDiskFile(1, 2, 3, 1, 1, "a", "b", &kEnds))},
            {"put memory", 0, {kFailed}, DO(NFTPCI_AsyncPutMemBufReq(1, 2, 3, 1, 1, "a", &kEnds))},
            {"put a block", 0, {kFailed}, DO(NFTPCI_AsyncTransMemBufBlock(1, 2, 3, &kData, &kEnds))},
            {"transfer query", 0, {kFailed}, DO(NFTPCI_AsyncTransFileQuery(1, 2, 3, &kEnds))},
            {"progress", 0, {kFailed}, DO(NFTPCI_AsyncTransFileProgress(1, 2, 3, &kEnds))},
            {"write a stream", 0, {kFailed, kCode, ENOENT}, DO(WriteStream(&w.block, w.zip)), true},
            {"read a stream", 0, {kFailed, kCode, kPart, EINVAL}, DO(ReadStream(w.zip))},
            {"log", 0, {kFailed}, DO(WriteLog(0))},
            {"rotate the log", 0, {kFailed}, DO(WriteLog(kRotateAt))},
            {"queue", 0, {}, DO((TAV_CIRCLEQ_Free(TAV_CIRCLEQ_Alloc(0, 3)), 0))},
            {"vector", 0, {}, DO((VEC_VectorFree_F(VEC_VectorInit_F(0, 1, "tests", 1)), 0))},
            {"grow a vector", 9, {kFailed}, DO(Result(VEC_VectorSetIndex(w.vector, 9, 1)))},
            {"copy a vector",
             0,
             {kFailed},
             DO(Result(VEC_VectorCopy_F(0, w.vector, &w.copies[w.copies[0] ? 1 : 0], "", 1)))}};
}

/** A stored form of kWord: reversible, digest-based, and salted. */
string Stored(uint32_t which) {
    char text[TAV_PWD_BUFFER_SIZE] = "";
    EXPECT_EQ(which < 3 ? TAV_CRYPT_Encrypt_Sec(kWord, 18, text, sizeof text, which, which == 1 ? "c" : "")
                        : TAV_CRYPT_EncryptPassword4096(kWord, 18, text, sizeof text),
              0u);
    return text;
}

std::vector<Operation> CryptOperations() {
    const string sent = Stored(1), digest = Stored(2), older = Stored(3);
    const string salted = R"(Y+y$!qp~a#d;'t:d;'t:8J&t:^9z+B6;7wYQ`w,')Ov\I4eTgSCcWFP@qV)Oz=oDO)";
    std::vector<Operation> all = {
        {"encrypt", 0, {kFailed, kCode}, DO(TAV_CRYPT_Encrypt_Sec(kWord, 18, w.text, sizeof w.out, 1, "c"))},
        {"decrypt", 0, {kCode}, DO(TAV_CRYPT_Decrypt(sent.c_str(), w.text, sizeof w.out, "c"))},
        {"salt", 0, {kFailed}, DO(TAV_CRYPT_EncryptPassword(kWord, w.text, sizeof w.out))},
        {"salt as before", 0, {kFailed}, DO(TAV_CRYPT_EncryptPassword4096(kWord, 18, w.text, sizeof w.out))},
        {"kind", 1, {0}, DO(TAV_CRYPT_IsCipher(sent.c_str(), Size(sent), nullptr, "c") > 1)},
        {"kind by look", 1, {0}, DO(TAV_IsStringCipher_EnhExp(sent.c_str()) > 1)},
        {"irreversible", 1, {0}, DO(TAV_IsStringIrreversibleCipher(older.c_str()))},
        {"digest-based", 0, {1}, DO(TAV_VerifyV5SHACipher(kWord, digest.c_str(), ""))},
        {"salted digest", 0, {kFailed, kNoMemory, kCode}, DO(TAV_VerifySHACipher(kWord, salted.c_str()))},
        {"base 93", 0, {kFailed}, DO(TAV_BinToAscii(kWord, 17, w.out, &w.count))},
        {"complexity", TAV_PWD_CONTAINS_NAME, {0}, DO(TAV_CheckPasswordComplexity("a1root", "Toor"))},
        {"likeness", 0, {1}, DO(TAV_PasswordAndUsernameSimilarCheck(kWord, "Someone", 1))},
        {"new", 0, {0xF01, 0xABA0}, DO(TAV_CheckLocUserPassword(kWord, "Someone", 1, 1, nullptr, 0))}};
    World world;
    const auto with = [&](const string &name, const Codes &failures, auto run) {
        all.push_back({name, run(world), failures, run});
    };
    const std::pair<string, uint8_t> rows[] = {{kWord, 1}, {sent, 0}, {sent, 2}, {digest, 6}, {older, 6}, {salted, 6}};
    for (const auto &[stored, form] : rows) {
        TAV_SYS_PASSWORD_S record = {.text = {}, .form = form};
        stored.copy(record.text, sizeof record.text - 1);
        const char *const context = stored == digest ? "" : "c";
        with("type", {0, 1, 2, 0xFF}, DO(TAV_GetPasswordType(&record)));
        with("check", {1}, DO(TAV_CheckSystemPassword(&record)));
        for (const char *const word : {kWord, kWrong}) {  // no failure lets a wrong word in
            with("verify sent", {kAnyCode}, DO(TAV_VerifyEncryptSystemPassword_Enh(word, "c", &record, context)));
            with("verify", {kAnyCode}, DO(TAV_VerifySystemPassword_Enh(word, record.text, context)));
            EXPECT_TRUE(word == kWord ? all.back().usual == 0 : all.back().usual != 0 && all.end()[-2].usual != 0);
        }
    }
    return all;
}

TEST(Sweep, EveryOperationAndEveryCall) {
    setenv("TMPDIR", "/dev/shm", 1);  // no failure here is the disk's, so nobody need wait for it
    const DebugLog log;
    std::set<string> functions;
    uint32_t operations = 0, points = 0;
    for (const auto &table : {StoreOperations(), OtherOperations(), CryptOperations()}) {
        for (const Operation &operation : table) {
            SCOPED_TRACE(operation.name);
            World clean;
            EXPECT_EQ(RunOnce(operation, clean), operation.usual);
            const Contents after = clean.Look();
            const uint32_t again = RunOnce(operation, clean);
            string failed;
            for (uint32_t nth = 1; nth == 1 || !failed.empty(); ++nth) {
                failed = FailOne(operation, nth, after, again);
                functions.insert(failed);
                points += failed.empty() ? 0 : 1;
            }
            ++operations;
        }
    }
    std::cout << operations << " operations, " << points << " calls that failed, of " << functions.size() - 1
              << " functions\n";
}

}  // namespace
