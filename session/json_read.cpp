/*
 * JSON read into a store: from the events of the text, without a tree.
 */
#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <unordered_set>
#include <utility>
#include <vector>

#include "session/json_events.h"
#include "session/problem.h"
#include "session/values.h"
#include "tav/json.h"
#include "tav/values.h"

namespace tav {

namespace {

using session::Problem;
using session::Scalar;

constexpr const char *kNoPair = "a pair of field id and value must stand here";

/** A field as it stands in the text: its class, which may come later, tells what its name means. */
struct RawField {
    uint32_t fid = 0;
    std::string name;  // when the id is a name
    bool isHex = false;
    Scalar value;
};

[[noreturn]] void RefuseValue(uint32_t fid, const std::string &text) {
    const Kind kind = KindOf(fid);
    throw Problem(fmt::format(R"({} does not suit the field's type, which takes {}{{"hex":"..."}})", text,
                              kind == Kind::kInteger                          ? "a whole number or "
                              : kind == Kind::kBytes || kind == Kind::kOpaque ? ""
                                                                              : "a string or "));
}

/** The value of a field, in file order. */
session::Bytes ParseRaw(uint32_t fid, const RawField &field) {
    const Kind kind = KindOf(fid);
    if (field.isHex) {
        return session::FromHex(field.value.text);
    }
    if (kind == Kind::kInteger && field.value.type == Scalar::Type::kNumber) {
        if (field.value.number > session::MaxNumber(fid)) {
            throw Problem(fmt::format("{} is out of range, at most {}", field.value.number, session::MaxNumber(fid)));
        }
        return session::StoreNumber(field.value.number, session::LimitOf(fid));
    }
    if ((kind == Kind::kText || kind == Kind::kAddress || kind == Kind::kTime) &&
        field.value.type == Scalar::Type::kString) {
        return session::ParseFriendly(fid, field.value.text);
    }
    RefuseValue(fid, field.value.ToText());
}

/** The fields of the record being read; their room is used again for the next one. */
class RawFields {
  public:
    void Clear() { count_ = 0; }
    size_t Count() const { return count_; }
    RawField &Back() { return fields_[count_ - 1]; }
    const RawField &operator[](size_t i) const { return fields_[i]; }

    void Append() {
        if (count_ == fields_.size()) {
            fields_.emplace_back();
        }
        ++count_;
        Back().name.clear();
        Back().isHex = false;
    }

  private:
    std::vector<RawField> fields_;
    size_t count_ = 0;
};

/** Members of the objects of both forms. */
enum Member : uint8_t {
    kNoMember = 0,
    kSystems = 1,  // "vs" of a tree
    kId = 2,       // of a VS
    kRecords = 4,  // of a VS
    kClass = 8,    // of a record
    kFields = 16,  // of a record
    kLineVs = 32,  // "vs" of a line
    kHex = 64,     // of a value
};

/** What the reader stands in. */
enum class In : uint8_t { kNothing, kTop, kSystems, kVs, kRecords, kRecord, kFields, kField, kValue };

struct KnownMember {
    In in;
    Member member;
    const char *name;
};

constexpr KnownMember kMembers[] = {{In::kTop, kSystems, "vs"},       {In::kVs, kId, "id"},
                                    {In::kVs, kRecords, "records"},   {In::kRecord, kClass, "class"},
                                    {In::kRecord, kFields, "fields"}, {In::kRecord, kLineVs, "vs"},
                                    {In::kValue, kHex, "hex"}};

/** Reads JSON into a store, and knows where it is. */
class Reader : public session::JsonEvents {
  public:
    Reader(JsonForm form, Store *store, const Names &names)
        : isTree_(form == JsonForm::kTree), store_(store), names_(names) {}

    size_t RecordCount() const { return recordCount_; }

    /** The place, as "vs[0].records[3].fields[1]". */
    std::string Place() const {
        std::string place;
        for (const auto &[name, index] : {std::pair("vs", system_), {"records", record_}, {"fields", field_}}) {
            if (index) {
                place += fmt::format("{}{}[{}]", place.empty() ? "" : ".", name, *index);
            }
        }
        return place;
    }

    void Take(const Scalar &scalar) override {
        if (in_ == In::kField) {
            return TakeFieldPart(scalar);
        }
        switch (member_) {
            case kId:
                return TakeVs(IdOf(scalar));
            case kLineVs:
                vsId_ = IdOf(scalar);
                return;
            case kClass:
                cid_ = scalar.type == Scalar::Type::kString && !names_.IsEmpty() ? names_.ParseClass(scalar.text)
                                                                                 : IdOf(scalar);
                return;
            case kHex:
                if (scalar.type == Scalar::Type::kString) {
                    fields_.Back().value = scalar;
                    return;
                }
                [[fallthrough]];
            default:
                RefuseShape();
        }
    }

