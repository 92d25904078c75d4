/*
 * Recovery from a flush without a session that was cut short.
 */
#include <fmt/format.h>

#include <filesystem>
#include <map>
#include <thread>

#include "session/errors.h"
#include "session/load.h"
#include "session/start.h"
#include "tav/session.h"

namespace session {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPause{20};

/** The states of all files whose names begin with the file's, drafts of archives included. */
std::map<std::string, Identity> LookAround(const Place &place) {
    std::map<std::string, Identity> states;
    std::error_code error;
    for (const auto &entry : std::filesystem::directory_iterator(place.folder, error)) {
        const std::string name = entry.path().filename();
        if (name.starts_with(place.name)) {
            if (const std::optional<struct stat> status = StatusOf(entry.path())) {
                states.emplace(name, Identity(*status));
            }
        }
    }
    if (error) {
        FailOfSystem(TAV_ERR_OPEN, place.given, "its folder " + place.folder + " cannot be read", error.value());
    }
    return states;
}

/** Waits until nothing has changed for a while, however long that is: only changes count against the time. */
void AwaitStillness(const Place &place, milliseconds still, Clock::time_point until) {
    auto states = LookAround(place);
    auto end = EndOf(still);
    while (Clock::now() < end) {
        std::this_thread::sleep_for(kPause);
        auto now = LookAround(place);
        if (now == states) {
            continue;
        }
        if (Clock::now() >= until) {
            throw tav::Error(TAV_ERR_LOCKED, place.given,
                             "a program that writes without a session is changing it; try again when it is done");
        }
        states = std::move(now);
        end = EndOf(still);
    }
}

/** One of the two files that may be the right one. */
struct Candidate {
    std::string path;
    bool exists = false;
    std::string problem = {};     // why it does not load; empty when it does
    std::string modifyTime = {};  // the head's, in an order that compares

    bool IsGood() const { return exists && problem.empty(); }
};

Candidate Examine(const std::string &path, const Place &place, const Refer &refer) {
    Candidate candidate{path};
    try {
        std::optional<ReadImage> read = ReadImageOf(place, path);
        candidate.exists = read.has_value();
        if (read) {
            ParseImage(read->image, path, CarriesRefer(read->image) ? refer : Refer(), path);  // one may, one not
            candidate.modifyTime = ModifyTime(read->image);
        }
    } catch (const tav::Error &error) {
        if (error.Code() != TAV_ERR_INVALID) {
            throw;  // it may be a good one that could not be read just now
        }
        candidate.exists = true;
        candidate.problem = error.what();
    }
    return candidate;
}

/** A free name for a file that is moved aside. */
std::string FreeName(const std::string &path, const char *suffix) {
    std::string name = path + suffix;
    for (int i = 1; Exists(name); ++i) {
        name = fmt::format("{}{}.{}", path, suffix, i);
    }
    return name;
}

/** Where a file that does not become, or stay, the file goes. */
tav::Recovery::Move Aside(const Candidate &candidate) {
    return {candidate.path, FreeName(candidate.path, candidate.IsGood() ? ".old" : ".broken")};
}

/** How what is done is said, or what would be. */
struct Words {
    const char *kept, *recovered, *wasMissing, *was;
};
constexpr Words kDone = {"kept", "recovered", "was missing", "was"};
constexpr Words kWouldBe = {"would keep", "would recover", "is missing", "would be"};

/** Decides what is to be done. One of the two must load. */
tav::Recovery Decide(const Place &place, const Candidate &file, const Candidate &backup, const Words &words) {
    const auto nameOf = [](const std::string &path) { return std::filesystem::path(path).filename().string(); };
    const auto aside = [&](const tav::Recovery::Move &move) { return "moved to " + nameOf(move.to); };
    if (!backup.exists && file.IsGood()) {
        return {{}, fmt::format("nothing to recover: {} loads, and there is no backup", place.given)};
    }
    if (file.IsGood() && (!backup.IsGood() || backup.modifyTime <= file.modifyTime)) {
        const tav::Recovery::Move move = Aside(backup);
        return {{move},
                fmt::format("{} {}; its backup, which {}, {} {}", words.kept, place.given,
                            backup.IsGood() ? "is not newer" : "does not load", words.was, aside(move))};
    }
    const tav::Recovery::Move back{backup.path, file.path};
    if (!file.exists) {
        return {
            {back},
            fmt::format("{} {} from {}: it {}", words.recovered, place.given, nameOf(backup.path), words.wasMissing)};
    }
    const tav::Recovery::Move move = Aside(file);
    return {{move, back},
            fmt::format("{} {} from {}: the file, which {}, {} {}", words.recovered, place.given, nameOf(backup.path),
                        file.IsGood() ? "is older" : "does not load", words.was, aside(move))};
}

tav::Recovery RecoverPlace(const Place &place, const tav::RecoverOptions &options) {
    const Clock::time_point until = EndOf(options.wait);
    const HeldLock lock(place, until);
    AwaitStillness(place, options.still, until);
    const Refer refer = ReferOf(options.refer, options.ignoreRefer);
    const Candidate file = Examine(place.Path(), place, refer);
    const Candidate backup = Examine(place.Backup(), place, refer);
    if (!file.IsGood() && !backup.IsGood()) {
        const auto state = [](const Candidate &candidate) {
            return candidate.exists ? candidate.problem : "there is no " + candidate.path;
        };
        throw tav::Error(TAV_ERR_INVALID, place.given,
                         fmt::format("it cannot be recovered: {}; {}", state(file), state(backup)));
    }
    tav::Recovery recovery = Decide(place, file, backup, options.dryRun ? kWouldBe : kDone);
    for (const tav::Recovery::Move &move : recovery.moves) {
        if (!options.dryRun) {
            Rename(move.from, move.to);
            SyncFolder(place.folder);
        }
    }
    return recovery;
}

}  // namespace

}  // namespace session

tav::Recovery tav::Recover(const std::string &path, const RecoverOptions &options) {
    session::CompleteTypeTable();
    const session::Place place = session::Resolve(path);
    if (session::IsMissing(place)) {
        throw Error(TAV_ERR_MISSING, place.given, "there is no such file, and no backup of it");
    }
    return session::RecoverPlace(place, options);
}
