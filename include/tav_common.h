/*
 * Common utilities of management processes: message handler tables, a state machine runner, archives of one member as
 * streams, and the debug log.
 *
 * Nothing here keeps anything but the debug switch. Tables, machines, control blocks and buffers are the caller's, for
 * one thread at a time. Where null is not mentioned, an argument must be there.
 */
#ifndef TAV_COMMON_H
#define TAV_COMMON_H

#include "platform/bex_vfs.h"
#include "platform/bex_zip.h"
#include "platform/mel_clock.h"
#include "tav_base.h"

/*
 * Message handler tables.
 *
 * A process declares constant tables of what it handles, and looks its handlers up in them. A lookup tries the entries
 * in order; the first one that fits wins, and an entry without a handler ends the table. Tables are never copied.
 */

/** A handler in a table. What it takes and returns is the caller's affair, who casts it back before calling it. */
typedef void (*TAV_Handler)(void);

/** Entry of a sub-interface handler table. */
typedef struct TAV_SubIfHandler {
    uint8_t interfaceNumber;    /**< number of the interface */
    uint8_t subInterfaceNumber; /**< number of the sub-interface */
    TAV_Handler handler;        /**< null ends the table */
} TAV_SubIfHandler;

/** Entry of a command handler table. */
typedef struct TAV_CmdHandler {
    uint32_t command;    /**< what is commanded */
    TAV_Handler handler; /**< null ends the table */
} TAV_CmdHandler;

/** Entry of a construct handler table. */
typedef struct TAV_ConstructHandler {
    uint32_t stage;      /**< stage of the process's construction */
    TAV_Handler handler; /**< null ends the table */
} TAV_ConstructHandler;

/** Entry of a state handler table: rows with one entry for each state, so that a state's entries form a column. */
typedef struct TAV_StateHandler {
    uint32_t event;      /**< the event handled in the state of this column */
    TAV_Handler handler; /**< null ends the column */
} TAV_StateHandler;

/**
 * Fills a fresh block with zeros.
 *
 * @param block  the block, or null, as an allocation gave it
 * @param size   its size in bytes
 * @return the block
 */
TAV_API void *TAV_MallocInit(void *block, uint32_t size);

/**
 * Finds the handler of an interface and sub-interface.
 *
 * @return the handler; null for a null table and when there is none
 */
TAV_API TAV_Handler TAV_GetSubIfHandler(uint8_t interfaceNumber, uint8_t subInterfaceNumber,
                                        const TAV_SubIfHandler *table);

/** Finds the handler of a command; null for a null table and when there is none. */
TAV_API TAV_Handler TAV_GetMsgHandlerByCmd(uint32_t command, const TAV_CmdHandler *table);

/** Finds the handler of a construction stage; null for a null table and when there is none. */
TAV_API TAV_Handler TAV_GetConstructHandlerByStage(uint32_t stage, const TAV_ConstructHandler *table);

/**
 * Finds the handler of an event in a state.
 *
 * @param event       the event
 * @param state       the state, which must be below the number of states: the platform's assertion is raised otherwise,
 *                    and when that returns, the scan goes on in whatever column it gets to
 * @param table       the table
 * @param stateCount  number of states, which is the number of entries in a row; with none, the assertion is raised
 * @return the handler; null for a null table, after the assertion for a table of no states, and when there is none
 */
TAV_API TAV_Handler TAV_GetMsgHandleByState(uint32_t event, uint32_t state, const TAV_StateHandler *table,
                                            uint32_t stateCount);

/**
 * Handles an event for FSM_Process. Returns 0 when the state is to change, which must still be there then; anything
 * else when it is to stay.
 */
typedef uint32_t (*FSM_Handler)(uintptr_t arg1, uintptr_t arg2, uintptr_t arg3);

/** Entry of a transition table for FSM_Process: rows for the states, with one entry for each event. */
typedef struct FSM_Transition {
    uint32_t nextState;  /**< the state after the handler has succeeded */
    FSM_Handler handler; /**< null: the event is refused in this state */
} FSM_Transition;

