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

using Files = FolderTest;
using Reader = uint32_t (*)(uint8_t **, uint32_t *, const char *);

/** Reads a file; expects this code, and a block of this size when it is TAV_OK, else none. */
Block ExpectRead(Reader reader, const std::string &path, uint32_t code, uint64_t size = 0) {
    auto *buffer = reinterpret_cast<uint8_t *>(1);
    uint32_t sizeRead = 77;
    EXPECT_EQ(reader(&buffer, &sizeRead, path.c_str()), code);
    EXPECT_EQ(sizeRead, size);
    EXPECT_EQ(buffer != nullptr, code == TAV_OK);
    return Block(buffer);
}

/** Makes an archive with libzip itself. */
void MakeArchive(const std::string &path, const std::vector<std::pair<std::string, Bytes>> &members) {
    remove(path.c_str());
    zip_t *archive = zip_open(path.c_str(), ZIP_CREATE, nullptr);
    ASSERT_NE(archive, nullptr);
    for (const auto &[name, content] : members) {
        zip_source_t *source = zip_source_buffer(archive, content.data(), content.size(), 0);
        ASSERT_GE(zip_file_add(archive, name.c_str(), source, 0), 0);
    }
    ASSERT_EQ(zip_close(archive), 0);
}

TEST_F(Files, PlainSizeLimits) {
    DebugLog log;
    uint32_t told = 77;
    EXPECT_NE(TAV_GetFileSize(path.c_str(), &told), TAV_OK);
    EXPECT_EQ(told, 0u);
    for (uint64_t size : {uint64_t{1}, uint64_t{kLimit}}) {
        MakeSparseFile(path, size);
        ExpectRead(TAV_ReadFileToBuffer, path, TAV_OK, size);
    }
    for (const auto &[size, shown] : std::initializer_list<std::pair<uint64_t, const char *>>{
             {0, "0"}, {kLimit + 1, "104857601"}, {(uint64_t{1} << 32) + 100, "-1"}}) {
        MakeSparseFile(path, size);
        ExpectRead(TAV_ReadFileToBuffer, path, TAV_ERR_READ);
        log.Expect({{"TAV_ReadFileToBuffer", "File " + path + " empty or too large, size=" + shown}});
    }
}

TEST_F(Files, Archives) {
    DebugLog log;
    const std::string archive = folder.Path("a.zip");
    auto read = [&](uint32_t code, const std::string &report) {
        ExpectRead(TAV_UnZipExtCfgFileToBuffer, archive, code);
        log.Expect({{"TAV_UnZipExtCfgFileToBuffer", report}});
    };
    MakeArchive(archive, {{"a.zip.dat", Text("content")}});
    Block content = ExpectRead(TAV_UnZipExtCfgFileToBuffer, archive, TAV_OK, 7);
    EXPECT_EQ(Bytes(content.get(), content.get() + 7), Text("content"));
    MakeArchive(archive, {{"a.zip.dat", Text("x")}, {"b", Text("y")}});
    read(TAV_ERR_INVALID, "File num of " + archive + " must be one, now is 2");
    MakeArchive(archive, {{"a.zip.dat", {}}});
    read(TAV_ERR_READ, "File " + archive + " uncompressed size 0 is invalid");
    const Bytes zeros(kLimit + 1);
    ASSERT_EQ(BEX_ZipBuffer(kLimit, zeros.data(), "a.zip.dat", archive.c_str(), 0, 1), 0u);
    ExpectRead(TAV_UnZipExtCfgFileToBuffer, archive, TAV_OK, kLimit);
    ASSERT_EQ(BEX_ZipBuffer(kLimit + 1, zeros.data(), "a.zip.dat", archive.c_str(), 0, 1), 0u);
    log.Take();
    read(TAV_ERR_READ, "File " + archive + " uncompressed size 104857601 is invalid");
    MakeSparseFile(archive, kLimit + 1);
    read(TAV_ERR_READ, "File " + archive + " too large, size=104857601");
    WriteFile(archive, Join({Text("PK\5\6"), Filled(18, 0)}));  // just the end of an archive
    read(TAV_ERR_INVALID, "File num of " + archive + " must be one, now is 0");

    // As large as may be, but no archive; a member of another name; no file at all.
    MakeSparseFile(archive, kLimit);
    EXPECT_FALSE(Open(1, archive));
    log.ExpectAmong({{"TAV_UnZipExtCfgFileToBuffer", "Get file num of " + archive + " failed, return 0x13"}});
    MakeArchive(archive, {{"other.dat", Text("x")}});
    EXPECT_FALSE(Open(1, archive));
    remove(archive.c_str());
    EXPECT_FALSE(Open(1, archive));
}

