/*
 * File transfer: the request messages of an asynchronous transfer client, and the byte order of received messages.
 *
 * A request is put together in a build buffer and sent over the message bus. Most callers need the five
 * NFTPCI_Async... functions alone, one for each kind of request; the others are the steps of these. Nothing is
 * kept between calls: the service's answer is a message of its own, which the caller receives. One that comes from a
 * host of the other byte order carries a flag and is brought into local order by TAVFTPCI_SwapMsgBodyByteOrder2Loc.
 * docs/transfer-messages.md shows the messages byte by byte.
 *
 * Requests report nothing; the conversions report to the debug log. Pointer arguments must not be null unless their
 * description says what happens then.
 */
#ifndef TAV_FTPCI_H
#define TAV_FTPCI_H

#include "tav_base.h"

/*
 * Results of requests.
 */
#define NFTPCI_OK          0u          /**< done */
#define NFTPCI_COPY_FAILED 1u          /**< the platform refused to copy a value; from NFTPCI_AddTlvToMsg alone */
#define NFTPCI_FAILED      0xFFFFFFFFu /**< -1: everything else that can go wrong */

/*
 * Results of byte order conversions.
 */
#define TAVFTPCI_OK     0u /**< converted, or nothing to convert */
#define TAVFTPCI_FAILED 1u /**< too short, or of an unknown type */

/*
 * Limits and sizes in bytes.
 */
#define NFTPCI_MSG_HEADER_SIZE 32u   /**< header that every message begins with */
#define NFTPCI_TLV_HEADER_SIZE 4u    /**< type and length before each value */
#define NFTPCI_MAX_MSG_SIZE    4240u /**< a whole request */
#define NFTPCI_FILE_NAME_SIZE  256u  /**< a file name with its terminator */
#define NFTPCI_MAX_BLOCK_SIZE  4096u /**< data of one memory block */

/** Request classes, byte 3 of a message. */
enum {
    NFTPCI_CLASS_DISK_FILE = 0,  /**< put of a disk file */
    NFTPCI_CLASS_MEM_BUFFER = 1, /**< put of a memory buffer, and its blocks */
    NFTPCI_CLASS_QUERY = 2       /**< query and progress */
};

/** Operation codes, in the header of a message. */
enum {
    NFTPCI_OP_PUT = 0,       /**< begin a transfer */
    NFTPCI_OP_MEM_BLOCK = 2, /**< one block of a memory buffer */
    NFTPCI_OP_PROGRESS = 4,  /**< how far is a transfer? */
    NFTPCI_OP_QUERY = 5      /**< what became of a transfer? */
};

/** Types of the TLVs that requests hold. */
enum {
    NFTPCI_TLV_CFG_ID = 0,        /**< configuration id, 32 bits */
    NFTPCI_TLV_SESSION_ID = 1,    /**< session id, a 16-bit number in 32 bits */
    NFTPCI_TLV_BLOCK_ATTR = 2,    /**< block attribute, an 8-bit number in 32 bits */
    NFTPCI_TLV_TRANSFER_MODE = 3, /**< transfer mode, 32 bits: 1 or 2 */
    NFTPCI_TLV_SOURCE_NAME = 12,  /**< source file name, 256 bytes, terminated and filled up with zeros */
    NFTPCI_TLV_DEST_NAME = 13,    /**< destination file name, as the source file name */
    NFTPCI_TLV_DATA = 14          /**< data of a block, 0 to 4096 bytes */
};

/** A request while it is built. */
typedef struct NFTPCI_MsgMemBuf NFTPCI_MsgMemBuf;

/** What goes into the header of a request. */
typedef struct NFTPCI_ReqParam {
    uint32_t reserved0; /**< not looked at */
    uint32_t reserved1; /**< not looked at */
    uint32_t id1;       /**< first identifier */
    uint32_t id2;       /**< second identifier */
    uint32_t id3;       /**< third identifier; 0 where a request has none */
    uint32_t reserved2; /**< not looked at */
    uint16_t operation; /**< operation code */
} NFTPCI_ReqParam;

