/*
 * Which records, and in which order: terms over fields, and sorting by fields.
 */
#ifndef TAV_FILTER_H
#define TAV_FILTER_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tav/error.h"
#include "tav/names.h"
#include "tav/store.h"

namespace tav {

/**
 * Terms that records match. A term is a field, a comparison and a value (tav/values.h), without blanks between them:
 *
 *   14=5   14!=5   14<5   14<=5   14>5   14>=5   12~pattern
 *
 * Values are compared by their type, as CompareValues does; a value that does not have the length of its type is
 * neither less nor greater than any. A pattern is an extended regular expression, in UTF-8, for a part of the value as
 * it is shown: that of egrep, without references to what matched before, and with at most 1,000 repeats. Of a field
 * that a record holds more than once, the first one counts. A record without the field matches != alone. A field may be
 * named; records of classes that have no field of the name are records without it.
 */
class TAV_VISIBLE Filter {
  public:
    /** Matches every record. */
    Filter() = default;

    /**
     * Matches what terms say. Throws Error (TAV_ERR_INVALID), with the term as its place, for one that is malformed,
     * whose name no class knows, or whose value does not suit the field.
     *
     * @param terms  all of which must hold
     * @param names  names that may stand in terms
     * @param cid    the one class that will be asked for, in which names are looked up; without it, in all
     */
    explicit Filter(const std::vector<std::string> &terms, const Names &names = {}, std::optional<uint32_t> cid = {});

    /** Returns whether a record matches all terms. */
    bool Matches(RecordView record) const;

  private:
    enum class Comparison : uint8_t { kEqual, kUnequal, kLess, kLessOrEqual, kGreater, kGreaterOrEqual, kLike };
    class Pattern;

    /** What a term means for one class, or for all. */
    struct Operand {
        uint32_t fid;
        std::string value;  // in host order
    };
    struct Term {
        Comparison comparison;
        std::optional<Operand> forAll;
        std::map<uint32_t, Operand> byClass;
        std::shared_ptr<const Pattern> pattern;
    };

    static Term Parse(const std::string &text, const Names &names, std::optional<uint32_t> cid);
    static Operand ParseOperand(uint32_t fid, const Term &term, std::string_view value);
    static bool Matches(const Term &term, RecordView record);

    std::vector<Term> terms_;
};

/** An order of the records of a class by some of their fields; records without a field come last. */
class TAV_VISIBLE Order {
  public:
    /**
     * @param cid     the class
     * @param fields  numbers or names, the most important first; a field that the class does not name is passed over
     * @param names   names that may stand among the fields
     */
    Order(uint32_t cid, const std::vector<std::string> &fields, const Names &names = {});

    /** Returns whether one record comes before another. */
    bool operator()(RecordView a, RecordView b) const;

  private:
    std::vector<uint32_t> fids_;
};

}  // namespace tav

#endif
