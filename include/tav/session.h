/*
 * Sessions, for C++: how several processes and people change one configuration file and lose nothing.
 * docs/sessions.md says what they promise and how; tav_session.h is the same for C, and has the result codes.
 *
 *     tav::Session session("routes.dat", {.create = true});
 *     session.Store().Set(0, tav::Record(13).With(14, 5).With(15, 100));
 *     session.Commit("new metric");
 *
 * All failures are thrown as tav::Error, but for lack of memory, which is std::bad_alloc. An object is used by one
 * thread at a time; different objects are independent.
 */
#ifndef TAV_SESSION_HPP
#define TAV_SESSION_HPP

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tav/store.h"
#include "tav_session.h"

namespace tav {

/** How a file is read. */
struct ReadOptions {
    std::string refer = {};               /**< the refer file, given exactly when the file carries its checksum */
    bool ignoreRefer = false;             /**< load it whatever refer file it carries the checksum of, if any */
    std::chrono::milliseconds wait{5000}; /**< how long to wait for a program that writes without a session */
    bool anyMember = false;               /**< read an archive whose member has another name, as a renamed one has */
};

/** How a session is opened. */
struct SessionOptions {
    std::string refer = {};               /**< the refer file: whose checksum the file carries, and will carry */
    bool ignoreRefer = false;             /**< as for reading; a commit binds the file to `refer`, or to none */
    std::chrono::milliseconds wait{5000}; /**< how long to wait, for the lock, too */
    bool create = false;                  /**< a file that is not there is made by the first commit */
    bool replace = false;                 /**< start empty, also where the file does not load; but keep what it is */
};

/** The lock of a file alone, for a program that loads and flushes by itself. Held as long as the object lives. */
class TAV_VISIBLE Lock {
  public:
    /**
     * Takes the lock. Throws Error: TAV_ERR_LOCKED when another process, or another object of this one, holds it all
     * the time; TAV_ERR_OPEN when the folder or the lock file cannot be opened.
     *
     * @param path  the file, which need not be there
     * @param wait  how long to wait at most
     */
    explicit Lock(const std::string &path, std::chrono::milliseconds wait = std::chrono::seconds(5));
    ~Lock();
    Lock(Lock &&) noexcept;
    Lock &operator=(Lock &&) noexcept;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/** The content of a file as it was at some moment, whole; no lock is taken. */
class TAV_VISIBLE Snapshot {
  public:
    /**
     * Reads a file. One that a program is writing without a session is waited for. Throws Error: TAV_ERR_MISSING;
     * TAV_ERR_BACKUP; TAV_ERR_INVALID when the file does not load; TAV_ERR_OPEN when it cannot be read.
     */
    explicit Snapshot(const std::string &path, const ReadOptions &options = {});

    /** The store, to be read. */
    const tav::Store &Store() const { return store_; }

    /** The store; its edits reach no file. */
    tav::Store &Store() { return store_; }

    /** The checksum of the body, as the head states it: the same for the same content. Hexadecimal. */
    const std::string &Checksum() const { return checksum_; }

  private:
    tav::Store store_;
    std::string checksum_;
};

/** A change of a file: its lock, its content, and the way to commit it. Dropped without a commit it changes nothing. */
class TAV_VISIBLE Session {
  public:
    /**
     * Takes the lock and loads the file. Links are resolved first: the session is on the real file. Throws Error:
     * TAV_ERR_LOCKED, naming the process that holds the lock; TAV_ERR_BACKUP; TAV_ERR_MISSING for a file that is not
     * there and may not be created; TAV_ERR_INVALID when the file does not load (and is not to be replaced) or is no
     * regular file; TAV_ERR_OPEN when folder, lock file or file cannot be opened or may not be written;
     * TAV_ERR_NOT_SAVED when what a session that died has left cannot be removed.
     *
     * @param path     the file; an archive when its real name ends in ".zip"
     * @param options  how it is opened
     */
    explicit Session(const std::string &path, const SessionOptions &options = {});
    ~Session();
    Session(Session &&) noexcept;
    Session &operator=(Session &&) noexcept;

    /**
     * What is to be committed: query it, edit it, or put another store in its place. Never flush or close it.
     * References hold until another store takes its place.
     */
    tav::Store &Store();

    /** Whether there is no file yet, or no longer: the next commit makes one. */
    bool IsNew() const;

    /** The real file's absolute path. */
    const std::string &Path() const;

    /**
     * Brings the store to the file, which holds the whole old or the whole new content at every moment. A store without
     * any VS deletes the file. The session goes on and may be changed and committed again. Throws Error:
     * TAV_ERR_INVALID when the store holds what could not be read back, or was moved or released; TAV_ERR_CHANGED;
     * TAV_ERR_NOT_SAVED; TAV_ERR_OPEN when the file that is there cannot be looked at; TAV_ERR_REFUSED when it would be
     * larger than 100 MiB; TAV_ERR_NOT_FOUND when the refer file gives no checksum. After a failure the file is as it
     * was, unless the text says otherwise.
     *
     * @param comment  what the history keeps about it, UTF-8
     * @return false when the file holds the same already: it is not touched, and the history neither
     */
    bool Commit(const std::string &comment = {});

  private:
    struct State;
    std::unique_ptr<State> state_;
};

/** How a file is recovered. */
struct RecoverOptions {
    std::string refer = {};                /**< the refer file, used where file or backup carry its checksum */
    bool ignoreRefer = false;              /**< as for reading */
    std::chrono::milliseconds wait{5000};  /**< how long to wait for the lock, and for a program that is at work */
    std::chrono::milliseconds still{1000}; /**< for how long nothing must have changed; none for a caller who knows
                                                that no program is at work */
    bool dryRun = false;                   /**< only say what would be done */
};

/** What a recovery has done, or would do. */
struct Recovery {
    /** A file that was moved. */
    struct Move {
        std::string from; /**< its path before */
        std::string to;   /**< its path since */
    };
    std::vector<Move> moves; /**< files that were moved, in this order; none when there was nothing to recover */
    std::string text;        /**< all of it in one line, for people */
};

/**
 * Settles what a program has left that flushed without a session and died: of file and ".bak" the right one becomes the
 * file, the other one is moved aside under a free name. Nothing is deleted. Works under the lock, and waits until
 * nothing has changed for a while. Throws Error: TAV_ERR_MISSING when there is neither; TAV_ERR_INVALID when neither
 * loads; TAV_ERR_LOCKED, also when something goes on changing; TAV_ERR_OPEN; TAV_ERR_NOT_SAVED when a file cannot be
 * moved.
 */
TAV_VISIBLE Recovery Recover(const std::string &path, const RecoverOptions &options = {});

}  // namespace tav

#endif
