/*
 * Waiting until a file is whole.
 */
#include "session/load.h"

#include <fcntl.h>

#include <ctime>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "session/errors.h"
#include "tav_session.h"

namespace session {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPause{2};
constexpr milliseconds kStill{250};            // a file that nobody has changed for so long is not being written
constexpr milliseconds kLongestFlush{30'000};  // a backup that is older was left behind
constexpr int kMissingLooks = 3;               // a file between its two names can be missed once, hardly three times

/** What one look has found. */
struct Look {
    std::optional<Loaded> loaded;
    std::optional<tav::Error> problem;  // why the file does not load; nothing when it is missing
};

Look LookAt(const Place &place, const Refer &refer) {
    try {
        std::optional<ReadImage> read = ReadImageOf(place);
        if (!read) {
            return {};
        }
        Content content = ParseImage(read->image, place.Path(), refer, place.given);
        return {Loaded{std::move(read->image), std::move(content), read->identity}, {}};
    } catch (const tav::Error &error) {
        return {{}, error};
    }
}

/** Follows a file that does not load, or is missing, and tells when that is final. */
class Patience {
  public:
    Patience(const Place &place, Clock::time_point until) : place_(place), until_(until), seenSince_(Clock::now()) {}

    /** Returns whether another look is worth while, and waits until it is time for it. */
    bool Wait(bool isMissing) {
        const std::optional<struct stat> file = StatusOf(place_.Path()), backup = StatusOf(place_.Backup());
        const auto now = Clock::now();
        const Identity identity = IdentityOf(file);
        const bool isAnother = identity != seen_;  // than that which was looked at, perhaps
        if (isAnother) {
            seen_ = identity;
            seenSince_ = now;
        }
        missingLooks_ = isMissing && !file && !backup ? missingLooks_ + 1 : 0;
        const bool isStill = file && (Age(file->st_mtim) > kStill || now - seenSince_ > kStill);
        const bool isFlushed = backup && Age(backup->st_ctim) < kLongestFlush;
        isLeftBehind_ = backup.has_value();
        if (now >= until_ || missingLooks_ == kMissingLooks ||
            (!isFlushed && !isAnother && (isLeftBehind_ || (!isMissing && isStill)))) {
            return false;
        }
        std::this_thread::sleep_for(kPause);
        return true;
    }

    /** Whether a backup lay beside the file. */
    bool IsLeftBehind() const { return isLeftBehind_; }

  private:
    const Place &place_;
    const Clock::time_point until_;
    Identity seen_;
    Clock::time_point seenSince_;
    int missingLooks_ = 0;
    bool isLeftBehind_ = false;
};

[[noreturn]] void RefuseBackup(const Place &place, const std::optional<tav::Error> &problem) {
    throw tav::Error(TAV_ERR_BACKUP, place.given,
                     (problem ? "it does not load" : "it is missing") + std::string(", but a backup lies beside it, ") +
                         place.Backup() +
                         ": a program that writes without a session has died, or is still at work;"
                         " recover the file" +
                         (problem ? std::string(" (") + problem->what() + ")" : ""));
}

}  // namespace

std::optional<Loaded> Load(const Place &place, const Refer &refer, Clock::time_point until) {
    Patience patience(place, until);
    for (;;) {
        Look look = LookAt(place, refer);
        if (look.loaded) {
            return std::move(look.loaded);
        }
        if (look.problem && look.problem->Code() != TAV_ERR_INVALID) {
            throw *look.problem;  // waiting does not help
        }
        if (patience.Wait(!look.problem)) {
            continue;
        }
        if (patience.IsLeftBehind()) {
            RefuseBackup(place, look.problem);
        }
        if (look.problem) {
            throw *look.problem;
        }
        return {};
    }
}

void RefuseMissing(const Place &place) {
    throw tav::Error(TAV_ERR_MISSING, place.given, "there is no such file");
}

void RequireUsable(const Place &place, bool create) {
    if (!create && IsMissing(place)) {
        RefuseMissing(place);  // without a lock file, which would be left beside nothing
    }
    const std::optional<struct stat> status = StatusOf(place.Path());
    if (!status) {
        return;
    }
    if (!S_ISREG(status->st_mode)) {
        throw tav::Error(TAV_ERR_INVALID, place.given,
                         S_ISDIR(status->st_mode) ? "it is a folder" : "it is no regular file");
    }
    if (faccessat(AT_FDCWD, place.Path().c_str(), W_OK, AT_EACCESS) != 0) {
        FailOfSystem(TAV_ERR_OPEN, place.given, "it may not be changed");
    }
}

milliseconds Age(const timespec &moment) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t age = (int64_t{now.tv_sec} - moment.tv_sec) * 1000 + (now.tv_nsec - moment.tv_nsec) / 1'000'000;
    return milliseconds(std::max<int64_t>(age, 0));
}

bool IsMissing(const Place &place) {
    for (int i = 0; i < kMissingLooks; ++i) {
        if (Exists(place.Path()) || Exists(place.Backup())) {
            return false;
        }
    }
    return true;
}

Refer ReferOf(const std::string &path, bool ignore) {
    RequireNoZero(path);
    return {path.empty() ? "" : std::filesystem::absolute(path).string(), ignore};
}

}  // namespace session