TEST_F(Files, Names) {
    DebugLog log;
    const std::pair<const char *, uint32_t> names[] = {{"a.zip", 1}, {"a.ZIP", 0}, {"a.zip.dat", 0},
                                                       {".zip", 0},  {"ip", 0},    {nullptr, 0}};
    for (const auto &[name, isArchive] : names) {
        EXPECT_EQ(TAV_CheckFileSuffix(name, ".zip"), isArchive);
    }
    log.Expect({{"TAV_CheckFileSuffix", "Suffix len 4 too large, filename len 4"},
                {"TAV_CheckFileSuffix", "Suffix len 4 too large, filename len 2"},
                {"TAV_CheckFileSuffix", "Null pointer, return 0x0"}});
    char out[16];
    EXPECT_EQ(TAV_ReplaceFileSuffix("12345678.zi", ".dat", out, sizeof(out)), TAV_OK);
    EXPECT_STREQ(out, "12345678.zi.dat");
    EXPECT_EQ(TAV_ReplaceFileSuffix("12345678.zip", ".dat", out, sizeof(out)), TAV_ERR_COPY);
    EXPECT_EQ(TAV_ZipBufferToExtCfgFile("x", 0, "a.zip"), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_ZipBufferToExtCfgFile("x", 1, "azip"), TAV_ERR_INVALID);
    log.ExpectAmong({{"TAV_ZipBufferToExtCfgFile", "Empty file data"},
                     {"TAV_ZipBufferToExtCfgFile", "Replace suffix of azip failed, return 0x801617"}});
}

TEST_F(Files, ChecksumsOfAFile) {
    const std::string archive = folder.Path("a.zip");
    const Bytes image = Image(VsTlv(0, {})), sum = Slice(image, kChecksumAt, kHeadSize), none;
    const Bytes corrupt = Join({Slice(image, 0, image.size() - 1), {1}});
    const Bytes longSum = ImageWithHead({Tlv(5, Filled(36, 3))}, {});
    uint8_t out[64];
    auto raw = [&](const Bytes &content, uint32_t outSize) {
        WriteFile(path, content);
        return Bytes(out, out + TAV_ExtCfgGetChecksumFromFile(path.c_str(), out, outSize));
    };
    EXPECT_EQ(raw(image, 31), none);
    EXPECT_EQ(raw(corrupt, 64), sum) << "nothing is verified";
    EXPECT_EQ(raw(Join({VsTlv(1, {}), image}), 32), sum) << "the head is looked for";
    EXPECT_EQ(raw(VsTlv(0, {}), 32), none);
    EXPECT_EQ(raw(ImageWithHead({Tlv(3, Be32(0x08070001))}, {}), 32), none);
    EXPECT_EQ(raw(longSum, 32), none) << "longer than the room";
    EXPECT_EQ(raw(longSum, 36), Filled(36, 3));
    for (size_t size = 1; size < image.size(); ++size) {
        EXPECT_EQ(raw(Slice(image, 0, size), 32), size < kHeadSize ? none : sum) << size;
    }
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(nullptr, out, 32), 0u);
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(folder.Path("none").c_str(), out, 32), 0u);

    EXPECT_EQ(TAV_ZipBufferToExtCfgFile(image.data(), static_cast<uint32_t>(image.size()), archive.c_str()), TAV_OK);
    EXPECT_EQ(TAV_ExtCfgGetChecksumFromFile(archive.c_str(), out, 32), 0u) << "archives are not recognised";
    WriteFile(path, corrupt);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(path.c_str(), out, 32), TAV_ERR_INVALID);
    EXPECT_EQ(TAV_GetExtCfgFileChecksum(folder.Path("none").c_str(), out, 32), TAV_ERR_READ);
    const Bytes abc = Sha256(Text("abc"));
    for (uint32_t room : {0u, 1u, 31u, 32u, 33u, 40u}) {
        SCOPED_TRACE(room);
        const auto cut = [&](const Bytes &whole) {
            return Join({Slice(whole, 0, std::min(room, 32u)), Filled(64 - std::min(room, 32u), 9)});
        };
        Bytes some = Filled(64, 9), digest = some;
        EXPECT_EQ(TAV_GetExtCfgFileChecksum(archive.c_str(), some.data(), room), TAV_OK);
        EXPECT_EQ(some, cut(sum));
        EXPECT_EQ(TAV_CalcChecksum(Text("abc").data(), 3, digest.data(), room), TAV_OK);
        EXPECT_EQ(digest, cut(abc));
    }
}

