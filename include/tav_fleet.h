/*
 * The same configuration on many machines: a file is published to a key-value bucket of a NATS server with JetStream,
 * and followed from there. The interface of libtav_fleet.so; docs/fleet-store.md says what it promises and how.
 *
 *     TAV_FleetOptions options = {.url = "nats://10.0.0.1:4222", .bucket = "routers", .waitMs = 5000,
 *                                 .flags = TAV_FLEET_ONCE};
 *     if (TAV_FleetFollow("routers.dat", &options) != TAV_OK) {
 *         fprintf(stderr, "%s\n", TAV_FleetErrorText());
 *     }
 *
 * Who may come, and whom to trust, is said by the environment, as for the bus: TAV_BUS_CREDENTIALS names a file with
 * the user's name and password, a line each, TAV_BUS_CA one with certificates. A process with more rights than its
 * starter ignores both.
 *
 * Threads: a call works in the thread that makes it, and calls back in no other; calls in several threads are
 * independent. The client library has threads of its own, which take no signals and run nothing of the caller's.
 *
 * Processes: a child made by fork must not go on with a call. No exception leaves these functions. They complete the
 * product's type table if nobody has (TAV_InitExtTlvDataTypeTable).
 */
#ifndef TAV_FLEET_H
#define TAV_FLEET_H

#include "tav_session.h"

/*
 * Result codes, beside those of tav_base.h and tav_session.h.
 */
#define TAV_ERR_NO_SERVER 0x801711u /**< no server can be reached, the connection is lost, or nobody answers */
#define TAV_ERR_ACCESS    0x801712u /**< credentials or certificates are refused or cannot be read */
#define TAV_ERR_NO_BUCKET 0x801713u /**< the server keeps no streams, has no such bucket, or one that forgets */
#define TAV_ERR_CLAIMED   0x801714u /**< somebody else publishes to the bucket; the text says who */
#define TAV_ERR_CONFLICT  0x801715u /**< the file holds what was not brought by following */
#define TAV_ERR_NOT_WHOLE 0x801716u /**< the bucket holds no whole generation */

/** What a call may do. */
enum {
    TAV_FLEET_WATCH = 1,    /**< publish: go on, and publish each change of the file */
    TAV_FLEET_ONCE = 2,     /**< follow: end with the generation that is there */
    TAV_FLEET_OVERWRITE = 4 /**< follow: replace what others have made of the file */
};

/** What is told. */
enum {
    TAV_FLEET_PUBLISHED = 1, /**< a generation has been published */
    TAV_FLEET_APPLIED = 2,   /**< the file holds a generation now */
    TAV_FLEET_UNCHANGED = 3, /**< the bucket, or the file, holds the content already */
    TAV_FLEET_NOTICE = 4     /**< something hinders, and the call goes on: `text` says what */
};

/** What has happened. Its texts are valid during the call. */
typedef struct TAV_FleetEvent {
    uint32_t kind;        /**< TAV_FLEET_PUBLISHED and so on */
    uint64_t generation;  /**< its number, counted from 1; 0 for a notice */
    uint64_t records;     /**< records of the content */
    uint64_t edits;       /**< records and virtual systems that were put or deleted; 0 where they were not counted */
    const char *checksum; /**< of the body, hexadecimal; empty for a notice */
    const char *text;     /**< of a notice, one line; empty otherwise */
} TAV_FleetEvent;

/** What is to be published or followed, and how. Zero what is not given. */
typedef struct TAV_FleetOptions {
    const char *url;      /**< servers: nats://host:port or tls://host:port, several separated by commas */
    const char *bucket;   /**< the bucket: letters, digits, '-' and '_' */
    const char *refer;    /**< publish: the refer file, or null; its checksum is not published */
    uint32_t ignoreRefer; /**< publish: not 0 to read the file whatever refer file it carries the checksum of */
    uint32_t waitMs;      /**< how long to wait for the file's lock or a program that writes it, and with
                               TAV_FLEET_ONCE for a whole generation; milliseconds */
    uint32_t flags;       /**< TAV_FLEET_WATCH and so on */

    /**
     * Not 0 ends the call, with TAV_OK. Asked at least four times a second, but not while the file's lock or an answer
     * of the server is waited for. Null for a call that goes on.
     */
    int (*isOver)(void *context);

    /** Hears what happens; null for nobody. */
    void (*report)(const TAV_FleetEvent *event, void *context);

    void *context; /**< handed to both */
} TAV_FleetOptions;

/**
 * Publishes what a file holds. The bucket is made when it is not there. One program at a time may publish to a bucket:
 * it says so in the bucket every 2 seconds, and the claim of one that has died ends after 10.
 *
 * With TAV_FLEET_WATCH it goes on until isOver says so: each change of the file is published, a server that is away is
 * waited for, and a file that is missing, or does not load, or has a record that is too large, is told as a notice
 * and published when that is mended.
 *
 * @param path     the file
 * @param options  what is published where; only read
 * @return TAV_OK, also when there was nothing to publish; TAV_ERR_NULL for a null path, options, URL or bucket;
 *         TAV_ERR_INVALID for a malformed URL or name of a bucket; TAV_ERR_MISSING, TAV_ERR_BACKUP, TAV_ERR_INVALID,
 *         TAV_ERR_OPEN when the file cannot be read; TAV_ERR_REFUSED when a record is larger than the server's messages
 *         may be: the text names it; TAV_ERR_NO_SERVER; TAV_ERR_ACCESS; TAV_ERR_NO_BUCKET; TAV_ERR_CLAIMED, also when
 *         another publisher has taken over; TAV_ERR_NOT_SAVED when the server does not keep what it is given;
 *         TAV_ERR_CHANGED when another program keeps writing to the bucket; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_FleetPublish(const char *path, const TAV_FleetOptions *options);

/**
 * Makes a file what the bucket says, generation by generation, each whole and in one step, under the file's lock and
 * into its history. Goes on until isOver says so, unless TAV_FLEET_ONCE is given. The file need not be there. Beside it
 * stands ".<name>.follow", which says what it was made. A server that is away is waited for, unless
 * TAV_FLEET_ONCE is given.
 *
 * Without TAV_FLEET_OVERWRITE a file that others have changed, or that was never made by following, ends the call
 * (TAV_ERR_CONFLICT) and stays as it is; with it the file is replaced. A file that was deleted is made again.
 *
 * @param path     the file; an archive when its real name ends in ".zip"
 * @param options  what is followed where; only read
 * @return TAV_OK; TAV_ERR_NULL for a null path, options, URL or bucket; TAV_ERR_INVALID for a malformed URL or name of
 *         a bucket, and for a file that is no regular file; TAV_ERR_CONFLICT; TAV_ERR_NOT_WHOLE when with
 *         TAV_FLEET_ONCE no whole generation came in time; TAV_ERR_NO_SERVER, TAV_ERR_ACCESS, TAV_ERR_NO_BUCKET;
 *         TAV_ERR_LOCKED (once it has begun, it is tried again without TAV_FLEET_ONCE), TAV_ERR_BACKUP, TAV_ERR_OPEN,
 *         TAV_ERR_CHANGED, TAV_ERR_NOT_SAVED when the file cannot be written; TAV_ERR_NO_MEMORY
 */
TAV_API uint32_t TAV_FleetFollow(const char *path, const TAV_FleetOptions *options);

/**
 * Returns why this thread's last call has failed: one line. Empty after a success. Valid until the thread's next call;
 * never null.
 */
TAV_API const char *TAV_FleetErrorText(void);

#endif