    void TakeKey(const std::string &name) override {
        const auto known = std::ranges::find_if(kMembers, [&](const KnownMember &each) {
            return each.in == in_ && each.name == name && (each.member != kLineVs || !isTree_);
        });
        if (known == std::end(kMembers)) {
            member_ = kNoMember;
            if (in_ == In::kTop || in_ == In::kValue) {
                RefuseShape();
            }
            throw Problem(fmt::format(R"("{}" is unknown here)", name));
        }
        member_ = known->member;
        if ((seen_ & member_) != 0) {
            throw Problem(fmt::format(R"(an object holds "{}" twice)", name));
        }
        seen_ |= member_;
    }

    void BeginObject() override {
        if (in_ == In::kNothing && isTree_) {
            Enter(In::kTop, kSystems);
        } else if (in_ == In::kSystems) {
            Step(&system_);
            Enter(In::kVs, kId | kRecords);
            vsId_.reset();
        } else if (in_ == In::kRecords || in_ == In::kNothing) {
            if (isTree_) {
                Step(&record_);
            }
            Enter(In::kRecord, kClass | kFields | kLineVs);
            fields_.Clear();
        } else if (in_ == In::kField && part_ == 1) {
            Enter(In::kValue, kHex);
            fields_.Back().isHex = true;
        } else {
            RefuseShape();
        }
    }

    void EndObject() override {
        switch (in_) {
            case In::kTop:
                Require(kSystems);
                in_ = In::kNothing;
                return;
            case In::kVs:
                Require(kId);
                Require(kRecords);
                in_ = In::kSystems;
                return;
            case In::kRecord:
                EndRecord();
                in_ = isTree_ ? In::kRecords : In::kNothing;
                return;
            default:
                Require(kHex);
                part_ = 2;
                in_ = In::kField;
        }
    }

    void BeginArray() override {
        if (in_ == In::kTop) {
            in_ = In::kSystems;
        } else if (in_ == In::kVs && member_ == kRecords) {
            in_ = In::kRecords;
        } else if (in_ == In::kRecord && member_ == kFields) {
            in_ = In::kFields;
        } else if (in_ == In::kFields) {
            Step(&field_);
            fields_.Append();
            part_ = 0;
            in_ = In::kField;
        } else {
            RefuseShape();
        }
    }

    void EndArray() override {
        switch (in_) {
            case In::kSystems:
                if (!system_) {
                    throw Problem("there is no VS, and a file cannot be without one");
                }
                system_.reset();
                in_ = In::kTop;
                return;
            case In::kRecords:
                record_.reset();
                in_ = In::kVs;
                return;
            case In::kFields:
                field_.reset();
                in_ = In::kRecord;
                return;
            default:
                if (part_ != 2) {
                    throw Problem(kNoPair);
                }
                in_ = In::kFields;
        }
    }

  private:
    using Index = std::optional<size_t>;

    static void Step(Index *index) { *index = *index ? **index + 1 : 0; }

    /** Enters an object, none of whose members has been seen yet. */
    void Enter(In in, unsigned members) {
        in_ = in;
        member_ = kNoMember;
        seen_ &= ~members;
    }

    /** Throws Problem unless the object that ends has had a member. */
    void Require(Member member) {
        if ((seen_ & member) == 0) {
            if (member == kSystems || member == kHex) {
                RefuseShape();
            }
            const auto known = std::ranges::find(kMembers, member, &KnownMember::member);
            throw Problem(fmt::format(R"("{}" is missing)", known->name));
        }
    }

    /** Throws Problem that says what must stand where the reader is. */
    [[noreturn]] void RefuseShape() {
        if (in_ == In::kSystems || in_ == In::kRecords || in_ == In::kFields) {
            Step(in_ == In::kSystems ? &system_ : in_ == In::kRecords ? &record_ : &field_);  // to what is wrong
        }
        throw Problem(WhatIsWrong());
    }

    const char *WhatIsWrong() const {
        switch (in_) {
            case In::kNothing:
            case In::kTop:
                return member_ == kSystems ? R"("vs" is no array)"
                       : isTree_           ? R"(the text must be an object with the one member "vs")"
                                           : R"(an object with "vs", "class" and "fields" must stand here)";
            case In::kSystems:
                return R"(an object with "id" and "records" must stand here)";
            case In::kVs:
                return member_ == kRecords ? R"("records" is no array)"
                                           : R"("id" is no whole number from 0 to 4294967295)";
            case In::kRecords:
                return R"(an object with "class" and "fields" must stand here)";
            case In::kRecord:
                return member_ == kFields   ? R"("fields" is no array)"
                       : member_ == kLineVs ? R"("vs" is no whole number from 0 to 4294967295)"
                                            : R"("class" is no whole number from 0 to 4294967295)";
            case In::kFields:
                return kNoPair;
            case In::kField:
                return part_ == 0   ? "the field id is no whole number from 0 to 4294967295"
                       : part_ == 1 ? "an array is no value of a field"
                                    : kNoPair;
            case In::kValue:
                break;
        }
        return R"(an object must be {"hex":"..."})";
    }

