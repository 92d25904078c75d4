/*
 * Archive streams: other programs read what is written here, and the other way round; whatever fails, nothing stays.
 */
#include <gtest/gtest.h>

#include "interposer.h"
#include "store.h"
#include "tav_common.h"

static uint32_t g_tick;
extern "C" void MEL_GetCpuTick(MEL_CpuTick *tick) {
    *tick = {++g_tick, 7};
}

static const auto CountIn = [](auto path) { return std::distance(std::filesystem::directory_iterator(path), {}); };

/** Makes an archive: method, names of the members, which all hold the text. */
static const std::string kPython =
    "python3 -c \"import sys, zipfile; z = zipfile.ZipFile(sys.stdout.buffer, 'w', int(sys.argv[1]));"
    "[z.write('text', name) for name in sys.argv[2:]]\" ";

struct ZipStream : testing::Test {
    NothingLeaks nothingLeaks;
    TempFolder folder;
    const std::string archive = folder.Path("a.zip"), base = folder.Path("tmpunzippath");
    ZipStream() { setenv("TAV_TMPFS_PATH", folder.Path().c_str(), 1); }
    ~ZipStream() override { interposer::Reset(); }
    int Shell(const std::string &command) { return std::system(("cd " + folder.Path() + ";" + command).c_str()); }

    void Make(const Bytes &text, const std::string &arguments) {
        WriteFile(folder.Path("text"), text);
        ASSERT_EQ(Shell(kPython + arguments + " a.zip"), 0);
    }

    std::pair<uint32_t, Bytes> Read() {
        const auto descriptors = CountIn("/proc/self/fd");
        TAV_ZipCb block, fresh{};
        memset(&block, 0xA5, sizeof(block));
        std::pair<uint32_t, Bytes> result(TAV_UnZipStart(&block, archive.c_str()), {});
        if (result.first == 0) {
            archive.copy(fresh.path, sizeof(fresh.path) - 1);
            fresh.file = block.file;
            EXPECT_EQ(memcmp(&block, &fresh, sizeof(block)), 0);
            while (int8_t next = TAV_GetCharFromZip(&block)) {
                result.second.push_back(uint8_t(next));
            }
            EXPECT_EQ(TAV_UnZipEnd(&block), 0u);
            EXPECT_EQ(block.file, nullptr);
            EXPECT_EQ(block.buffer, nullptr);
        }
        EXPECT_EQ(CountIn("/proc/self/fd"), descriptors);
        EXPECT_EQ(FileExists(base) ? CountIn(base) : 0, 0);
        return result;
    }
};

TEST_F(ZipStream, WritesWhatOthersRead) {
    TAV_ZipCb block;
    EXPECT_EQ(TAV_GetZipCbSize(), sizeof(block));
    const uint32_t sizes[][2] = {{0, 0}, {0x7FFFF, 0}, {0x80000, 0x100000}, {0x17FFFF, 0x200000}};
    for (const auto &[length, size] : sizes) {
        ASSERT_EQ(TAV_ZipStart(0, &block, archive.c_str()), 0u);
        EXPECT_EQ(*static_cast<char *>(block.buffer), '\0') << "what an archive without text holds";
        ASSERT_EQ(TAV_GetZipBufferSize(&block, length), size);
        EXPECT_EQ(TAV_GetZipBufferSize(&block, UINT32_MAX), TAV_ZIP_FAILED) << "the sum must not wrap";
        block.buffer = MEL_MemReAlloc(0, g_aucMelMemPt[0], block.buffer, std::max(block.size, size));
        const Bytes text = Join({Filled(block.used = length, 0xE4), {0}});
        std::copy(text.begin(), text.end(), static_cast<uint8_t *>(block.buffer));
        EXPECT_EQ(TAV_Zip(&block), 0u);
        EXPECT_EQ(TAV_ZipEnd(&block), 0u);
        EXPECT_EQ(TAV_ZipEnd(&block), 0u) << "there is no buffer any more";
        EXPECT_EQ(Shell("unzip -p a.zip melcfg.cfg >out && python3 -m zipfile -t a.zip >tested"), 0);
        EXPECT_EQ(ReadFile(folder.Path("out")), text);
    }
    interposer::FailNth(interposer::Call::kMalloc, 1);
    EXPECT_EQ(TAV_ZipStart(0, &block, archive.c_str()), TAV_ZIP_FAILED);
    ASSERT_EQ(TAV_ZipStart(0, &block, archive.c_str()), 0u);
    interposer::Reset();
    interposer::FailListed({0});
    EXPECT_EQ(TAV_Zip(&block), interposer::kPlatformCode);
    EXPECT_EQ(interposer::Listed(), std::vector<std::string>{"ZipBuffer 1 melcfg.cfg a.zip 0 6"});
    EXPECT_EQ(TAV_ZipEnd(&block), 0u);
    interposer::TakenBy();
    ASSERT_EQ(TAV_ZipStart(5, &block, std::string(300, 'p').c_str()), 0u);
    EXPECT_EQ(interposer::TakenBy(), std::set<std::string>{"5 tav_common"});
    EXPECT_EQ(block.path, std::string(255, 'p')) << "a path is cut";
    EXPECT_EQ(TAV_ZipEnd(&block), 0u);
}

