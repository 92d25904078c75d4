/*
 * Terms over the fields of records, and the order of records by fields.
 */
#include "tav/filter.h"

#include <fmt/format.h>
#include <re2/re2.h>

#include <algorithm>
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

}  // namespace

/** A regular expression, by a library whose time and memory have a bound whatever the pattern. */
class Filter::Pattern {
  public:
    explicit Pattern(const std::string &text) : regex_(text, Syntax()) {
        if (!regex_.ok()) {
            throw Error(TAV_ERR_INVALID, "", fmt::format("'{}' is no pattern: {}", text, regex_.error()));
        }
    }

    bool Matches(const std::string &text) const { return re2::RE2::PartialMatch(text, regex_); }

  private:
    static re2::RE2::Options Syntax() {
        re2::RE2::Options options;
        options.set_posix_syntax(true);
        options.set_one_line(true);
        options.set_never_capture(true);
        options.set_log_errors(false);
        return options;
    }

    re2::RE2 regex_;
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
