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
        TAV_ZipCb block{};
        std::pair<uint32_t, Bytes> result(TAV_UnZipStart(&block, archive.c_str()), {});
        while (int8_t next = TAV_GetCharFromZip(&block)) {
            result.second.push_back(uint8_t(next));
        }
        EXPECT_EQ(TAV_UnZipEnd(&block), 0u);
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
}

TEST_F(ZipStream, ReadsWhatOthersWrite) {
    const Bytes text = Join({Filled(65'535, 1), {2, 3, 4}, Filled(65'537, 200), {5, 6}});
    for (const char *way : {"0 m >", "8 sub/m >", "0 m | cat >", "8 m | cat >"}) {  // a pipe gets data descriptors
        for (const Bytes &content : {text, Bytes{}, Join({text, {0}, text})}) {
            Make(content, way);
            EXPECT_EQ(Read(), std::pair(0u, content.empty() ? content : text)) << way;
        }
    }
    Make(text, "8 m n >");
    EXPECT_EQ(Read(), std::pair(TAV_ZIP_FAILED, Bytes{}));
    EXPECT_EQ(*(interposer::Listed().end() - 2), "UnzipGetNumofFiles a.zip") << "refused before anything is unpacked";
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
    char path[256];
    do {
        g_tick = 0;
        ASSERT_EQ(CMF_GetUnZipTmpDir(path, sizeof(path)), 0u);
    } while (g_tick == 1);  // until the name is taken already, by the round before in the same millisecond
    EXPECT_EQ(sscanf(path, "/mnt/tmpfs/tmpunzippath/Y20%*6uH%*6uM%*3uN7%u", &g_tick), 1) << path;
    EXPECT_EQ(g_tick, 2u) << path;
    EXPECT_EQ(CMF_GetUnZipTmpDir(path, 24), TAV_ZIP_FAILED);
    EXPECT_EQ(CMF_GetUnZipTmpDir(path, 0), TAV_ZIP_FAILED);
}
