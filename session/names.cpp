/*
 * Names of classes and fields, and the file that gives them.
 */
#include "tav/names.h"

#include <fmt/format.h>

#include <algorithm>

#include "session/errors.h"
#include "session/files.h"
#include "session/json_events.h"
#include "session/problem.h"
#include "session/value_forms.h"
#include "tav/values.h"

namespace tav {

namespace {

using session::Problem;
using session::Scalar;

/** Reads a file of names, and knows where it is. */
class NamesReader : public session::JsonEvents {
  public:
    explicit NamesReader(Names *names) : names_(names) {}

    /** The place, as `"13" "fields" "14"`. */
    std::string Place() const {
        std::string place;
        for (const std::string &key : path_) {
            place += fmt::format("{}\"{}\"", place.empty() ? "" : " ", key);
        }
        return place;
    }

  private:
    void BeginObject() override {
        const bool isRoom = depth_ == path_.size() && (depth_ < 2 || (depth_ == 2 && path_[1] == "fields"));
        if (!isRoom) {
            throw Problem("a name must stand here");
        }
        ++depth_;
    }

    void EndObject() override {
        --depth_;
        path_.resize(std::min(path_.size(), depth_));
    }

    void BeginArray() override { throw Problem("no array may stand here"); }
    void EndArray() override {}

    void TakeKey(const std::string &name) override {
        path_.resize(depth_ - 1);
        path_.push_back(name);
        if (depth_ == 2 && name != "name" && name != "fields") {
            throw Problem(R"(only "name" and "fields" may stand here)");
        }
        if (depth_ != 2) {
            (depth_ == 1 ? cid_ : fid_) = static_cast<uint32_t>(session::ParseNumber(name, UINT32_MAX));
        }
        if (depth_ == 1 && !IsRecordClass(cid_)) {
            throw Problem(fmt::format("{} is no class of records", cid_));
        }
    }

    void Take(const Scalar &scalar) override {
        const bool isClass = depth_ == 2 && path_.size() == 2 && path_[1] == "name";
        if (!isClass && depth_ != 3) {
            throw Problem("an object must stand here");
        }
        if (scalar.type != Scalar::Type::kString) {
            throw Problem(scalar.ToText() + " is no name");
        }
        if (isClass) {
            names_->AddClass(cid_, scalar.text);
        } else {
            names_->AddField(cid_, fid_, scalar.text);
        }
    }

    Names *names_;
    std::vector<std::string> path_;  // the keys on the way to where the reader is
    size_t depth_ = 0;               // objects around it
    uint32_t cid_ = 0;
    uint32_t fid_ = 0;
};

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
}

/** Throws Error unless a text can be told from a number, and needs no quotes wherever names are written. */
void RequireName(const std::string &name) {
    const bool isName = !name.empty() && IsLetter(name[0]) && std::all_of(name.begin(), name.end(), [](char c) {
        return IsLetter(c) || (c >= '0' && c <= '9') || c == '-';
    });
    if (!isName) {
        throw Error(TAV_ERR_INVALID, "",
                    fmt::format("'{}' is no name: a letter or _ must come first, then letters, digits, _ and -", name));
    }
}

/** Parses a number, for what `name` found nothing. */
uint32_t NumberOf(std::string_view text, const std::string &what) {
    if (text.empty() || IsLetter(text[0])) {
        throw Error(TAV_ERR_INVALID, "", fmt::format("'{}' is no known {}", text, what));
    }
    try {
        return static_cast<uint32_t>(session::ParseNumber(text, UINT32_MAX));
    } catch (const Problem &problem) {
        throw Error(TAV_ERR_INVALID, "", fmt::format("{}: {}", what, problem.what()));
    }
}

template <typename Map, typename Key>
std::optional<uint32_t> FindIn(const Map &map, const Key &key) {
    const auto found = map.find(key);
    return found != map.end() ? std::optional(found->second) : std::nullopt;
}

}  // namespace

Names Names::Load(const std::string &path) {
    const session::Descriptor file = session::OpenRegular(path);
    if (!file) {
        session::FailOfSystem(TAV_ERR_READ, path, "it cannot be read");
    }
    const session::Block text = session::ReadAll(file, path);
    return Parse({reinterpret_cast<const char *>(text.bytes.get()), text.size}, path);
}

Names Names::Parse(std::string_view text, const std::string &source) {
    Names names;
    NamesReader reader(&names);
    try {
        reader.Read(text);
    } catch (const std::runtime_error &problem) {  // a Problem, or an Error of the names themselves
        const std::string place = reader.Place();
        throw Error(TAV_ERR_INVALID, place.empty() ? source : source + ": " + place, problem.what());
    }
    return names;
}

std::string Names::ClassText(uint32_t cid) const {
    const auto found = classes_.find(cid);
    return found != classes_.end() ? found->second : std::to_string(cid);
}

std::string Names::FieldText(uint32_t cid, uint32_t fid) const {
    const auto found = fields_.find({cid, fid});
    return found != fields_.end() ? found->second : std::to_string(fid);
}

std::optional<uint32_t> Names::FindClass(std::string_view name) const {
    return FindIn(classByName_, name);
}

std::optional<uint32_t> Names::FindField(uint32_t cid, std::string_view name) const {
    const auto byName = fieldByName_.find(cid);
    return byName != fieldByName_.end() ? FindIn(byName->second, name) : std::nullopt;
}

uint32_t Names::ParseClass(std::string_view text) const {
    const std::optional<uint32_t> cid = FindClass(text);
    return cid ? *cid : NumberOf(text, "class");
}

uint32_t Names::ParseField(uint32_t cid, std::string_view text) const {
    const std::optional<uint32_t> fid = FindField(cid, text);
    return fid ? *fid : NumberOf(text, fmt::format("field of class {}", ClassText(cid)));
}

void Names::AddClass(uint32_t cid, const std::string &name) {
    RequireName(name);
    if (classes_.contains(cid) || classByName_.contains(name)) {
        throw Error(TAV_ERR_INVALID, "", fmt::format("class {} has a name already, or '{}' is taken", cid, name));
    }
    classes_.emplace(cid, name);
    classByName_.emplace(name, cid);
}

void Names::AddField(uint32_t cid, uint32_t fid, const std::string &name) {
    RequireName(name);
    if (fields_.contains({cid, fid}) || FindField(cid, name)) {
        throw Error(TAV_ERR_INVALID, "", fmt::format("field {} has a name already, or '{}' is taken", fid, name));
    }
    fields_.emplace(Field{cid, fid}, name);
    fieldByName_[cid].emplace(name, fid);
}

}  // namespace tav
