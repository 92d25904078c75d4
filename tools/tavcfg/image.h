/*
 * The bytes of a configuration file, read whole.
 */
#ifndef TAVCFG_IMAGE_H
#define TAVCFG_IMAGE_H

#include <cstdint>
#include <memory>

#include "file.h"

namespace tavcfg {

/** Gives a block back to the platform. */
struct BlockFree {
    void operator()(uint8_t *block) const;
};

/** A file's image: what stands in a plain file or in an archive's only member. */
struct Image {
    std::unique_ptr<uint8_t, BlockFree> data;
    uint32_t size = 0;
};

/** Throws Failure when something about the file itself keeps anyone from reading it, Damage when its size is wrong. */
void RequireReadable(const File &file);

/** Reads a file. Throws Failure that says why it cannot be read, Damage when that is because of its content. */
Image ReadImage(const File &file);

}  // namespace tavcfg

#endif
