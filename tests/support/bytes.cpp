#include "bytes.h"

#include <openssl/evp.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

template <class Integer>
Bytes HostBytes(Integer value) {
    const auto *bytes = reinterpret_cast<const uint8_t *>(&value);
    return Bytes(bytes, bytes + sizeof value);
}

/** Ends the test when a step that it rests on has failed. */
void Need(bool done, const std::string &what) {
    if (!done) {
        throw std::runtime_error("failed: " + what);
    }
}

}  // namespace

Bytes Be16(uint32_t value) {
    return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)};
}

Bytes Be32(uint32_t value) {
    return Join({Be16(value >> 16), Be16(value)});
}

Bytes Host16(uint16_t value) {
    return HostBytes(value);
}

Bytes Host32(uint32_t value) {
    return HostBytes(value);
}

Bytes Text(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes Hex(std::string_view digits) {
    std::string pairs(digits);
    std::erase(pairs, ' ');
    Bytes bytes;
    for (size_t at = 0; at < pairs.size(); at += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(pairs.substr(at, 2), nullptr, 16)));
    }
    return bytes;
}

Bytes Filled(size_t size, uint8_t value) {
    return Bytes(size, value);
}

Bytes Join(const std::vector<Bytes> &pieces) {
    Bytes all;
    for (const Bytes &piece : pieces) {
        all.insert(all.end(), piece.begin(), piece.end());
    }
    return all;
}

Bytes Slice(const Bytes &bytes, size_t begin, size_t end) {
    return Bytes(bytes.data() + begin, bytes.data() + end);
}

Bytes Sha256(const Bytes &data) {
    Bytes digest(32);
    Need(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1, "SHA-256");
    return digest;
}

Bytes Tlv(uint32_t type, const Bytes &value) {
    return Join({Be32(type), Be32(static_cast<uint32_t>(value.size())), value});
}

Bytes Tlv(uint32_t type, const std::vector<Bytes> &inner) {
    return Tlv(type, Join(inner));
}

Bytes VsTlv(uint32_t vsId, const std::vector<Bytes> &records) {
    return Tlv(2, {Tlv(6, Be32(vsId)), Join(records)});
}

Bytes Image(const Bytes &body, const std::optional<Bytes> &refer) {
    return ImageWithHead(
        {Tlv(3, Be32(0x08070001)), Tlv(4, Filled(12, 0)), Tlv(5, Sha256(body)), refer ? Tlv(20, *refer) : Bytes{}},
        body);
}

Bytes ImageWithHead(const std::vector<Bytes> &headFields, const Bytes &body) {
    return Join({Tlv(1, headFields), body});
}

Bytes WithoutTime(Bytes image) {
    std::fill_n(image.begin() + kTimeAt, 12, uint8_t{0});
    return image;
}

std::time_t Now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
}

bool FileExists(const std::string &path) {
    return std::filesystem::exists(path);
}

Bytes ReadFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    Need(file.is_open(), path);
    return Bytes(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string &path, const Bytes &data) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char *>(data.data()), static_cast<std::streamsize>(data.size()));
    Need(!file.flush().fail(), path);
}

void MakeSparseFile(const std::string &path, uint64_t size) {
    WriteFile(path, {});
    std::filesystem::resize_file(path, size);
}

TempFolder::TempFolder() : path_(std::filesystem::temp_directory_path() / "tav-test-XXXXXX") {
    Need(mkdtemp(path_.data()) != nullptr, path_);
}

TempFolder::~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}
