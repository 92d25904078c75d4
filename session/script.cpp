/*
 * The script form of changes: a reader and a writer.
 */
#include "tav/script.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "session/problem.h"
#include "session/value_forms.h"
#include "session/values.h"
#include "tav/values.h"

namespace tav {

namespace {

using session::Problem;

constexpr std::array<std::pair<Verb, std::string_view>, 4> kVerbs = {
    {{Verb::kAdd, "add"}, {Verb::kSet, "set"}, {Verb::kUnset, "unset"}, {Verb::kDelete, "del"}}};

/** Cuts a line into words. */
class Words {
  public:
    explicit Words(std::string_view line) : line_(line) {}

    /** Takes the next word. Returns false at the end of the line, and before a comment. Throws Problem. */
    bool Next(std::string *word) {
        while (at_ < line_.size() && IsBlank(line_[at_])) {
            ++at_;
        }
        if (at_ == line_.size() || line_[at_] == '#') {
            return false;
        }
        word->clear();
        while (at_ < line_.size() && !IsBlank(line_[at_])) {
            if (const char c = line_[at_++]; c == '"') {
                TakeQuoted(word);
            } else {
                *word += c;
            }
        }
        return true;
    }

  private:
    static bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

    /** Takes what stands in quotes, and the closing one. */
    void TakeQuoted(std::string *word) {
        while (at_ < line_.size()) {
            char c = line_[at_++];
            if (c == '"') {
                return;
            }
            if (c == '\\') {
                c = at_ < line_.size() ? line_[at_++] : '\0';
                if (c != '"' && c != '\\') {
                    throw Problem(R"(in quotes only \" and \\ may follow a backslash)");
                }
            }
            *word += c;
        }
        throw Problem("a quote is left open");
    }

    std::string_view line_;
    size_t at_ = 0;
};

Verb ParseVerb(const std::string &word) {
    for (const auto &[verb, text] : kVerbs) {
        if (word == text) {
            return verb;
        }
    }
    throw Problem(fmt::format("'{}' is none of add, set, unset, del", word));
}

uint32_t ParseVsId(const std::string &word) {
    try {
        return static_cast<uint32_t>(session::ParseNumber(word, UINT32_MAX));
    } catch (const Problem &problem) {
        throw Problem(std::string("VS: ") + problem.what());
    }
}

/** Takes a word behind the class: FIELD=VALUE, or FIELD alone for what is to be taken out. */
void TakeField(const std::string &word, const Names &names, Change *change) {
    const size_t equals = word.find('=');
    const uint32_t fid = names.ParseField(*change->cid, std::string_view(word).substr(0, equals));
    if (equals == std::string::npos) {
        if (change->verb != Verb::kUnset) {
            throw Problem(fmt::format("'{}' is not of the form FIELD=VALUE", word));
        }
        change->unset.push_back(fid);
        return;
    }
    try {
        change->fields.push_back({fid, session::ParseValue(fid, std::string_view(word).substr(equals + 1))});
    } catch (const Problem &problem) {
        throw Problem(fmt::format("field {}: {}", names.FieldText(*change->cid, fid), problem.what()));
    }
    if (change->verb != Verb::kAdd && change->verb != Verb::kSet && !IsKeyField(*change->cid, fid)) {
        throw Problem(fmt::format("field {} is no key field of class {}", names.FieldText(*change->cid, fid),
                                  names.ClassText(*change->cid)));
    }
}

/** Reads a line. Returns false when it holds no change. Throws Problem and Error. */
bool ParseLine(std::string_view line, const Names &names, Change *change) {
    if (line.find('\0') != std::string_view::npos) {
        throw Problem("there is a zero byte");
    }
    Words words(line);
    std::string word;
    if (!words.Next(&word)) {
        return false;
    }
    change->verb = ParseVerb(word);
    if (!words.Next(&word)) {
        throw Problem("the VS is missing");
    }
    change->vsId = ParseVsId(word);
    if (!words.Next(&word)) {
        if (change->verb != Verb::kAdd && change->verb != Verb::kDelete) {
            throw Problem("the class is missing");
        }
        return true;
    }
    change->cid = names.ParseClass(word);
    if (!IsRecordClass(*change->cid)) {
        throw Problem(fmt::format("{} is no class of records", *change->cid));
    }
    while (words.Next(&word)) {
        TakeField(word, names, change);
    }
    return true;
}

}  // namespace

Changes ParseScript(std::string_view text, const Names &names) {
    Changes changes;
    if (constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF"; text.starts_with(kByteOrderMark)) {
        text.remove_prefix(kByteOrderMark.size());  // some editors put it before every text
    }
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = text.find('\n');
        Change change{Verb::kAdd, 0, {}, {}, {}, number};
        try {
            if (ParseLine(text.substr(0, end), names, &change)) {
                changes.push_back(std::move(change));
            }
        } catch (const std::runtime_error &error) {  // a Problem, or an Error of the names
            throw Error(TAV_ERR_INVALID, fmt::format("line {}", number), error.what());
        }
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return changes;
}

std::string Quoted(const std::string &text) {
    if (!text.empty() && text.find_first_of(" \"") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
        }
        quoted += c;
    }
    return quoted + '"';
}

std::string WriteChange(const Change &change, const Names &names) {
    std::string line(kVerbs[static_cast<size_t>(change.verb)].second);
    line += fmt::format(" {}", change.vsId);
    if (change.cid) {
        line += ' ' + names.ClassText(*change.cid);
        for (const auto &[fid, value] : change.fields) {
            line += fmt::format(" {}={}", names.FieldText(*change.cid, fid), Quoted(FormatValue(fid, value)));
        }
        for (const uint32_t fid : change.unset) {
            line += ' ' + names.FieldText(*change.cid, fid);
        }
    }
    return line;
}

}  // namespace tav
