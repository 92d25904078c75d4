/*
 * Taking and releasing the lock of a file.
 */
#include "session/lock.h"

#include <fcntl.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <thread>

#include "session/errors.h"
#include "tav_session.h"

namespace session {

namespace {

using std::chrono::milliseconds;

constexpr size_t kNoteSize = 64;  // of the lock file: process id and program, then spaces
constexpr milliseconds kFirstPause{1}, kLongestPause{8};
constexpr mode_t kNewMode = 0640;  // of a lock file whose file is not there yet; and then the file's

/** Applies or releases the lock. Returns whether that succeeded; errno then says why not. */
bool SetLock(int fd, short type) {
    struct flock lock {};  // the process id must be 0
    lock.l_type = type;
    lock.l_whence = SEEK_SET;
    return fcntl(fd, F_OFD_SETLK, &lock) == 0;
}

void RequireWritableFolder(const Place &place) {
    if (faccessat(AT_FDCWD, place.folder.c_str(), W_OK | X_OK, AT_EACCESS) != 0) {
        FailOfSystem(TAV_ERR_OPEN, place.given, "nothing can be written in its folder " + place.folder);
    }
}

/** Lets those lock the file who may write it, and nobody else. Where that fails, others may have to wait for its owner.
 */
void ShareLikeTheFile(const Descriptor &lock, const struct stat &status, const Place &place) {
    const std::optional<struct stat> like = StatusOf(place.Path());
    if (!like) {
        return;
    }
    if (status.st_uid != like->st_uid || status.st_gid != like->st_gid) {
        static_cast<void>(!fchown(lock.Get(), like->st_uid, like->st_gid));
    }
    if (const mode_t mode = (like->st_mode & 0666) | S_IRUSR | S_IWUSR; (status.st_mode & 07777) != mode) {
        static_cast<void>(fchmod(lock.Get(), mode));
    }
}

/** Opens the lock file, and makes it when it is not there. */
Descriptor OpenLockFile(const Place &place) {
    RequireWritableFolder(place);
    const std::string path = place.LockFile();
    constexpr int kFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK;
    Descriptor file = OpenFile(path, kFlags);
    if (!file && errno == ENOENT) {  // where all may write, the kernel may refuse to "create" what others have made
        file = OpenFile(path, kFlags | O_CREAT, kNewMode);
        if (file) {
            static_cast<void>(fchmod(file.Get(), kNewMode));  // whatever the umask
        }
    }
    struct stat status {};
    if (!file || fstat(file.Get(), &status) != 0) {
        FailOfSystem(TAV_ERR_OPEN, place.given, "its lock file " + path + " cannot be opened");
    }
    if (!S_ISREG(status.st_mode) || status.st_nlink > 1) {  // whose content and owner are not ours to change
        throw tav::Error(TAV_ERR_OPEN, place.given, "its lock file " + path + " is another kind of file; remove it");
    }
    ShareLikeTheFile(file, status, place);
    return file;
}

/** Who holds the lock, as the lock file says: its last holder, which it still is or has just been. */
std::string Holder(const Descriptor &file) {
    std::array<char, kNoteSize> note{};
    const ssize_t length = pread(file.Get(), note.data(), note.size(), 0);
    std::string text(note.data(), static_cast<size_t>(std::max<ssize_t>(length, 0)));
    text.resize(text.find_last_not_of(" \n") + 1);
    const size_t gap = text.find(' ');
    return gap == std::string::npos ? "another process"
                                    : fmt::format("process {} ({})", text.substr(0, gap), text.substr(gap + 1));
}

/** Notes who holds the lock. That is a courtesy: where the disk is full there is no note, and no wrong one. */
void NoteHolder(const Descriptor &file) {
    std::string note = fmt::format("{} {}", getpid(), program_invocation_short_name);
    note.resize(kNoteSize - 1, ' ');
    note += '\n';
    if (pwrite(file.Get(), note.data(), note.size(), 0) != static_cast<ssize_t>(note.size())) {
        static_cast<void>(!ftruncate(file.Get(), 0));
    }
}

/** Returns whether an open file is still the one of this name: somebody may have deleted it all the same. */
bool IsCurrent(const Descriptor &file, const std::string &path) {
    struct stat status {};
    const std::optional<struct stat> current = StatusOf(path);
    return fstat(file.Get(), &status) == 0 && current && current->st_ino == status.st_ino;
}

/** Waits for the lock of an open file. */
void Acquire(const Descriptor &file, const Place &place, Clock::time_point until) {
    milliseconds pause = kFirstPause;
    while (!SetLock(file.Get(), F_WRLCK)) {
        if (errno != EAGAIN && errno != EACCES && errno != EINTR) {
            FailOfSystem(TAV_ERR_OPEN, place.given, "its lock file " + place.LockFile() + " cannot be locked");
        }
        if (Clock::now() >= until) {
            throw tav::Error(TAV_ERR_LOCKED, place.given,
                             fmt::format("{} is changing it; try again, or wait longer", Holder(file)));
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(2 * pause, kLongestPause);
    }
}

}  // namespace

Clock::time_point EndOf(milliseconds wait) {
    constexpr milliseconds kLongest = std::chrono::years(100);  // the clock counts nanoseconds, for 292 years
    return Clock::now() + std::clamp(wait, milliseconds(0), kLongest);
}

HeldLock::HeldLock(const Place &place, Clock::time_point until) : file_(OpenLockFile(place)) {
    Acquire(file_, place, until);
    while (!IsCurrent(file_, place.LockFile())) {
        file_ = OpenLockFile(place);
        Acquire(file_, place, until);
    }
    NoteHolder(file_);
}

HeldLock::~HeldLock() {
    if (file_) {
        SetLock(file_.Get(), F_UNLCK);  // closing would not do while a child has a copy of the descriptor
    }
}

}  // namespace session
