/*
 * Extended configuration store: a binary configuration database kept in one file, in which every datum is a TLV.
 *
 * A file is kept plain, or as the single member of an archive when its name ends in ".zip". It is opened into an
 * in-memory tree (a CfgLocal), queried and edited there, and flushed back; one record can also be overwritten inside a
 * plain file without loading it. The file format is described in docs/file-format.md.
 *
 * A file holds virtual systems (VS); a VS holds records; a record belongs to a class, whose id (cid) is the record's
 * TLV type; a record is a list of fields, whose id (fid) is the field's TLV type. The key fields of its class tell a
 * record from its siblings.
 *
 * Start-up: call TAV_InitExtTlvDataTypeTable once, before the first store is opened. Before that, values of a fixed
 * size have no length limit, and two values of a field that have the same length compare equal.
 *
 * Threads: no locks. A CfgLocal and everything in it is used by one thread at a time; different CfgLocals are
 * independent, even on the same file (the last flush wins).
 *
 * Failures are reported by result codes (tav_base.h) and, while the debug switch is on, by lines in the debug log.
 * Pointers must not be null where neither a result code nor a word says that they may be.
 */
#ifndef TAV_EXTCFG_H
#define TAV_EXTCFG_H

#include "platform/data_type.h"
#include "platform/sll.h"
#include "tav_base.h"

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * TLV types
 * ---------------------------------------------------------------------------------------------------------------------
 */

/** TLV types of the file's frame. All other types of the table are record classes and fields. */
enum {
    EXT_TLV_HDR = 1,            /**< container: the file head */
    EXT_TLV_VS = 2,             /**< container: one virtual system */
    EXT_TLV_VERSION = 3,        /**< head field: file version, 4 bytes */
    EXT_TLV_MODIFY_TIME = 4,    /**< head field: modify time, 12 bytes */
    EXT_TLV_CHECKSUM = 5,       /**< head field: digest of the body, 32 bytes */
    EXT_TLV_VS_ID = 6,          /**< id of a virtual system, 4 bytes */
    EXT_TLV_REFER_CHECKSUM = 20 /**< head field: checksum of the refer file, 32 bytes */
};

/** Data type of a container: its value is a sequence of TLVs. */
#define TAV_EXT_DATA_TYPE_CONTAINER 0u

/** Data type returned for a TLV type that the table does not know. */
#define TAV_EXT_DATA_TYPE_UNKNOWN 0x8000u

/** Length limit returned for a type that is unknown or whose length is not known yet. */
#define TAV_EXT_LENGTH_UNKNOWN 0xFFFFu

/** Key fields that the store asks for at most, per class. */
#define TAV_EXT_MAX_KEY_FIDS 4u

/** Largest file, archive or uncompressed member, in bytes (100 MiB). */
#define TAV_EXT_MAX_FILE_SIZE 0x6400000u

/** Size of a path with its terminator; longer paths are cut. */
#define TAV_EXT_PATH_SIZE 256u

/** Size of a checksum in bytes. */
#define TAV_EXT_CHECKSUM_SIZE 32u

/**
 * Brings a value between file byte order and host byte order, in place; the same call serves both directions.
 *
 * @param reserved  ignored
 * @param dataType  data type of the value
 * @param length    bytes of the value
 * @param value     the value, at any alignment
 * @return TAV_OK; TAV_ERR_NULL for a null value; TAV_ERR_INVALID for a length below the type's width
 */
