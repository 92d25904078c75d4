/*
 * Terms over the fields of records, and the order of records by fields.
 */
#include "tav/filter.h"

#include <fmt/format.h>
#include <regex.h>

#include <algorithm>
#include <array>
#include <utility>

#include "session/values.h"
#include "tav/values.h"

namespace tav {

namespace {

constexpr std::string_view kBeginsComparison = "!<>=~";

/** The classes of the type table. */
std::vector<uint32_t> RecordClasses() {
    std::vector<uint32_t> cids;
    for (const TAV_ExtTlvDataTypeRow *row = g_astExtTlvDataTypeTbl; row->type != 0; ++row) {
        if (IsRecordClass(row->type)) {
            cids.push_back(row->type);
        }
    }
    return cids;
}

/** Parses the number of a field that no class has a name for. */
uint32_t NumberOf(const std::string &field) {
    try {
        return ParseId(field);
    } catch (const Error &) {
        throw Error(TAV_ERR_INVALID, "", fmt::format("'{}' is no known field", field));
    }
}

/** Returns whether a value is less or greater than others: it has the length of its type, if that is fixed. */
bool HasOrder(uint32_t fid, std::string_view value) {
    const Kind kind = KindOf(fid);
    return kind == Kind::kText || kind == Kind::kBytes || kind == Kind::kOpaque ||
           value.size() == session::LimitOf(fid);
}

constexpr size_t kMaxPattern = 1024;     // bytes
constexpr size_t kMaxWrittenOut = 2000;  // parts, with repeats written out

/** Where a bracket expression ends, that begins here. */
size_t EndOfBracket(std::string_view text, size_t at) {
    at += text.substr(at + 1).starts_with('^') ? 2 : 1;
    for (++at; at < text.size() && text[at] != ']'; ++at) {  // the first one is a member, even when it is a ]
        if (text[at - 1] == '[' && (text[at] == ':' || text[at] == '.' || text[at] == '=')) {
            at = std::min(text.find(std::string{text[at], ']'}, at + 1), text.size() - 1) + 1;
        }
    }
    return at;
}

/** How often a repeat makes regcomp write out what stands before it. Moves to its end. */
size_t CountOf(std::string_view text, size_t *at) {
    if (text[*at] != '{') {
        return text[*at] == '+' ? 2 : 1;  // xx*
    }
    const size_t end = text.find_first_not_of("0123456789,", *at + 1);
    if (end == std::string_view::npos || text[end] != '}') {
        return 1;
    }
    size_t number = 0, most = 1;
    for (++*at; *at < end; ++*at) {
        const char c = text[*at];
        number = c == ',' ? 0 : std::min(10 * number + static_cast<size_t>(c - '0'), kMaxWrittenOut + 1);
        most = std::max(most, number);
    }
    return text[end - 1] == ',' ? most + 1 : most;
}

/** Refuses what regcomp would write out, repeat by repeat, until memory or its stack ends. */
void RequireSmall(std::string_view text) {
    const auto refuse = [](const std::string &why) { throw Error(TAV_ERR_INVALID, "", "the pattern " + why); };
    if (text.find('\0') != std::string_view::npos) {
        refuse("holds a zero byte");
    }
    if (text.size() > kMaxPattern) {
        refuse(fmt::format("has {} bytes, at most {} are possible", text.size(), kMaxPattern));
    }
    std::vector<size_t> sizes{0};  // of the groups around, written out
    size_t last = 0;               // of what a repeat would be about
    for (size_t at = 0; at < text.size(); ++at) {
        const char c = text[at];
        if (c == '(') {
            sizes.push_back(0);
            last = 0;
        } else if (c == '*' || c == '?' || c == '+' || c == '{') {
            const size_t count = CountOf(text, &at);
            sizes.back() += last * (count - 1);
            last *= count;
        } else {
            last = 1;
            if (c == ')' && sizes.size() > 1) {
                last += sizes.back();
                sizes.pop_back();
            }
            sizes.back() += last;
            at = c == '[' ? EndOfBracket(text, at) : c == '\\' ? at + 1 : at;
        }
        if (sizes.back() > kMaxWrittenOut) {
            refuse(fmt::format("repeats too much: written out it may have {} parts at most", kMaxWrittenOut));
        }
    }
}

}  // namespace

/** A regular expression. */
class Filter::Pattern {
  public:
    explicit Pattern(const std::string &text) {
        RequireSmall(text);
        if (const int code = regcomp(&regex_, text.c_str(), REG_EXTENDED | REG_NOSUB); code != 0) {
            std::array<char, 256> why;
            regerror(code, &regex_, why.data(), why.size());
            throw Error(TAV_ERR_INVALID, "", fmt::format("'{}' is no pattern: {}", text, why.data()));
        }
    }
    ~Pattern() { regfree(&regex_); }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;

