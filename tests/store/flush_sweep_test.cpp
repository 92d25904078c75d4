/*
 * Writing a file: the exact sequence of platform calls of each kind of flush, then the same with each call failing in
 * turn, looking at the result, at the disk, at what is left allocated, and at whether a second try succeeds.
 */
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;
using interposer::kPlatformCode;

/** A call of a flush, and what the flush answers when this call fails. */
struct Step {
    std::string call;
    uint32_t codeWhenFailing;
};

struct Scenario {
    const char *name;
    std::string file;
    bool oldFile;    // a file with other content is there already
    bool unchanged;  // ... and with the same content
    bool emptyStore;
    bool refer;
    std::vector<Step> steps;
};

void PrintTo(const Scenario &scenario, std::ostream *out) {
    *out << scenario.name;
}

const Bytes kOldBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1))})});                    // 40 bytes
const Bytes kNewBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(2))})});  // 50 bytes
const Bytes kReferred = Image(VsTlv(7, {}));                                       // a body of 20 bytes
const Bytes kReferSum = Slice(kReferred, kChecksumAt, kHeadSize);

std::vector<Step> operator+(std::vector<Step> first, const std::vector<Step> &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/** The parts of which the sequences are made. */
std::vector<Step> ReadOf(const std::string &file, size_t size, size_t body, uint32_t codeWhenFailing, uint32_t usual) {
    return {{"Stat " + file, codeWhenFailing},
            {"FOpen " + file + " rb", codeWhenFailing},
            {"FRead " + std::to_string(size), codeWhenFailing},
            {"FClose", usual},
            {"Digest " + std::to_string(body), codeWhenFailing}};
}

std::vector<Step> PlainWrite(size_t size) {
    return {{"FOpen a.dat wb+", TAV_ERR_OPEN},
            {"Chown a.dat 0", TAV_OK},
            {"FWrite " + std::to_string(size), TAV_ERR_REFUSED},
            {"FFlush", TAV_OK},
            {"FClose", TAV_OK},
            {"SetMode a.dat 416", TAV_OK}};
}

std::vector<Step> SetAside(const std::string &file) {
    return {{"Exists " + file, TAV_OK}, {"Move " + file + " " + file + ".bak", TAV_OK}};
}

std::vector<Step> DropBackup(const std::string &file) {
    return {{"Exists " + file + ".bak", TAV_OK}, {"Delete " + file + ".bak", TAV_OK}};
}

const std::vector<Step> kHeadDigest = {{"Digest 50", TAV_ERR_COPY}};

std::vector<Step> ArchiveRead(uint32_t usual) {
    return {{"Stat a.zip", TAV_OK},
            {"ZipCount a.zip", TAV_OK},
            {"ZipSize a.zip.dat a.zip", TAV_OK},
            {"Unzip " + std::to_string(usual == TAV_OK ? 120 : 130) + " a.zip.dat a.zip", TAV_OK},
            {"Digest " + std::to_string(usual == TAV_OK ? 40 : 50), TAV_OK}};
}

const Scenario kScenarios[] = {
    {"first write", "a.dat", false, false, false, false,
     kHeadDigest + std::vector<Step>{{"Stat a.dat", TAV_OK}, {"Exists a.dat", TAV_OK}} + PlainWrite(130) +
         std::vector<Step>{{"Exists a.dat.bak", TAV_OK}}},
    {"rewrite", "a.dat", true, false, false, false,
     kHeadDigest + ReadOf("a.dat", 120, 40, TAV_OK, TAV_OK) + SetAside("a.dat") + PlainWrite(130) +
         DropBackup("a.dat")},
    {"unchanged", "a.dat", false, true, false, false,
     kHeadDigest + ReadOf("a.dat", 130, 50, TAV_OK, TAV_ERR_UNCHANGED)},
    {"empty store", "a.dat", true, false, true, false, {{"Exists a.dat", TAV_OK}, {"Delete a.dat", TAV_OK}}},
    {"first archive", "a.zip", false, false, false, false,
     kHeadDigest + std::vector<Step>{{"Stat a.zip", TAV_OK},
                                     {"Exists a.zip", TAV_OK},
                                     {"Zip 130 a.zip.dat a.zip 0 6", kPlatformCode},
                                     {"Exists a.zip.bak", TAV_OK}}},
    {"archive", "a.zip", true, false, false, false,
     kHeadDigest + ArchiveRead(TAV_OK) + SetAside("a.zip") +
         std::vector<Step>{{"Zip 130 a.zip.dat a.zip 0 6", kPlatformCode}} + DropBackup("a.zip")},
    {"unchanged archive", "a.zip", false, true, false, false, kHeadDigest + ArchiveRead(TAV_ERR_UNCHANGED)},
    {"with refer file", "a.dat", true, false, false, true,
     kHeadDigest + ReadOf("r.dat", 100, 20, TAV_ERR_NOT_FOUND, TAV_OK) + ReadOf("a.dat", 160, 40, TAV_OK, TAV_OK) +
         SetAside("a.dat") + PlainWrite(170) + DropBackup("a.dat")},
};

/** A fresh folder with the scenario's files, and the store to be flushed there. */
class Stage {
  public:
    explicit Stage(const Scenario &scenario) : scenario_(scenario), path_(folder_.Path(scenario.file)) {
        refer_ = scenario.refer ? folder_.Path("r.dat") : std::string();
        if (scenario.refer) {
            WriteFile(refer_, kReferred);
        }
        if (scenario.oldFile || scenario.unchanged) {
            Put(scenario.unchanged ? kNewBody : kOldBody);
            before_ = ReadFile(path_);
        }
        store_ = Open(2, path_, refer_);
        if (!scenario.emptyStore) {
            EXPECT_EQ(Add(store_, 0, Class13(1, 2)), TAV_OK);
        }
        interposer::Reset();
    }
    ~Stage() { interposer::Reset(); }

    uint32_t Flush() { return TAV_ExtCfgFlush(store_.get()); }
    uint32_t UsualCode() const { return scenario_.unchanged ? TAV_ERR_UNCHANGED : TAV_OK; }

    /** Expects the new content under the file's name. */
    void ExpectNew() const {
        if (scenario_.emptyStore) {
            EXPECT_FALSE(FileExists(path_));
            return;
        }
        Store written = Open(1, path_, refer_);
        ASSERT_TRUE(written);
        EXPECT_EQ(TAV_CalcExtCfgFileBodySize(written.get()), kNewBody.size());
        if (scenario_.file == "a.dat") {
            EXPECT_EQ(WithoutTime(ReadFile(path_)), NewImage());
        }
    }

    /** Expects the old file under this name, bit by bit. */
    void ExpectOld(const char *suffix = "") const {
        if (before_) {
            EXPECT_EQ(ReadFile(path_ + suffix), *before_);
        }
    }

    bool HasBackup() const { return FileExists(path_ + ".bak"); }
    const std::string &Path() const { return path_; }

  private:
    Bytes NewImage() const { return Image(kNewBody, scenario_.refer ? std::optional(kReferSum) : std::nullopt); }

    void Put(const Bytes &body) {
        Bytes image = Image(body, scenario_.refer ? std::optional(kReferSum) : std::nullopt);
        if (scenario_.file == "a.dat") {
            WriteFile(path_, image);
        } else {
            EXPECT_EQ(TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), path_.c_str()), 0u);
        }
    }

    NothingLeaks leaks_;
    const Scenario &scenario_;
    TempFolder folder_;
    std::string path_;
    std::string refer_;
    std::optional<Bytes> before_;
    Store store_;
};

