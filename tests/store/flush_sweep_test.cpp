/*
 * Writing a file: the exact sequence of platform calls of each kind of flush, then the same with each call failing in
 * turn, looking at the result, at the disk, at what is left allocated, and at whether a second try succeeds.
 */
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <random>

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
class Stage {
  public:
    explicit Stage(const Scenario &scenario)
        : emptyStore_(scenario.calls == "Exists a.dat,Delete a.dat"),
          usual_(scenario.oldBody == kNewBody ? TAV_ERR_UNCHANGED : TAV_OK),
          path_(folder_.Path(scenario.file)),
          isArchive_(scenario.file == "a.zip") {
        if (scenario.refers) {
            refer_ = folder_.Path("r.dat");
            WriteFile(refer_, kReferred);
            referSum_ = Slice(kReferred, kChecksumAt, kHeadSize);
        }
        if (scenario.oldBody) {
            const Bytes image = Image(*scenario.oldBody, referSum_);
            WriteFile(path_, image);
            if (isArchive_) {
                EXPECT_EQ(TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), path_.c_str()),
                          TAV_OK);
            }
            before_ = ReadFile(path_);
        }
        store_ = Open(2, path_, refer_);
        EXPECT_EQ(emptyStore_ ? TAV_OK : Add(store_, 0, Class13(1, 2)), TAV_OK);
        interposer::Reset();
    }
    ~Stage() { interposer::Reset(); }

    uint32_t Flush() { return TAV_ExtCfgFlush(store_.get()); }
    uint32_t UsualCode() const { return usual_; }
    const std::string &Path() const { return path_; }

    /** Expects the new content under the file's name. */
    void ExpectNew() const {
        if (emptyStore_) {
            EXPECT_FALSE(FileExists(path_));
        } else if (isArchive_) {
            Store written = Open(1, path_);
            ASSERT_TRUE(written);
            EXPECT_EQ(TAV_CalcExtCfgFileBodySize(written.get()), kNewBody.size());
        } else {
            EXPECT_EQ(WithoutTime(ReadFile(path_)), Image(kNewBody, referSum_));
        }
    }

    /** Expects the old file, bit by bit, and no backup beside it. */
    void ExpectOld() const {
        EXPECT_TRUE(!before_ || ReadFile(path_) == *before_);
        EXPECT_FALSE(FileExists(path_ + ".bak"));
    }

    /** Expects the old file, bit by bit, under the backup's name. */
    void ExpectOldInBackup() const { EXPECT_EQ(ReadFile(path_ + ".bak"), before_); }

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

  private:
    NothingLeaks leaks_;
    const bool emptyStore_;
    const uint32_t usual_;  // what an undisturbed flush answers
    TempFolder folder_;
    const std::string path_;
    const bool isArchive_;
    std::string refer_;
    std::optional<Bytes> referSum_;
    std::optional<Bytes> before_;
    Store store_;
};

class FlushSweep : public testing::TestWithParam<Scenario> {};

TEST_P(FlushSweep, EachCallFailingInTurn) {
    std::vector<std::string> calls;
    {
        Stage stage(GetParam());
        EXPECT_EQ(stage.Flush(), stage.UsualCode());
        calls = interposer::Listed();
        std::string joined;
        for (const std::string &call : calls) {
            joined += (joined.empty() ? "" : ",") + call;
        }
        EXPECT_EQ(joined, GetParam().calls);
        stage.ExpectNew();
        EXPECT_FALSE(FileExists(stage.Path() + ".bak"));
        struct stat info {};
        if (joined.find("FWrite") != std::string::npos && stat(stage.Path().c_str(), &info) == 0) {
            EXPECT_EQ(info.st_mode & 07777u, 0640u);
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
            EXPECT_EQ(code, calls[at] == "FClose" ? stage.UsualCode() : TAV_OK);
        }
        stage.ExpectSafeAndRetry(code);
    }
}

TEST_P(FlushSweep, EachAllocationAndCopyFailingInTurn) {
    for (Call kind : {Call::kMalloc, Call::kMemCopy}) {
        bool reached = true;
        for (uint32_t nth = 1; reached; ++nth) {
            SCOPED_TRACE(std::string(kind == Call::kMalloc ? "block " : "copy ") + std::to_string(nth));
            Stage stage(GetParam());
            interposer::FailNth(kind, nth);
            const uint32_t code = stage.Flush();
            reached = interposer::Count(kind) >= nth;
            EXPECT_TRUE(code == TAV_OK || code == stage.UsualCode() ||
                        (reached && (kind == Call::kMemCopy || code == TAV_ERR_NO_MEMORY ||
                                     (GetParam().refers && code == TAV_ERR_NOT_FOUND))))
                << std::hex << code;
            stage.ExpectSafeAndRetry(code);
        }
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
    const std::tuple<const Scenario &, size_t, size_t> cases[] = {
        {kRewrite, 10, 15}, {kScenarios[5], 8, 10}, {kScenarios[7], 15, 20}};
    for (const auto &[scenario, write, moveBack] : cases) {
        Stage stage(scenario);
        interposer::FailListed({write, moveBack});
        EXPECT_NE(stage.Flush(), TAV_OK);
        EXPECT_EQ(interposer::Listed().back(), "Move " + scenario.file + ".bak " + scenario.file);
        stage.ExpectOldInBackup();
        stage.ExpectSafeAndRetry(TAV_OK);
        EXPECT_FALSE(FileExists(stage.Path() + ".bak"));
    }
}

TEST(Flush, Reports) {
    DebugLog log;
    Stage stage(kRewrite);
    const std::string &path = stage.Path();
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

// A disk that is really full: a small memory file system, which takes root to mount.
TEST(Flush, FullDisk) {
    const TempFolder folder;
    if (mount("tmpfs", folder.Path().c_str(), "tmpfs", 0, "size=64k") != 0) {
        GTEST_SKIP() << "may not mount a small file system";
    }
    struct Unmount {
        std::string path;
        ~Unmount() { umount(path.c_str()); }
    } const unmount{folder.Path()};
    std::mt19937 random(1);
    for (const char *name : {"a.dat", "a.zip"}) {
        const std::string path = folder.Path(name);
        const auto flush = [&](uint32_t records) {
            const Store store = Open(TAV_EXT_MODE_WRITE_ONLY, path);
            for (uint32_t key = 0; key < records; ++key) {
                Bytes noise(400);
                std::generate(noise.begin(), noise.end(), [&] { return static_cast<uint8_t>(random()); });
                EXPECT_EQ(Add(store, 0, MakeRecord(13, {{14, Host32(key)}, {12, noise}})), TAV_OK);
            }
            return TAV_ExtCfgFlush(store.get());
        };
        EXPECT_EQ(flush(40), TAV_OK);
        const Bytes before = ReadFile(path);
        EXPECT_NE(flush(130), TAV_OK) << name;
        EXPECT_EQ(ReadFile(path), before) << name;
        EXPECT_FALSE(FileExists(path + ".bak")) << name;
        EXPECT_TRUE(Open(TAV_EXT_MODE_READ_ONLY, path)) << name;
        std::remove(path.c_str());
    }
}

}  // namespace