#define FSM_FAILED 0xFFFFFFFFu /**< FSM_Process: nothing was handled, or the handler failed; the state is as it was */

/**
 * Handles one event: calls the handler of the state and event and, when that succeeds, moves to the next state.
 *
 * @param event       the event, which must be below the number of events: the platform's assertion is raised otherwise,
 *                    and when that returns, the entry at the computed place is used all the same
 * @param state       the state, which must be one of the table's; changed on success
 * @param table       the table
 * @param eventCount  number of events, which is the number of entries in a row
 * @param arg1,arg2,arg3  handed to the handler
 * @return 0; FSM_FAILED for a null state or table, without a handler, and when the handler fails
 */
TAV_API uint32_t FSM_Process(uint32_t event, uint32_t *state, const FSM_Transition *table, uint32_t eventCount,
                             uintptr_t arg1, uintptr_t arg2, uintptr_t arg3);

/**
 * Finds the first TLV of a type in a message with padded TLVs: a 16-bit length of the whole message at offset 0; from
 * offset 8 on TLVs, each a 16-bit type, a 16-bit length of the value alone and the value, padded to a multiple of 4
 * bytes. All numbers are in host order; nothing need be aligned.
 *
 * The lengths in the message are trusted. The first TLV is looked at even in a message too short for it, and any other
 * whose first byte lies within the message: 12 bytes, and 3 bytes behind the message, must be readable.
 *
 * @param valueLength  where the length of the value goes in bytes; left alone when there is no such TLV
 * @param type         the type
 * @param message      the message
 * @return the value, within the message; null when there is no such TLV
 */
TAV_API const void *TAV_TLV_Find(uint16_t *valueLength, uint16_t type, const void *message);

/** As TAV_TLV_Find, in a message whose numbers are in network byte order. The length is given in host order. */
TAV_API const void *TAV_TLV_Find_NTOH(uint16_t *valueLength, uint16_t type, const void *message);

/*
 * State machine runner.
 *
 * A machine is embedded in an object of the caller's and driven by a constant table of transitions. It keeps a ring of
 * its last steps for diagnosis.
 */

/** Result codes of the state machine runner; success is 0. */
#define TAV_FSM_NO_TRANSITION 1u        /**< no transition for the current state and the event */
#define TAV_FSM_ERR_NULL      0x800000u /**< a null machine */

#define TAV_FSM_START_EVENT 0xFFFFu /**< the event under which the start of a machine is recorded */
#define TAV_FSM_FIRST       1u      /**< result of an action that chooses the first outcome */
#define TAV_FSM_REPEAT      1u      /**< repeat flag of an outcome: run again at once, with the same event */
#define TAV_FSM_RECORDS     10      /**< records in a ring */

/**
 * The action of a transition. It may run the same machine, but not free it: the step goes on with it.
 *
 * @param state     the current state
 * @param event     the event
 * @param argument  argument of the event
 * @param userData  the machine's user data
 * @return TAV_FSM_FIRST for the first outcome, anything else for the second
 */
typedef uint32_t (*TAV_FSM_Action)(uint32_t state, uint32_t event, uintptr_t argument, uintptr_t userData);

/** What follows a transition. */
typedef struct TAV_FSM_Outcome {
    uint8_t repeat;    /**< TAV_FSM_REPEAT, or 0 */
    uint8_t nextState; /**< the state after the transition */
} TAV_FSM_Outcome;

/** A transition. */
typedef struct TAV_FSM_Transition {
    uint8_t state;          /**< the state and the event that it is for */
    uint8_t event;          /**< so no event above 255 ever finds a transition */
    TAV_FSM_Action action;  /**< null for none; the first outcome follows then */
    TAV_FSM_Outcome first;  /**< taken when the action returns TAV_FSM_FIRST */
    TAV_FSM_Outcome second; /**< taken when it returns anything else */
} TAV_FSM_Transition;