TEST_F(ZipStream, ReadsWhatOthersWrite) {
    const Bytes text = Join({Filled(65'535, 1), {2, 3, 4}, Filled(65'537, 200), {5, 6}});
    for (const char *way : {"0 m >", "8 sub/m >", "0 m | cat >", "8 m | cat >"}) {  // a pipe gets data descriptors
        for (const Bytes &content : {text, Bytes{}, Join({text, {0}, text})}) {
            Make(content, way);
            EXPECT_EQ(Read(), std::pair(0u, content.empty() ? content : text)) << way;
        }
    }
    EXPECT_EQ(std::ranges::count(interposer::Listed(), "DeleteFile m"), 12) << "file by file, then the folder";
    Make(text, "8 m n >");
    interposer::Reset();
    EXPECT_EQ(Read(), std::pair(TAV_ZIP_FAILED, Bytes{}));
    EXPECT_EQ(interposer::Listed(), std::vector<std::string>{"UnzipGetNumofFiles a.zip"}) << "nothing is unpacked";
}

TEST_F(ZipStream, EveryCallFailsInTurn) {
    const std::map<std::string, uint32_t> kCodes = {
        {"UnzipGetNumofFiles", 77},       {"SystimeGet", 77}, {"Mkdir", 77}, {"Unzip", 77}, {"FindFirst", 77},
        {"UnzipFileOpen", TAV_ZIP_FAILED}};
    Make(Text("text"), "8 m >");
    for (size_t run = 0; run < 2 || run / 2 < interposer::Listed().size(); ++run) {
        interposer::Reset();
        interposer::FailListed({run / 2});
        std::filesystem::remove(run % 2 == 0 ? base : base + "x");  // the base is to be made, or there
        const auto [code, text] = Read();
        const std::string listed = interposer::Listed()[run / 2], call = listed.substr(0, listed.find(' '));
        if (call != "FindNext") {  // which may be the one that finds the file
            EXPECT_EQ(code, kCodes.contains(call) ? kCodes.at(call) : 0) << call;
        }
        const bool isFirstRead = call == "UnzipFileRead" && interposer::Listed()[run / 2 - 1] != call;
        EXPECT_EQ(text, code != 0 || isFirstRead ? Bytes() : Text("text")) << call;
    }
}

TEST_F(ZipStream, TemporaryDirectories) {
    char path[256], before[64], after[64];
    const auto now = [](char(&text)[64]) {
        const std::time_t seconds = Now();
        strftime(text, sizeof(text), "/mnt/tmpfs/tmpunzippath/Y%Y%m%dH%H%M%SM", gmtime(&seconds));
    };
    do {
        g_tick = 0;
        now(before);
        ASSERT_EQ(CMF_GetUnZipTmpDir(path, sizeof(path)), 0u);
        now(after);
    } while (g_tick == 1);  // until the name is taken already, by the round before in the same millisecond
    EXPECT_TRUE(std::string(path).starts_with(before) || std::string(path).starts_with(after)) << path;
    EXPECT_EQ(sscanf(path + strlen(before), "%*3uN7%u", &g_tick), 1) << path;
    EXPECT_EQ(g_tick, 2u) << path;
    EXPECT_EQ(CMF_GetUnZipTmpDir(path, 24), TAV_ZIP_FAILED);
    EXPECT_EQ(CMF_GetUnZipTmpDir(path, 0), TAV_ZIP_FAILED);
}
