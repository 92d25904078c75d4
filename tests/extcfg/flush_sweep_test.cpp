/*
 * Writing a file: the exact sequence of platform calls of each kind of flush, then the same with each call failing in
 * turn, looking at the result, at the disk, at what is left allocated, and at whether a second try succeeds.
 */
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <algorithm>
#include <map>

#include "debug_log.h"
#include "interposer.h"
#include "store.h"

namespace {

using interposer::Call;

const Bytes kOldBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1))})});                    // 40 bytes
const Bytes kNewBody = VsTlv(0, {Tlv(13, {Tlv(14, Be32(1)), Tlv(15, Be16(2))})});  // 50 bytes
const Bytes kReferred = Image(VsTlv(7, {}));                                       // a body of 20 bytes

struct Scenario {
    const char *name;
    std::string file;
    std::optional<Bytes> oldBody;  // of the file that is there already
    std::string calls;             // joined by commas
    bool refers = false;           // to r.dat
};

void PrintTo(const Scenario &scenario, std::ostream *out) {
    *out << scenario.name;
}

const Scenario kScenarios[] = {
    {"first_write", "a.dat", std::nullopt,
     "Digest 50,Stat a.dat,Exists a.dat,"
     "FOpen a.dat wb+,Chown a.dat 0,FWrite 130,FFlush,FClose,SetMode a.dat 416,Exists a.dat.bak"},
    {"rewrite", "a.dat", kOldBody,
     "Digest 50,Stat a.dat,FOpen a.dat rb,FRead 120,FClose,Digest 40,Exists a.dat,Move a.dat a.dat.bak,"
     "FOpen a.dat wb+,Chown a.dat 0,FWrite 130,FFlush,FClose,SetMode a.dat 416,Exists a.dat.bak,Delete a.dat.bak"},
    {"unchanged", "a.dat", kNewBody, "Digest 50,Stat a.dat,FOpen a.dat rb,FRead 130,FClose,Digest 50"},
    {"empty_store", "a.dat", kOldBody, "Exists a.dat,Delete a.dat"},
    {"first_archive", "a.zip", std::nullopt,
     "Digest 50,Stat a.zip,Exists a.zip,Zip 130 a.zip.dat a.zip 0 6,Exists a.zip.bak"},
    {"archive", "a.zip", kOldBody,
     "Digest 50,Stat a.zip,ZipCount a.zip,ZipSize a.zip.dat a.zip,Unzip 120 a.zip.dat a.zip,Digest 40,Exists a.zip,"
     "Move a.zip a.zip.bak,Zip 130 a.zip.dat a.zip 0 6,Exists a.zip.bak,Delete a.zip.bak"},
    {"unchanged_archive", "a.zip", kNewBody,
     "Digest 50,Stat a.zip,ZipCount a.zip,ZipSize a.zip.dat a.zip,Unzip 130 a.zip.dat a.zip,Digest 50"},
    {"with_refer_file", "a.dat", kOldBody,
     "Digest 50,Stat r.dat,FOpen r.dat rb,FRead 100,FClose,Digest 20,"
     "Stat a.dat,FOpen a.dat rb,FRead 160,FClose,Digest 40,Exists a.dat,Move a.dat a.dat.bak,"
     "FOpen a.dat wb+,Chown a.dat 0,FWrite 170,FFlush,FClose,SetMode a.dat 416,Exists a.dat.bak,Delete a.dat.bak",
     true},
};
const Scenario &kRewrite = kScenarios[1];

/** Calls whose failure fails the flush, and its answer; as does the first digest, that of the head. */
const std::map<std::string, uint32_t> kFatal = {
    {"FOpen a.dat wb+", TAV_ERR_OPEN}, {"FWrite 130", TAV_ERR_REFUSED},
    {"FWrite 170", TAV_ERR_REFUSED},   {"Zip 130 a.zip.dat a.zip 0 6", interposer::kPlatformCode},
    {"Stat r.dat", TAV_ERR_NOT_FOUND}, {"FOpen r.dat rb", TAV_ERR_NOT_FOUND},
    {"FRead 100", TAV_ERR_NOT_FOUND},  {"Digest 20", TAV_ERR_NOT_FOUND},
};