/** Paths up to the longest: a backup's name that does not hold the whole path is another file's, or the file's own. */
TEST_F(Files, LongPathsAreWrittenOver) {
    for (size_t length = 248; length <= 257; ++length) {
        SCOPED_TRACE(length);
        const std::string place = folder.Path(std::to_string(length)) + "/";
        std::filesystem::create_directory(place);
        const std::string longPath = place + std::string(length - place.size() - 4, 'p') + ".dat";
        for (uint16_t value : {uint16_t{1}, uint16_t{2}}) {
            const Store store = Open(2, longPath);
            ASSERT_EQ(Add(store, 0, Class13(1, value)), TAV_OK);
            EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
            const Store read = Open(1, longPath.substr(0, 255));
            ASSERT_TRUE(read);
            EXPECT_EQ(ValueOf(TAV_ExtCfgGetRecord(0, Class13(1).get(), read.get()), 15), Host16(value));
        }
        EXPECT_EQ(std::distance(std::filesystem::directory_iterator(place), {}), 1) << "the file alone";
    }
}

/** A seek's code, seen as a number of bytes, may be just the length. */
TEST_F(Files, ASeekThatFailsWritesNothing) {
    WriteFile(path, Text("content"));
    interposer::FailNth(Call::kSeek, 1);
    EXPECT_EQ(TAV_WriteFileAtOffset("x", UINT32_MAX, path.c_str(), 0), TAV_ERR_REFUSED);
    EXPECT_EQ(interposer::Count(Call::kWrite), 0u);
    EXPECT_EQ(ReadFile(path), Text("content"));
}

/** A store whose file is just as large as it may be, and then one byte larger. */
TEST_F(Files, LargestStore) {
    const uint32_t room = kLimit - kHeadSize - 20 - 8 - 12;  // less head, VS with id, record header, key
    const uint32_t fieldSize = 8 + 0xFFF8, rest = room % fieldSize - 8;
    const Bytes filler(0xFFFF, 0x55);
    Record record = Class13(1);
    for (uint32_t count = room / fieldSize; count > 0; --count) {
        TAV_ExtCfgRecordAddFieldValue(record.get(), 1000, fieldSize - 8, filler.data());
    }
    TAV_ExtCfgRecordAddFieldValue(record.get(), 1001, rest, filler.data());
    Store store = Open(2, path);
    ASSERT_EQ(Add(store, 0, std::move(record)), TAV_OK);
    ASSERT_EQ(TAV_ExtCfgFlush(store.get()), TAV_OK);
    EXPECT_EQ(ReadFile(path).size(), kLimit);
    EXPECT_TRUE(Open(1, path));
    DebugLog log;
    Record larger = MakeRecord(13, {{14, Host32(1)}, {1001, Filled(rest + 1, 0x55)}});
    ASSERT_EQ(TAV_ExtCfgSetRecord(0, larger.get(), store.get()), TAV_OK);
    interposer::Reset();
    EXPECT_EQ(TAV_ExtCfgFlush(store.get()), TAV_ERR_REFUSED);
    EXPECT_TRUE(interposer::Listed().empty()) << "the file is not touched";
    log.ExpectAmong({{"TAV_WriteExtCfgFile", "Too large to write " + path + ", size=104857601"},
                     {"TAV_ExtCfgFlush", "Write " + path + " failed, return 0x801615"}});
}

}  // namespace
