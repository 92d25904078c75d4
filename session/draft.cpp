/*
 * Drafts, written by the product's own functions.
 */
#include "session/draft.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>

#include "session/errors.h"
#include "tav_session.h"

namespace session {

namespace {

void WriteImage(const Place &place, std::span<const uint8_t> image) {
    const auto write = place.IsArchive() ? TAV_ZipBufferToExtCfgFile : TAV_WriteBufferToFile;
    errno = 0;
    const uint32_t code = write(image.data(), static_cast<uint32_t>(image.size()), place.Draft().c_str());
    // The product's codes do not tell a full disk from others. What the system said last may, unless it is about what
    // was tidied up or looked for.
    constexpr int kCauses[] = {EACCES, EDQUOT, EFBIG, EIO, EMFILE, ENFILE, ENOMEM, ENOSPC, EPERM, EROFS};
    if (code != TAV_OK && std::ranges::find(kCauses, errno) != std::end(kCauses)) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place.given, "cannot be written");
    }
    if (code != TAV_OK) {
        throw tav::Error(TAV_ERR_NOT_SAVED, place.given, "cannot be written: " + tav::CodeText(code));
    }
}

/**
 * Gives the draft of a new file the mode and, if that may be, the owner of the lock file, which outlives the file and
 * goes by it: so a file that was deleted is made again as it was. A lock file of its own is 0640, as what the product
 * writes. Where anybody may write, the lock file may be anybody's.
 */
void MakeLikeBefore(const Descriptor &draft, const Place &place) {
    const std::optional<struct stat> lock = StatusOf(place.LockFile()), folder = StatusOf(place.folder);
    const bool isKnown = lock && folder && (folder->st_mode & S_IWOTH) == 0;
    if (isKnown && (lock->st_uid != geteuid() || lock->st_gid != getegid())) {
        static_cast<void>(!fchown(draft.Get(), lock->st_uid, lock->st_gid));
    }
    if (fchmod(draft.Get(), isKnown ? lock->st_mode & 0666 : 0640) != 0) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place.given, "its mode cannot be set");
    }
}

/** Gives the draft the mode and the owner of the file that is there, if one is, and makes it last. */
void Complete(const Place &place) {
    static_cast<void>(chmod(place.Draft().c_str(), 0600));  // whatever the umask
    const Descriptor draft = OpenFile(place.Draft(), O_RDONLY | O_NOFOLLOW);
    if (!draft) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place.given, "its draft cannot be opened");
    }
    if (const std::optional<struct stat> like = StatusOf(place.Path())) {
        MakeLike(draft.Get(), *like, place.given);
    } else {
        MakeLikeBefore(draft, place);
    }
    Sync(draft.Get(), place.given);
}

void RemoveFolder(const Place &place, std::error_code &error) noexcept {
    try {
        // An umask may have left an empty folder without rights, which cannot be looked into.
        static_cast<void>(rmdir(place.DraftFolder().c_str()));
        std::filesystem::remove_all(place.DraftFolder(), error);
    } catch (const std::bad_alloc &) {
        error = std::make_error_code(std::errc::not_enough_memory);
    }
}

}  // namespace

Draft::Draft(const Place &place, std::span<const uint8_t> image) : place_(place) {
    if (!MakeOwnFolder(place.DraftFolder())) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place.given, "its draft folder " + place.DraftFolder() + " cannot be made");
    }
    try {
        WriteImage(place, image);
        Complete(place);
    } catch (...) {
        std::error_code error;
        RemoveFolder(place, error);
        throw;
    }
}

Draft::~Draft() {
    std::error_code error;
    RemoveFolder(place_, error);  // what does not go now goes with the next session
}

struct stat Draft::Status() const {
    return StatusOf(place_.Draft()).value();
}

void Draft::TakePlace() {
    if (rename(place_.Draft().c_str(), place_.Path().c_str()) != 0) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place_.given, "cannot be replaced");
    }
}

void Draft::RemoveLeftover(const Place &place) {
    std::error_code error;
    RemoveFolder(place, error);
    if (error == std::errc::not_enough_memory) {
        throw std::bad_alloc();
    }
    if (error) {
        FailOfSystem(TAV_ERR_NOT_SAVED, place.given, "what is left of " + place.DraftFolder() + " cannot be removed",
                     error.value());
    }
}

}  // namespace session
