// Archives: our own and foreign ones, whole and damaged.
#include <sys/resource.h>
#include <sys/stat.h>
#include <zip.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <random>

#include "faults.h"
#include "platform/bex_zip.h"

namespace {

namespace fs = std::filesystem;

// Bytes that compress to some degree.
std::string Sample(size_t size) {
    std::mt19937 random(5);
    std::string data(size, '\0');
    std::generate(data.begin(), data.end(), [&] { return static_cast<char>(random() % 16); });
    return data;
}

class Archive : public FileTest {
  protected:
    static uint32_t Write(const std::string &path, const std::string &data, int32_t level = 6) {
        return BEX_ZipBuffer(static_cast<uint32_t>(data.size()), data.data(), "folder/a.dat", path.c_str(), 0, level);
    }

    // Reads the member at the size that the archive states; none when anything fails.
    static std::optional<std::string> Read(const std::string &path) {
        uint16_t count = 0;
        uint32_t size = 0;
        if (BEX_UnzipGetNumofFiles(path.c_str(), &count) != 0 ||
            ZIP_GetUncompressSize("elsewhere/a.dat", path.c_str(), &size) != 0 || size > 1u << 24) {
            return std::nullopt;
        }
        std::string data(size, '\0');
        const bool read = BEX_UnzipToBuffer(size, data.data(), "elsewhere/a.dat", path.c_str()) == 0;
        return read ? std::optional(data) : std::nullopt;
    }

    // Makes an archive with another hand.
    void WriteForeign(const std::vector<std::string> &names, const std::string &data, int method) const {
        zip_t *const zip = zip_open(path_.c_str(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
        for (const std::string &name : names) {
            zip_source_t *const source = zip_source_buffer(zip, data.data(), data.size(), 0);
            const zip_int64_t index = zip_file_add(zip, name.c_str(), source, 0);
            ASSERT_EQ(zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), method, 0), 0);
        }
        ASSERT_EQ(zip_close(zip), 0);
    }

    const std::string path_ = folder_.Path("a.zip");
};

TEST_F(Archive, GivesBackWhatWasWritten) {
    umask(0);
    size_t sizes[10] = {};
    for (const size_t size : {size_t{0}, size_t{1}, size_t{1} << 20}) {
        for (const int level : {1, 6, 9}) {
            const std::string data = Sample(size);
            ASSERT_EQ(Write(path_, data, level), 0u);
            EXPECT_EQ(fs::status(path_).permissions(), fs::perms{0640});
            EXPECT_TRUE(Read(path_) == data);
            sizes[level] = fs::file_size(path_);
        }
    }
    EXPECT_LT(sizes[9], sizes[1]);
}

TEST_F(Archive, ForeignArchivesAreRead) {
    const std::string data = Sample(5000);
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        for (const char *name : {"a.dat", "some/folder/a.dat"}) {
            WriteForeign({"b.dat", name}, data, method);
            EXPECT_TRUE(Read(path_) == data) << name;
        }
    }
    for (const size_t members : {size_t{2}, size_t{65537}}) {
        std::vector<std::string> names(members);
        std::generate(names.begin(), names.end(), [i = 0]() mutable { return std::to_string(i++); });
        WriteForeign(names, "", ZIP_CM_STORE);
        uint16_t count = 0;
        EXPECT_EQ(BEX_UnzipGetNumofFiles(path_.c_str(), &count), 0u);
        EXPECT_EQ(count, std::min<size_t>(members, UINT16_MAX));
        EXPECT_FALSE(Read(path_).has_value());  // no member of the name
    }
}

// Whatever byte is changed, the content comes out unchanged or not at all; cut short, it never comes out.
TEST_F(Archive, DamageNeverYieldsOtherContent) {
    const std::string data = Sample(300);
    for (const int method : {ZIP_CM_STORE, ZIP_CM_DEFLATE}) {
        WriteForeign({"a.dat"}, data, method);
        const Bytes whole = ReadFile(path_);
        const std::string damaged = folder_.Path("damaged.zip");
        int refused = 0;
        for (size_t i = 0; i < whole.size(); ++i) {
            for (const unsigned mask : {0x01u, 0x80u, 0xFFu}) {
                Bytes image = whole;
                image[i] = static_cast<uint8_t>(image[i] ^ mask);
                WriteFile(damaged, image);
                const auto read = Read(damaged);
                refused += read.has_value() ? 0 : 1;
                ASSERT_TRUE(!read || *read == data) << "byte " << i;
            }
            WriteFile(damaged, Slice(whole, 0, i));
            ASSERT_FALSE(Read(damaged).has_value()) << "cut at " << i;
        }
        EXPECT_GT(refused, 3 * 150);  // at least every byte of the compressed content
    }
}

