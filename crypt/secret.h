/*
 * Memory for what must not stay in memory: zero-filled to begin with, and wiped with its holder, whatever the way out.
 */
#ifndef CRYPT_SECRET_H
#define CRYPT_SECRET_H

#include "common/memory.h"
#include "platform/bex_string.h"

namespace crypt {

inline constexpr common::Heap kHeap("tav_crypt");

/** A buffer of `kSize` characters or bytes on the stack. */
template <typename Byte, uint32_t kSize>
class Secret {
  public:
    Secret() = default;
    ~Secret() { memset_s(bytes_, kSize, 0, kSize); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    Byte *data() { return bytes_; }
    static constexpr uint32_t size() { return kSize; }

  private:
    Byte bytes_[kSize] = {};
};

/** A block of the heap, of characters or bytes, accounted to the line that makes the holder. */
template <typename Byte>
class SecretBlock {
  public:
    explicit SecretBlock(uint32_t size, uint32_t line = __builtin_LINE())
        : bytes_(static_cast<Byte *>(kHeap.TakeZeroed(size, g_pTavCommHandle, line))), size_(size) {}
    ~SecretBlock() {
        if (bytes_ != nullptr) {
            memset_s(bytes_, size_, 0, size_);
            kHeap.Return(bytes_);
        }
    }
    SecretBlock(const SecretBlock &) = delete;
    SecretBlock &operator=(const SecretBlock &) = delete;

    /** The block; null when memory was short. */
    Byte *data() { return bytes_; }
    uint32_t size() const { return size_; }

  private:
    Byte *bytes_;
    uint32_t size_;
};

}  // namespace crypt

#endif