    bool Matches(const std::string &text) const { return regexec(&regex_, text.c_str(), 0, nullptr, 0) == 0; }

  private:
    regex_t regex_;
};

Filter::Filter(const std::vector<std::string> &terms, const Names &names, std::optional<uint32_t> cid) {
    for (const std::string &term : terms) {
        try {
            terms_.push_back(Parse(term, names, cid));
        } catch (const Error &error) {
            throw Error(error.Code(), term.c_str(), error.what());  // what() would end at a zero byte
        }
    }
}

Filter::Term Filter::Parse(const std::string &text, const Names &names, std::optional<uint32_t> cid) {
    constexpr std::pair<std::string_view, Comparison> kComparisons[] = {
        {"!=", Comparison::kUnequal}, {"<=", Comparison::kLessOrEqual}, {">=", Comparison::kGreaterOrEqual},
        {"=", Comparison::kEqual},    {"<", Comparison::kLess},         {">", Comparison::kGreater},
        {"~", Comparison::kLike}};
    const size_t at = std::min(text.find_first_of(kBeginsComparison), text.size());
    const std::string field = text.substr(0, at);
    for (const auto &[sign, comparison] : kComparisons) {
        if (!std::string_view(text).substr(at).starts_with(sign)) {
            continue;
        }
        const std::string value = text.substr(at + sign.size());
        Term term{comparison, {}, {}, nullptr};
        if (comparison == Comparison::kLike) {
            term.pattern = std::make_shared<const Pattern>(value);
        }
        for (const uint32_t each : cid ? std::vector<uint32_t>{*cid} : RecordClasses()) {
            if (const std::optional<uint32_t> fid = names.FindField(each, field)) {
                term.byClass.emplace(each, ParseOperand(*fid, term, value));
            }
        }
        if (term.byClass.empty()) {
            term.forAll = ParseOperand(cid ? names.ParseField(*cid, field) : NumberOf(field), term, value);
        }
        return term;
    }
    throw Error(TAV_ERR_INVALID, "", "this is not of the form FIELD=VALUE, with =, !=, <, <=, >, >= or ~");
}

Filter::Operand Filter::ParseOperand(uint32_t fid, const Term &term, std::string_view value) {
    return {fid, term.pattern == nullptr ? ParseValue(fid, value) : std::string()};
}

bool Filter::Matches(const Term &term, RecordView record) {
    const auto byClass = term.byClass.find(record.Cid());
    const Operand *operand = term.forAll ? &*term.forAll : byClass != term.byClass.end() ? &byClass->second : nullptr;
    const std::optional<FieldView> field = operand != nullptr ? record.Find(operand->fid) : std::nullopt;
    if (!field) {
        return term.comparison == Comparison::kUnequal;
    }
    switch (term.comparison) {
        case Comparison::kEqual:
            return field->Text() == operand->value;
        case Comparison::kUnequal:
            return field->Text() != operand->value;
        case Comparison::kLike:
            return term.pattern->Matches(FormatValue(*field));
        default:
            break;
    }
    if (!HasOrder(operand->fid, field->Text()) || !HasOrder(operand->fid, operand->value)) {
        return false;
    }
    const int order = CompareValues(operand->fid, field->Text(), operand->value);
    switch (term.comparison) {
        case Comparison::kLess:
            return order < 0;
        case Comparison::kLessOrEqual:
            return order <= 0;
        case Comparison::kGreater:
            return order > 0;
        default:
            return order >= 0;
    }
}

bool Filter::Matches(RecordView record) const {
    return std::all_of(terms_.begin(), terms_.end(), [&](const Term &term) { return Matches(term, record); });
}

Order::Order(uint32_t cid, const std::vector<std::string> &fields, const Names &names) {
    for (const std::string &field : fields) {
        if (const std::optional<uint32_t> fid = names.FindField(cid, field)) {
            fids_.push_back(*fid);
        } else if (!field.empty() && field[0] >= '0' && field[0] <= '9') {
            fids_.push_back(names.ParseField(cid, field));
        }
    }
}

bool Order::operator()(RecordView a, RecordView b) const {
    for (const uint32_t fid : fids_) {
        const std::optional<FieldView> fieldA = a.Find(fid), fieldB = b.Find(fid);
        if (!fieldA || !fieldB) {
            if (fieldA.has_value() != fieldB.has_value()) {
                return fieldA.has_value();
            }
            continue;
        }
        if (const int order = CompareValues(fid, fieldA->Text(), fieldB->Text()); order != 0) {
            return order < 0;
        }
    }
    return false;
}

}  // namespace tav
