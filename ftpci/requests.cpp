/*
 * The five requests to the transfer service.
 */
#include "ftpci/message.h"
#include "platform/bex_string.h"

namespace {

/** The part of a mode word that counts. */
constexpr uint32_t kModeMask = 0xFF;

/**
 * A request from its header to its sending; one that is not sent is freed with its holder. When memory for it is short,
 * every step fails.
 */
class Request {
  public:
    Request(uint32_t id1, uint32_t id2, uint32_t id3, uint16_t operation, const NFTPCI_CommHandle *handle)
        : handle_(handle) {
        const NFTPCI_ReqParam param = {0, 0, id1, id2, id3, 0, operation};
        buffer_ = NFTPCI_CreateReqMsg(&param, handle);
    }
    ~Request() { NFTPCI_MsgMemBufFree(buffer_); }
    Request(const Request &) = delete;
    Request &operator=(const Request &) = delete;

    bool Add(uint16_t type, uint32_t length, const void *value) {
        return NFTPCI_AddTlvToMsg(&buffer_, type, length, value) == NFTPCI_OK;
    }

    bool AddNumber(uint16_t type, uint32_t number) { return Add(type, sizeof(number), &number); }

    /** Appends a name in a field of fixed size, filled up with zeros. */
    bool AddName(uint16_t type, const char *name) {
        char field[NFTPCI_FILE_NAME_SIZE] = {};
        return strcpy_s(field, sizeof(field), name) == 0 && Add(type, sizeof(field), field);
    }

    /** Appends what both kinds of put begin with. */
    bool AddPut(uint32_t cfgId, uint32_t transferMode) {
        return AddNumber(NFTPCI_TLV_CFG_ID, cfgId) && AddNumber(NFTPCI_TLV_TRANSFER_MODE, transferMode & kModeMask);
    }

    /** Sends the request; the result is that of the whole request. */
    uint32_t Send(uint8_t requestClass) { return NFTPCI_ReqMsgSend(&buffer_, requestClass, handle_); }

  private:
    NFTPCI_MsgMemBuf *buffer_;         // null when memory is short, and once it is sent
    const NFTPCI_CommHandle *handle_;  // the caller's
};

/** Returns whether a name is there and fits its field. */
bool IsName(const char *name) {
    return name != nullptr && *name != '\0' && BEX_StrLen(name) < NFTPCI_FILE_NAME_SIZE;
}

bool IsMode(uint32_t word) {
    const uint32_t mode = word & kModeMask;
    return mode == 1 || mode == 2;
}

/** Returns whether the length of a block is within its limit and goes with its data. */
bool IsBlock(const NFTPCI_MemBufBlock *block) {
    return block != nullptr && block->length <= NFTPCI_MAX_BLOCK_SIZE && (block->length == 0 || block->data != nullptr);
}

/** Sends a request that is a header alone. */
uint32_t SendQuery(uint32_t id1, uint32_t id2, uint32_t id3, uint16_t operation, const NFTPCI_CommHandle *handle) {
    return handle != nullptr ? Request(id1, id2, id3, operation, handle).Send(NFTPCI_CLASS_QUERY) : NFTPCI_FAILED;
}

}  // namespace

// The mode check value of both put requests is validated and does not travel: requests have a TLV for the transfer mode
// alone.

uint32_t NFTPCI_AsyncPutDiskFile(uint32_t id1, uint32_t id2, uint32_t cfgId, uint32_t modeCheck, uint32_t transferMode,
                                 const char *sourcePath, const char *destPath, const NFTPCI_CommHandle *handle) {
    if (!IsName(sourcePath) || !IsName(destPath) || handle == nullptr || !IsMode(modeCheck) || !IsMode(transferMode)) {
        return NFTPCI_FAILED;
    }
    Request request(id1, id2, 0, NFTPCI_OP_PUT, handle);
    const bool complete = request.AddPut(cfgId, transferMode) && request.AddName(NFTPCI_TLV_SOURCE_NAME, sourcePath) &&
                          request.AddName(NFTPCI_TLV_DEST_NAME, destPath);
    return complete ? request.Send(NFTPCI_CLASS_DISK_FILE) : NFTPCI_FAILED;
}

uint32_t NFTPCI_AsyncPutMemBufReq(uint32_t id1, uint32_t id2, uint32_t cfgId, uint32_t modeCheck, uint32_t transferMode,
                                  const char *destName, const NFTPCI_CommHandle *handle) {
    if (!IsName(destName) || handle == nullptr || !IsMode(modeCheck) || !IsMode(transferMode)) {
        return NFTPCI_FAILED;
    }
    Request request(id1, id2, 0, NFTPCI_OP_PUT, handle);
    const bool complete = request.AddPut(cfgId, transferMode) && request.AddName(NFTPCI_TLV_DEST_NAME, destName);
    return complete ? request.Send(NFTPCI_CLASS_MEM_BUFFER) : NFTPCI_FAILED;
}

uint32_t NFTPCI_AsyncTransMemBufBlock(uint32_t id1, uint32_t id2, uint32_t id3, const NFTPCI_MemBufBlock *block,
                                      const NFTPCI_CommHandle *handle) {
    if (!IsBlock(block) || handle == nullptr) {
        return NFTPCI_FAILED;
    }
    Request request(id1, id2, id3, NFTPCI_OP_MEM_BLOCK, handle);
    const bool complete = request.AddNumber(NFTPCI_TLV_SESSION_ID, block->sessionId) &&
                          request.AddNumber(NFTPCI_TLV_BLOCK_ATTR, block->attribute) &&
                          (block->data == nullptr || request.Add(NFTPCI_TLV_DATA, block->length, block->data));
    return complete ? request.Send(NFTPCI_CLASS_MEM_BUFFER) : NFTPCI_FAILED;
}

uint32_t NFTPCI_AsyncTransFileQuery(uint32_t id1, uint32_t id2, uint32_t id3, const NFTPCI_CommHandle *handle) {
    return SendQuery(id1, id2, id3, NFTPCI_OP_QUERY, handle);
}

uint32_t NFTPCI_AsyncTransFileProgress(uint32_t id1, uint32_t id2, uint32_t id3, const NFTPCI_CommHandle *handle) {
    return SendQuery(id1, id2, id3, NFTPCI_OP_PROGRESS, handle);
}
