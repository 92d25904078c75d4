/*
 * Writing a file: the exact sequence of platform calls of each kind of flush, then the same with each call failing in
 * turn, looking at the result, at the disk, at what is left allocated, and at whether a second try succeeds.
 */
#include <gtest/gtest.h>

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
    std::optional<Bytes> oldBody, newBody;  // of the file that is there already, and of the store
    bool refers = false;                    // to r.dat
};
const Scenario kRewrite = {"rewrite", "a.dat", kOldBody, kNewBody};
const Scenario kScenarios[] = {kRewrite,
                               {"first write", "a.dat", {}, kNewBody},
                               {"unchanged", "a.dat", kNewBody, kNewBody},
                               {"empty store", "a.dat", kOldBody, {}},
                               {"first archive", "a.zip", {}, kNewBody},
                               {"archive", "a.zip", kOldBody, kNewBody},
                               {"unchanged archive", "a.zip", kNewBody, kNewBody},
                               {"with refer file", "a.dat", kOldBody, kNewBody, true}};

/** A platform call of a flush, and what the flush answers when it fails. */
struct Step {
    std::string call;
    uint32_t code = TAV_OK;
};
using Steps = std::vector<Step>;
constexpr uint32_t kUsual = UINT32_MAX;  // what the flush answers when nothing fails

/** Reading and checking a file. */
Steps Read(const std::string &file, size_t headSize, size_t bodySize, uint32_t code) {
    const std::string size = std::to_string(headSize + bodySize), digest = "Digest " + std::to_string(bodySize) + " 33";
    if (file == "a.zip") {
        const std::string member = "a.zip.dat a.zip";
        return {{"Stat a.zip"},
                {"UnzipGetNumofFiles a.zip"},
                {"GetUncompressSize " + member},
                {"UnzipToBuffer " + size + " " + member},
                {digest}};
    }
    return {{"Stat " + file, code},
            {"FOpen " + file + " rb", code},
            {"FRead " + size, code},
            {"FClose", kUsual},
            {digest, code}};
}

Steps StepsOf(const Scenario &scenario) {
    const auto &[name, file, oldBody, newBody, refers] = scenario;
    if (!newBody) {
        return {{"IsFileExist a.dat"}, {"DeleteFile a.dat"}};
    }
    Steps all = {{"Digest 50 33", TAV_ERR_COPY}};
    const auto add = [&](const Steps &steps) { all.insert(all.end(), steps.begin(), steps.end()); };
    if (refers) {
        add(Read("r.dat", 80, 20, TAV_ERR_NOT_FOUND));
    }
    // An old file that cannot be read counts as another one.
    add(oldBody ? Read(file, refers ? 120 : 80, oldBody->size(), TAV_OK) : Steps{{"Stat " + file}});
    if (oldBody == newBody) {
        return all;
    }
    add({{"IsFileExist " + file}});
    if (oldBody) {
        add({{"MoveFile " + file + " " + file + ".bak"}});
    }
    if (file == "a.zip") {
        add({{"ZipBuffer 130 a.zip.dat a.zip 0 6", interposer::kPlatformCode}});
    } else {
        add({{"FOpen a.dat wb+", TAV_ERR_OPEN},
             {"Chown2MEL a.dat 0"},
             {refers ? "FWrite 170" : "FWrite 130", TAV_ERR_REFUSED},
             {"FFlush"},
             {"FClose"},
             {"SetFileModeEx a.dat 416"}});
    }
    add({{"IsFileExist " + file + ".bak"}});
    if (oldBody) {
        add({{"DeleteFile " + file + ".bak"}});
    }
    return all;
}

/** A fresh folder with the scenario's files, and the store to be flushed there. */
struct Stage {
    explicit Stage(const Scenario &its)
        : scenario(its), path(folder.Path(its.file)), refer(its.refers ? folder.Path("r.dat") : "") {
        if (scenario.refers) {
            WriteFile(refer, kReferred);
            referSum = Slice(kReferred, kChecksumAt, kHeadSize);
        }
        if (scenario.oldBody) {
            const Bytes image = Image(*scenario.oldBody, referSum);
            const auto write = IsArchive() ? TAV_ZipBufferToExtCfgFile : TAV_WriteBufferToFile;
            EXPECT_EQ(write(image.data(), static_cast<uint32_t>(image.size()), path.c_str()), TAV_OK);
            before = ReadFile(path);
        }
        store = Open(2, path, refer);
        EXPECT_EQ(scenario.newBody ? Add(store, 0, Class13(1, 2)) : TAV_OK, TAV_OK);
    }
    ~Stage() { interposer::Reset(); }

    bool IsArchive() const { return scenario.file == "a.zip"; }
    uint32_t UsualCode() const { return scenario.oldBody == kNewBody ? TAV_ERR_UNCHANGED : TAV_OK; }
    bool HasBackup() const { return FileExists(path + ".bak"); }

