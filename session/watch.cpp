/*
 * Watching a file by its folder's events: whoever replaces a file does so by its name.
 */
#include "tav/watch.h"

#include <poll.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>

#include "session/errors.h"
#include "session/load.h"
#include "session/start.h"

namespace tav {

namespace {

using session::Clock;
using std::chrono::milliseconds;

/** Begins to watch a folder. */
session::Descriptor WatchFolder(const session::Place &place) {
    session::Descriptor events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    constexpr uint32_t kEvents =
        IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
    if (!events || inotify_add_watch(events.Get(), place.folder.c_str(), kEvents) < 0) {
        session::FailOfSystem(TAV_ERR_OPEN, place.given, "its folder " + place.folder + " cannot be watched");
    }
    return events;
}

/** Waits for events. Returns false when the time is over, or a signal came. */
bool AwaitEvents(const session::Descriptor &events, std::optional<Clock::time_point> until) {
    milliseconds left{-1};
    if (until) {
        left = std::chrono::ceil<milliseconds>(
            std::clamp<Clock::duration>(*until - Clock::now(), {}, milliseconds(INT_MAX)));
    }
    pollfd wanted{events.Get(), POLLIN, 0};
    return poll(&wanted, 1, static_cast<int>(left.count())) > 0;
}

}  // namespace

struct Watch::State {
    State(const std::string &path, const ReadOptions &readOptions)
        : place(session::Resolve(path)),
          options(readOptions),
          refer(session::ReferOf(options.refer, options.ignoreRefer)),
          events(WatchFolder(place)) {
        Load();
    }

    /** Loads the file. Returns whether it has another content; that is `after` then. */
    bool Load() {
        std::optional<session::Loaded> loaded = session::Load(place, refer, session::EndOf(options.wait));
        const std::optional<session::Digest> now =
            loaded ? std::optional(loaded->content.checksums.body) : std::nullopt;
        if (isLoaded && now == checksum) {
            return false;
        }
        Store next = loaded ? std::move(loaded->content.store) : Store::New("");
        if (isLoaded) {
            before = std::move(after);
        }
        after = std::move(next);
        checksum = now;
        isLoaded = true;
        return true;
    }

    /** Takes the events there are, and loads the file if one may have changed it. Returns whether one has. */
    bool SeesChange() {
        TakeEvents();
        if (!isDue) {
            return false;
        }
        try {
            const bool isChanged = Load();
            isDue = false;
            return isChanged;
        } catch (const Error &error) {
            // What does not load has to change before it does. Anything else may be over when it is tried again.
            isDue = error.Code() != TAV_ERR_INVALID && error.Code() != TAV_ERR_BACKUP;
            throw;
        }
    }

    /** Takes all events there are. */
    void TakeEvents() {
        alignas(inotify_event) std::array<char, 16384> buffer;
        ssize_t length = 0;
        while ((length = read(events.Get(), buffer.data(), buffer.size())) > 0) {
            for (ssize_t at = 0; at < length;) {
                inotify_event event;
                std::memcpy(&event, &buffer[static_cast<size_t>(at)], sizeof(event));
                const char *const name = &buffer[static_cast<size_t>(at)] + sizeof(event);
                if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT)) != 0) {
                    throw Error(TAV_ERR_OPEN, place.given, "its folder " + place.folder + " is gone");
                }
                isDue |= (event.mask & IN_Q_OVERFLOW) != 0 || (event.len != 0 && place.name == name);
                at += static_cast<ssize_t>(sizeof(event) + event.len);
            }
        }
    }

    const session::Place place;
    const ReadOptions options;
    const session::Refer refer;
    const session::Descriptor events;
    Store before = Store::New(""), after = Store::New("");
    bool isLoaded = false;
    bool isDue = false;                       // the file may have changed since it was loaded
    std::optional<session::Digest> checksum;  // of the body that was seen last; nothing when there was no file
};

Watch::Watch(const std::string &path, const ReadOptions &options) {
    session::CompleteTypeTable();
    state_ = std::make_unique<State>(path, options);
}
Watch::~Watch() = default;
Watch::Watch(Watch &&) noexcept = default;
Watch &Watch::operator=(Watch &&) noexcept = default;

bool Watch::Wait(std::optional<milliseconds> timeout) {
    const auto until = timeout ? std::optional(session::EndOf(*timeout)) : std::nullopt;
    do {
        if (state_->SeesChange()) {
            return true;
        }
    } while (AwaitEvents(state_->events, until));
    return false;
}

const Store &Watch::Before() const {
    return state_->before;
}

const Store &Watch::After() const {
    return state_->after;
}

int Watch::Descriptor() const {
    return state_->events.Get();
}

}  // namespace tav