typedef uint32_t (*TAV_ExtTlvEndianFunc)(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/** Orders two values of one data type and length: negative, 0 or positive. */
typedef PLATFORM_DataTypeComparer TAV_ExtTlvCompareFunc;

/** What the store knows of one TLV type. */
typedef struct TAV_ExtTlvDataTypeRow {
    uint32_t type;                 /**< TLV type; 0 ends the table. Never changed: lookups rely on it */
    uint16_t dataType;             /**< platform data type; TAV_EXT_DATA_TYPE_CONTAINER for a container */
    uint16_t length;               /**< bytes: the size, or the most a variable value may have; 0 while unknown */
    TAV_ExtTlvEndianFunc endian;   /**< byte order converter, or null; filled in at start-up */
    TAV_ExtTlvCompareFunc compare; /**< comparer, or null; filled in at start-up */
} TAV_ExtTlvDataTypeRow;

/** One key field of a class. */
typedef struct TAV_ExtClassKeyRow {
    uint32_t cid; /**< class id; 0 ends the table */
    uint32_t fid; /**< field id of a key field */
} TAV_ExtClassKeyRow;

/**
 * Visits one TLV.
 *
 * @param type     TLV type
 * @param value    the value, at any alignment, in file byte order
 * @param length   bytes of the value
 * @param context  whatever the walk was given
 * @return 0 to go on; anything else ends the walk and is its result
 */
typedef uint32_t (*TAV_ExtTlvProcFunc)(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Pairs a TLV type with a function. A table of pairs ends at the first pair without a function. */
typedef struct TAV_ExtTlvProcRow {
    uint32_t type;           /**< TLV type */
    TAV_ExtTlvProcFunc func; /**< its function; null ends the table */
} TAV_ExtTlvProcRow;

/** The 28 known TLV types and an end row. Completed at start-up, read only afterwards. */
TAV_API TAV_ExtTlvDataTypeRow g_astExtTlvDataTypeTbl[29];

/** The key fields of each class, in the order in which they are compared, and an end row. */
TAV_API TAV_ExtClassKeyRow g_astExtClassKeyTbl[5];

/**
 * Completes the type table from the platform's data types: sizes, comparers and byte order converters. To be called
 * once at start-up, before any store is opened and before other threads use the library; a second call changes nothing.
 *
 * @param lookup  finds a data type's descriptor; a null lookup, and a data type it does not know, change nothing
 */
TAV_API void TAV_InitExtTlvDataTypeTable(PLATFORM_DataTypeLookup lookup);

/** Returns the table row of a TLV type, or null. */
TAV_API TAV_ExtTlvDataTypeRow *TAV_GetExtTlvDataTable(uint32_t type);

/** Returns the data type of a TLV type; TAV_EXT_DATA_TYPE_UNKNOWN for an unknown type. */
TAV_API uint16_t TAV_GetExtTlvDataType(uint32_t type);

/** Returns the size or longest length of a TLV type in bytes; TAV_EXT_LENGTH_UNKNOWN when it is not known. */
TAV_API uint16_t TAV_GetExtTlvDataLen(uint32_t type);

/** Returns the converter to apply between file and host order, or null; on a big-endian host always null. */
TAV_API TAV_ExtTlvEndianFunc TAV_GetExtTlvEndianFunc(uint32_t type);

/** Returns the comparer of a TLV type, or null. */
TAV_API TAV_ExtTlvCompareFunc TAV_GetExtTlvCompareFunc(uint32_t type);

/**
 * Lists the key fields of a class.
 *
 * @param cid       class id
 * @param fids      receives the field ids in the order in which they are compared
 * @param capacity  entries at `fids`
 * @return the number of key fields; 0 when the class has none or when they do not fit
 */
TAV_API uint32_t TAV_GetExtClassKeyFid(uint32_t cid, uint32_t *fids, uint32_t capacity);

/** Returns the function that a table of pairs gives to a TLV type, or null; null also for a null table. */
TAV_API TAV_ExtTlvProcFunc TAV_GetExtTlvProcFunc(uint32_t type, const TAV_ExtTlvProcRow *table);

/** Returns the converter that suits a platform data type, or null (also for a null descriptor). */
TAV_API TAV_ExtTlvEndianFunc TAV_GetEndianFunc(const PLATFORM_DataType *descriptor);

/** TAV_ExtTlvEndianFunc for 16-bit integers (at least 2 bytes). */
TAV_API uint32_t TAV_USHORT_Endian(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/** TAV_ExtTlvEndianFunc for 32-bit integers (at least 4 bytes). */
TAV_API uint32_t TAV_UINT32_Endian(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/** TAV_ExtTlvEndianFunc for 64-bit integers (at least 8 bytes). */
TAV_API uint32_t TAV_UINT64_Endian(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/** TAV_ExtTlvEndianFunc for addresses (at least 21 bytes): the 32-bit IPv4 word at offset 1 alone is converted. */
TAV_API uint32_t TAV_SYS_IPV4IPV6_Endian(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/** TAV_ExtTlvEndianFunc for system times (at least 12 bytes): the year at 0 and the milliseconds at 8 are converted. */
TAV_API uint32_t TAV_SYS_SYSTIME_Endian(uint32_t reserved, uint16_t dataType, uint16_t length, void *value);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * TLV codec
 *
 * Works on the caller's memory, allocates nothing. `maxLen` is always the number of bytes from the given TLV to the end
 * of its sequence. A TLV's length so large that length + 8 wraps never fits.
 * ---------------------------------------------------------------------------------------------------------------------
 */

/** Bytes of a TLV's header: type and length, 32 bits each, big-endian. */
#define TAV_EXT_TLV_HEAD_SIZE 8u

/** Returns 0 when the TLV's header and value both fit in maxLen bytes, else 1. `tlv` must not be null. */
TAV_API uint32_t TAV_ExtTlvVerify(const uint8_t *tlv, uint32_t maxLen);

/**
 * Steps to the TLV that follows. A clean end and a truncated tail look the same; TAV_ExtTlvProcForEach refuses a tail.
 *
 * @param tlv     a TLV that fits in maxLen bytes
 * @param maxLen  bytes from `tlv` to the end of the sequence
 * @return the next complete TLV, or null
 */
TAV_API uint8_t *TAV_ExtTlvGetNext(uint8_t *tlv, uint32_t maxLen);

/**
 * Finds the first TLV of a type.
 *
 * @param first   first TLV of the sequence
 * @param maxLen  bytes of the sequence
 * @param type    TLV type wanted
 * @return the TLV (its header), or null
 */
TAV_API uint8_t *TAV_ExtTlvFind(uint8_t *first, uint32_t maxLen, uint32_t type);

/**
 * Reads the 32-bit value of the first TLV of a type.
 *
 * @param first   first TLV of the sequence
 * @param maxLen  bytes of the sequence
 * @param type    TLV type wanted
 * @param value   receives the value in host order; left alone on failure
 * @return TAV_OK; TAV_ERR_NULL for a null `value`; TAV_ERR_NOT_FOUND when there is no such TLV; TAV_ERR_INVALID when
 *         its length is not 4
 */
TAV_API uint32_t TAV_ExtTlvGetValue_UINT32(uint8_t *first, uint32_t maxLen, uint32_t type, uint32_t *value);

/**
 * Calls a visitor for every TLV of a sequence, in order.
 *
 * @param visitor  the visitor
 * @param first    first TLV of the sequence
 * @param maxLen   bytes of the sequence; an empty one is an error
 * @param context  handed to the visitor
 * @return TAV_OK; TAV_ERR_NULL for a null visitor or sequence; TAV_ERR_INVALID when the first TLV does not fit, and,
 *         after every complete TLV has been visited, when bytes are left over; else what the visitor gave
 */
TAV_API uint32_t TAV_ExtTlvProcForEach(TAV_ExtTlvProcFunc visitor, uint8_t *first, uint32_t maxLen, void *context);

/**
 * Copies a value and brings it between file and host order as its type demands.
 *
 * @param type         TLV type of the value
 * @param length       bytes of the value
 * @param source       the value
 * @param destination  receives `length` bytes; must not overlap the source
 * @return TAV_OK (also when the converter refuses the length); TAV_ERR_INVALID when the length exceeds the type's
 *         limit; TAV_ERR_COPY when the copy failed
 */
TAV_API uint32_t TAV_ExtTlvConvertEndian(uint32_t type, uint32_t length, const void *source, void *destination);

/**
 * Writes one TLV.
 *
 * @param type         TLV type
 * @param length       bytes of the value
 * @param value        the value in host order; null writes the header alone, for a container whose content follows
 * @param destination  where the TLV goes
 * @param maxSize      bytes at `destination`
 * @return TAV_OK; TAV_ERR_NO_ROOM when length + 8 exceeds maxSize (nothing is written); else what
 *         TAV_ExtTlvConvertEndian gave, with the header already written
 */
TAV_API uint32_t TAV_ExtTlvSet(uint32_t type, uint32_t length, const void *value, uint8_t *destination,
                               uint32_t maxSize);

/**
 * Writes one TLV at a moving cursor.
 *
 * @param type    TLV type
 * @param length  bytes of the value
 * @param value   the value in host order; null writes the header alone
 * @param cursor  in and out: where to write. Advances by what a success writes, also when the write failed, so the
 *                caller must stop at the first failure; stays when it lies beyond `end` already
 * @param end     end of the buffer
 * @return as TAV_ExtTlvSet; TAV_ERR_NO_ROOM also when the cursor lies beyond `end`
 */
TAV_API uint32_t TAV_ExtTlvAppend(uint32_t type, uint32_t length, const void *value, uint8_t **cursor,
                                  const uint8_t *end);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * In-memory model
 *
 * A CfgLocal owns its VS nodes, a VS node its class nodes, a class node the tree of its records, a record its fields.
 * A record is its caller's until TAV_ExtCfgAddRecord has taken it.
 * ---------------------------------------------------------------------------------------------------------------------
 */

typedef struct CfgLocal CfgLocal;                         /**< one open configuration file */
typedef struct TAV_ExtCfgVsNode TAV_ExtCfgVsNode;         /**< one virtual system */
typedef struct TAV_ExtCfgClassNode TAV_ExtCfgClassNode;   /**< the records of one class in one VS */
typedef struct TAV_ExtCfgRecordNode TAV_ExtCfgRecordNode; /**< one record: a class id and a list of fields */
typedef struct TAV_ExtCfgFieldNode TAV_ExtCfgFieldNode;   /**< one field: id, length and value in host order */

/** Open modes. Any other value is read-write. */
enum {
    TAV_EXT_MODE_READ_WRITE = 0, /**< load, query, edit; a file that cannot be loaded starts an empty store */
    TAV_EXT_MODE_READ_ONLY = 1,  /**< load, query; edits and flushes are refused */
    TAV_EXT_MODE_WRITE_ONLY = 2  /**< start empty without reading the file; queries are refused */
};

/**
 * Creates a field node with its id and length set and a value of zeros. No function fills it later, so use
 * TAV_ExtCfgRecordAddFieldValue to build records.
 *
 * @param fid     field id
 * @param length  bytes of the value
 * @return the node, the caller's (TAV_ExtCfgFieldNodeFree); null when the length exceeds the field's limit or memory is
 *         short
 */
TAV_API TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeCreate(uint32_t fid, uint32_t length);

/**
 * Frees a field node that no record has held. Null is ignored. The fields of a record that was loaded are parts of its
 * block: take them out with TAV_ExtCfgFieldNodeDel alone.
 */
TAV_API void TAV_ExtCfgFieldNodeFree(TAV_ExtCfgFieldNode *field);

/**
 * Takes a field out of its record, shortens the record by the field's length + 8, and frees it. Does nothing for a null
 * and for a field that the record does not hold. A record in a store must keep its key fields and one field at least,
 * which is not checked: it would not be found any more, and the file that it is flushed to would not load.
 */
TAV_API void TAV_ExtCfgFieldNodeDel(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field);

/** Returns the first field with this id in a record's field list, or null. */
TAV_API TAV_ExtCfgFieldNode *TAV_ExtCfgFieldNodeFind(const SLL_List *fields, uint32_t fid);

/**
 * Orders two fields: by id, then by length, then, for equal id and length only, by the values. Values of different
 * length are never compared by content, strings included. A field whose id has no comparer compares equal.
 *
 * @return negative, 0 or positive; -1 for a null `a`, else 1 for a null `b`
 */
TAV_API int32_t TAV_ExtCfgFieldCompare(const TAV_ExtCfgFieldNode *a, const TAV_ExtCfgFieldNode *b);

/** Creates an empty record of a class. It is the caller's (TAV_ExtCfgRecordNodeFree). Null when memory is short. */
TAV_API TAV_ExtCfgRecordNode *TAV_ExtCfgRecordNodeCreate(uint32_t cid);

/**
 * Appends a copy of a value to a record as a new field. A field of the same id that is there already stays, and
 * searches go on seeing it first.
 *
 * A failure is not reported to the caller: null arguments, a value longer than the field's limit and a lack of memory
 * leave the record as it was.
 *
 * @param record  the record
 * @param fid     field id
 * @param length  bytes of the value. Fewer than a fixed size are accepted; such a value keeps the host's byte order in
 *                the file
 * @param value   the value in host order; copied
 */
TAV_API void TAV_ExtCfgRecordAddFieldValue(TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t length,
                                           const void *value);

/**
 * Appends a field node of TAV_ExtCfgFieldNodeCreate to a record, which owns it from then on. Nulls are ignored, and so
 * is a node that a record holds already: it would be freed twice. A record's length stays at 0xFFFFFFFF when it would
 * be greater: no such record can be written.
 */
TAV_API void TAV_ExtCfgRecordAddFieldNode(TAV_ExtCfgRecordNode *record, TAV_ExtCfgFieldNode *field);

/**
 * Reads a field of a record.
 *
 * @param record      the record
 * @param fid         field id; the first field of this id is read
 * @param bufferSize  bytes at `buffer`
 * @param buffer      receives the value in host order
 * @param length      receives the value's length in bytes; may be null
 * @return TAV_OK; TAV_ERR_NOT_READY for a null record or buffer; TAV_ERR_NOT_FOUND when the record lacks the field;
 *         TAV_ERR_NO_ROOM when the value is longer than the buffer (nothing is copied); TAV_ERR_COPY when the copy
 *         failed
 */
TAV_API uint32_t TAV_ExtCfgRecordGetFieldValue(const TAV_ExtCfgRecordNode *record, uint32_t fid, uint32_t bufferSize,
                                               void *buffer, uint32_t *length);

/**
 * Checks that a record holds every key field of its class; values are not looked at.
 *
 * @return TAV_OK; TAV_ERR_NULL for a null record; TAV_ERR_INVALID when a key field is missing
 */
TAV_API uint32_t TAV_ExtCfgRecordVerify(const TAV_ExtCfgRecordNode *record);

/**
 * Orders two records, as the tree of a class does: by class id, then by the key fields of the class. A record that
 * lacks a key field sorts first. Records of a class without key fields are all equal.
 *
 * @param keyA,keyB  the part of a record that follows its tree node header
 * @return negative, 0 or positive
 */
TAV_API int32_t TAV_ExtCfgRecordCompare(const void *keyA, const void *keyB);

/**
 * Returns whether a record has every field of a condition with an equal value. The condition's class is not compared.
 *
 * @param record     the record
 * @param condition  the condition, or null for none
 * @return 1 when it matches, also without a condition or with one that has no fields; else 0, also for a null record
 */
TAV_API uint32_t TAV_ExtCfgRecordMatchCond(const TAV_ExtCfgRecordNode *record, const TAV_ExtCfgRecordNode *condition);

/**
 * Overwrites fields of one record with those of another. A field of equal length that compares unequal is changed in
 * place; an absent field, and one of another length, goes to the end of the list; fields that the source lacks are
 * kept. A field whose id has no comparer compares equal, so it is not changed while its length stays. A source must not
 * hold a key field twice: the second would overwrite the key. TAV_ExtCfgSetRecord sees to that.
 *
 * @param target  changed; a failure leaves the fields handled so far changed
 * @param source  only read
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_NO_MEMORY when memory is short or a value exceeds its
 *         field's limit (the old field of that id is gone by then); 0xFFFFFFFF when a copy failed
 */
TAV_API uint32_t TAV_ExtCfgRecordNodeSet(TAV_ExtCfgRecordNode *target, const TAV_ExtCfgRecordNode *source);

/** Frees a record that no store holds, with all its fields. Null is ignored. */
TAV_API void TAV_ExtCfgRecordNodeFree(TAV_ExtCfgRecordNode *record);

/** TAV_ExtCfgRecordNodeFree as the destructor of a class's tree. */
TAV_API void TAV_ExtCfgRecordNodeFreeForRBT(void *record);

/** Creates an empty class node. It is the caller's. Null when memory is short. */
TAV_API TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeCreate(uint32_t cid);

/** Frees a class node that no VS holds, with all its records. Null is ignored. */
TAV_API void TAV_ExtCfgClassNodeFree(TAV_ExtCfgClassNode *classNode);

/** Returns the class node of a class id in a VS, or null. */
TAV_API TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeFind(TAV_ExtCfgVsNode *vs, uint32_t cid);

/** Returns the class node of a class id in a VS, appending an empty one when there is none. Null without memory. */
TAV_API TAV_ExtCfgClassNode *TAV_ExtCfgClassNodeGetInstance(TAV_ExtCfgVsNode *vs, uint32_t cid);

/** Creates an empty VS node. It is the caller's. Null when memory is short. */
TAV_API TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeCreate(uint32_t vsId);

/** Frees a VS node that no store holds, with its classes and records. Null is ignored. */
TAV_API void TAV_ExtCfgVsNodeFree(TAV_ExtCfgVsNode *vs);

/** Returns the VS node of an id, or null. */
TAV_API TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeFind(CfgLocal *local, uint32_t vsId);

/** Returns the VS node of an id, appending an empty one when there is none. Null without memory or a valid store. */
TAV_API TAV_ExtCfgVsNode *TAV_ExtCfgVsNodeGetInstance(CfgLocal *local, uint32_t vsId);

/**
 * Computes and remembers the length in bytes of a VS TLV's value: 12 for the VS id, and 8 + record length a record.
 * Returns 0 for a null VS.
 */
TAV_API uint32_t TAV_ExtCfgVsNodeCalcSize(TAV_ExtCfgVsNode *vs);

/**
 * Creates an empty store.
 *
 * @param mode       open mode
 * @param fileName   the store's file; a relative name is made absolute with the process's current directory. At most
 *                   255 characters, longer ones are cut
 * @param referName  the refer file, whose checksum the store's file carries; null for none
 * @return the store, the caller's (TAV_ExtCfgLocalFree); null for a null name or when memory is short
 */
TAV_API CfgLocal *TAV_ExtCfgLocalCreate(uint32_t mode, const char *fileName, const char *referName);

/** Frees a store with everything in it but a running query's condition, which TAV_ExtCfgEndQuery frees. */
TAV_API void TAV_ExtCfgLocalFree(CfgLocal *local);

/**
 * Makes a path absolute.
 *
 * @param path     the path; one that begins with '/' is copied, any other gets the current directory in front
 * @param out      receives the path, cut to outSize - 1 characters
 * @param outSize  bytes at `out`
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_COPY when the copy failed or the current directory
 *         cannot be read (`out` is then empty)
 */
TAV_API uint32_t TAV_GetAbsPath(const char *path, char *out, uint32_t outSize);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * File image: checking, parsing, building
 * ---------------------------------------------------------------------------------------------------------------------
 */

/** What checking, parsing and head filling share. Zero it before use. All pointers are borrowed. */
typedef struct TAV_ExtCfgFileContext {
    CfgLocal *local;                  /**< the store into which records are parsed, or null */
    uint8_t *image;                   /**< first byte of the file image */
    uint32_t imageSize;               /**< bytes of the image */
    uint32_t headSize;                /**< bytes of the head TLV with its header: the offset of the body */
    const uint32_t *vsFilter;         /**< the one VS id wanted, or null for all */
    TAV_ExtCfgRecordNode *recordCond; /**< class and fields that a record must have, or null */
    TAV_ExtCfgVsNode *currentVs;      /**< the VS that records are being added to, or null */
    uint8_t *foundValue;              /**< value of the first matching record; set only without a store */
    uint32_t foundLength;             /**< its length in bytes */
    const char *referPath;            /**< path of the refer file, or null */
    const uint8_t *storedChecksum;    /**< the 32 checksum bytes inside the image, once they have been checked */
} TAV_ExtCfgFileContext;

/** Head fields in the order in which they are looked for, with the functions that check them. An empty row ends it. */
TAV_API const TAV_ExtTlvProcRow g_astExtCfgFileHeadCheckFuncTbl[5];

/** Head fields in the order in which they are written, with the functions that fill them in. An empty row ends it. */
TAV_API const TAV_ExtTlvProcRow g_astExtCfgFileHeadFillFuncTbl[5];

/**
 * Computes the digest of a piece of memory.
 *
 * @param data     the bytes
 * @param length   number of bytes
 * @param out      receives the digest, cut to outSize bytes
 * @param outSize  bytes at `out`; a checksum has TAV_EXT_CHECKSUM_SIZE
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_COPY when the digest or the copy failed
 */
TAV_API uint32_t TAV_CalcChecksum(const void *data, uint32_t length, uint8_t *out, uint32_t outSize);

/**
 * Checks the structure and the head of a file image: that the head comes first, that the top-level TLVs fill the image
 * exactly, that every mandatory head field is there, and each head field. Sets image, imageSize, headSize and
 * storedChecksum of the context. The image is not changed.
 *
 * @param image    the image; the context points into it afterwards
 * @param size     bytes of the image
 * @param context  zeroed, with referPath set when the file carries a refer checksum
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_NOT_FOUND when a mandatory head field is missing;
 *         TAV_ERR_INVALID for everything else that is wrong
 */
TAV_API uint32_t TAV_CheckExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context);

/**
 * Checks a file image, then parses its body into the context's store, or, without a store, looks for the first record
 * that matches the context's condition.
 *
 * @param image    the image, not changed
 * @param size     bytes of the image
 * @param context  as for TAV_CheckExtCfgFileData, with store, VS filter and condition as wanted
 * @return TAV_OK; 1 when a record was found without a store (foundValue is set), and when a copy failed;
 *         TAV_ERR_INVALID for an image that fails its check or its walk; TAV_ERR_NO_MEMORY, also for a value beyond
 *         its field's limit; else what adding a record gave. After a failure the store keeps what had been added
 */
TAV_API uint32_t TAV_ParseExtCfgFileData(uint8_t *image, uint32_t size, TAV_ExtCfgFileContext *context);

/** Visitor of the body's TLVs; the context is a TAV_ExtCfgFileContext. TLVs other than a VS are passed over. */
TAV_API uint32_t TAV_ParseExtCfgVsNode(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Visitor of the TLVs inside a VS; the context is a TAV_ExtCfgFileContext. TLVs that are no record are passed over. */
TAV_API uint32_t TAV_ParseExtCfgRecordNode(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Visitor of the TLVs inside a record; the context is the TAV_ExtCfgRecordNode that the field is appended to. */
TAV_API uint32_t TAV_ParseExtCfgFieldNode(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Visitor of the head's fields: calls the check function of the type. The context is a TAV_ExtCfgFileContext. */
TAV_API uint32_t TAV_CheckExtCfgFileHeadEachField(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Checks a file version: any whose most significant byte is 0x08. TAV_OK or TAV_ERR_INVALID. */
TAV_API uint32_t TAV_CheckExtCfgFileVersion(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Checks that a modify time has 12 bytes and converts; its content is not looked at. TAV_OK or TAV_ERR_INVALID. */
TAV_API uint32_t TAV_CheckExtCfgFileModifyTime(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Checks the checksum against the body. TAV_OK, TAV_ERR_INVALID, or TAV_ERR_DIGEST when it cannot be computed. */
TAV_API uint32_t TAV_CheckExtCfgFileChecksum(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Checks the refer checksum against the refer file, which must not carry one itself. TAV_OK or TAV_ERR_INVALID. */
TAV_API uint32_t TAV_CheckExtCfgFileReferChecksum(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Fills in the file version. TAV_OK, or TAV_ERR_COPY when the length is not 4. */
TAV_API uint32_t TAV_FillExtCfgFileVersion(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Fills in the current time in host order. TAV_OK, or TAV_ERR_COPY when the length is not 12. */
TAV_API uint32_t TAV_FillExtCfgFileModifyTime(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Fills in the digest of the context's body. TAV_OK; TAV_ERR_COPY when the length is not 32 or the digest failed. */
TAV_API uint32_t TAV_FillExtCfgFileChecksum(uint32_t type, uint8_t *value, uint32_t length, void *context);

/**
 * Fills in the refer file's checksum. TAV_OK; TAV_ERR_COPY when the length is not 32 or the copy failed;
 * TAV_ERR_UNCHANGED without a refer path (the field is left out); TAV_ERR_NOT_FOUND when the refer file cannot
 * be read, fails its check, or carries a refer checksum itself.
 */
TAV_API uint32_t TAV_FillExtCfgFileReferChecksum(uint32_t type, uint8_t *value, uint32_t length, void *context);

/** Returns the bytes of the head that will be written for a store; 0 for an invalid store and before start-up. */
TAV_API uint32_t TAV_CalcExtCfgFileHeadSize(const CfgLocal *local);

/** Returns the bytes of the body that will be written, and updates the VS lengths; 0 for an empty or invalid store. */
TAV_API uint32_t TAV_CalcExtCfgFileBodySize(CfgLocal *local);

/**
 * Appends one field per head field to a record, in the order of the fill table.
 *
 * @param headRecord  an empty record of class EXT_TLV_HDR
 * @param context     image, imageSize, headSize and referPath set; the body must stand in the image already
 * @return TAV_OK; TAV_ERR_COPY when a head field has no fixed length, or the digest or a copy failed;
 *         TAV_ERR_NO_MEMORY; TAV_ERR_NOT_FOUND when the refer file gives no checksum
 */
TAV_API uint32_t TAV_FillExtCfgFileHead(TAV_ExtCfgRecordNode *headRecord, TAV_ExtCfgFileContext *context);

/**
 * Writes one record TLV.
 *
 * @param record  the record
 * @param cursor  in and out: where to write; advances
 * @param end     end of the buffer; nothing is written beyond it
 * @return TAV_OK; TAV_ERR_NO_ROOM when it does not fit; TAV_ERR_INVALID when a value exceeds its field's limit or the
 *         record's length does not add up; TAV_ERR_COPY when a copy failed
 */
TAV_API uint32_t TAV_BuildExtCfgRecordData(const TAV_ExtCfgRecordNode *record, uint8_t **cursor, const uint8_t *end);

/**
 * Builds the head of an image whose body stands already.
 *
 * @param image      the image; its first headSize bytes are written
 * @param headSize   bytes of the head, as TAV_CalcExtCfgFileHeadSize gives them
 * @param totalSize  bytes of the image
 * @param referPath  path of the refer file, or null for a head without a refer checksum
 * @return as TAV_FillExtCfgFileHead and TAV_BuildExtCfgRecordData; TAV_ERR_INVALID, with nothing written, when headSize
 *         exceeds totalSize or the head that is built; TAV_ERR_NO_ROOM when it is less than the head that is built.
 *         After a failure the head's bytes are undefined
 */
TAV_API uint32_t TAV_BuildExtCfgFileHead(uint8_t *image, uint32_t headSize, uint32_t totalSize, const char *referPath);

/**
 * Writes all VS TLVs of a store.
 *
 * @param local      the store, whose VS lengths TAV_CalcExtCfgFileBodySize has just updated
 * @param bodyStart  where the body goes
 * @param bodySize   bytes at `bodyStart`, as TAV_CalcExtCfgFileBodySize gave them
 * @return TAV_OK, also for an empty store; TAV_ERR_NULL for an invalid store or null buffer; else as
 *         TAV_BuildExtCfgRecordData. After a failure the buffer's content is undefined
 */
TAV_API uint32_t TAV_BuildExtCfgFileBody(CfgLocal *local, uint8_t *bodyStart, uint32_t bodySize);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Files
 * ---------------------------------------------------------------------------------------------------------------------
 */

/**
 * Reads a file (an archive when its name ends in ".zip"), checks and parses it.
 *
 * @param path     the file
 * @param context  zeroed, with store, VS filter, condition and refer path as wanted. Its pointers into the image
 *                 (image, foundValue, storedChecksum) are null afterwards: the image is freed
 * @return TAV_OK; TAV_ERR_NULL for a null argument; else what reading or parsing gave. The store keeps what had been
 *         added before a failure
 */
TAV_API uint32_t TAV_LoadExtCfgFile(const char *path, TAV_ExtCfgFileContext *context);

/**
 * Reads a whole plain file of 1 byte to 100 MiB.
 *
 * @param buffer  receives a block that the caller frees with MEL_Free_F; null on failure
 * @param size    receives its size in bytes; 0 on failure
 * @param path    the file
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_OPEN when the size cannot be read or the file does not
 *         open; TAV_ERR_READ when it is empty, too large, or was not read whole; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ReadFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path);

/**
 * Reads the single member of an archive. When the archive's size cannot be read the result is the platform's own code,
 * not TAV_ERR_OPEN as of the plain reader.
 *
 * @param buffer  receives a block that the caller frees with MEL_Free_F; null on failure
 * @param size    receives its size in bytes; 0 on failure
 * @param path    the archive
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_READ when the archive is larger than 100 MiB or the member
 *         empty or larger; TAV_ERR_INVALID when the archive does not hold exactly one member; TAV_ERR_NO_MEMORY;
 *         TAV_ERR_OPEN when decompressing failed; else the code of the platform or of TAV_ReplaceFileSuffix
 */
TAV_API uint32_t TAV_UnZipExtCfgFileToBuffer(uint8_t **buffer, uint32_t *size, const char *path);

/**
 * Reads a file's size.
 *
 * @param path  the file
 * @param size  receives the size in bytes; 0 on failure. A file beyond 32 bits gives 0xFFFFFFFF
 * @return TAV_OK; TAV_ERR_NULL for a null argument; else the platform's code
 */
TAV_API uint32_t TAV_GetFileSize(const char *path, uint32_t *size);

/** Returns 1 when a name is longer than a suffix and ends with it (case matters), else 0, also for null arguments. */
TAV_API uint32_t TAV_CheckFileSuffix(const char *name, const char *suffix);

/**
 * Forms a name with a suffix: the whole name followed by the suffix. Despite the function's name nothing of the old
 * suffix is removed: "a.zip" gives "a.zip.dat".
 *
 * @param name     the name, which must contain a dot
 * @param suffix   the suffix, with its dot
 * @param out      receives the result
 * @param outSize  bytes at `out`
 * @return TAV_OK; TAV_ERR_INVALID for a null argument or a name without a dot; TAV_ERR_COPY when it does not fit
 */
TAV_API uint32_t TAV_ReplaceFileSuffix(const char *name, const char *suffix, char *out, uint32_t outSize);

/**
 * Reads a file (plain or ".zip"), checks it whole, and gives the checksum of its body. A file that carries a refer
 * checksum always fails, which keeps chains of refer files one level deep.
 *
 * @param path     the file
 * @param out      receives the checksum, cut to outSize bytes
 * @param outSize  bytes at `out`; a checksum has TAV_EXT_CHECKSUM_SIZE
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_READ when the file cannot be read; TAV_ERR_COPY when the
 *         copy failed; else as TAV_CheckExtCfgFileData
 */
TAV_API uint32_t TAV_GetExtCfgFileChecksum(const char *path, uint8_t *out, uint32_t outSize);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Opening, querying, reading
 *
 * Records that these functions return stay the store's: do not free them, and do not use them after an edit of the
 * record, a delete, or the close.
 * ---------------------------------------------------------------------------------------------------------------------
 */

/**
 * Opens a configuration file.
 *
 * @param mode       open mode. In read-only mode a file that does not load fails the open. In read-write mode it starts
 *                   an empty store, unless the load had added something before it failed: the next flush then creates
 *                   or replaces the file, or deletes it when nothing was added. Whoever cannot afford that opens
 *                   read-only first. In write-only mode the file is not read
 * @param fileName   the file; an archive when it ends in ".zip". Made absolute and cut to 255 characters; a relative
 *                   name needs a current directory. A ".bak" that a crash has left beside the file is not looked at
 * @param referName  the refer file, or null; must be given exactly when the file carries a refer checksum
 * @return the store, to be closed by the caller with TAV_ExtCfgClose; null on failure, with nothing left allocated
 */
TAV_API CfgLocal *TAV_ExtCfgOpen(uint32_t mode, const char *fileName, const char *referName);

/**
 * Closes a store and frees it with everything in it, a running query included. What was not flushed is lost.
 *
 * @return TAV_OK; TAV_ERR_INVALID for an invalid store
 */
TAV_API uint32_t TAV_ExtCfgClose(CfgLocal *local);

/**
 * Finds a record by its key.
 *
 * @param vsId       id of the VS
 * @param keyRecord  a record of the class with the key fields set; other fields are ignored
 * @param local      the store, in any mode
 * @return the record, still the store's, whose key fields must stay as they are: its place in the store follows from
 *         them; null when there is none, when the key record lacks a key field, and for an
 *         invalid store
 */
TAV_API TAV_ExtCfgRecordNode *TAV_ExtCfgGetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord,
                                                  CfgLocal *local);

/**
 * Starts a walk over all records of one class in one VS, ending a running one. Records may be added and deleted
 * meanwhile: the walk goes on with what stands behind the key that it returned last, deleted or not.
 *
 * @param vsId       id of the VS, which need not exist yet
 * @param condition  a record of the class wanted; copied. Only its class selects: its fields are not matched
 * @param local      the store
 * @return TAV_OK; TAV_ERR_NULL for a null condition; TAV_ERR_INVALID for an invalid store; TAV_ERR_REFUSED for a
 *         write-only store; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ExtCfgStartQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, CfgLocal *local);

/** Returns the next record of the query in key order, still the store's; null at the end and without a query. */
TAV_API TAV_ExtCfgRecordNode *TAV_ExtCfgGetNextRecord(CfgLocal *local);

/** Ends the query. TAV_OK, also when none is running; TAV_ERR_INVALID for an invalid store. */
TAV_API uint32_t TAV_ExtCfgEndQuery(CfgLocal *local);

/**
 * Opens a file read-only and starts a query.
 *
 * @param vsId       id of the VS
 * @param condition  a record of the class wanted; copied
 * @param fileName   the file
 * @param referName  the refer file, or null
 * @return the store, to be walked with TAV_ExtCfgGetNextRecord and closed by the caller; null on failure
 */
TAV_API CfgLocal *TAV_ExtCfgOpenAndQuery(uint32_t vsId, const TAV_ExtCfgRecordNode *condition, const char *fileName,
                                         const char *referName);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Editing
 *
 * Edits change the store in memory; TAV_ExtCfgFlush brings them to the file. All give TAV_ERR_INVALID for an invalid
 * store and TAV_ERR_REFUSED for a read-only one.
 * ---------------------------------------------------------------------------------------------------------------------
 */

/**
 * Adds a record, which the store owns on success and the caller keeps on failure. The record itself goes in: it is not
 * copied. VS and class are created when they are absent, and stay even when the record is then refused.
 *
 * @param vsId    id of the VS
 * @param record  the record, with the key fields of its class set and at least one field; it must not be in a store
 *                already. A class that is no container of the type table is accepted and written, but not read back
 * @param local   the store
 * @return TAV_OK; TAV_ERR_NULL for a null record; TAV_ERR_INVALID for a missing key field, a key that is there
 *         already, or a record that is in a store already; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ExtCfgAddRecord(uint32_t vsId, TAV_ExtCfgRecordNode *record, CfgLocal *local);

/**
 * Overwrites values of a stored record (TAV_ExtCfgRecordNodeSet). Never adds a record.
 *
 * @param vsId    id of the VS
 * @param record  class, key fields and new values; copied, stays the caller's
 * @param local   the store
 * @return TAV_OK; TAV_ERR_NOT_FOUND when there is no such record, and when the given one is null or lacks a key field;
 *         TAV_ERR_INVALID, with nothing changed, when the given one holds a key field twice; TAV_ERR_NO_MEMORY or
 *         0xFFFFFFFF as TAV_ExtCfgRecordNodeSet gives them, with earlier fields changed
 */
TAV_API uint32_t TAV_ExtCfgSetRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *record, CfgLocal *local);

/**
 * Deletes a stored record. Its VS and class stay; an empty VS is still written to the file. The record that a running
 * query returned last is freed when the query has gone on or ended, any other at once.
 *
 * @param vsId       id of the VS
 * @param keyRecord  class and key fields; stays the caller's
 * @param local      the store
 * @return TAV_OK; TAV_ERR_NULL for a null record; TAV_ERR_INVALID for a missing key field; TAV_ERR_NOT_FOUND
 */
TAV_API uint32_t TAV_ExtCfgDelRecord(uint32_t vsId, const TAV_ExtCfgRecordNode *keyRecord, CfgLocal *local);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Writing
 * ---------------------------------------------------------------------------------------------------------------------
 */

/**
 * Writes a store to its own file. The old file is kept as "<path>.bak" until the new one stands, and moved back when
 * the write fails. A ".bak" that lies there already, from a crash, is replaced by the old file, or deleted when the
 * write succeeds: look at it before the first flush. Where the old file cannot be moved (no right to the directory, a
 * path of 255 characters) the new one is written over it.
 *
 * @return TAV_OK; TAV_ERR_UNCHANGED when the file holds the same body already (it is not touched; callers that take
 *         this as success test for it); TAV_ERR_INVALID for an invalid store; TAV_ERR_REFUSED for a read-only store;
 *         else as TAV_WriteExtCfgFile
 */
TAV_API uint32_t TAV_ExtCfgFlush(CfgLocal *local);

/**
 * Writes a store to a file: an archive when the path ends in ".zip", else plain with mode 0640. A store without any VS
 * deletes the file instead. A file that carries a refer checksum is rewritten every time.
 *
 * @param path   the file
 * @param local  the store; its records are not changed, so a failed write can be tried again
 * @return TAV_OK; TAV_ERR_NULL for a null path or an invalid store; TAV_ERR_REFUSED when the image exceeds 100 MiB or
 *         was written short; TAV_ERR_NO_MEMORY; TAV_ERR_UNCHANGED; TAV_ERR_OPEN when the file does not open;
 *         TAV_ERR_NOT_FOUND when the refer file gives no checksum; TAV_ERR_COPY before the start-up call; else what
 *         building or the platform's archive gave
 */
TAV_API uint32_t TAV_WriteExtCfgFile(const char *path, CfgLocal *local);

/**
 * Writes a buffer as a whole new file with mode 0640.
 *
 * @param data    the bytes
 * @param length  number of bytes
 * @param path    the file, created or truncated
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_OPEN when the file does not open; TAV_ERR_REFUSED when it
 *         was written short
 */
TAV_API uint32_t TAV_WriteBufferToFile(const void *data, uint32_t length, const char *path);

/**
 * Writes a buffer as the single member of a new archive.
 *
 * @param data    the bytes
 * @param length  number of bytes, at least 1
 * @param path    the archive, whose name must contain a dot
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_INVALID for no bytes or a name without a dot; TAV_ERR_COPY
 *         when the member's name is too long; else the platform's code
 */
TAV_API uint32_t TAV_ZipBufferToExtCfgFile(const void *data, uint32_t length, const char *path);

/**
 * Overwrites values of one record inside a plain file, without loading it. Fields are overwritten one by one and the
 * head last, so a failure in between leaves a file that no longer loads; a field that the stored record lacks, or has
 * in another length, is passed over without an error.
 *
 * @param vsId       id of the VS
 * @param record     class, key fields and new values. Its key fields are consumed as soon as the file has
 *                   been read: build the record anew for another call, because one without its key field matches the
 *                   first record of the class
 * @param fileName   the file, whose name must end in ".dat"
 * @param referName  the refer file, given exactly when the file carries a refer checksum; else null
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_READ for another suffix or when the file cannot be read;
 *         TAV_ERR_NO_MEMORY; TAV_ERR_NOT_FOUND when there is no such record, also in a file that fails its check;
 *         TAV_ERR_INVALID, with nothing written, when the record holds a key field twice (none is consumed then), and
 *         when the head has another size than one that is built anew;
 *         TAV_ERR_OPEN or TAV_ERR_REFUSED when a write fails; else what building the head gave
 */
TAV_API uint32_t TAV_ExtCfgSetRecordToFile(uint32_t vsId, TAV_ExtCfgRecordNode *record, const char *fileName,
                                           const char *referName);

/**
 * Overwrites bytes of an existing file; its owner and mode stay, and its size too unless the bytes reach beyond it.
 *
 * @param data    the bytes
 * @param length  number of bytes
 * @param path    the file
 * @param offset  where to write, in bytes from the start; at most 0x7FFFFFFF
 * @return TAV_OK; TAV_ERR_NULL for a null argument; TAV_ERR_OPEN when the file does not open; TAV_ERR_REFUSED when the
 *         seek failed or the bytes were written short
 */
TAV_API uint32_t TAV_WriteFileAtOffset(const void *data, uint32_t length, const char *path, uint32_t offset);

/**
 * Reads the checksum that a plain file's head states, without verifying anything: a cheap way to compare files.
 *
 * @param path     the file; an archive is not recognised
 * @param out      receives the checksum
 * @param outSize  bytes at `out`, at least TAV_EXT_CHECKSUM_SIZE
 * @return the number of bytes copied, TAV_EXT_CHECKSUM_SIZE for a well-formed file; 0 on any failure. A count, not a
 *         result code
 */
TAV_API uint32_t TAV_ExtCfgGetChecksumFromFile(const char *path, uint8_t *out, uint32_t outSize);

#endif
