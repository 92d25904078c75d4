/*
 * Watching a file: waiting until its content changes, whoever changes it, and seeing it before and after.
 *
 *     tav::Watch watch("routes.dat");
 *     while (watch.Wait()) {
 *         Report(tav::Diff(watch.Before(), watch.After()));
 *     }
 */
#ifndef TAV_WATCH_H
#define TAV_WATCH_H

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "tav/session.h"

namespace tav {

/**
 * Sees each state of a file that it gets to load: commits that follow each other closely are seen as one. No lock is
 * taken, and nobody is held up. A file that is not there counts as an empty store; one that a program is writing
 * without a session is waited for. The watch is on the real file: it stays there when a link is made to lead elsewhere.
 */
class TAV_VISIBLE Watch {
  public:
    /**
     * Loads the file and begins to watch. Throws Error as Snapshot does, but for a file that is not there; TAV_ERR_OPEN
     * when the system cannot watch the folder.
     *
     * @param path     the file, which need not be there
     * @param options  how the file is read, every time
     */
    explicit Watch(const std::string &path, const ReadOptions &options = {});
    ~Watch();
    Watch(Watch &&) noexcept;
    Watch &operator=(Watch &&) noexcept;

    /**
     * Waits until the file has another content than the last time; then that is what After() returns. Throws Error:
     * TAV_ERR_BACKUP or TAV_ERR_INVALID when the file has changed and does not load, and the watch may go on;
     * TAV_ERR_OPEN when its folder is gone or it cannot be read. When that failed, or memory was short, the next call
     * tries again before it waits.
     *
     * @param timeout  how long to wait for a change at most; nothing for ever. A signal that is handled ends it as well
     * @return whether the content has changed
     */
    bool Wait(std::optional<std::chrono::milliseconds> timeout = {});

    /** The content before the last change; an empty store until there was one. */
    const Store &Before() const;

    /** The content that was seen last. */
    const Store &After() const;

    /**
     * A descriptor that becomes readable when Wait may have something to do: for programs that wait for many things
     * (poll(2)), and then call Wait(0ms) once. The watch's.
     */
    int Descriptor() const;

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tav

#endif
