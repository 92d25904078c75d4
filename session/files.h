/*
 * Files and folders of the system: descriptors that close themselves, who a file is, and what outlives a loss of power.
 */
#ifndef SESSION_FILES_H
#define SESSION_FILES_H

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace session {

/** An open file. */
class Descriptor {
  public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }

    int Get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }

  private:
    int fd_;
};

/** Opens a file, and again when a signal interrupts it. Negative descriptor and errno on failure. */
Descriptor OpenFile(const std::string &path, int flags, mode_t mode = 0);

/** Makes a folder for its owner alone, whatever the umask. False and errno on failure. */
bool MakeOwnFolder(const std::string &path);

/** What tells one state of a file from another. Its name, mode and owner are no part of it. */
struct Identity {
    dev_t device = 0;
    ino_t number = 0;  // 0 for no file
    off_t size = 0;
    int64_t seconds = 0;  // of the last change of the content
    long nanoseconds = 0;

    Identity() = default;
    explicit Identity(const struct stat &status)
        : device(status.st_dev),
          number(status.st_ino),
          size(status.st_size),
          seconds(status.st_mtim.tv_sec),
          nanoseconds(status.st_mtim.tv_nsec) {}
    bool operator==(const Identity &) const = default;
};

/** A file's status, links not followed; nothing when there is no such file. Throws Error when that cannot be told. */
std::optional<struct stat> StatusOf(const std::string &path);

/** The state of a file, as StatusOf tells it. */
inline Identity IdentityOf(const std::optional<struct stat> &status) {
    return status ? Identity(*status) : Identity();
}

/** Returns whether anything has this name. Throws Error when that cannot be told. */
inline bool Exists(const std::string &path) {
    return StatusOf(path).has_value();
}

/** Bytes of a file. */
struct Block {
    std::unique_ptr<uint8_t[]> bytes;
    size_t size = 0;

    Block() = default;
    explicit Block(size_t length) : bytes(new uint8_t[length]), size(length) {}  // whose bytes are not set yet
    std::span<const uint8_t> View() const { return {bytes.get(), size}; }
};

/** Reads an open file of a known size. Throws Error (TAV_ERR_OPEN), also when the file has become shorter. */
Block ReadAll(const Descriptor &file, size_t size, const std::string &place);

/**
 * Opens a file to be read. Negative descriptor and errno on failure. Throws Error (TAV_ERR_INVALID) when it is no
 * regular one: a pipe would hold us up.
 */
Descriptor OpenRegular(const std::string &path, int flags = 0);

/** Reads an open file whole. Throws Error (TAV_ERR_OPEN). */
Block ReadAll(const Descriptor &file, const std::string &place);

/**
 * Writes a new file with this mode and owner, and brings it to stable storage. Throws Error (TAV_ERR_NOT_SAVED) with
 * the cause; what was written by then is removed.
 */
void WriteNewFile(const std::string &path, std::span<const uint8_t> content, const struct stat &like);

/** Gives an open file the mode and the owner of another. Throws Error (TAV_ERR_NOT_SAVED). */
void MakeLike(int fd, const struct stat &like, const std::string &place);

/** Brings a file or folder to stable storage. Throws Error (TAV_ERR_NOT_SAVED). */
void Sync(int fd, const std::string &place);
void SyncFolder(const std::string &path);

/** Renames, replacing what has the new name. Throws Error (TAV_ERR_NOT_SAVED). */
void Rename(const std::string &from, const std::string &to);

/** Removes a file; one that is not there is fine. Throws Error (TAV_ERR_NOT_SAVED). */
void Remove(const std::string &path);

}  // namespace session

#endif
