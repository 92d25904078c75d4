/*
 * A file descriptor with an owner.
 */
#ifndef HOSTED_DESCRIPTOR_H
#define HOSTED_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace hosted {

/** Owns a file descriptor and closes it; perhaps there is none yet. */
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor &operator=(Descriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() {
        if (IsOpen()) {
            close(fd_);
        }
    }

    bool IsOpen() const { return fd_ >= 0; }
    int Get() const { return fd_; }

  private:
    int fd_ = -1;
};

}  // namespace hosted

#endif
