/*
 * Bytes and files, and a second, independent writer of the file format: TLVs put together byte by byte.
 */
#ifndef TAV_TESTS_BYTES_H
#define TAV_TESTS_BYTES_H

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <filesystem>
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

inline Bytes Join(const std::vector<Bytes> &pieces) {
    Bytes all;
    for (const Bytes &piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

inline Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

inline Bytes Filled(size_t size, uint8_t value) {
    return Bytes(size, value);
}

inline Bytes Slice(const Bytes &bytes, size_t begin, size_t end) {
    return Bytes(bytes.data() + begin, bytes.data() + end);
}

inline Bytes Be16(uint32_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

inline Bytes Be32(uint32_t value) {
    return Join({Be16(value >> 16), Be16(value)});
}

/** The bytes of an integer as this host keeps it. */
template <typename Integer>
Bytes HostBytes(Integer value) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
    return Bytes(bytes, bytes + sizeof(value));
}

inline constexpr auto Host16 = HostBytes<uint16_t>;
inline constexpr auto Host32 = HostBytes<uint32_t>;

/** The bytes of hexadecimal digits; blanks between them are skipped. */
inline Bytes Hex(std::string_view digits) {
    std::string pairs(digits);
    std::erase(pairs, ' ');
    Bytes bytes;
    for (size_t at = 0; at < pairs.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(pairs.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

inline Bytes Tlv(uint32_t type, const Bytes &value) {
    return Join({Be32(type), Be32(static_cast<uint32_t>(value.size())), value});
}

inline Bytes Tlv(uint32_t type, const std::vector<Bytes> &inner) {
    return Tlv(type, Join(inner));
}

/** A VS TLV with its id and the given records. */
inline Bytes VsTlv(uint32_t vsId, const std::vector<Bytes> &records) {
    return Tlv(2, {Tlv(6, Be32(vsId)), Join(records)});
}

Bytes Sha256(const Bytes &data);

/** A whole file: head with the digest of the body, and a refer checksum when one is given; then the body. */
Bytes Image(const Bytes &body, const std::optional<Bytes> &refer = std::nullopt);

/** A whole file with head fields of the caller's choice. */
Bytes ImageWithHead(const std::vector<Bytes> &headFields, const Bytes &body);

/** The image with its modify time zeroed. */
inline Bytes WithoutTime(Bytes image) {
    std::fill_n(image.begin() + kTimeAt, 12, uint8_t{0});
    return image;
}

/** The current time in seconds, not from the coarse clock of time(), which lags behind the clock of time stamps. */
std::time_t Now();

inline bool FileExists(const std::string &path) {
    return std::filesystem::exists(path);
}

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
