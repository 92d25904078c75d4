// Archives: our own and foreign ones, whole and damaged.
#include <zip.h>

#include <csignal>
#include <random>

#include <sys/resource.h>

#include "faults.h"
#include "platform/bex_zip.h"
#include "temp_folder.h"

namespace {

// Bytes that compress to some degree.
std::string Sample(size_t size) {
    std::mt19937 random(5);
    std::string data(size, '\0');
    for (char &byte : data) {
        byte = static_cast<char>(random() % 16);
    }
    return data;
}

class Archive : public TempFolderTest {
  protected:
    void SetUp() override {
        TempFolderTest::SetUp();
        path_ = PathOf("a.zip");
        member_ = path_ + ".dat";
    }

    uint32_t Write(const std::string &data, int32_t level = 6) const {
        return BEX_ZipBuffer(static_cast<uint32_t>(data.size()), data.data(), member_.c_str(), path_.c_str(), 0, level);
    }

    // Reads the member at the size that the archive states. Returns the code of the first failure, or 0.
    uint32_t Read(const std::string &path, std::string *data) const {
        uint16_t count = 0;
        uint32_t size = 0;
        uint32_t code = BEX_UnzipGetNumofFiles(path.c_str(), &count);
        if (code == 0) {
            code = ZIP_GetUncompressSize(member_.c_str(), path.c_str(), &size);
        }
        if (code != 0 || size > (1u << 24)) {
            return code != 0 ? code : 1;
        }
        data->resize(size + 1);  // never null
        code = BEX_UnzipToBuffer(size, data->data(), member_.c_str(), path.c_str());
        data->resize(size);
        return code;
    }

    // Makes an archive with another hand: members with the name and content given.
    void WriteForeign(const std::vector<std::string> &names, const std::string &data, int method) const {
        zip_t *const zip = zip_open(path_.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
        for (const std::string &name : names) {
            zip_source_t *const source = zip_source_buffer(zip, data.data(), data.size(), 0);
            const zip_int64_t index = zip_file_add(zip, name.c_str(), source, 0);
            ASSERT_GE(index, 0);
            zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), method, 0);
        }
        ASSERT_EQ(zip_close(zip), 0);
    }

    const ScopedFaults scopedFaults_;
    std::string path_;
    std::string member_;
};

TEST_F(Archive, GivesBackWhatWasWritten) {
    umask(0);
    size_t sizes[10] = {};
    for (const size_t size : {size_t{0}, size_t{1}, size_t{70000}, size_t{1} << 20}) {
        for (const int level : {1, 6, 9}) {
            const std::string data = Sample(size);
            ASSERT_EQ(Write(data, level), 0u);
            EXPECT_EQ(ModeOf(path_), 0640u);
            EXPECT_EQ(FileCount(), 1);
            std::string read;
            ASSERT_EQ(Read(path_, &read), 0u);
            EXPECT_TRUE(read == data);
            sizes[level] = std::filesystem::file_size(path_);
        }
    }
    EXPECT_LT(sizes[9], sizes[1]);
    // It can be moved, and is found by the last component of the member's name.
    std::filesystem::create_directory(PathOf("sub"));
    std::filesystem::rename(path_, PathOf("sub/b.zip"));
    std::string read;
    member_ = "elsewhere/a.zip.dat";
    EXPECT_EQ(Read(PathOf("sub/b.zip"), &read), 0u);
    member_ = "elsewhere/b.zip.dat";
    EXPECT_EQ(Read(PathOf("sub/b.zip"), &read), uint32_t{ZIP_ER_NOENT});
}

TEST_F(Archive, ForeignArchivesAreRead) {
    const std::string data = Sample(5000);
    std::string read;
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        for (const char *name : {"a.zip.dat", "some/folder/a.zip.dat"}) {
            WriteForeign({name}, data, method);
            ASSERT_EQ(Read(path_, &read), 0u) << name;
            EXPECT_TRUE(read == data);
        }
    }
    uint16_t count = 0;
    WriteForeign({"a.zip.dat", "b"}, data, ZIP_CM_STORE);
    EXPECT_EQ(BEX_UnzipGetNumofFiles(path_.c_str(), &count), 0u);
    EXPECT_EQ(count, 2);
    std::vector<std::string> names;
    for (int i = 0; i < 65540; ++i) {
        names.push_back(std::to_string(i));
    }
    WriteForeign(names, "", ZIP_CM_STORE);
    EXPECT_EQ(BEX_UnzipGetNumofFiles(path_.c_str(), &count), 0u);
    EXPECT_EQ(count, UINT16_MAX);
}

// Whatever byte is changed, the content comes out unchanged or not at all; cut short, it never comes out.
TEST_F(Archive, DamageNeverYieldsOtherContent) {
    const std::string data = Sample(300);
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        WriteForeign({"a.zip.dat"}, data, method);
        const std::string whole = Content(path_);
        const std::string damaged = PathOf("damaged.zip");
        int refused = 0;
        for (size_t i = 0; i < whole.size(); ++i) {
            for (const unsigned mask : {0x01u, 0x80u, 0xFFu}) {
                std::string image = whole;
                image[i] = static_cast<char>(static_cast<unsigned char>(image[i]) ^ mask);
                SetContent(damaged, image);
                std::string read;
                const bool same = Read(damaged, &read) == 0;
                refused += same ? 0 : 1;
                ASSERT_TRUE(!same || read == data) << "byte " << i;
            }
            SetContent(damaged, whole.substr(0, i));
            std::string read;
            ASSERT_NE(Read(damaged, &read), 0u) << "cut at " << i;
        }
        EXPECT_GT(refused, 3 * 150);  // at least every byte of the compressed content
    }
}