/** A step of a machine, or a run of steps that are the same. */
typedef struct TAV_FSM_Record {
    uint16_t state;       /**< the state in which it was taken */
    uint16_t event;       /**< the event */
    MEL_Date date;        /**< local date and time of the step, the first one of a run */
    MEL_DayTime time;     /**< continues the date */
    uint32_t repeatCount; /**< number of steps in the run */
} TAV_FSM_Record;

/** The last steps of a machine. */
typedef struct TAV_FSM_Ring {
    TAV_FSM_Record records[TAV_FSM_RECORDS]; /**< at most 9 of them are shown at a time */
    uint16_t oldest;                         /**< index of the oldest record to show */
    uint16_t next;                           /**< index of the record to write next, which is never shown */
} TAV_FSM_Ring;

/** A state machine. TAV_FSM_Init sets all of it. */
typedef struct TAV_FSM {
    uint8_t state;                         /**< the current state */
    uint8_t transitionCount;               /**< number of transitions in the table */
    const TAV_FSM_Transition *transitions; /**< the table, the caller's; null for none */
    TAV_FSM_Ring ring;                     /**< the last steps */
    uintptr_t userData;                    /**< handed to every action */
} TAV_FSM;

/**
 * Writes a record as text. It must neither run nor free the machine.
 *
 * @param record  the record
 * @param buffer  where the text goes
 * @param size    bytes there are for it, possibly none
 * @return bytes written, a terminator behind them not counted. An answer above `size`, such as snprintf's for a text
 *         that it cut, counts as `size`; a negative one as 0
 */
typedef uint32_t (*TAV_FSM_Formatter)(const TAV_FSM_Record *record, char *buffer, uint32_t size);

/**
 * Sets a machine up, and records its start as a step of the initial state and TAV_FSM_START_EVENT. A null machine is
 * ignored.
 *
 * @param machine          the machine
 * @param initialState     the state that it starts in
 * @param transitions      the table, which must stay as long as the machine is used
 * @param transitionCount  number of transitions in the table
 * @param userData         handed to every action
 */
TAV_API void TAV_FSM_Init(TAV_FSM *machine, uint8_t initialState, const TAV_FSM_Transition *transitions,
                          uint8_t transitionCount, uintptr_t userData);

/**
 * Takes one step: calls the action of the first transition for the current state and the event, records the step, then
 * moves to the next state. An action may run the same machine: its steps are recorded before the one that it is part
 * of, and the outcome of that one decides the state in the end.
 *
 * @param machine   the machine
 * @param event     the event
 * @param argument  handed to the action
 * @param repeat    where the repeat flag of the outcome goes; left alone when no step was taken
 * @return 0, whatever the action returned; TAV_FSM_NO_TRANSITION, also for a machine without a table;
 *         TAV_FSM_ERR_NULL for a null machine
 */
TAV_API uint32_t TAV_FSM_Run_Base(TAV_FSM *machine, uint32_t event, uintptr_t argument, uint16_t *repeat);

/**
 * Takes steps with one event for as long as they ask to be repeated.
 *
 * @return the result of the last step, as of TAV_FSM_Run_Base: TAV_FSM_NO_TRANSITION also when steps were taken and the
 *         last one led to a state that has no transition for the event
 */
TAV_API uint32_t TAV_FSM_Run(TAV_FSM *machine, uint32_t event, uintptr_t argument);

/**
 * Records a step in a ring, with the current local time; a step that is the same as the last one is counted with it.
 *
 * @param ring   the ring; one of zeros takes a step of state 0 and event 0 for a repeated one, and never shows it; one
 *               whose indexes are none is left as it is
 * @param state  the state in which the step is taken
 * @param event  the event
 */
TAV_API void TAV_FSM_SaveDiagnoseInfo(TAV_FSM_Ring *ring, uint16_t state, uint16_t event);

/**
 * Writes the recorded steps of a machine as text, from the oldest to the newest.
 *
 * @param machine    the machine
 * @param formatter  writes one record; called for each one, also when the buffer is full
 * @param buffer     where the text goes
 * @param size       size of the buffer in bytes
 * @return bytes written; 0 also for a null argument, a size of 0 and a ring whose indexes are none
 */
