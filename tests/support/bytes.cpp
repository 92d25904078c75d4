#include "bytes.h"

#include <openssl/evp.h>
#include <cstdlib>

#include <chrono>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace {

/** Ends the test when a step that it rests on has failed. */
void Need(bool done, const std::string &what) {
    if (!done) {
        throw std::runtime_error("failed: " + what);
    }
}

}  // namespace

Bytes Sha256(const Bytes &data) {
    Bytes digest(32);
    Need(EVP_Digest(data.data(), data.size(), digest.data(), nullptr, EVP_sha256(), nullptr) == 1, "SHA-256");
    return digest;
}

Bytes Image(const Bytes &body, const std::optional<Bytes> &refer) {
    return ImageWithHead(
        {Tlv(3, Be32(0x08070001)), Tlv(4, Filled(12, 0)), Tlv(5, Sha256(body)), refer ? Tlv(20, *refer) : Bytes{}},
        body);
}

Bytes ImageWithHead(const std::vector<Bytes> &headFields, const Bytes &body) {
    return Join({Tlv(1, headFields), body});
}

std::time_t Now() {
    return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
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
