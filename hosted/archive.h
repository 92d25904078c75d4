/*
 * Zip archives, on libzip: opening them, finding members and reading these.
 *
 * Codes are libzip's error codes (ZIP_ER_...). A member goes by the last component of its name, on both sides: the
 * folders that another tool may have stored with it do not count.
 */
#ifndef HOSTED_ARCHIVE_H
#define HOSTED_ARCHIVE_H

#include <zip.h>
#include <cstdint>

#include <memory>

namespace hosted {

/** Bytes of the pieces in which a member is read. */
inline constexpr uint32_t kChunkSize = 0x10000;

/** An archive that is only read, or whose changes are given up. */
struct DiscardArchive {
    void operator()(zip_t *zip) const { zip_discard(zip); }
};
using Archive = std::unique_ptr<zip_t, DiscardArchive>;

/** An error of libzip as a code that is never 0. */
uint32_t CodeOf(int zipError);

/** The code of the call that has just failed on an archive. */
uint32_t LastCode(zip_t *zip);

/** Returns what stands behind a name's last slash, perhaps nothing; without a slash, the name. */
const char *LastComponent(const char *name);

/** Opens an archive for reading. Only regular files are opened: a pipe would hang the caller. */
uint32_t OpenForReading(const char *path, Archive *archive);

/** A member of an open archive. */
struct FoundMember {
    Archive archive;         // open as long as this lives
    zip_uint64_t index = 0;  // the member's place in it
    zip_uint64_t size = 0;   // its uncompressed size in bytes, as the archive states it
};

/** Opens an archive and finds a member in it. */
uint32_t OpenAndFind(const char *path, const char *name, FoundMember *member);

/** Reads the uncompressed size in bytes that an archive states for a member. Returns 0, else a code. */
uint32_t StatedSize(zip_t *zip, zip_uint64_t index, zip_uint64_t *size);

/** A member that is read from its beginning to its end. */
class MemberStream {
  public:
    /** Opens a member whose stated size is `size`. Returns 0, else a code. */
    uint32_t Open(zip_t *zip, zip_uint64_t index, zip_uint64_t size);

    /**
     * Reads up to `capacity` bytes, which must be more than 0 before the end; 0 bytes are the end. The end is read too:
     * only there the checksum is compared. More or less than the stated size is an error.
     *
     * @return 0, else a code; after a failure, every further read fails the same way
     */
    uint32_t Read(void *buffer, uint32_t capacity, uint32_t *length);

  private:
    struct Close {
        void operator()(zip_file_t *member) const { zip_fclose(member); }
    };

    std::unique_ptr<zip_file_t, Close> content_;
    zip_uint64_t left_ = 0;  // bytes of the stated size that have not come out yet
    uint32_t code_ = 0;      // of the read that failed
};

}  // namespace hosted

#endif
