/*
 * A file replaced as a whole, by whoever has its next image already: one that comes from another machine, say.
 */
#ifndef TAV_IMAGE_SESSION_H
#define TAV_IMAGE_SESSION_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "tav/error.h"

namespace tav {

/**
 * The lock of a file, and the way to give it another image in one step, as a session's commit does. What is there is
 * not loaded, so the cost does not depend on it. Dropped without a replacement it changes nothing.
 */
class TAV_VISIBLE ImageSession {
  public:
    /**
     * Takes the lock. Links are resolved first. Throws Error as Session does, but for a file that is not there, or does
     * not load.
     *
     * @param path  the file, which need not be there; an archive when its real name ends in ".zip"
     * @param wait  how long to wait for the lock
     */
    explicit ImageSession(const std::string &path, std::chrono::milliseconds wait = std::chrono::seconds(5));
    ~ImageSession();
    ImageSession(ImageSession &&) noexcept;
    ImageSession &operator=(ImageSession &&) noexcept;

    /** The real file's absolute path. */
    const std::string &Path() const;

    /**
     * The checksum of the body as the file's head states it, hexadecimal; whether it is right is not looked at. Empty
     * for a file that states none; nothing when there is no file.
     */
    const std::optional<std::string> &Checksum() const;

    /**
     * Makes a file of an image, in one step; mode and owner stay. The session goes on. Throws Error: TAV_ERR_INVALID
     * when the history is on and the image does not load; TAV_ERR_CHANGED; TAV_ERR_NOT_SAVED; TAV_ERR_OPEN when the
     * file that is there cannot be looked at. After a failure the file is as it was, unless the text says otherwise.
     *
     * @param image    head and body; it must load, without a refer file, and have at most 100 MiB
     * @param comment  what the history keeps about it, UTF-8
     */
    void Replace(std::span<const uint8_t> image, const std::string &comment = {});

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace tav

#endif
