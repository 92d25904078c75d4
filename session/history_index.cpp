/*
 * The index of a history, to and from JSON.
 */
#include "session/history_index.h"

#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <nlohmann/json.hpp>
#include <utility>

#include "session/errors.h"
#include "session/files.h"

using nlohmann::json;

namespace session {

namespace {

using std::chrono::milliseconds;
using std::chrono::system_clock;

constexpr unsigned kVersion = 1;            // of the form; a greater one cannot be read
constexpr uint64_t kMaxNumber = INT64_MAX;  // of a commit; so many there will never be

/** A number that is there, and at most as large. */
uint64_t NumberFrom(const json &form, const std::string &key, uint64_t max) {
    const json &number = form.at(key);
    if (!number.is_number_unsigned() || number.get<uint64_t>() > max) {
        throw std::runtime_error("its \"" + key + "\" is out of range");
    }
    return number.get<uint64_t>();
}

json ToJson(const tav::Note &note) {
    return {{"time", std::chrono::duration_cast<milliseconds>(note.time.time_since_epoch()).count()},
            {"user", note.user},
            {"program", note.program},
            {"comment", note.comment}};
}

tav::Note NoteFrom(const json &form) {
    constexpr auto kLast = std::chrono::floor<milliseconds>(system_clock::time_point::max().time_since_epoch());
    const milliseconds time(static_cast<int64_t>(NumberFrom(form, "time", static_cast<uint64_t>(kLast.count()))));
    return {system_clock::time_point(time), form.at("user"), form.at("program"), form.at("comment")};
}

json ToJson(const IndexedCommit &commit) {
    json form = ToJson(commit.note);
    form["number"] = commit.number;
    form["checksum"] = commit.checksum;
    form["added"] = commit.counts.added;
    form["changed"] = commit.counts.changed;
    form["deleted"] = commit.counts.deleted;
    form["hadFile"] = commit.hadFile;
    form["former"] = commit.former;
    return form;
}

IndexedCommit CommitFrom(const json &form) {
    return {{NumberFrom(form, "number", kMaxNumber),
             NoteFrom(form),
             form.at("checksum"),
             {NumberFrom(form, "added", SIZE_MAX), NumberFrom(form, "changed", SIZE_MAX),
              NumberFrom(form, "deleted", SIZE_MAX)},
             form.at("hadFile")},
            form.value("former", "")};  // which those that were written before do not have
}

json ToJson(const tav::Checkpoint &checkpoint) {
    json form = ToJson(checkpoint.note);
    form["name"] = checkpoint.name;
    form["checksum"] = checkpoint.checksum;
    return form;
}

Index IndexFrom(const json &form) {
    if (NumberFrom(form, "version", UINT64_MAX) > kVersion) {
        throw std::runtime_error("a newer version has written it");
    }
    Index index{form.at("on"),
                static_cast<uint32_t>(NumberFrom(form, "keep", UINT32_MAX)),
                NumberFrom(form, "next", kMaxNumber),
                {},
                {}};
    uint64_t last = 0;
    for (const json &commit : form.at("commits")) {
        index.commits.push_back(CommitFrom(commit));
        if (std::exchange(last, index.commits.back().number) >= index.commits.back().number) {
            throw std::runtime_error("its commits are not in order");
        }
    }
    if (last >= index.next) {  // the next copy would replace another one
        throw std::runtime_error("its next commit is one that it has");
    }
    for (const json &checkpoint : form.at("checkpoints")) {
        index.checkpoints.push_back({checkpoint.at("name"), NoteFrom(checkpoint), checkpoint.at("checksum")});
        if (index.checkpoints.back().name.find('/') != std::string::npos) {  // it would name a file elsewhere
            throw std::runtime_error("a checkpoint's name is none");
        }
    }
    if (index.isOn && index.keep == 0) {
        throw std::runtime_error("it keeps nothing");
    }
    return index;
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
    json form = {{"version", kVersion}, {"on", index.isOn},         {"keep", index.keep},
                 {"next", index.next},  {"commits", json::array()}, {"checkpoints", json::array()}};
    for (const IndexedCommit &commit : index.commits) {
        form["commits"].push_back(ToJson(commit));
    }
    for (const tav::Checkpoint &checkpoint : index.checkpoints) {
        form["checkpoints"].push_back(ToJson(checkpoint));
    }
    return form.dump(1, ' ', false, json::error_handler_t::replace) + "\n";  // comments may be any bytes
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
        return IndexFrom(json::parse(text.View().begin(), text.View().end()));
    } catch (const std::runtime_error &error) {
        throw tav::Error(TAV_ERR_INVALID, path,
                         std::string("the index of the history is damaged; move its folder aside: ") + error.what());
    } catch (const json::exception &) {  // whose words are for programmers
        throw tav::Error(
            TAV_ERR_INVALID, path,
            "the index of the history is damaged; move its folder aside: it is no JSON, or lacks something");
    }
}

tav::Note NoteNow(const std::string &comment) {
    return {std::chrono::time_point_cast<milliseconds>(system_clock::now()), UserName(), program_invocation_short_name,
            comment};
}

}  // namespace session
