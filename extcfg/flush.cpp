/*
 * Flushing: the store becomes an image, and the image a file. The old file lies under its backup name meanwhile.
 */
#include "common/log.h"
#include "extcfg/memory.h"
#include "extcfg/model.h"
#include "extcfg/tlv.h"
#include "platform/bex_string.h"
#include "platform/bex_vfs.h"

namespace {

/**
 * Tells whether the file at a path is valid and its body has the checksum that a new image's head states. A file with
 * a refer checksum is never the same, because its checksum cannot be read without its refer file: it is rewritten.
 */
bool FileHasSameBody(const char *path, uint8_t *image, uint32_t headSize) {
    uint8_t checksum[TAV_EXT_CHECKSUM_SIZE] = {};
    if (TAV_GetExtCfgFileChecksum(path, checksum, sizeof(checksum)) != TAV_OK) {
        return false;
    }
    uint8_t *tlv = TAV_ExtTlvFind(extcfg::TlvValue(image), headSize - TAV_EXT_TLV_HEAD_SIZE, EXT_TLV_CHECKSUM);
    return tlv != nullptr && BEX_MemCmp(extcfg::TlvValue(tlv), checksum, sizeof(checksum)) == 0;
}

/** The old file's place while the new one is written. */
class Backup {
  public:
    explicit Backup(const char *path) : path_(path) {
        snprintf_truncated_s(name_, sizeof(name_), "%s.bak", path);
        /* A path that fills the name, or more, is cut to itself or to a stranger's name: nothing to touch then. */
        usable_ = BEX_StrLen(path) < sizeof(name_) - 1;
    }

    /** Moves the old file, if there is one, out of the way. A failed move is not looked at: the write goes on. */
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
    const char *path_;                  /* the file */
    char name_[TAV_EXT_PATH_SIZE] = {}; /* its backup name */
    bool usable_;                       /* the backup name begins with the whole path */
};

}  // namespace

uint32_t TAV_ExtCfgFlush(CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_INVALID, "Invalid CfgLocal");
    }
    if (local->mode == TAV_EXT_MODE_READ_ONLY) {
        TAV_FAIL(TAV_ERR_REFUSED, "CfgLocal is readonly mode");
    }
    /* Nothing to write is reported like a failure, on purpose: only the caller knows whether it is one. */
    const uint32_t result = TAV_WriteExtCfgFile(local->filePath, local);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Write %s failed, return 0x%x", local->filePath, result);
    }
    return TAV_OK;
}

uint32_t TAV_WriteExtCfgFile(const char *path, CfgLocal *local) {
    if (!extcfg::IsValid(local)) {
        TAV_FAIL(TAV_ERR_NULL, "Invalid CfgLocal");
    }
    TAV_RETURN_IF_NULL(path, TAV_ERR_NULL);
    const uint32_t bodySize = TAV_CalcExtCfgFileBodySize(local);
    if (bodySize == 0) {
        /* A store without any VS is kept as no file at all: a reader would refuse a head without a body. */
        if (BEX_VFS_IsFileExist(path) != 0) {
            BEX_VFS_DeleteFile(path);
        }
        return TAV_OK;
    }
    const uint32_t headSize = TAV_CalcExtCfgFileHeadSize(local);
    const uint32_t totalSize = extcfg::AddSizes(headSize, bodySize);
    if (totalSize > TAV_EXT_MAX_FILE_SIZE) {
        TAV_FAIL(TAV_ERR_REFUSED, "Too large to write %s, size=%d", path, totalSize);
    }
    const extcfg::OwnedBuffer owned(static_cast<uint8_t *>(TAV_TAKE(totalSize)));
    TAV_RETURN_IF_NULL(owned, TAV_ERR_NO_MEMORY);
    uint8_t *image = owned.get();
    uint32_t result = TAV_BuildExtCfgFileBody(local, image + headSize, bodySize);
    if (result != TAV_OK) {
        TAV_FAIL(result, "Build %s body failed, body size=%d, return 0x%x", path, bodySize, result);
    }
    result = TAV_BuildExtCfgFileHead(image, headSize, totalSize, extcfg::ReferPath(local));
    if (result != TAV_OK) {
        TAV_FAIL(result, "Build %s head failed, head size=%d, return 0x%x", path, headSize, result);
    }
    if (FileHasSameBody(path, image, headSize)) {
        TAV_FAIL(TAV_ERR_UNCHANGED, "Checksum is the same, no need write file");
    }
    const Backup backup(path);
    backup.Keep();
    result = TAV_CheckFileSuffix(path, ".zip") == 1 ? TAV_ZipBufferToExtCfgFile(image, totalSize, path)
                                                    : TAV_WriteBufferToFile(image, totalSize, path);
    if (result != TAV_OK) {
        TAV_LOG("Write %s failed, len=%d, return 0x%x", path, totalSize, result);
        backup.Restore();
        return result;
    }
    backup.Drop();
    return TAV_OK;
}
