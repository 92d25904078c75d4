/*
 * The index of a history, to and from JSON.
 */
#include "session/history_index.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "session/errors.h"
#include "session/files.h"
#include "session/json_events.h"
#include "session/problem.h"

using nlohmann::json;

namespace session {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr unsigned kVersion = 1;            // of the form; a greater one cannot be read
constexpr uint64_t kMaxNumber = INT64_MAX;  // of a commit; so many there will never be

/** The members of an object that are scalars. */
using Members = std::map<std::string, Scalar>;

/**
 * Collects the object of an index, and the objects in its arrays. Without a tree of the JSON library: that takes memory
 * when it is freed, and ends the process where there is none.
 */
class Collector : public JsonEvents {
  public:
    const Members &Top() const { return top_; }

    const std::vector<Members> &List(const std::string &name) const {
        const auto found = lists_.find(name);
        if (found == lists_.end()) {
            throw Problem("its \"" + name + "\" is missing");
        }
        return found->second;
    }

  private:
    void Take(const Scalar &scalar) override {
        if (!around_.empty() && around_.back() != nullptr) {
            (*around_.back())[key_] = scalar;
        }
    }

    void TakeKey(const std::string &name) override { key_ = name; }

    void BeginArray() override {
        if (around_.size() == 1 && around_[0] != nullptr) {
            list_ = &lists_[key_];
        }
        around_.push_back(nullptr);
    }

    void BeginObject() override {
        const bool isEntry = around_.size() == 2 && list_ != nullptr;
        around_.push_back(around_.empty() ? &top_ : isEntry ? &list_->emplace_back() : nullptr);
    }

    void EndArray() override { Leave(); }
    void EndObject() override { Leave(); }

    void Leave() {
        around_.pop_back();
        list_ = around_.size() < 2 ? nullptr : list_;
    }