/** Both ends of the bus that requests travel on. */
typedef struct NFTPCI_CommHandle {
    uint32_t sender;   /**< component id of the caller, under which messages are taken and freed */
    uint32_t receiver; /**< component id of the transfer service */
} NFTPCI_CommHandle;

/** One block of a memory buffer. */
typedef struct NFTPCI_MemBufBlock {
    uint32_t length;    /**< bytes of data, at most NFTPCI_MAX_BLOCK_SIZE */
    uint16_t sessionId; /**< session id that the service gave to the transfer */
    uint8_t attribute;  /**< block attribute */
    const void *data;   /**< the data, the caller's; null for a block without a data TLV */
} NFTPCI_MemBufBlock;

/*
 * Requests. Each is built, sent and forgotten; everything handed in stays the caller's. They return NFTPCI_OK when the
 * request is sent and NFTPCI_FAILED when it is not: for an argument that is refused as described, when memory is short,
 * when the platform refuses to copy a value, and when the bus does not take the message.
 */

/**
 * Asks the service to put a disk file.
 *
 * @param id1           first identifier
 * @param id2           second identifier
 * @param cfgId         configuration id
 * @param modeCheck     1 or 2, else refused; it is checked and does not travel: requests have no TLV for it
 * @param transferMode  1 or 2, else refused. Of this word and the one before, the low 8 bits alone count
 * @param sourcePath    path of the source file, 1 to 255 characters; null is refused
 * @param destPath      path of the destination file, likewise
 * @param handle        sender and receiver; null is refused
 */
TAV_API uint32_t NFTPCI_AsyncPutDiskFile(uint32_t id1, uint32_t id2, uint32_t cfgId, uint32_t modeCheck,
                                         uint32_t transferMode, const char *sourcePath, const char *destPath,
                                         const NFTPCI_CommHandle *handle);

/**
 * Asks the service to put a memory buffer, which follows block by block. Parameters as for NFTPCI_AsyncPutDiskFile,
 * with the name of the destination file alone.
 */
TAV_API uint32_t NFTPCI_AsyncPutMemBufReq(uint32_t id1, uint32_t id2, uint32_t cfgId, uint32_t modeCheck,
                                          uint32_t transferMode, const char *destName, const NFTPCI_CommHandle *handle);

/**
 * Sends one block of a memory buffer. A block whose data pointer is null goes without a data TLV; one with a pointer
 * and length 0 goes with an empty one.
 *
 * @param id1     first identifier
 * @param id2     second identifier
 * @param id3     third identifier
 * @param block   the block; refused when null, when too long, and when it has a length and no data
 * @param handle  sender and receiver; null is refused
 */
TAV_API uint32_t NFTPCI_AsyncTransMemBufBlock(uint32_t id1, uint32_t id2, uint32_t id3, const NFTPCI_MemBufBlock *block,
                                              const NFTPCI_CommHandle *handle);

/** Asks what became of a transfer: three identifiers, and sender and receiver (null is refused). */
TAV_API uint32_t NFTPCI_AsyncTransFileQuery(uint32_t id1, uint32_t id2, uint32_t id3, const NFTPCI_CommHandle *handle);

/** Asks how far a transfer is: three identifiers, and sender and receiver (null is refused). */
TAV_API uint32_t NFTPCI_AsyncTransFileProgress(uint32_t id1, uint32_t id2, uint32_t id3,
                                               const NFTPCI_CommHandle *handle);

/*
 * Building a request step by step.
 */

/**
 * Makes a build buffer with a header and no TLVs.
 *
 * @param param   identifiers and operation code
 * @param handle  sender and receiver; not used before the request is sent
 * @return the buffer, the caller's until NFTPCI_ReqMsgSend has sent it or NFTPCI_MsgMemBufFree; null for a null
 *         argument and when memory is short
 */
