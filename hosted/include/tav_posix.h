/*
 * The hosted platform's interface for the hosting process: memory accounts, failed assertions, the data-type registry,
 * and the key file.
 *
 * The product library never calls these; start-up code, tests and diagnostics do.
 */
#ifndef TAV_POSIX_H
#define TAV_POSIX_H

#include <stdint.h>

#include "platform/data_type.h"

#ifdef __cplusplus
extern "C" {
#endif

/** What stands on a memory account. */
typedef struct TAV_Posix_MemAccount {
    uint64_t blocks; /**< blocks taken and not yet returned */
    uint64_t bytes;  /**< sum of the sizes that were asked for these blocks */
} TAV_Posix_MemAccount;

/** A live block, as the tracking of blocks knows it. */
typedef struct TAV_Posix_MemBlock {
    const void *block;  /**< the block, as its taker got it */
    const char *module; /**< source module that took it; lives as long as the process */
    uint32_t line;      /**< source line that took it */
    uint32_t size;      /**< bytes that were asked for */
} TAV_Posix_MemBlock;

/**
 * Receives the account of one source module.
 *
 * @param module   name of the module; lives as long as the process
 * @param account  its account; valid during the call
 * @param context  the word given to TAV_Posix_MemVisitModules
 */
typedef void (*TAV_Posix_MemModuleVisitor)(const char *module, const TAV_Posix_MemAccount *account, void *context);

/**
 * Receives one live block. It must neither take nor return blocks: the list of blocks is locked during the call.
 *
 * @param block    description of the block; valid during the call
 * @param context  the word given to TAV_Posix_MemVisitBlocks
 */
typedef void (*TAV_Posix_MemBlockVisitor)(const TAV_Posix_MemBlock *block, void *context);

/**
 * Adds up all accounts.
 *
 * The figures are exact when no other thread takes or returns blocks meanwhile; else they may be too high by what was
 * returned during the call, never too low by a block that lived throughout.
 *
 * @param total  where the sum goes
 */
void TAV_Posix_MemTotal(TAV_Posix_MemAccount *total);

/**
 * Visits the account of every source module that has taken a block since the process began, empty accounts included,
 * in the order of their first blocks. A block stands on the account of the module that took it, whoever returns it.
 * The visitor may take and return blocks. Exactness is that of TAV_Posix_MemTotal.
 *
 * @param visitor  called once a module
 * @param context  handed to the visitor
 */
void TAV_Posix_MemVisitModules(TAV_Posix_MemModuleVisitor visitor, void *context);

/**
 * Visits every live block, the youngest first. Works only in a process that was started with TAV_MEM_TRACK=1 in its
 * environment.
 *
 * @param visitor  called once a block
 * @param context  handed to the visitor
 * @return 0; -1 when blocks are not tracked, and then nothing was visited
 */
int32_t TAV_Posix_MemVisitBlocks(TAV_Posix_MemBlockVisitor visitor, void *context);

/**
 * Is told of an assertion that failed. When it returns, so does MEL_Assert, and the library goes on with a state or
 * event that is not one of the table's: it may then read beyond the table, and call what lies there
 * (platform/mel_assert.h). So a handler returns only where every table goes on far enough; else it ends the process, or
 * leaves by longjmp.
 *
 * @param source  name of the source module; valid during the call
 * @param line    source line of the assertion
 */
typedef void (*TAV_Posix_AssertHandler)(const char *source, uint32_t line);

/**
 * Lets a handler decide what a failed assertion does, for all threads. Without one, the place is printed to the
 * standard error output and the process aborts.
 *
 * @param handler  the handler; null restores the default
 * @return the former handler; null when that was the default
 */
TAV_Posix_AssertHandler TAV_Posix_SetAssertHandler(TAV_Posix_AssertHandler handler);

/**
 * Finds the platform's descriptor of a data type: the lookup that completes the type table at start-up.
 *
 * @param dataType  data type id
 * @return the descriptor, which lives as long as the process; null for an unknown id
 */
const PLATFORM_DataType *TAV_Posix_FindDataType(uint16_t dataType);

/**
 * Fixes the system time of this process, GMT and local: from now on every reading of it is this moment, with no
 * milliseconds. For programs whose files must come out the same whenever they are made. Ticks and waits go on as ever.
 *
 * @param seconds  since the beginning of 1970, GMT
 * @return 0; ERANGE behind the year 9999, and behind 2038 where the system's time has 32 bits, and nothing is fixed
 */
uint32_t TAV_Posix_FixSystemTime(uint64_t seconds);

/**
 * Writes the path of the key file, under whose key texts are encrypted: where the environment variable TAV_KEY_FILE
 * says, else at etc/tav.key below the system working directory.
 *
 * @param path  where the path goes
 * @param size  bytes of room there
 * @return 0; EINVAL when it is not absolute, so that there is no key: it would be another one in every working
 *         directory; ENAMETOOLONG when it does not fit. After a failure, what stands there is not to be used
 */
uint32_t TAV_Posix_KeyFilePath(char *path, uint32_t size);

/**
 * Returns how many key files this process has made, because there was none to encrypt with. Whoever started it should
 * be told: without a copy of the file, what was encrypted is lost with it.
 */
uint32_t TAV_Posix_KeyFilesMade(void);

/**
 * Encrypts a cipher text of either kind, reversible or digest-based, anew under the present key, which is made if there
 * is none. A text that has the present key already is encrypted anew all the same.
 *
 * @param oldKeyFile  absolute path of the key file under which the text was encrypted
 * @param text        the cipher text
 * @param length      its length in bytes
 * @param keyContext  the key context under which it was encrypted, and will be again
 * @param output      where the text goes, with its terminator; as long as the former one. May be where that lies. Holds
 *                    an empty string after a failure
 * @param size        bytes at `output`
 * @return 0; EINVAL for a null argument and for what is no cipher text; ENOKEY for one of neither key; EBADMSG for one
 *         that was changed or is of another key context, and for an older one, without a key's id, of neither key;
 *         ERANGE without room; EACCES for a key file that is refused; ENOENT when the old one is missing; else the
 *         system's code
 */
uint32_t TAV_Posix_Rekey(const char *oldKeyFile, const char *text, uint32_t length, const char *keyContext,
                         char *output, uint32_t size);

#ifdef __cplusplus
}
#endif

#endif