    Members top_;
    std::map<std::string, std::vector<Members>> lists_;
    std::vector<Members *> around_;  // the arrays and objects around the reader; null for those that are passed over
    std::vector<Members> *list_ = nullptr;  // the array of the top object in which the reader is
    std::string key_;
};

/** A member that must be there. */
const Scalar &MemberOf(const Members &members, const std::string &key) {
    const auto found = members.find(key);
    if (found == members.end()) {
        throw Problem("its \"" + key + "\" is missing");
    }
    return found->second;
}

/** A number that is there, and at most as large. */
uint64_t NumberFrom(const Members &members, const std::string &key, uint64_t max) {
    const Scalar &scalar = MemberOf(members, key);
    if (scalar.type != Scalar::Type::kNumber || scalar.number > max) {
        throw Problem("its \"" + key + "\" is out of range");
    }
    return scalar.number;
}

size_t CountFrom(const Members &members, const std::string &key) {
    return static_cast<size_t>(NumberFrom(members, key, SIZE_MAX));
}

std::string TextFrom(const Members &members, const std::string &key) {
    const Scalar &scalar = MemberOf(members, key);
    if (scalar.type != Scalar::Type::kString) {
        throw Problem("its \"" + key + "\" is no text");
    }
    return scalar.text;
}

bool FlagFrom(const Members &members, const std::string &key) {
    const Scalar &scalar = MemberOf(members, key);
    if (scalar.type != Scalar::Type::kOther || (scalar.text != "true" && scalar.text != "false")) {
        throw Problem("its \"" + key + "\" is neither true nor false");
    }
    return scalar.text == "true";
}

tav::Note NoteFrom(const Members &members) {
    constexpr auto kLast = std::chrono::floor<milliseconds>(system_clock::time_point::max().time_since_epoch());
    const milliseconds time(static_cast<int64_t>(NumberFrom(members, "time", static_cast<uint64_t>(kLast.count()))));
    return {system_clock::time_point(time), TextFrom(members, "user"), TextFrom(members, "program"),
            TextFrom(members, "comment")};
}

IndexedCommit CommitFrom(const Members &members) {
    return {{NumberFrom(members, "number", kMaxNumber),
             NoteFrom(members),
             TextFrom(members, "checksum"),
             {CountFrom(members, "added"), CountFrom(members, "changed"), CountFrom(members, "deleted")},
             FlagFrom(members, "hadFile")},
            members.contains("former") ? TextFrom(members, "former") : ""};  // those written before have none
}

Index IndexFrom(const Collector &from) {
    const Members &top = from.Top();
    if (NumberFrom(top, "version", UINT64_MAX) > kVersion) {
        throw Problem("a newer version has written it");
    }
    Index index{FlagFrom(top, "on"),
                static_cast<uint32_t>(NumberFrom(top, "keep", UINT32_MAX)),
                NumberFrom(top, "next", kMaxNumber),
                {},
                {}};
    uint64_t last = 0;
    for (const Members &commit : from.List("commits")) {
        index.commits.push_back(CommitFrom(commit));
        if (std::exchange(last, index.commits.back().number) >= index.commits.back().number) {
            throw Problem("its commits are not in order");
        }
    }
    if (last >= index.next) {  // the next copy would replace another one
        throw Problem("its next commit is one that it has");
    }
    for (const Members &checkpoint : from.List("checkpoints")) {
        index.checkpoints.push_back(
            {TextFrom(checkpoint, "name"), NoteFrom(checkpoint), TextFrom(checkpoint, "checksum")});
        if (index.checkpoints.back().name.find('/') != std::string::npos) {  // it would name a file elsewhere
            throw Problem("a checkpoint's name is none");
        }
    }
    if (index.isOn && index.keep == 0) {
        throw Problem("it keeps nothing");
    }
    return index;
}

/** A text as a string of JSON. */
std::string Quoted(const std::string &text) {
    return json(text).dump(-1, ' ', false, json::error_handler_t::replace);  // comments may be any bytes
}

/** The members that commits and checkpoints have in common. */
std::string Format(const tav::Note &note, const std::string &checksum) {
    return fmt::format(R"("time": {}, "user": {}, "program": {}, "comment": {}, "checksum": {})",
                       std::chrono::duration_cast<milliseconds>(note.time.time_since_epoch()).count(),
                       Quoted(note.user), Quoted(note.program), Quoted(note.comment), Quoted(checksum));
}

std::string Format(const IndexedCommit &commit) {
    return fmt::format(
        R"({{"number": {}, {}, "added": {}, "changed": {}, "deleted": {}, "hadFile": {}, "former": {}}})",
        commit.number, Format(commit.note, commit.checksum), commit.counts.added, commit.counts.changed,
        commit.counts.deleted, commit.hadFile, Quoted(commit.former));
}

std::string Format(const tav::Checkpoint &checkpoint) {
    return fmt::format(R"({{"name": {}, {}}})", Quoted(checkpoint.name), Format(checkpoint.note, checkpoint.checksum));
}

/** An array of the index, with an entry a line. */
template <typename Entry>
std::string FormatAll(const std::vector<Entry> &entries) {
    std::string text = "[";
    for (const Entry &entry : entries) {
        text += (&entry == entries.data() ? "\n  " : ",\n  ") + Format(entry);
    }
    return text + "]";
}

std::string UserName() {
    std::array<char, 4096> buffer;
    passwd entry{}, *found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        return found->pw_name;
    }
    return std::to_string(getuid());
}

}  // namespace

std::string FormatIndex(const Index &index) {
    return fmt::format(
        "{{\"version\": {}, \"on\": {}, \"keep\": {}, \"next\": {},\n \"commits\": {},\n \"checkpoints\": {}}}\n",
        kVersion, index.isOn, index.keep, index.next, FormatAll(index.commits), FormatAll(index.checkpoints));
}

std::optional<Index> ReadIndex(const std::string &path) {
    const Descriptor file = OpenRegular(path, O_NOFOLLOW);
    if (!file && errno == ENOENT) {
        return {};
    }
    if (!file) {
        FailOfSystem(TAV_ERR_OPEN, path, "cannot be read");
    }
    const Block text = ReadAll(file, path);
    try {
        Collector collector;
        collector.Read({reinterpret_cast<const char *>(text.bytes.get()), text.size});
        return IndexFrom(collector);
    } catch (const Problem &problem) {
        throw tav::Error(TAV_ERR_INVALID, path,
                         std::string("the index of the history is damaged; move its folder aside: ") + problem.what());
    }
}

tav::Note NoteNow(const std::string &comment) {
    return {std::chrono::time_point_cast<milliseconds>(system_clock::now()), UserName(), program_invocation_short_name,
            comment};
}

}  // namespace session