TAV_API uint32_t TAV_FSM_DumpDiagnoseInfo(const TAV_FSM *machine, TAV_FSM_Formatter formatter, char *buffer,
                                          uint32_t size);

/** Does nothing: an entry point for tables that need one. */
TAV_API void TAV_dummy(void);

/*
 * Archives of one member as streams of text.
 *
 * Writing: TAV_ZipStart; then the caller appends to the buffer, grown as TAV_GetZipBufferSize says; TAV_Zip;
 * TAV_ZipEnd. Reading: TAV_UnZipStart; TAV_GetCharFromZip until it returns 0; TAV_UnZipEnd. Results are 0,
 * TAV_ZIP_FAILED, or a code of the platform.
 */

#define TAV_ZIP_FAILED    0xFFFFFFFFu /**< -1: a null argument, or a failure for which the platform has no code */
#define TAV_ZIP_PATH_SIZE 256         /**< bytes of a path, and of a member's name, with the terminator */

/** Control block of a stream, the caller's; for writing or for reading, not for both at a time. */
typedef struct TAV_ZipCb {
    BEX_UnzipFile *file;          /**< reading: the open member */
    char path[TAV_ZIP_PATH_SIZE]; /**< path of the archive, cut to 255 characters */
    void *buffer;  /**< writing: the text, a block of the caller's memory module; reading: the chunk, which is the
                        platform's */
    uint32_t size; /**< writing: size of the buffer in bytes; reading: length of the chunk */
    uint32_t used; /**< writing: length of the text, without its terminator; reading: bytes read of the chunk */
} TAV_ZipCb;

/** Returns the size of a control block in bytes: 272 where pointers have 4 bytes. */
TAV_API uint32_t TAV_GetZipCbSize(void);

/**
 * Begins an archive: takes a buffer of 512 KiB, with undefined content. Nothing is written yet.
 *
 * @param memModule  memory module to which the buffer is accounted
 * @param block      the control block; its content does not matter
 * @param path       path of the archive, cut to 255 characters; not the one within the block
 * @return 0; TAV_ZIP_FAILED for a null argument or when memory is short
 */
TAV_API uint32_t TAV_ZipStart(uintptr_t memModule, TAV_ZipCb *block, const char *path);

/**
 * Checks whether text and its terminator still fit in the buffer. When they do not, the caller takes a larger buffer
 * (MEL_MemReAlloc) and sets the block's buffer and size.
 *
 * @param block  the control block
 * @param add    bytes of text to append
 * @return 0 when they fit; else the size in bytes to grow the buffer to, a multiple of 512 KiB; TAV_ZIP_FAILED (no
 *         such multiple) for a null block and when no 32-bit size would do
 */
TAV_API uint32_t TAV_GetZipBufferSize(const TAV_ZipCb *block, uint32_t add);

/**
 * Writes the archive, with the text and the byte behind it, which is to be the text's terminator, as its member
 * "melcfg.cfg". The buffer stays.
 *
 * @return 0; a code of the platform's; TAV_ZIP_FAILED for a null block
 */
TAV_API uint32_t TAV_Zip(const TAV_ZipCb *block);

/** Frees the buffer, if there is one. Returns 0; TAV_ZIP_FAILED for a null block. */
TAV_API uint32_t TAV_ZipEnd(TAV_ZipCb *block);

/**
 * Makes a fresh directory below the platform's memory file system, named after the time and the tick counter.
 *
 * @param path  where its path goes; undefined after a failure
 * @param size  bytes there are for the path, 256 for all of it. A longer path is cut, and may then be one of a
 *              directory that was there before
 * @return 0; a code of the platform's; TAV_ZIP_FAILED for a null path and when there is no room for any name
 */
TAV_API uint32_t CMF_GetUnZipTmpDir(char *path, uint32_t size);

/**
 * Finds the name of an archive's only member. The archive is unpacked for that, into a temporary directory that is gone
 * when the function returns; so a member that is longer than the platform unpacks has no name that can be found.
 *
 * @param archivePath  path of the archive
 * @param memberName   where the name goes, 256 bytes; left alone on failure
 * @return 0; a code of the platform's; TAV_ZIP_FAILED for a null argument and when there are more members or none
 */