    /** Flushes while the calls at some places fail. */
    uint32_t Flush(const std::set<size_t> &failing = {}) const {
        interposer::Reset();
        interposer::FailListed(failing);
        return TAV_ExtCfgFlush(store.get());
    }

    /** Whether the old file lies under a name, bit by bit; always, when there was none. */
    bool HoldsOld(const std::string &name) const { return !before || (FileExists(name) && ReadFile(name) == *before); }

    void ExpectNew() const {
        EXPECT_EQ(BodyOf(Open(1, path, refer)), scenario.newBody);
        EXPECT_EQ(FileExists(path), scenario.newBody.has_value());
        if (scenario.newBody && !IsArchive()) {
            EXPECT_EQ(WithoutTime(ReadFile(path)), Image(kNewBody, referSum));
        }
    }

    /** Flushes once more, which succeeds. */
    void ExpectRetry() const {
        const uint32_t code = Flush();
        if (code != TAV_ERR_UNCHANGED) {
            EXPECT_EQ(code, TAV_OK);
            EXPECT_FALSE(HasBackup());
        }
        ExpectNew();
    }

    NothingLeaks leaks;
    TempFolder folder;
    const Scenario &scenario;
    const std::string path, refer;
    std::optional<Bytes> referSum, before;
    Store store;
};

TEST(Flush, EachCallFailingInTurn) {
    setenv("TMPDIR", "/dev/shm", 1);  // no failure here is the disk's, so nobody need wait for it
    for (const Scenario &scenario : kScenarios) {
        SCOPED_TRACE(scenario.name);
        const Steps steps = StepsOf(scenario);
        const Stage clean(scenario);
        EXPECT_EQ(clean.Flush(), clean.UsualCode());
        EXPECT_TRUE(std::ranges::equal(interposer::Listed(), steps, {}, {}, &Step::call))
            << testing::PrintToString(interposer::Listed());
        clean.ExpectNew();
        EXPECT_FALSE(clean.HasBackup());
        if (scenario.newBody && !clean.IsArchive()) {
            EXPECT_EQ(std::filesystem::status(clean.path).permissions(), std::filesystem::perms{0640});
        }
        for (size_t at = 0; at < steps.size(); ++at) {
            SCOPED_TRACE("failing: " + steps[at].call);
            const Stage stage(scenario);
            const bool isUsual = steps[at].code == kUsual, isFatal = !isUsual && steps[at].code != TAV_OK;
            EXPECT_EQ(stage.Flush({at}), isUsual ? stage.UsualCode() : steps[at].code);
            const size_t callsMade = isFatal ? interposer::Listed().size() : 0;
            if (isFatal) {
                EXPECT_TRUE(stage.HoldsOld(stage.path));
                EXPECT_FALSE(stage.HasBackup());
            }
            stage.ExpectRetry();
            // A second failure, on the way back for instance: the old content lies under one of its names.
            for (size_t second = at + 1; second < callsMade; ++second) {
                const Stage worse(scenario);
                worse.Flush({at, second});
                EXPECT_TRUE(worse.HoldsOld(worse.path) || worse.HoldsOld(worse.path + ".bak")) << second;
                worse.ExpectRetry();
            }
        }
    }
}

TEST(Flush, EveryShortWrite) {
    for (uint32_t missing = 1; missing <= 130; ++missing) {
        Stage stage(kRewrite);
        interposer::FailNth(Call::kWrite, 1);
        interposer::SetMissingBytes(missing);
        EXPECT_EQ(TAV_ExtCfgFlush(stage.store.get()), TAV_ERR_REFUSED) << missing;
        EXPECT_TRUE(stage.HoldsOld(stage.path)) << missing;
    }
}

TEST(Flush, Reports) {
    DebugLog log;
    Stage stage(kRewrite);
    const std::string &path = stage.path;
    const auto flush = [&] { return TAV_ExtCfgFlush(stage.store.get()); };
    interposer::FailNth(Call::kWrite, 1);
    log.Take();
    EXPECT_EQ(flush(), TAV_ERR_REFUSED);
    log.ExpectAmong({{"TAV_WriteBufferToFile", "Write " + path + " failed, len=130, return 0x41"},
                     {"TAV_WriteExtCfgFile", "Write " + path + " failed, len=130, return 0x801615"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x801615"}});
    interposer::FailNth(Call::kDigest, 1);
    EXPECT_EQ(flush(), TAV_ERR_COPY);
    log.ExpectAmong({{"TAV_CalcChecksum", "Report error: 0x4d"},
                     {"TAV_FillExtCfgFileHead", "Proc failed, TLV type=5, len=32, return 0x1"},
                     {"TAV_BuildExtCfgFileHead", "Report error: 0x1"},
                     {"TAV_WriteExtCfgFile", "Build " + path + " head failed, head size=80, return 0x1"}});
    EXPECT_EQ(flush(), TAV_OK);
    EXPECT_EQ(flush(), TAV_ERR_UNCHANGED);
    log.ExpectAmong({{"TAV_WriteExtCfgFile", "Checksum is the same, no need write file"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x80161b"}});
}

}  // namespace
