/*
 * Bytes and files, and a second, independent writer of the file format: TLVs put together byte by byte.
 */
#ifndef TAV_TESTS_BYTES_H
#define TAV_TESTS_BYTES_H

#include <cstdint>
#include <ctime>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

using Bytes = std::vector<uint8_t>;

/** Random numbers, the same ones on every machine. */
using Random = std::independent_bits_engine<std::mt19937, 32, uint32_t>;

/** Offsets in the head of an image made by Image and by the library, and the sizes of heads. */
inline constexpr size_t kVersionAt = 16, kTimeAt = 28, kChecksumAt = 48, kHeadSize = 80, kReferHeadSize = 120;

Bytes Be16(uint32_t value);
Bytes Be32(uint32_t value);
Bytes Host16(uint16_t value);  // as this host keeps it
Bytes Host32(uint32_t value);
Bytes Text(std::string_view text);
Bytes Hex(std::string_view digits);  // blanks between the digits are skipped
Bytes Filled(size_t size, uint8_t value);
Bytes Join(const std::vector<Bytes> &pieces);
Bytes Slice(const Bytes &bytes, size_t begin, size_t end);
Bytes Sha256(const Bytes &data);

Bytes Tlv(uint32_t type, const Bytes &value);
Bytes Tlv(uint32_t type, const std::vector<Bytes> &inner);

/** A VS TLV with its id and the given records. */
Bytes VsTlv(uint32_t vsId, const std::vector<Bytes> &records);

/** A whole file: head with the digest of the body, and a refer checksum when one is given; then the body. */
Bytes Image(const Bytes &body, const std::optional<Bytes> &refer = std::nullopt);

/** A whole file with head fields of the caller's choice. */
Bytes ImageWithHead(const std::vector<Bytes> &headFields, const Bytes &body);

/** The image with its modify time zeroed. */
Bytes WithoutTime(Bytes image);

/** The current time in seconds, not from the coarse clock of time(), which lags behind the clock of time stamps. */
std::time_t Now();

bool FileExists(const std::string &path);
Bytes ReadFile(const std::string &path);
void WriteFile(const std::string &path, const Bytes &data);

/** Makes a file of this size that holds no data blocks. */
void MakeSparseFile(const std::string &path, uint64_t size);

/** A folder below TMPDIR that goes with its content when the object does. */
class TempFolder {
  public:
    TempFolder();
    ~TempFolder();
    TempFolder(const TempFolder &) = delete;
    TempFolder &operator=(const TempFolder &) = delete;

    /** The folder's path, or that of a file in it. */
    std::string Path(const std::string &name = {}) const { return name.empty() ? path_ : path_ + "/" + name; }

  private:
    std::string path_;
};

#endif