TAV_API uint32_t CMF_GetZipFileNameInZip(const char *archivePath, char *memberName);

/**
 * Opens the only member of an archive for reading.
 *
 * @param block        the control block; its content does not matter, and is left alone when the member is not found
 * @param archivePath  path of the archive, not one within the block
 * @return 0, and TAV_UnZipEnd has to follow; TAV_ZIP_FAILED for a null argument or when the member cannot be
 *         opened; else the code of CMF_GetZipFileNameInZip
 */
TAV_API uint32_t TAV_UnZipStart(TAV_ZipCb *block, const char *archivePath);

/**
 * Reads the next chunk of the member into the block.
 *
 * @param block    the control block, open for reading
 * @param endFlag  set to 1 at the end of the member, else to 0; left alone on failure
 * @return 0; TAV_ZIP_FAILED for a null argument, a block that is not open, and when reading fails
 */
TAV_API uint32_t TAV_UnZip(TAV_ZipCb *block, uint32_t *endFlag);

/**
 * Reads the next character of the member.
 *
 * @return the character, negative for a byte above 127; 0 at the end, on failure and for a null block. A byte of 0
 *         cannot be told from the end: the member holds text
 */
TAV_API int8_t TAV_GetCharFromZip(TAV_ZipCb *block);

/** Closes the member, and with it the chunk. Returns 0; TAV_ZIP_FAILED for a null block. */
TAV_API uint32_t TAV_UnZipEnd(TAV_ZipCb *block);

/*
 * Debug log.
 *
 * One process-wide switch, off at load, and one call that appends a time-stamped line to a text file below the
 * platform's system working directory. Nothing is cached between calls: a line has reached the file when the call
 * returns, and anyone may rotate, read or delete the file in between. A file that has grown to 32 MiB is moved to
 * "<path>.old" before the next line. Nothing here fails loudly: a line that cannot be written is dropped.
 */

/**
 * The debug switch: 0 off, anything else on. A host may write it directly, which is also the only way to switch the
 * log off again.
 */
TAV_API uint8_t g_ucTavDebugFlag;

/** Returns the debug switch: 0 off, non-zero on. */
TAV_API uint32_t TAV_GetDebugFlag(void);

/** Switches the debug log on for the rest of the process's life: no call switches it off. */
TAV_API void TAV_SetDebugFlag(void);

/**
 * Formats a message and appends it to a log. Does not look at the switch: the caller does, so that a disabled report
 * costs one byte test. Does nothing when the log name, the function name or the format is null.
 *
 * @param logName   names the file "var/log/<logName>.log" below the system working directory; the library itself
 *                  writes to "tav_debug" alone
 * @param function  the reporting function's name
 * @param line      the reporting source line
 * @param format    printf format of the message; cut to 999 characters
 */
TAV_API TAV_PRINTF_FORMAT(4, 5) void TAV_DEBUG_Log(const char *logName, const char *function, uint32_t line,
                                                   const char *format, ...);

/**
 * Appends a finished message to a log, as one entry "\r\n[<GMT time>]: [<function>: <line>] <message>". The line break
 * stands before the entry and not behind it.
 *
 * @param logName   names the file, as for TAV_DEBUG_Log; must not be null
 * @param function  the reporting function's name; must not be null
 * @param line      the reporting source line
 * @param message   the message; must not be null
 * @return what closing the file returned (0 on success); also 0 when the file could not be opened and nothing was
 *         written
 */
TAV_API int32_t TAV_DEBUG_WriteLogFile(const char *logName, const char *function, uint32_t line, const char *message);

/**
 * Opens a log file for appending, creating it, after having moved it to "<path>.old" when it holds 32 MiB or more. The
 * directory is never created.
 *
 * @param path  full path of the log file
 * @return the open file, to be closed by the caller with BEX_VFS_FClose; null for a null path and on failure
 */
TAV_API BEX_VFS_File *TAV_DEBUG_OpenLogFile(const char *path);

#endif