class FlushSweep : public testing::TestWithParam<Scenario> {};

TEST_P(FlushSweep, Sequence) {
    Stage stage(GetParam());
    EXPECT_EQ(stage.Flush(), stage.UsualCode());
    std::vector<std::string> expected;
    for (const Step &step : GetParam().steps) {
        expected.push_back(step.call);
    }
    EXPECT_EQ(interposer::Listed(), expected);
    stage.ExpectNew();
    EXPECT_FALSE(stage.HasBackup());
    if (stage.UsualCode() == TAV_ERR_UNCHANGED) {
        stage.ExpectOld();
    } else if (!GetParam().emptyStore && GetParam().file == "a.dat") {
        struct stat info {};
        ASSERT_EQ(stat(stage.Path().c_str(), &info), 0);
        EXPECT_EQ(info.st_mode & 07777u, 0640u);
    }
}

/** Expects what holds after any failure, then that the flush succeeds when it is tried again. */
void ExpectSafeAndRetry(Stage &stage, uint32_t code, uint32_t usual) {
    if (code != TAV_OK && code != usual) {
        stage.ExpectOld();
        EXPECT_FALSE(stage.HasBackup());
    }
    interposer::Reset();
    uint32_t again = stage.Flush();
    EXPECT_TRUE(again == TAV_OK || again == TAV_ERR_UNCHANGED) << std::hex << again;
    stage.ExpectNew();
}