TAV_API NFTPCI_MsgMemBuf *NFTPCI_CreateReqMsg(const NFTPCI_ReqParam *param, const NFTPCI_CommHandle *handle);

/** Frees a build buffer; a null one is ignored. Returns NFTPCI_OK. */
TAV_API uint32_t NFTPCI_MsgMemBufFree(NFTPCI_MsgMemBuf *buffer);

/**
 * Appends a TLV to a request. A refused one leaves the request as it was.
 *
 * @param buffer  address of the build buffer's address; it is not changed
 * @param type    type, which the request must not have yet
 * @param length  bytes of the value; message header, TLV headers and values take 4240 bytes at most
 * @param value   the value, copied as it stands; not null, even when it has no bytes
 * @return NFTPCI_OK; NFTPCI_FAILED for a null argument or buffer, a value that does not fit, and a type that is there;
 *         NFTPCI_COPY_FAILED, by which callers know that the platform refused to copy the value
 */
TAV_API uint32_t NFTPCI_AddTlvToMsg(NFTPCI_MsgMemBuf **buffer, uint16_t type, uint32_t length, const void *value);

/**
 * Sends a request as a message of its own with interface number 1, sub-interface number 3 and message code 0x103.
 *
 * @param buffer        address of the build buffer's address. When the request is sent, the buffer is freed and this
 *                      address becomes null; else it stays the caller's, and may be sent again or freed
 * @param requestClass  one of the request classes
 * @param handle        sender and receiver
 * @return NFTPCI_OK; NFTPCI_FAILED for a null argument or buffer, when memory is short, when the copy into the message
 *         fails, and when the bus does not take the message
 */
TAV_API uint32_t NFTPCI_ReqMsgSend(NFTPCI_MsgMemBuf **buffer, uint8_t requestClass, const NFTPCI_CommHandle *handle);

/**
 * Finds a TLV of a message in local order by the total length that the message states, which must be readable. The
 * value of the TLV found may be cut off by the message's end: compare them before reading it.
 *
 * @param message  the message, from its header on
 * @param type     type of the TLV
 * @param tlv      where the address of the first such TLV goes (that of its type, not of its value), inside the
 *                 message and at any alignment; left alone on failure
 * @return NFTPCI_OK; NFTPCI_FAILED for a null message or result address, a message without room for a TLV, and when no
 *         TLV has the type
 */
TAV_API uint32_t NFTPCI_GetDataByTlvType(const void *message, uint16_t type, const void **tlv);

/*
 * Byte order of received messages. Messages and TLVs are converted in place and stand at any alignment.
 */

/**
 * Converts the value of a TLV, whose type and length are in local order already.
 *
 * @param tlv      the TLV, from its type on
 * @param context  a word handed through by TAVFTPCI_SwapByteOrderByTlv; the library's own functions ignore it
 * @return TAVFTPCI_OK; TAVFTPCI_FAILED when the value is too short, which is then left as it is
 */
typedef uint32_t (*TAVFTPCI_SwapFunc)(void *tlv, uintptr_t context);

/** How the values of one type of TLV are converted. */
typedef struct TAVFTPCI_ByteOrderMap {
    uint32_t type;          /**< TLV type */
    TAVFTPCI_SwapFunc swap; /**< converts the value; null for bytes, text, and whatever stays as it is */
} TAVFTPCI_ByteOrderMap;

/** Entries of the library's own table. */
#define TAVFTPCI_BYTE_ORDER_MAP_SIZE 23u

/** All known TLV types. */
TAV_API const TAVFTPCI_ByteOrderMap g_astTavftpciMsgByteOrderMapTbl[TAVFTPCI_BYTE_ORDER_MAP_SIZE];

/*
 * The conversions of the table, each a TAVFTPCI_SwapFunc. Those of 32-bit numbers ask for 4 bytes and convert them.
 */
