/*
 * Memory for what must not stay in memory: zero-filled to begin with, and wiped with its holder, whatever the way out.
 */
#ifndef CRYPT_SECRET_H
#define CRYPT_SECRET_H

#include "platform/bex_string.h"
#include "platform/mel_memory.h"
#include "tav_common.h"

namespace crypt {

/** A buffer of `kSize` bytes on the stack. */
template <typename Byte, uint32_t kSize>
class Secret {
  public:
    Secret() = default;
    ~Secret() { memset_s(bytes_, kSize, 0, kSize); }
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;

    Byte *Get() { return bytes_; }
    static constexpr uint32_t Size() { return kSize; }

  private:
    Byte bytes_[kSize] = {};
};

/** A block of the heap, accounted to the line that makes the holder. */
class SecretBlock {
  public:
    explicit SecretBlock(uint32_t size, uint32_t line = __builtin_LINE())
        : block_(TAV_MallocInit(MEL_Malloc_F(g_pTavCommHandle, g_aucMelMemPt[0], size, "tav_crypt", line), size)),
          size_(size) {}
    ~SecretBlock() {
        if (block_ != nullptr) {
            memset_s(block_, size_, 0, size_);
            MEL_Free_F(block_, "tav_crypt", __LINE__);
        }
    }
    SecretBlock(const SecretBlock &) = delete;
    SecretBlock &operator=(const SecretBlock &) = delete;

    /** Tells whether the block could be had. */
    bool IsThere() const { return block_ != nullptr; }
    char *Text() { return static_cast<char *>(block_); }
    uint8_t *Bytes() { return static_cast<uint8_t *>(block_); }
    uint32_t Size() const { return size_; }

  private:
    void *block_;
    uint32_t size_;
};

}  // namespace crypt

#endif