TEST_P(FlushSweep, EachCallFailingInTurn) {
    for (size_t at = 0; at < GetParam().steps.size(); ++at) {
        const Step &step = GetParam().steps[at];
        SCOPED_TRACE("failing: " + step.call);
        Stage stage(GetParam());
        interposer::FailListed({at});
        uint32_t code = stage.Flush();
        EXPECT_EQ(code, step.codeWhenFailing);
        if (code == TAV_OK && !GetParam().emptyStore) {
            stage.ExpectNew();
        }
        ExpectSafeAndRetry(stage, code, stage.UsualCode());
    }
}

TEST_P(FlushSweep, EachAllocationAndCopyFailingInTurn) {
    for (Call kind : {Call::kMalloc, Call::kMemCopy}) {
        for (uint32_t nth = 1;; ++nth) {
            SCOPED_TRACE(std::string(kind == Call::kMalloc ? "block " : "copy ") + std::to_string(nth));
            Stage stage(GetParam());
            interposer::FailNth(kind, nth);
            uint32_t code = stage.Flush();
            bool reached = interposer::Count(kind) >= nth;
            if (kind == Call::kMalloc) {
                EXPECT_TRUE(code == TAV_OK || code == stage.UsualCode() || code == TAV_ERR_NO_MEMORY ||
                            (GetParam().refer && code == TAV_ERR_NOT_FOUND))
                    << std::hex << code;
            }
            ExpectSafeAndRetry(stage, code, stage.UsualCode());
            if (!reached) {
                EXPECT_EQ(code, stage.UsualCode());
                break;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, FlushSweep, testing::ValuesIn(kScenarios), [](const auto &test) {
    std::string name = test.param.name;
    std::replace(name.begin(), name.end(), ' ', '_');
    return name;
});

TEST(Flush, EveryShortWrite) {
    for (uint32_t missing = 1; missing <= 130; ++missing) {
        Stage stage(kScenarios[1]);
        interposer::FailNth(Call::kWrite, 1);
        interposer::SetMissingBytes(missing);
        EXPECT_EQ(stage.Flush(), TAV_ERR_REFUSED) << missing;
        stage.ExpectOld();
        EXPECT_FALSE(stage.HasBackup());
    }
}

/** When even the way back fails, the old content still lies under the backup's name. */
TEST(Flush, OldContentSurvivesTwoFailures) {
    for (const Scenario *scenario : {&kScenarios[1], &kScenarios[5], &kScenarios[7]}) {
        std::vector<std::string> calls;
        size_t write = 0;
        for (size_t at = 0; at < scenario->steps.size(); ++at) {
            const std::string &call = scenario->steps[at].call;
            write = call.starts_with("FWrite") || call.starts_with("Zip 1") ? at : write;
        }
        size_t moveBack = 0;
        {
            Stage stage(*scenario);
            interposer::FailListed({write});
            EXPECT_NE(stage.Flush(), TAV_OK);
            calls = interposer::Listed();
            moveBack = calls.size() - 1;
            ASSERT_EQ(calls[moveBack - 1], "Exists " + scenario->file + ".bak");
            ASSERT_EQ(calls[moveBack], "Move " + scenario->file + ".bak " + scenario->file);
            stage.ExpectOld();
        }
        Stage stage(*scenario);
        interposer::FailListed({write, moveBack});
        EXPECT_NE(stage.Flush(), TAV_OK);
        stage.ExpectOld(".bak");
        interposer::Reset();
        EXPECT_EQ(stage.Flush(), TAV_OK);
        stage.ExpectNew();
        EXPECT_FALSE(stage.HasBackup());
    }
}

TEST(Flush, Reports) {
    DebugLog log;
    Stage stage(kScenarios[1]);
    const std::string &path = stage.Path();
    interposer::FailNth(Call::kWrite, 1);
    log.Take();
    EXPECT_EQ(stage.Flush(), TAV_ERR_REFUSED);
    log.ExpectAmong({{"TAV_WriteBufferToFile", "Write " + path + " failed, len=130, return 0x41"},
                     {"TAV_WriteExtCfgFile", "Write " + path + " failed, len=130, return 0x801615"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x801615"}});
    interposer::Reset();
    interposer::FailNth(Call::kDigest, 1);
    EXPECT_EQ(stage.Flush(), TAV_ERR_COPY);
    log.ExpectAmong({{"TAV_CalcChecksum", "Report error: 0x4d"},
                     {"TAV_FillExtCfgFileHead", "Proc failed, TLV type=5, len=32, return 0x1"},
                     {"TAV_BuildExtCfgFileHead", "Report error: 0x1"},
                     {"TAV_WriteExtCfgFile", "Build " + path + " head failed, head size=80, return 0x1"}});
    interposer::Reset();
    EXPECT_EQ(stage.Flush(), TAV_OK);
    log.Take();
    EXPECT_EQ(stage.Flush(), TAV_ERR_UNCHANGED);
    log.ExpectAmong({{"TAV_WriteExtCfgFile", "Checksum is the same, no need write file"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x80161b"}});
}

TEST(Flush, ReferFileThatIsGone) {
    DebugLog log;
    TempFolder folder;
    NothingLeaks leaks;
    WriteFile(folder.Path("a.dat"), Image(kOldBody));
    Store store = Open(2, folder.Path("a.dat"), folder.Path("gone.dat"));
    ASSERT_EQ(Add(store, 0, Class13(1)), TAV_OK);
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_NOT_FOUND);
    log.ExpectAmong(
        {{"TAV_FillExtCfgFileReferChecksum", "Error code 0x801614, return 0x801618"},
         {"TAV_FillExtCfgFileHead", "Proc failed, TLV type=20, len=32, return 0x801618"},
         {"TAV_WriteExtCfgFile", "Build " + folder.Path("a.dat") + " head failed, head size=120, return 0x801618"}});
    EXPECT_EQ(ReadFile(folder.Path("a.dat")), Image(kOldBody));
}

/** The head's parts on their own: no refer path leaves the field out, and lengths are looked at. */
TEST(Flush, HeadFields) {
    Bytes image = Join({Filled(kHeadSize, 0), kNewBody});
    EXPECT_EQ(TAV_BuildExtCfgFileHead(image.data(), kHeadSize, static_cast<uint32_t>(image.size()), nullptr), TAV_OK);
    EXPECT_EQ(WithoutTime(image), Image(kNewBody));
    EXPECT_EQ(TAV_BuildExtCfgFileHead(image.data(), kHeadSize - 1, static_cast<uint32_t>(image.size()), nullptr),
              TAV_ERR_NO_ROOM);
    uint8_t value[64];
    TAV_ExtCfgFileContext context{};
    EXPECT_EQ(TAV_FillExtCfgFileVersion(3, value, 5, &context), TAV_ERR_COPY);
    EXPECT_EQ(TAV_FillExtCfgFileModifyTime(4, value, 11, &context), TAV_ERR_COPY);
    EXPECT_EQ(TAV_FillExtCfgFileChecksum(5, value, 36, &context), TAV_ERR_COPY);
    EXPECT_EQ(TAV_FillExtCfgFileReferChecksum(20, value, 31, &context), TAV_ERR_COPY);
    EXPECT_EQ(TAV_FillExtCfgFileReferChecksum(20, value, 32, &context), TAV_ERR_UNCHANGED);
    const uint32_t types[] = {3, 4, 5, 20, 0};
    for (size_t at = 0; at < 5; ++at) {
        EXPECT_EQ(g_astExtCfgFileHeadFillFuncTbl[at].func == nullptr, at == 4);
        EXPECT_EQ(g_astExtCfgFileHeadCheckFuncTbl[at].func == nullptr, at == 4);
        EXPECT_EQ(g_astExtCfgFileHeadFillFuncTbl[at].type, types[at]);
        EXPECT_EQ(g_astExtCfgFileHeadCheckFuncTbl[at].type, types[at]);
    }
}

TEST(Flush, FullDisk) {
    TempFolder folder;
    if (mount("tmpfs", folder.Path().c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "may not mount a small file system: " << std::strerror(errno);
    }
    struct Unmount {
        std::string path;
        ~Unmount() { umount(path.c_str()); }
    } unmount{folder.Path()};
    Random random(1);
    auto fill = [&](const Store &store, unsigned count) {
        for (uint32_t key = 0; key < count; ++key) {
            Bytes noise(400);
            for (uint8_t &byte : noise) {
                byte = static_cast<uint8_t>(random());
            }
            EXPECT_EQ(Add(store, 0, MakeRecord(13, {{14, Host32(key)}, {12, noise}})), TAV_OK);
        }
    };
    for (const char *name : {"a.dat", "a.zip"}) {
        SCOPED_TRACE(name);
        const std::string path = folder.Path(name);
        Store small = Open(2, path), large = Open(2, path);
        fill(small, 40);
        fill(large, 130);
        EXPECT_EQ(TAV_ExtCfgFlush(small.get()), TAV_OK);
        const Bytes before = ReadFile(path);
        EXPECT_NE(TAV_ExtCfgFlush(large.get()), TAV_OK);
        EXPECT_EQ(ReadFile(path), before);
        EXPECT_FALSE(FileExists(path + ".bak"));
        EXPECT_TRUE(Open(1, path));
        std::remove(path.c_str());
    }
}

}  // namespace