// The size asked for, the size stated and the size that comes out must be one.
TEST_F(Archive, WrongSizesAreRefused) {
    const std::string data = Sample(3000);
    std::string buffer(4000, '\0');
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        WriteForeign({"a.zip.dat"}, data, method);
        for (const uint32_t size : {0u, 1u, 2999u, 3001u}) {
            EXPECT_NE(BEX_UnzipToBuffer(size, buffer.data(), member_.c_str(), path_.c_str()), 0u);
        }
        EXPECT_EQ(BEX_UnzipToBuffer(3000, buffer.data(), member_.c_str(), path_.c_str()), 0u);
        const std::string whole = Content(path_);
        for (const uint32_t stated : {1u, 2999u, 3001u, 4000u}) {
            std::string image = whole;
            for (const size_t field : {image.find("PK\1\2") + 24, image.find("PK\3\4") + 22}) {
                image[field] = static_cast<char>(stated & 0xFF);
                image[field + 1] = static_cast<char>(stated >> 8);
            }
            SetContent(path_, image);
            EXPECT_NE(BEX_UnzipToBuffer(stated, buffer.data(), member_.c_str(), path_.c_str()), 0u) << stated;
        }
    }
}

// Little-endian number of so many bytes.
std::string Word(uint64_t value, int size) {
    std::string bytes;
    for (; size > 0; --size, value >>= 8) {
        bytes += static_cast<char>(value & 0xFF);
    }
    return bytes;
}

TEST_F(Archive, SizesOver32BitsAreRefused) {
    for (const uint64_t stated : {uint64_t{UINT32_MAX}, uint64_t{UINT32_MAX} + 1, (uint64_t{1} << 32) + 5}) {
        // Version, flags, method, time, date, checksum, sizes, lengths of name and extra field.
        const std::string extra = Word(1, 2) + Word(16, 2) + Word(stated, 8) + Word(5, 8);
        const std::string common = Word(45, 2) + Word(0, 2) + Word(8, 2) + Word(0x21, 4) + Word(0, 4) +
                                   Word(UINT32_MAX, 4) + Word(UINT32_MAX, 4) + Word(9, 2) + Word(extra.size(), 2);
        const std::string local = "PK\3\4" + common + "a.zip.dat" + extra + "12345";
        const std::string central = "PK\1\2" + Word(45, 2) + common + Word(0, 14) + "a.zip.dat" + extra;
        SetContent(path_, local + central + "PK\5\6" + Word(0, 4) + Word(1, 2) + Word(1, 2) + Word(central.size(), 4) +
                              Word(local.size(), 4) + Word(0, 2));
        uint32_t size = 77;
        const uint32_t code = ZIP_GetUncompressSize(member_.c_str(), path_.c_str(), &size);
        EXPECT_EQ(code, stated <= UINT32_MAX ? 0u : uint32_t{ZIP_ER_OPNOTSUPP});
        EXPECT_EQ(size, stated <= UINT32_MAX ? UINT32_MAX : 77u);
        char buffer[8];
        EXPECT_NE(BEX_UnzipToBuffer(static_cast<uint32_t>(stated), buffer, member_.c_str(), path_.c_str()), 0u);
    }
}

TEST_F(Archive, WhatIsNoArchiveGivesACode) {
    SetContent(PathOf("text"), "no archive at all");
    ASSERT_EQ(mkfifo(PathOf("fifo").c_str(), 0600), 0);
    for (const std::string &path : {folder_, PathOf("none"), PathOf("text"), PathOf("fifo")}) {
        uint16_t count = 77;
        uint32_t size = 77;
        char buffer[8];
        EXPECT_NE(BEX_UnzipGetNumofFiles(path.c_str(), &count), 0u);
        EXPECT_NE(ZIP_GetUncompressSize("m", path.c_str(), &size), 0u);
        EXPECT_NE(BEX_UnzipToBuffer(8, buffer, "m", path.c_str()), 0u);
        EXPECT_TRUE(count == 77 && size == 77);
    }
}

// A write that fails, for want of room or of stable storage, leaves the old archive and nothing else.
TEST_F(Archive, AFailedWriteLeavesTheOldArchive) {
    const std::string old = Sample(100);
    const std::string fresh = Sample(100000);
    ASSERT_EQ(Write(old), 0u);
    EXPECT_EQ(Write(fresh, 0), uint32_t{ZIP_ER_INVAL});
    EXPECT_EQ(Write(fresh, 10), uint32_t{ZIP_ER_INVAL});

    rlimit whole = {};
    getrlimit(RLIMIT_FSIZE, &whole);
    const rlimit little = {10000, whole.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &little);
    EXPECT_NE(Write(fresh), 0u);
    setrlimit(RLIMIT_FSIZE, &whole);
    std::signal(SIGXFSZ, SIG_DFL);

    faults.failDataSync = true;
    EXPECT_NE(Write(fresh), 0u);
    faults.failDataSync = false;
    std::string read;
    EXPECT_EQ(Read(path_, &read), 0u);
    EXPECT_TRUE(read == old);
    EXPECT_EQ(FileCount(), 1);

    faults.failFsync = true;  // the archive is replaced, but its name may not last
    EXPECT_EQ(Write(fresh), uint32_t{ZIP_ER_RENAME});
    faults.failFsync = false;
    EXPECT_EQ(FileCount(), 1);
    path_ = PathOf("none/a.zip");
    EXPECT_NE(Write(fresh), 0u);
}

}  // namespace
