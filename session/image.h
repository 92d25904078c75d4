/*
 * File images: read from a file or an archive, parsed into a store, built from one.
 */
#ifndef SESSION_IMAGE_H
#define SESSION_IMAGE_H

#include <array>
#include <optional>
#include <string>

#include "session/files.h"
#include "session/place.h"
#include "tav/store.h"

namespace session {

using Digest = std::array<uint8_t, TAV_EXT_CHECKSUM_SIZE>;

/** What tells whether two files have the same content. */
struct Checksums {
    Digest body;
    std::optional<Digest> refer;  // of the refer file, when there is one
    bool operator==(const Checksums &) const = default;
};

/** An image, and the state of the file that it comes from. */
struct ReadImage {
    Block image;
    Identity identity;
};

/** Which refer file an image is checked against. */
struct Refer {
    std::string path;     // empty for none
    bool ignore = false;  // whatever the image says

    const char *PathOrNull() const { return path.empty() ? nullptr : path.c_str(); }
};

/**
 * Reads a file's image. Nothing when there is no such file. Throws Error: TAV_ERR_OPEN when it cannot be read;
 * TAV_ERR_INVALID when it is no regular file, empty, too large, or no archive with just the right member.
 *
 * @param place  the file
 */
std::optional<ReadImage> ReadImageOf(const Place &place);

/** The same for a file that holds what another one held, as a backup does; errors are about its path. */
std::optional<ReadImage> ReadImageOf(const Place &place, const std::string &path);

/** An image's content. */
struct Content {
    tav::Store store;
    Checksums checksums;
};

/** Parses an image. Throws Error (TAV_ERR_INVALID) that says what is wrong with it. `path` is the store's file. */
Content ParseImage(Block &image, const std::string &path, const Refer &refer, const std::string &place);

/** Parses an image's body, whatever its head says, into a store without a file. Throws as above. */
tav::Store ParseBody(Block &image, const std::string &place);

/** An image that is to be written. */
struct BuiltImage {
    Block image;  // empty for a store without any VS, which is kept as no file
    Checksums checksums;
};

/**
 * Builds a store's image. Throws Error: TAV_ERR_INVALID for a record that could not be read back; TAV_ERR_REFUSED when
 * it is larger than 100 MiB; TAV_ERR_NOT_FOUND when the refer file gives no checksum.
 */
BuiltImage BuildImage(const tav::Store &store, const Refer &refer, const std::string &place);

/** Builds an image with the body of another one, and a new head. Throws as BuildImage. */
BuiltImage RebuildImage(const Block &image, const Refer &refer, const std::string &place);

/** The body's checksum as an image's head states it; nothing when there is none. */
std::optional<Digest> BodyChecksum(const Block &image);

/** The checksum that an image's body has, in hexadecimal digits; empty when there is none. */
std::string ActualChecksum(const Block &image);

/** Whether an image carries the checksum of a refer file. */
bool CarriesRefer(const Block &image);

/** The modify time in an image's head, in an order that compares. The image must have been parsed. */
std::string ModifyTime(const Block &image);

/** A digest in hexadecimal digits. */
std::string ToHex(const Digest &digest);

}  // namespace session

#endif
