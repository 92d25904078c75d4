/*
 * Reading whole files and archives: size limits to the byte, foreign archives, names; the raw checksum.
 */
#include <gtest/gtest.h>
#include <zip.h>

#include "debug_log.h"
#include "interposer.h"
#include "platform/bex_zip.h"
#include "store.h"

namespace {

using interposer::Call;

constexpr uint32_t kLimit = 104857600;

struct ReadResult {
    uint32_t code;
    Block block;
    uint32_t size;
};

template <class Reader>
ReadResult ReadWith(Reader reader, const std::string &path) {
    uint8_t *buffer = reinterpret_cast<uint8_t *>(1);
    uint32_t size = 77;
    uint32_t code = reader(&buffer, &size, path.c_str());
    if (code != TAV_OK) {
        EXPECT_EQ(buffer, nullptr);
        EXPECT_EQ(size, 0u);
        buffer = nullptr;
    }
    return {code, Block(buffer), size};
}

/** Makes an archive with libzip itself. */
void MakeArchive(const std::string &path, const std::vector<std::pair<std::string, Bytes>> &members) {
    std::remove(path.c_str());
    zip_t *archive = zip_open(path.c_str(), ZIP_CREATE, nullptr);
    ASSERT_NE(archive, nullptr);
    for (const auto &[name, content] : members) {
        zip_source_t *source = zip_source_buffer(archive, content.data(), content.size(), 0);
        ASSERT_GE(zip_file_add(archive, name.c_str(), source, 0), 0);
    }
    ASSERT_EQ(zip_close(archive), 0);
}

TEST(Files, PlainSizeLimits) {
    NothingLeaks leaks;
    TempFolder folder;
    DebugLog log;
    const std::string path = folder.Path("a.dat");
    struct Case {
        uint64_t size;
        const char *shown;  // what the report shows of a refused size
    };
    const Case cases[] = {
        {0, "0"}, {1, nullptr}, {kLimit, nullptr}, {kLimit + 1, "104857601"}, {(uint64_t{1} << 32) + 100, "-1"}};
    for (const Case &test : cases) {
        MakeSparseFile(path, test.size);
        log.Take();
        ReadResult result = ReadWith(TAV_ReadFileToBuffer, path);
        if (test.shown == nullptr) {
            EXPECT_EQ(result.code, TAV_OK);
            EXPECT_EQ(result.size, test.size);
        } else {
            EXPECT_EQ(result.code, TAV_ERR_READ) << test.size;
            log.Expect({{"TAV_ReadFileToBuffer", "File " + path + " empty or too large, size=" + test.shown}});
        }
    }
    log.Take();
    EXPECT_EQ(ReadWith(TAV_ReadFileToBuffer, folder.Path("none")).code, TAV_ERR_OPEN);
    log.ExpectAmong({{"TAV_ReadFileToBuffer", "Get " + folder.Path("none") + " size failed, return 0x2"}});
}

TEST(Files, PlainReadFailingInTurn) {
    TempFolder folder;
    const std::string path = folder.Path("a.dat");
    WriteFile(path, Filled(1000, 7));
    const std::tuple<Call, uint32_t, const char *> cases[] = {
        {Call::kStat, TAV_ERR_OPEN, " size failed, return 0x4d"},
        {Call::kOpen, TAV_ERR_OPEN, " failed"},
        {Call::kMalloc, TAV_ERR_NO_MEMORY, nullptr},
        {Call::kRead, TAV_ERR_READ, " failed, len=1000, return 0x1f4"},
    };
    DebugLog log;
    for (const auto &[call, code, report] : cases) {
        NothingLeaks leaks;
        log.Take();
        interposer::Reset();
        interposer::FailNth(call, 1);
        EXPECT_EQ(ReadWith(TAV_ReadFileToBuffer, path).code, code);
        bool opened = call == Call::kMalloc || call == Call::kRead;
        EXPECT_EQ(interposer::Count(Call::kClose) > 0, opened);
        interposer::Reset();
        const char *verb = call == Call::kStat ? "Get " : call == Call::kOpen ? "Open " : "Read ";
        log.Expect(
            {{"TAV_ReadFileToBuffer", report == nullptr ? "Null pointer, return 0x801611" : verb + path + report}});
    }
    uint8_t *buffer = nullptr;
    uint32_t size = 0;
    for (auto reader : {TAV_ReadFileToBuffer, TAV_UnZipExtCfgFileToBuffer}) {
        EXPECT_EQ(reader(nullptr, &size, path.c_str()), TAV_ERR_NULL);
        EXPECT_EQ(reader(&buffer, nullptr, path.c_str()), TAV_ERR_NULL);
        EXPECT_EQ(reader(&buffer, &size, nullptr), TAV_ERR_NULL);
    }
}

TEST(Files, Archives) {
    NothingLeaks leaks;
    TempFolder folder;
    DebugLog log;
    const std::string path = folder.Path("a.zip");
    auto read = [&] {
        log.Take();
        return ReadWith(TAV_UnZipExtCfgFileToBuffer, path);
    };
    auto expectReport = [&](const std::string &message) { log.Expect({{"TAV_UnZipExtCfgFileToBuffer", message}}); };

    MakeArchive(path, {{"a.zip.dat", Text("content")}});
    ReadResult whole = read();
    ASSERT_EQ(whole.code, TAV_OK);
    EXPECT_EQ(Bytes(whole.block.get(), whole.block.get() + whole.size), Text("content"));
    log.Expect({});

    MakeArchive(path, {{"a.zip.dat", Text("x")}, {"b", Text("y")}});
    EXPECT_EQ(read().code, TAV_ERR_INVALID);
    expectReport("File num of " + path + " must be one, now is 2");
    MakeArchive(path, {{"other.dat", Text("x")}});
    ReadResult other = read();
    EXPECT_NE(other.code, TAV_OK);
    char code[16];
    std::snprintf(code, sizeof code, "0x%x", other.code);
    expectReport("GetUncompressSize of " + path + " failed, return " + code);
    MakeArchive(path, {{"a.zip.dat", {}}});
    EXPECT_EQ(read().code, TAV_ERR_READ);
    expectReport("File " + path + " uncompressed size 0 is invalid");

    for (uint32_t size : {kLimit, kLimit + 1}) {
        Bytes zeros(size);
        ASSERT_EQ(BEX_ZipBuffer(size, zeros.data(), "a.zip.dat", path.c_str(), 0, 1), 0u);
        ReadResult result = read();
        EXPECT_EQ(result.code, size > kLimit ? TAV_ERR_READ : TAV_OK);
        EXPECT_EQ(result.size, size > kLimit ? 0 : kLimit);
        if (size > kLimit) {
            expectReport("File " + path + " uncompressed size 104857601 is invalid");
        }
    }
    MakeSparseFile(path, kLimit + 1);
    EXPECT_EQ(read().code, TAV_ERR_READ);
    expectReport("File " + path + " too large, size=104857601");
    for (uint64_t size : {uint64_t{0}, uint64_t{kLimit}}) {  // both pass the size test, and are no archives
        MakeSparseFile(path, size);
        ReadResult result = read();
        EXPECT_NE(result.code, TAV_OK);
        std::snprintf(code, sizeof code, "0x%x", result.code);
        expectReport("Get file num of " + path + " failed, return " + code);
    }
    std::remove(path.c_str());
    ReadResult missing = read();
    EXPECT_NE(missing.code, TAV_OK);
    EXPECT_NE(missing.code, TAV_ERR_OPEN) << "the platform's own code, unlike a plain read";

    MakeArchive(path, {{"a.zip.dat", Text("content")}});
    const std::pair<Call, uint32_t> failures[] = {{Call::kStat, interposer::kPlatformCode},
                                                  {Call::kZipCount, interposer::kPlatformCode},
                                                  {Call::kZipSize, interposer::kPlatformCode},
                                                  {Call::kMalloc, TAV_ERR_NO_MEMORY},
                                                  {Call::kUnzip, TAV_ERR_OPEN}};
    for (const auto &[call, expected] : failures) {
        interposer::Reset();
        interposer::FailNth(call, 1);
        EXPECT_EQ(read().code, expected);
        interposer::Reset();
    }
    expectReport("uncompressed size 7 in " + path + " failed, return 0x4d");
}

TEST(Files, Names) {
    DebugLog log;
    EXPECT_EQ(TAV_CheckFileSuffix("a.zip", ".zip"), 1u);
    EXPECT_EQ(TAV_CheckFileSuffix("a.ZIP", ".zip"), 0u);
    EXPECT_EQ(TAV_CheckFileSuffix("a.zip.dat", ".zip"), 0u);
    log.Expect({});
    EXPECT_EQ(TAV_CheckFileSuffix(".zip", ".zip"), 0u);
    EXPECT_EQ(TAV_CheckFileSuffix("ip", ".zip"), 0u);
    EXPECT_EQ(TAV_CheckFileSuffix(nullptr, ".zip"), 0u);
    EXPECT_EQ(TAV_CheckFileSuffix("a.zip", nullptr), 0u);
    LogEntry null{"TAV_CheckFileSuffix", "Null pointer, return 0x0"};
    log.Expect({{"TAV_CheckFileSuffix", "Suffix len 4 too large, filename len 4"},
                {"TAV_CheckFileSuffix", "Suffix len 4 too large, filename len 2"},
                null,
                null});

    char out[16];
    EXPECT_EQ(TAV_ReplaceFileSuffix("a.zip", ".dat", out, sizeof out), TAV_OK);
    EXPECT_STREQ(out, "a.zip.dat");
    EXPECT_EQ(TAV_ReplaceFileSuffix("12345678.zi", ".dat", out, sizeof out), TAV_OK);
    EXPECT_EQ(TAV_ReplaceFileSuffix("12345678.zip", ".dat", out, sizeof out), TAV_ERR_COPY);
    log.Take();
    EXPECT_EQ(TAV_ReplaceFileSuffix("azip", ".dat", out, sizeof out), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ReplaceFileSuffix(nullptr, ".dat", out, sizeof out), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ReplaceFileSuffix("a.zip", nullptr, out, sizeof out), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ReplaceFileSuffix("a.zip", ".dat", nullptr, sizeof out), TAV_ERR_INVALID);
    LogEntry noDot{"TAV_ReplaceFileSuffix", "Null pointer, return 0x801617"};
    log.Expect({noDot, noDot, noDot, noDot});

    EXPECT_EQ(TAV_ZipBufferToExtCfgFile("x", 0, "a.zip"), TAV_ERR_INVALID);
    log.Expect({{"TAV_ZipBufferToExtCfgFile", "Empty file data"}});
    EXPECT_EQ(TAV_ZipBufferToExtCfgFile(nullptr, 1, "a.zip"), TAV_ERR_NULL);
    EXPECT_EQ(TAV_ZipBufferToExtCfgFile("x", 1, nullptr), TAV_ERR_NULL);
    log.Take();
    EXPECT_EQ(TAV_ZipBufferToExtCfgFile("x", 1, "azip"), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ZipBufferToExtCfgFile", "Replace suffix of azip failed, return 0x801617"}});
    EXPECT_EQ(TAV_WriteBufferToFile(nullptr, 1, "a"), TAV_ERR_NULL);
    EXPECT_EQ(TAV_WriteBufferToFile("x", 1, nullptr), TAV_ERR_NULL);
    uint32_t size = 5;
    EXPECT_EQ(TAV_GetFileSize(nullptr, &size), TAV_ERR_NULL);
    EXPECT_EQ(TAV_GetFileSize("a", nullptr), TAV_ERR_NULL);
    EXPECT_NE(TAV_GetFileSize("/nowhere/at/all", &size), TAV_OK);
    EXPECT_EQ(size, 0u);
}

TEST(Files, ChecksumsOfAFile) {
    NothingLeaks leaks;
    TempFolder folder;
    const std::string path = folder.Path("a.dat"), archive = folder.Path("a.zip");
    const Bytes image = Image(VsTlv(0, {}));
    const Bytes sum = Slice(image, kChecksumAt, kHeadSize);
    auto raw = [&](const Bytes &content, uint32_t outSize) {
        WriteFile(path, content);
        Bytes out(64, 0xEE);
        uint32_t count = TAV_ExtCfgGetChecksumFromFile(path.c_str(), out.data(), outSize);
        EXPECT_LE(count, outSize);
        return std::pair(count, Slice(out, 0, count));
    };
    const std::pair<uint32_t, Bytes> none(0, {}), good(32, sum);
    EXPECT_EQ(raw(image, 32), good);
    EXPECT_EQ(raw(image, 31), none);
    Bytes corrupt = image;
    corrupt.back() ^= 1;
    EXPECT_EQ(raw(corrupt, 64), good) << "nothing is verified";
    EXPECT_EQ(raw(Join({VsTlv(1, {}), image}), 32), good) << "the head is looked for";
    EXPECT_EQ(raw(VsTlv(0, {}), 32), none);
    EXPECT_EQ(raw(ImageWithHead({Tlv(3, Be32(0x08070001))}, {}), 32), none);
    EXPECT_EQ(raw(ImageWithHead({Tlv(5, Filled(8, 3))}, {}), 31), none) << "room for less than a checksum";
    Bytes longSum = ImageWithHead({Tlv(5, Filled(36, 3))}, {});
    EXPECT_EQ(raw(longSum, 32), none) << "longer than the room";
    EXPECT_EQ(raw(longSum, 36), (std::pair<uint32_t, Bytes>(36, Filled(36, 3))));
    for (size_t size = 1; size < image.size(); ++size) {
        EXPECT_EQ(raw(Slice(image, 0, size), 32), size < kHeadSize ? none : good) << size;
    }
    uint8_t out[32];
    DebugLog log;
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(nullptr, out, 32), 0u);
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(path.c_str(), nullptr, 32), 0u);
    LogEntry null{"TAV_ExtCfgGetChecksumFromFile", "Null pointer, return 0x0"};
    log.Expect({null, null});
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(folder.Path("none").c_str(), out, 32), 0u);

    EXPECT_EQ(TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), archive.c_str()), TAV_OK);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(archive.c_str(), out, 32), TAV_OK);
    EXPECT_EQ(Bytes(out, out + 32), sum);
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(archive.c_str(), out, 32), 0u) << "archives are not recognised";
    WriteFile(path, corrupt);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(path.c_str(), out, 32), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(folder.Path("none").c_str(), out, 32), TAV_ERR_READ);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(nullptr, out, 32), TAV_ERR_NULL);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(path.c_str(), nullptr, 32), TAV_ERR_NULL);
    WriteFile(path, image);
    EXPECT_NE(TAV_GetExtCfgFileChecksum(path.c_str(), out, 31), TAV_OK) << "no room for a checksum";

    const Bytes abc = Text("abc");
    EXPECT_EQ(TAV_CalcChecksum(abc.data(), 3, out, 32), TAV_OK);
    EXPECT_EQ(Bytes(out, out + 32), Hex("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"));
    uint8_t few[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_EQ(TAV_CalcChecksum(abc.data(), 3, few, 4), TAV_OK);
    EXPECT_EQ(Bytes(few, few + 6), Hex("ba7816bf0909"));
    EXPECT_EQ(TAV_CalcChecksum(nullptr, 3, out, 32), TAV_ERR_NULL);
    EXPECT_EQ(TAV_CalcChecksum(abc.data(), 3, nullptr, 32), TAV_ERR_NULL);
    interposer::Reset();
    interposer::FailNth(Call::kDigest, 1);
    EXPECT_EQ(TAV_CalcChecksum(abc.data(), 3, out, 32), TAV_ERR_COPY);
    interposer::Reset();
}

