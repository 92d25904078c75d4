/*
 * What a store holds, for C programs and other languages that would rather copy records than walk nodes: fields as
 * bytes, records by key and in the order of their keys, values as people write them, names, JSON. Part of
 * libtav_session.so; changes are made by tav_changes.h.
 *
 * Fields stand in bytes one after the other, each of them as two words in host order, its id and the length of its
 * value, and then the value itself in host order, as a store keeps it. Nothing is aligned.
 *
 *     TAV_Bytes records;
 *     code = TAV_StoreRead(local, 0, 13, NULL, 0, 65536, &records);
 *     ... for each record the size of its fields, 4 bytes, and its fields ...
 *     TAV_BytesFree(&records);
 *
 * Stores (CfgLocal) are those of a session (tav_session.h), of tav_history.h, of tav_watch.h, and of TAV_StoreNew. None
 * may be null or closed. Threads: a store is used by one thread at a time. No exception leaves these functions;
 * TAV_SessionErrorText says why one has failed. What a failed function was to fill is null or empty.
 */
#ifndef TAV_STORE_C_H
#define TAV_STORE_C_H

#include <stddef.h>

#include "tav_extcfg.h"

/** Bytes that a function has made: a text, ids, fields, records. The caller's, to be returned by TAV_BytesFree. */
typedef struct TAV_Bytes {
    char *data;  /**< the bytes, and a zero behind them that does not count; null when there are none */
    size_t size; /**< number of bytes */
} TAV_Bytes;

/** Returns bytes and empties the structure. Null, and what is empty, is ignored. */
TAV_API void TAV_BytesFree(TAV_Bytes *bytes);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Names of classes and fields (docs/change-scripts.md). Wherever a function takes names, null stands for none: numbers
 * then stand for themselves.
 * ---------------------------------------------------------------------------------------------------------------------
 */

/** Names from a file. Once loaded they do not change, and any number of threads may use them. */
typedef struct TAV_Names TAV_Names;

/**
 * Loads a file of names.
 *
 * @param path   the file
 * @param names  receives the names, the caller's (TAV_NamesFree); null on failure
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_READ when it cannot be read; TAV_ERR_INVALID, with the place in the file, when
 *         it is no file of names; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_NamesLoad(const char *path, TAV_Names **names);

/** Frees names. Null is ignored. */
TAV_API void TAV_NamesFree(TAV_Names *names);

/**
 * Finds the class that a text names.
 *
 * @param names  the names, or null
 * @param text   a name, or a number
 * @param cid    receives the class
 * @return TAV_OK; TAV_ERR_NULL for a null text or class; TAV_ERR_INVALID when it is neither; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_NamesClass(const TAV_Names *names, const char *text, uint32_t *cid);

/** Finds the field of a class that a text names. As TAV_NamesClass. */
TAV_API uint32_t TAV_NamesField(const TAV_Names *names, uint32_t cid, const char *text, uint32_t *fid);

/**
 * Gives the name of a class, or its number where it has none.
 *
 * @param names  the names, or null
 * @param cid    the class
 * @param text   receives the text, the caller's
 * @return TAV_OK; TAV_ERR_NULL for a null text; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_NamesClassText(const TAV_Names *names, uint32_t cid, TAV_Bytes *text);

/** Gives the name of a field of a class, or its number where it has none. As TAV_NamesClassText. */
TAV_API uint32_t TAV_NamesFieldText(const TAV_Names *names, uint32_t cid, uint32_t fid, TAV_Bytes *text);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Values
 * ---------------------------------------------------------------------------------------------------------------------
 */

/** What the values of a field are. */
enum {
    TAV_KIND_INTEGER = 0, /**< a whole number without sign, of as many bytes as TAV_GetExtTlvDataLen says */
    TAV_KIND_TEXT = 1,    /**< characters, without an end mark */
    TAV_KIND_BYTES = 2,   /**< any bytes */
    TAV_KIND_ADDRESS = 3, /**< an IPv4 or IPv6 address */
    TAV_KIND_TIME = 4,    /**< a moment, a BEX_SysTime */
    TAV_KIND_OPAQUE = 5   /**< the type table does not know it, or as a class */
};

/** Returns what the values of a field are. From then on TAV_GetExtTlvDataLen knows how long they may be. */
TAV_API uint32_t TAV_ValueKind(uint32_t fid);