    uint32_t IdOf(const Scalar &scalar) {
        if (scalar.type != Scalar::Type::kNumber || scalar.number > UINT32_MAX) {
            RefuseShape();
        }
        return static_cast<uint32_t>(scalar.number);
    }

    void TakeFieldPart(const Scalar &scalar) {
        RawField &field = fields_.Back();
        if (part_ == 0) {
            if (scalar.type == Scalar::Type::kString && !names_.IsEmpty()) {
                field.name = scalar.text;
            } else {
                field.fid = IdOf(scalar);
            }
        } else if (part_ == 1) {
            field.value = scalar;
        } else {
            RefuseShape();
        }
        ++part_;
    }

    /** Takes the id of a VS, and the records that came before it. */
    void TakeVs(uint32_t vsId) {
        if (!vsIds_.insert(vsId).second) {
            throw Problem(fmt::format("VS {} came before", vsId));
        }
        store_->AddVs(vsId);
        vsId_ = vsId;
        for (Record &record : pending_) {
            Step(&record_);
            AddRecord(std::move(record));
        }
        pending_.clear();
        record_.reset();
    }

    void EndRecord() {
        if (!isTree_) {
            Require(kLineVs);
            if ((seen_ & (kClass | kFields)) == 0) {
                store_->AddVs(*vsId_);
                return;
            }
        }
        Require(kClass);
        Require(kFields);
        if (!IsRecordClass(cid_)) {
            throw Problem(fmt::format("{} is no class of records", cid_));
        }
        Record record = MakeRecord();
        if (vsId_) {
            AddRecord(std::move(record));
        } else {
            pending_.push_back(std::move(record));
        }
    }

    Record MakeRecord() {
        Record record(cid_);
        for (size_t i = 0; i < fields_.Count(); ++i) {
            field_ = i;
            const RawField &field = fields_[i];
            const uint32_t fid = field.name.empty() ? field.fid : names_.ParseField(cid_, field.name);
            const session::Bytes inFileOrder = ParseRaw(fid, field);
            session::CheckLength(fid, inFileOrder.size());
            const session::Bytes value = session::SwapOrder(fid, inFileOrder);
            record.Add(fid, Bytes(reinterpret_cast<const uint8_t *>(value.data()), value.size()));
        }
        field_.reset();
        return record;
    }

    void AddRecord(Record record) {
        const auto refuse = [&](const std::string &why) {
            throw Problem(fmt::format("{}: {}", DescribeRecord(*vsId_, record.View()), why));
        };
        if (record.View().FieldCount() == 0) {
            refuse("a record without fields cannot be read back");
        }
        for (const uint32_t fid : KeyFields(cid_)) {
            if (!record.View().Find(fid)) {
                refuse(fmt::format("key field {} is missing", fid));
            }
        }
        const uint32_t code = TAV_ExtCfgAddRecord(*vsId_, record.Get(), store_->Get());
        if (code == TAV_ERR_NO_MEMORY) {
            throw std::bad_alloc();
        }
        if (code != TAV_OK) {
            refuse(code == TAV_ERR_REFUSED ? "the store is read-only" : "a record with this key came before");
        }
        static_cast<void>(record.Release());
        ++recordCount_;
    }

    const bool isTree_;
    Store *store_;
    const Names &names_;
    In in_ = In::kNothing;
    Member member_ = kNoMember;      // whose value comes next
    unsigned seen_ = 0;              // the members that the objects around the reader have had
    Index system_, record_, field_;  // where it is in each of the nested arrays
    size_t part_ = 0;                // of the field: 0 id, 1 value, 2 the end
    std::optional<uint32_t> vsId_;
    uint32_t cid_ = 0;
    RawFields fields_;
    std::vector<Record> pending_;  // the records of a VS whose id comes behind them
    std::unordered_set<uint32_t> vsIds_;
    size_t recordCount_ = 0;
};

/** Reads a text, which begins at a line of its source. */
void ReadInto(Reader *reader, std::string_view text, const std::string &source) {
    try {
        reader->Read(text);
    } catch (const std::runtime_error &error) {  // a Problem, or an Error of the names
        const std::string place = reader->Place();
        throw Error(TAV_ERR_INVALID, source + (source.empty() || place.empty() ? "" : ": ") + place, error.what());
    }
}

}  // namespace

size_t ReadJson(std::string_view text, JsonForm form, Store *store, const Names &names) {
    Reader reader(form, store, names);
    if (form == JsonForm::kTree) {
        ReadInto(&reader, text, "");
        return reader.RecordCount();
    }
    for (size_t line = 1; !text.empty(); ++line) {
        const size_t end = text.find('\n');
        const std::string_view content = text.substr(0, end);
        if (content.find_first_not_of(" \t\r") != std::string_view::npos) {
            ReadInto(&reader, content, fmt::format("line {}", line));
        }
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return reader.RecordCount();
}

}  // namespace tav
