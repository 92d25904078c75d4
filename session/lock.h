/*
 * The lock of a file: who holds it may change the file. It is an open-file-description lock on a file of its own, which
 * is never deleted and says who holds it; the kernel releases it when its holder ends, however that happens.
 */
#ifndef SESSION_LOCK_H
#define SESSION_LOCK_H

#include <chrono>

#include "session/files.h"
#include "session/place.h"

namespace session {

using Clock = std::chrono::steady_clock;

/** The moment when a wait that begins now is over. Waits of more than 100 years are cut, none is negative. */
Clock::time_point EndOf(std::chrono::milliseconds wait);

/** The lock, held. */
class HeldLock {
  public:
    /**
     * Takes the lock. Throws Error: TAV_ERR_LOCKED, naming the holder, when it is not free by then; TAV_ERR_OPEN when
     * the folder may not be written or the lock file cannot be opened.
     */
    HeldLock(const Place &place, Clock::time_point until);
    ~HeldLock();
    HeldLock(HeldLock &&) noexcept = default;
    HeldLock &operator=(HeldLock &&) = delete;

  private:
    Descriptor file_;
};

}  // namespace session

#endif