/** A store whose file is just as large as it may be, and then one byte larger. */
TEST(Files, LargestStore) {
    TempFolder folder;
    const std::string path = folder.Path("a.dat");
    const uint32_t room = kLimit - kHeadSize - 20 - 8 - 12;  // less head, VS with id, record header, key
    const uint32_t wholeFields = room / (8 + 0xFFFF) - 1;
    const Bytes filler(0xFFFF, 0x55);
    Record record = Class13(1);
    for (uint32_t count = 0; count < wholeFields; ++count) {
        TAV_ExtCfgRecordAddFieldValue(record.get(), 1000, 0xFFFF, filler.data());
    }
    const uint32_t rest = room - wholeFields * (8 + 0xFFFF);
    TAV_ExtCfgRecordAddFieldValue(record.get(), 1001, rest / 2 - 8, filler.data());
    TAV_ExtCfgRecordAddFieldValue(record.get(), 1002, rest - rest / 2 - 8, filler.data());
    Store store = Open(2, path);
    ASSERT_EQ(Add(store, 0, std::move(record)), TAV_OK);
    ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
    EXPECT_EQ(ReadFile(path).size(), kLimit);
    Store again = Open(1, path);
    ASSERT_TRUE(again);
    EXPECT_EQ(TAV_CalcExtCfgFileBodySize(again.get()), kLimit - kHeadSize);
    again.reset();

    DebugLog log;
    Record larger = MakeRecord(13, {{14, Host32(1)}, {1001, Filled(rest / 2 - 8 + 1, 0x55)}});
    ASSERT_EQ(TAV_ExtCfgSetRecord(0, larger.get(), store.get()), TAV_OK);
    log.Take();
    interposer::Reset();
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_REFUSED);
    EXPECT_TRUE(interposer::Listed().empty()) << "the file is not touched";
    log.ExpectAmong({{"TAV_WriteExtCfgFile", "Too large to write " + path + ", size=104857601"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x801615"}});
}

}  // namespace
