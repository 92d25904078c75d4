/*
 * The floor: what reading and writing the store's file costs when nothing is made of its content.
 *
 * Whatever goes wrong in a peer ends the benchmark with an exception: a figure of a failed run means nothing.
 */
#ifndef TAV_BENCH_PEER_FLOOR_H
#define TAV_BENCH_PEER_FLOOR_H

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "records.h"
#include "report.h"

namespace tav::bench {

/** A whole file in memory. */
struct Image {
    std::unique_ptr<uint8_t[]> bytes;
    size_t size = 0;
};

/** Reads a whole file into a fresh buffer. */
inline Image ReadFile(const std::string &path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat info {};
    Require(file >= 0 && fstat(file, &info) == 0, "open for reading");
    Image image{nullptr, static_cast<size_t>(info.st_size)};
    image.bytes = std::make_unique_for_overwrite<uint8_t[]>(image.size);
    Require(read(file, image.bytes.get(), image.size) == info.st_size && close(file) == 0, "read");
    return image;
}

/** Writes a whole file: open, write, fsync, close. */
inline void WriteFile(const std::string &path, const void *data, size_t size) {
    const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640);
    Require(file >= 0, "open for writing");
    Require(write(file, data, size) == static_cast<ssize_t>(size), "write");
    Require(fsync(file) == 0 && close(file) == 0, "fsync");
}

using Digest = std::array<uint8_t, 32>;

inline Digest Sha256(const void *data, size_t size) {
    Digest digest{};
    Require(EVP_Digest(data, size, digest.data(), nullptr, EVP_sha256(), nullptr) == 1, "SHA-256");
    return digest;
}

// Of the store's file format the floor knows this: a head of 80 bytes, in which the body's checksum stands at 48.
constexpr size_t kHeadSize = 80, kChecksumAt = 48;

inline Digest BodyDigest(const Image &image) {
    return Sha256(&image.bytes[kHeadSize], image.size - kHeadSize);
}

/** Reads the store's file, digests its body, copies it once. */
template <typename Record>
class FloorOpener {
  public:
    explicit FloorOpener(const std::string &path) : path_(path + ".dat") {}

    void Write(const std::vector<Record> &) const {}

    void Open() {
        image_ = ReadFile(path_);
        digest_ = BodyDigest(image_);
        copy_ = std::make_unique_for_overwrite<uint8_t[]>(image_.size);
        memcpy(copy_.get(), image_.bytes.get(), image_.size);
    }

    bool Check(const std::vector<Record> &) const {
        return std::equal(digest_.begin(), digest_.end(), &copy_[kChecksumAt]);
    }

    void Close() {
        image_ = {};
        copy_.reset();
    }

  private:
    std::string path_;
    Image image_;
    std::unique_ptr<uint8_t[]> copy_;
    Digest digest_{};
};

/** Digests an old and a new body that are in memory, and writes the new image. */
template <typename Record>
class FloorFlusher {
  public:
    FloorFlusher(const std::string &path, const Record &)
        : path_(path + ".reference"), old_(ReadFile(path + ".dat")), new_(ReadFile(path + ".dat")) {}
    ~FloorFlusher() { unlink(path_.c_str()); }

    void Change() {
        std::swap(old_, new_);
        new_.bytes[new_.size - 1] = static_cast<uint8_t>(old_.bytes[old_.size - 1] + 1);
    }

    void Flush() const {
        Require(BodyDigest(old_) != BodyDigest(new_), "nothing was changed");
        WriteFile(path_, new_.bytes.get(), new_.size);
    }

  private:
    std::string path_;
    Image old_, new_;
};

}  // namespace tav::bench

#endif