TAV_API uint32_t TAVFTPCI_SwapCFGID(void *tlv, uintptr_t context);       /**< type 0: configuration id */
TAV_API uint32_t TAVFTPCI_SwapSrcIPV4(void *tlv, uintptr_t context);     /**< type 4: source IPv4 address */
TAV_API uint32_t TAVFTPCI_SwapDestIPV4(void *tlv, uintptr_t context);    /**< type 6: destination IPv4 address */
TAV_API uint32_t TAVFTPCI_SwapSrcIfIdex(void *tlv, uintptr_t context);   /**< type 8: source interface index */
TAV_API uint32_t TAVFTPCI_SwapVpnInstID(void *tlv, uintptr_t context);   /**< type 9: VPN instance */
TAV_API uint32_t TAVFTPCI_SwapDestPortNum(void *tlv, uintptr_t context); /**< type 10: destination port */
TAV_API uint32_t TAVFTPCI_SwapSrcPortNum(void *tlv, uintptr_t context);  /**< type 24: source port */

/** Type 1: session id. Asks for 4 bytes and converts the first two; the other two stay as they are. */
TAV_API uint32_t TAVFTPCI_SwapSessionId(void *tlv, uintptr_t context);

/** Type 5: source IPv6 address. Asks for 16 bytes and converts four 32-bit words; their order stays. */
TAV_API uint32_t TAVFTPCI_SwapSrcIPV6(void *tlv, uintptr_t context);

/** Type 7: destination IPv6 address, converted as the source address. */
TAV_API uint32_t TAVFTPCI_SwapDestIPV6(void *tlv, uintptr_t context);

/** Type 19: result of one file. Asks for 260 bytes and converts the 32-bit word behind the 256 bytes of file name. */
TAV_API uint32_t TAVFTPCI_SwapFileRet(void *tlv, uintptr_t context);

/**
 * Converts the value of a TLV by a table.
 *
 * @param tlv      the TLV, its type and length in local order
 * @param table    the table; the first entry of the TLV's type counts
 * @param count    entries of the table
 * @param context  handed to the conversion
 * @return TAVFTPCI_OK when the type needs no conversion; TAVFTPCI_FAILED when the table does not have it; else what the
 *         conversion returns
 */
TAV_API uint32_t TAVFTPCI_SwapByteOrderByTlv(void *tlv, const TAVFTPCI_ByteOrderMap *table, uint32_t count,
                                             uintptr_t context);

/**
 * Converts the identifiers, the reserved word behind them and the operation code in a message's header. The total
 * length is left alone: it is in local order already.
 *
 * @param message   the message
 * @param logValue  number that the report of a failure names
 * @param length    bytes of the message
 * @return NFTPCI_MSG_HEADER_SIZE; -1 when the message is shorter than that
 */
TAV_API int32_t TAVFTPCI_MsgHeaderSwapByteOrder(void *message, uint32_t logValue, uint32_t length);

/**
 * Brings a received message into local order when its flag says that it is not, and clears the flag. Types and lengths
 * of TLVs are converted in any case, and so are values, with three exceptions: one that is too short or of an unknown
 * type is reported and left as it is; one of 0 or 1 byte is not looked up, so nothing is reported; and one that the
 * message's end cuts off is left as it is. The total length that the message states must have been received.
 *
 * @param message  the message, of which 4 bytes at least must be there, whatever it states
 * @return TAVFTPCI_OK; TAVFTPCI_FAILED when it states less than a header: nothing is changed then
 */
TAV_API uint32_t TAVFTPCI_SwapMsgBodyByteOrder2Loc(void *message);

/**
 * Marks a message as one of the order in which it stands. No field is converted: that is the receiver's task, and the
 * cleared flag tells it that there is no need to.
 *
 * @param message  the message
 * @return TAVFTPCI_OK
 */
TAV_API uint32_t TAVFTPCI_SwapMsgBodyByteOrder2Net(void *message);

#endif