/**
 * Reads a value as people write it (docs/change-scripts.md).
 *
 * @param fid     the field
 * @param text    the text
 * @param length  its length in bytes
 * @param value   receives the value in host order, the caller's
 * @return TAV_OK; TAV_ERR_NULL for a null text or value; TAV_ERR_INVALID when the text does not suit the field, or the
 *         value would be too long; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ValueParse(uint32_t fid, const char *text, size_t length, TAV_Bytes *value);

/**
 * Writes a value as people do, on one line: so that TAV_ValueParse gives back the same bytes, as "hex:..." where the
 * form of its type would not.
 *
 * @param fid    the field
 * @param value  the value in host order
 * @param size   its size in bytes
 * @param text   receives the text, the caller's
 * @return TAV_OK; TAV_ERR_NULL for a null value or text; TAV_ERR_INVALID for a value that is longer than the field may
 *         be; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_ValueFormat(uint32_t fid, const void *value, size_t size, TAV_Bytes *text);

/*
 * ---------------------------------------------------------------------------------------------------------------------
 * Stores
 * ---------------------------------------------------------------------------------------------------------------------
 */

/**
 * Makes an empty store in memory.
 *
 * @param local  receives the store, to be closed by the caller with TAV_ExtCfgClose and never flushed
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreNew(CfgLocal **local);

/**
 * Lists the virtual systems.
 *
 * @param local  the store
 * @param ids    receives their ids, a word of 32 bits each, in the order of first use
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreListVs(CfgLocal *local, TAV_Bytes *ids);

/**
 * Lists the classes that have records in a virtual system.
 *
 * @param local  the store
 * @param vsId   the virtual system; one that is not there has none
 * @param ids    receives their ids, a word of 32 bits each, in the order of first use
 * @return TAV_OK; TAV_ERR_NULL; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreListClasses(CfgLocal *local, uint32_t vsId, TAV_Bytes *ids);

/** Returns how many records a class has in a virtual system; 0 also where there is no such thing, or a null store. */
TAV_API uint32_t TAV_StoreCount(CfgLocal *local, uint32_t vsId, uint32_t cid);

/**
 * Finds a record by its key.
 *
 * @param local    the store
 * @param vsId     the virtual system
 * @param cid      the class
 * @param key      fields, among them the key fields
 * @param keySize  their size in bytes
 * @param fields   receives the record's fields in their order, the caller's
 * @return TAV_OK; TAV_ERR_NOT_FOUND when there is no such record, or a key field is missing; TAV_ERR_NULL for a null
 *         store, key (but for an empty one) or fields; TAV_ERR_INVALID when a value is too long or the fields are cut
 *         off; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreFind(CfgLocal *local, uint32_t vsId, uint32_t cid, const void *key, size_t keySize,
                               TAV_Bytes *fields);

/**
 * Copies records of a class, in the order of their keys. To walk all of them, call it with the fields of the record
 * that came last, until nothing comes any more; edits in between do no harm.
 *
 * @param local      the store
 * @param vsId       the virtual system
 * @param cid        the class
 * @param after      fields with the key behind which to begin, whether or not there is such a record; null for the
 *                   first record
 * @param afterSize  their size in bytes
 * @param room       about how many bytes to give; at least one record comes if there is any
 * @param records    receives each record as the size of its fields, a word of 32 bits in host order, and its fields;
 *                   the caller's; empty when there is none
 * @return TAV_OK; TAV_ERR_NULL for a null store or records; TAV_ERR_INVALID when a key field is missing, a value too
 *         long, or the fields cut off; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreRead(CfgLocal *local, uint32_t vsId, uint32_t cid, const void *after, size_t afterSize,
                               size_t room, TAV_Bytes *records);

/** The forms of JSON (docs/change-scripts.md). */
enum {
    TAV_JSON_TREE = 0, /**< one object */
    TAV_JSON_LINES = 1 /**< a record a line */
};

/**
 * Writes all of a store as JSON.
 *
 * @param local  the store
 * @param form   TAV_JSON_TREE or TAV_JSON_LINES
 * @param names  names to be shown, or null
 * @param text   receives the text, UTF-8, the caller's
 * @return TAV_OK; TAV_ERR_NULL for a null store or text; TAV_ERR_INVALID for another form; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreToJson(CfgLocal *local, uint32_t form, const TAV_Names *names, TAV_Bytes *text);

/**
 * Adds all that a text holds to a store.
 *
 * @param local   the store; keeps what it was given before the text was refused, so an empty one is the right one
 * @param form    TAV_JSON_TREE or TAV_JSON_LINES
 * @param text    the text, UTF-8
 * @param length  its length in bytes
 * @param names   names that the text may use, or null
 * @param count   receives the number of records; may be null
 * @return TAV_OK; TAV_ERR_NULL for a null store or text; TAV_ERR_INVALID, with the place in the text, for what is no
 *         JSON, out of shape, unsuitable, or there already, and for another form; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_StoreFromJson(CfgLocal *local, uint32_t form, const char *text, size_t length,
                                   const TAV_Names *names, size_t *count);

#endif