/** A fresh folder with the scenario's files, and the store to be flushed there. */
struct Stage {
    explicit Stage(const Scenario &scenario)
        : usualCode(scenario.oldBody == kNewBody ? TAV_ERR_UNCHANGED : TAV_OK),
          path(folder.Path(scenario.file)),
          isArchive(scenario.file == "a.zip"),
          emptyStore(scenario.name == std::string("empty_store")) {
        if (scenario.refers) {
            refer = folder.Path("r.dat");
            WriteFile(refer, kReferred);
            referSum = Slice(kReferred, kChecksumAt, kHeadSize);
        }
        if (scenario.oldBody) {
            const Bytes image = Image(*scenario.oldBody, referSum);
            WriteFile(path, image);
            if (isArchive) {
                EXPECT_EQ(TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), path.c_str()),
                          TAV_OK);
            }
            before = ReadFile(path);
        }
        store = Open(2, path, refer);
        EXPECT_EQ(emptyStore ? TAV_OK : Add(store, 0, Class13(1, 2)), TAV_OK);
        interposer::Reset();
    }
    ~Stage() { interposer::Reset(); }

    uint32_t Flush() { return TAV_ExtCfgFlush(store.get()); }

    /** Expects the new content under the file's name. */
    void ExpectNew() const {
        if (emptyStore) {
            EXPECT_FALSE(FileExists(path));
        } else if (isArchive) {
            Store written = Open(1, path);
            ASSERT_TRUE(written);
            EXPECT_EQ(TAV_CalcExtCfgFileBodySize(written.get()), kNewBody.size());
        } else {
            EXPECT_EQ(WithoutTime(ReadFile(path)), Image(kNewBody, referSum));
        }
    }

    /** Expects the old file, bit by bit, and no backup beside it. */
    void ExpectOld() const {
        EXPECT_TRUE(!before || ReadFile(path) == *before);
        EXPECT_FALSE(FileExists(path + ".bak"));
    }

    /** Expects the old file, bit by bit, under the backup's name. */
    void ExpectOldInBackup() const { EXPECT_EQ(ReadFile(path + ".bak"), before); }

    /** Expects what holds after any flush, then that it succeeds when it is tried again. */
    void ExpectSafeAndRetry(uint32_t code) {
        if (code != TAV_OK) {
            ExpectOld();
        }
        interposer::Reset();
        const uint32_t again = Flush();
        EXPECT_TRUE(again == TAV_OK || again == TAV_ERR_UNCHANGED) << std::hex << again;
        ExpectNew();
    }

    NothingLeaks leaks;
    TempFolder folder;
    const uint32_t usualCode;  // what an undisturbed flush answers
    const std::string path;
    const bool isArchive, emptyStore;
    std::string refer;
    std::optional<Bytes> referSum, before;
    Store store;
};

using FlushSweep = testing::TestWithParam<Scenario>;

TEST_P(FlushSweep, EachCallFailingInTurn) {
    std::vector<std::string> calls;
    {
        Stage stage(GetParam());
        EXPECT_EQ(stage.Flush(), stage.usualCode);
        calls = interposer::Listed();
        std::string joined;
        for (const std::string &call : calls) {
            joined += (joined.empty() ? "" : ",") + call;
        }
        EXPECT_EQ(joined, GetParam().calls);
        stage.ExpectNew();
        EXPECT_FALSE(FileExists(stage.path + ".bak"));
        if (joined.find("FWrite") != std::string::npos) {
            EXPECT_EQ(std::filesystem::status(stage.path).permissions(), std::filesystem::perms{0640});
        }
    }
    for (size_t at = 0; at < calls.size(); ++at) {
        SCOPED_TRACE("failing: " + calls[at]);
        Stage stage(GetParam());
        interposer::FailListed({at});
        const uint32_t code = stage.Flush();
        if (kFatal.count(calls[at]) > 0 || (at == 0 && calls[at] == "Digest 50")) {
            EXPECT_EQ(code, at == 0 ? TAV_ERR_COPY : kFatal.at(calls[at]));
        } else {  // an old file that cannot be read counts as another one
            EXPECT_EQ(code, calls[at] == "FClose" ? stage.usualCode : TAV_OK);
        }
        stage.ExpectSafeAndRetry(code);
    }
}