// Little-endian number of so many bytes.
std::string Word(uint64_t value, int size) {
    return size == 0 ? "" : static_cast<char>(value & 0xFF) + Word(value >> 8, size - 1);
}

// The size asked for, the size stated and the size that comes out must be one, beyond 32 bits too.
TEST_F(Archive, WrongSizesAreRefused) {
    const std::string contents[] = {"12345", std::string("\1\5\0\xFA\xFF", 5) + "12345"};  // plain, and as deflated
    for (const std::string &content : contents) {
        for (const uint64_t stated : {0ull, 4ull, 5ull, 6ull, 0xFFFFFFFFull, 0x100000000ull, 0x100000005ull}) {
            const std::string extra = Word(1, 2) + Word(16, 2) + Word(stated, 8) + Word(content.size(), 8);
            // Version, flags, method, time, date, checksum, sizes, lengths of name and extra field.
            const std::string common = Word(45, 2) + Word(0, 2) + Word(content.size() == 5 ? 0 : 8, 2) + Word(0x21, 4) +
                                       Word(0xCBF53A1C, 4) + Word(~0ull, 8) + Word(5, 2) + Word(extra.size(), 2);
            const std::string local = "PK\3\4" + common + "a.dat" + extra + content;
            const std::string central = "PK\1\2" + Word(45, 2) + common + Word(0, 14) + "a.dat" + extra;
            WriteFile(path_, Text(local + central + "PK\5\6" + Word(0, 4) + Word(0x10001, 4) + Word(central.size(), 4) +
                                  Word(local.size(), 4) + Word(0, 2)));
            uint32_t size = 77;
            const bool told = ZIP_GetUncompressSize("a.dat", path_.c_str(), &size) == 0;
            EXPECT_TRUE(stated <= UINT32_MAX ? told && size == stated : !told && size == 77) << stated;
            char buffer[8];
            for (const uint32_t asked : {0u, 4u, 5u, 6u, static_cast<uint32_t>(stated)}) {
                const bool read = BEX_UnzipToBuffer(asked, buffer, "a.dat", path_.c_str()) == 0;
                EXPECT_EQ(read, asked == 5 && stated == 5) << asked << " of " << stated;
            }
        }
    }
}

TEST_F(Archive, WhatIsNoArchiveGivesACode) {
    WriteFile(folder_.Path("text"), Text("no archive at all"));
    ASSERT_EQ(mkfifo(folder_.Path("fifo").c_str(), 0600), 0);
    for (const char *name : {"", "none", "text", "fifo"}) {
        const std::string path = folder_.Path(name);
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
    ASSERT_EQ(Write(path_, old), 0u);
    EXPECT_EQ(Write(path_, fresh, 0), uint32_t{ZIP_ER_INVAL});
    EXPECT_EQ(Write(path_, fresh, 10), uint32_t{ZIP_ER_INVAL});
    EXPECT_NE(Write(folder_.Path("none/a.zip"), fresh), 0u);

    rlimit whole = {};
    getrlimit(RLIMIT_FSIZE, &whole);
    const rlimit little = {10000, whole.rlim_max};
    std::signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &little);
    EXPECT_NE(Write(path_, fresh), 0u);
    setrlimit(RLIMIT_FSIZE, &whole);

    faults.failDataSync = true;
    EXPECT_NE(Write(path_, fresh), 0u);
    EXPECT_TRUE(Read(path_) == old);

    faults = {};
    faults.failDirectorySync = true;  // the archive is replaced, but its name may not last
    EXPECT_EQ(Write(path_, fresh), uint32_t{ZIP_ER_RENAME});
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_.Path()), {}), 1);
}

}  // namespace
