/*
 * Flushing: the store becomes an image, and the image a file. The old file lies under its backup name meanwhile.
 */
#include "common/log.h"
#include "extcfg/file/write.h"
#include "extcfg/format/tlv.h"
#include "extcfg/memory.h"
#include "extcfg/nodes/valid.h"
#include "extcfg/store/local.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"

namespace {

constexpr char kWriteFile[] = "TAV_WriteExtCfgFile";  // the name under which its helpers log

/** A file image that is to be written. */
struct Image {
    extcfg::OwnedBuffer bytes;
    uint32_t headSize;
    uint32_t size;  // head and body
};

/** Takes the room for an image with a body of this size. */
uint32_t TakeImage(const CfgLocal *local, uint32_t bodySize, const char *path, Image *image) {
    image->headSize = TAV_CalcExtCfgFileHeadSize(local);
    image->size = extcfg::AddSizes(image->headSize, bodySize);
    if (image->size > TAV_EXT_MAX_FILE_SIZE) {
        LOG_AS(kWriteFile, "Too large to write %s, size=%d", path, image->size);
        return TAV_ERR_REFUSED;
    }
    image->bytes.reset(static_cast<uint8_t *>(extcfg::kHeap.Take(image->size)));
    if (image->bytes == nullptr) {
        LOG_AS(kWriteFile, "Null pointer, return 0x%x", TAV_ERR_NO_MEMORY);
        return TAV_ERR_NO_MEMORY;
    }
    return TAV_OK;
}

/** Builds the image of a store: the body first, because the head's checksum covers it. */
uint32_t BuildImage(CfgLocal *local, uint32_t bodySize, const char *path, Image *image) {
    uint32_t result = TakeImage(local, bodySize, path, image);
    if (result != TAV_OK) {
        return result;
    }
    uint8_t *bytes = image->bytes.get();
    result = TAV_BuildExtCfgFileBody(local, bytes + image->headSize, bodySize);
    if (result != TAV_OK) {
        LOG_AS(kWriteFile, "Build %s body failed, body size=%d, return 0x%x", path, bodySize, result);
        return result;
    }
    result = TAV_BuildExtCfgFileHead(bytes, image->headSize, image->size, extcfg::ReferPath(local));
    if (result != TAV_OK) {
        LOG_AS(kWriteFile, "Build %s head failed, head size=%d, return 0x%x", path, image->headSize, result);
    }
    return result;
}

/**
 * Returns whether the file at a path is valid and its body has the checksum that a new image's head states. A file with
 * a refer checksum is never the same, because its checksum cannot be read without its refer file: it is rewritten.
 */
bool FileHasSameBody(const char *path, const Image &image) {
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    if (TAV_GetExtCfgFileChecksum(path, checksum, sizeof(checksum)) != TAV_OK) {
        return false;
    }
    uint8_t *tlv =
        TAV_ExtTlvFind(extcfg::TlvValue(image.bytes.get()), image.headSize - TAV_EXT_TLV_HEAD_SIZE, EXT_TLV_CHECKSUM);
    return tlv != nullptr && BEX_MemCmp(extcfg::TlvValue(tlv), checksum, sizeof(checksum)) == 0;
}

/** The old file's place while the new one is written. */
class Backup {
  public:
    explicit Backup(const char *path) : path_(path) {
        snprintf_truncated_s(name_, sizeof(name_), "%s.bak", path);
        // A path that fills the name, or more, is cut to itself or to a stranger's name: nothing to touch then.
        usable_ = BEX_StrLen(path) < sizeof(name_) - 1;
    }

    /** Moves the old file, if there is one, out of the way. Where it cannot be moved it is written over. */
    void Keep() const {
        if (usable_ && BEX_VFS_IsFileExist(path_) != 0) {
            BEX_VFS_MoveFile(path_, name_);
        }
    }

    /** The new file stands: the old one goes. */
    void Drop() const {
        if (usable_ && BEX_VFS_IsFileExist(name_) != 0) {
            BEX_VFS_DeleteFile(name_);
        }
    }

    /** The new file does not stand: the old one comes back. */
    void Restore() const {
        if (usable_ && BEX_VFS_IsFileExist(name_) != 0) {
            BEX_VFS_MoveFile(name_, path_);
        }
    }

  private:
    const char *path_;                   // the file
    char name_[TAV_EXT_PATH_SIZE] = {};  // its backup name
    bool usable_;                        // the backup name begins with the whole path
};

/** Writes an image in place of the file at a path, which comes back when that fails. */
uint32_t ReplaceFile(const char *path, const Image &image) {
    const Backup backup(path);
    backup.Keep();
    const uint32_t result = extcfg::WriteImage(image.bytes.get(), image.size, path);
    if (result != TAV_OK) {
        LOG_AS(kWriteFile, "Write %s failed, len=%d, return 0x%x", path, image.size, result);
        backup.Restore();
        return result;
    }
    backup.Drop();
    return TAV_OK;
}

/** Deletes the file at a path, if there is one. */
void DeleteFile(const char *path) {
    if (BEX_VFS_IsFileExist(path) != 0) {
        BEX_VFS_DeleteFile(path);
    }
}

}  // namespace

uint32_t TAV_ExtCfgFlush(CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_INVALID, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_UNLESS(TAV_ERR_REFUSED, local->mode != TAV_EXT_MODE_READ_ONLY, "CfgLocal is readonly mode");
    // Nothing to write is reported like a failure: only the caller, who tests for it, knows whether it is one.
    const uint32_t result = TAV_WriteExtCfgFile(local->filePath, local);
    FAIL_UNLESS(result, result == TAV_OK, "Write %s failed, return 0x%x", local->filePath, result);
    return TAV_OK;
}

uint32_t TAV_WriteExtCfgFile(const char *path, CfgLocal *local) {
    FAIL_UNLESS(TAV_ERR_NULL, extcfg::IsValid(local), "Invalid CfgLocal");
    FAIL_IF_NULL(TAV_ERR_NULL, path);
    const uint32_t bodySize = TAV_CalcExtCfgFileBodySize(local);
    if (bodySize == 0) {
        // A store without any VS is kept as no file at all: a reader would refuse a head without a body.
        DeleteFile(path);
        return TAV_OK;
    }
    Image image = {};
    const uint32_t result = BuildImage(local, bodySize, path, &image);
    if (result != TAV_OK) {
        return result;
    }
    FAIL_UNLESS(TAV_ERR_UNCHANGED, !FileHasSameBody(path, image), "Checksum is the same, no need write file");
    return ReplaceFile(path, image);
}