INSTANTIATE_TEST_SUITE_P(All, FlushSweep, testing::ValuesIn(kScenarios),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(Flush, EveryShortWrite) {
    for (uint32_t missing = 1; missing <= 130; ++missing) {
        Stage stage(kRewrite);
        interposer::FailNth(Call::kWrite, 1);
        interposer::SetMissingBytes(missing);
        EXPECT_EQ(stage.Flush(), TAV_ERR_REFUSED) << missing;
        stage.ExpectOld();
    }
}

/** When even the way back fails, the old content still lies under the backup's name. */
TEST(Flush, OldContentSurvivesTwoFailures) {
    struct Case {
        const Scenario &scenario;
        size_t write, moveBack;  // places of the calls that fail
    };
    for (const auto &[scenario, write, moveBack] :
         {Case{kRewrite, 10, 15}, Case{kScenarios[5], 8, 10}, Case{kScenarios[7], 15, 20}}) {
        Stage stage(scenario);
        interposer::FailListed({write, moveBack});
        EXPECT_NE(stage.Flush(), TAV_OK);
        EXPECT_EQ(interposer::Listed().back(), "Move " + scenario.file + ".bak " + scenario.file);
        stage.ExpectOldInBackup();
        stage.ExpectSafeAndRetry(TAV_OK);
        EXPECT_FALSE(FileExists(stage.path + ".bak"));
    }
}

TEST(Flush, Reports) {
    DebugLog log;
    Stage stage(kRewrite);
    const std::string &path = stage.path;
    interposer::FailNth(Call::kWrite, 1);
    log.Take();
    EXPECT_EQ(stage.Flush(), TAV_ERR_REFUSED);
    log.ExpectAmong({{"TAV_WriteBufferToFile", "Write " + path + " failed, len=130, return 0x41"},
                     {"TAV_WriteExtCfgFile", "Write " + path + " failed, len=130, return 0x801615"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x801615"}});
    interposer::FailNth(Call::kDigest, 1);
    EXPECT_EQ(stage.Flush(), TAV_ERR_COPY);
    log.ExpectAmong({{"TAV_CalcChecksum", "Report error: 0x4d"},
                     {"TAV_FillExtCfgFileHead", "Proc failed, TLV type=5, len=32, return 0x1"},
                     {"TAV_BuildExtCfgFileHead", "Report error: 0x1"},
                     {"TAV_WriteExtCfgFile", "Build " + path + " head failed, head size=80, return 0x1"}});
    EXPECT_EQ(stage.Flush(), TAV_OK);
    EXPECT_EQ(stage.Flush(), TAV_ERR_UNCHANGED);
    log.ExpectAmong({{"TAV_WriteExtCfgFile", "Checksum is the same, no need write file"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x80161b"}});
}

/** A disk that is really full: a small memory file system, which takes root to mount. */
TEST(Flush, FullDisk) {
    const TempFolder folder;
    if (mount("tmpfs", folder.Path().c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "may not mount a small file system";
    }
    struct Unmount {
        std::string path;
        ~Unmount() { umount(path.c_str()); }
    } const unmount{folder.Path()};
    Random random(1);
    for (const char *name : {"a.dat", "a.zip"}) {
        SCOPED_TRACE(name);
        const std::string path = folder.Path(name);
        const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, path);
        const auto grow = [&](uint32_t fromKey, uint32_t toKey) {
            for (uint32_t key = fromKey; key < toKey; ++key) {
                Bytes noise(400);
                std::ranges::generate(noise, std::ref(random));
                EXPECT_EQ(Add(store, 0, MakeRecord(13, {{14, Host32(key)}, {12, noise}})), TAV_OK);
            }
            return TAV_ExtCfgFlush(store.get());
        };
        EXPECT_EQ(grow(0, 40), TAV_OK);
        const Bytes before = ReadFile(path);
        EXPECT_NE(grow(40, 170), TAV_OK);
        EXPECT_EQ(ReadFile(path), before);
        EXPECT_FALSE(FileExists(path + ".bak"));
        EXPECT_TRUE(Open(TAV_EXT_MODE_READ_ONLY, path));
        remove(path.c_str());
    }
}

}  // namespace
