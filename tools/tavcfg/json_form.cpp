#include "json_form.h"

#include <fmt/format.h>

#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <utility>

#include "errors.h"
#include "value.h"

using nlohmann::json;

namespace tavcfg {

namespace {

json RecordToJson(const Record &record) {
    json fields = json::array();
    for (const Field &field : record.fields) {
        fields.push_back(json::array({field.fid, ValueToJson(field.fid, field.value)}));
    }
    return {{"class", record.cid}, {"fields", std::move(fields)}};
}

/**
 * Reads JSON for its faults alone. The parser proper lets an object hold a name twice and keeps the last; its callback,
 * which would tell, makes it take quadratic time.
 */
class NameCheck : public nlohmann::json_sax<json> {
  public:
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t &) override { return true; }
    bool string(string_t &) override { return true; }
    bool binary(binary_t &) override { return true; }
    bool start_array(size_t) override { return true; }
    bool end_array() override { return true; }

    bool start_object(size_t) override {
        names_.emplace_back();
        return true;
    }

    bool key(string_t &name) override {
        if (!names_.back().insert(name).second) {
            throw Problem(fmt::format(R"(an object holds "{}" twice)", name));
        }
        return true;
    }

    bool end_object() override {
        names_.pop_back();
        return true;
    }

    bool parse_error(size_t, const std::string &, const json::exception &error) override {
        const std::string what = error.what();  // "[json.exception.parse_error.101] parse error at line ..."
        const size_t bracket = what.find("] ");
        throw Problem(bracket == std::string::npos ? what : what.substr(bracket + 2));
    }

  private:
    std::vector<std::set<std::string>> names_;  // of each object around the place being read
};

/** Throws Problem unless an object has exactly these two members. */
void RequireMembers(const json &object, const char *first, const char *second) {
    if (!object.is_object()) {
        throw Problem(fmt::format(R"(an object with "{}" and "{}" must stand here)", first, second));
    }
    for (const char *name : {first, second}) {
        if (!object.contains(name)) {
            throw Problem(fmt::format(R"("{}" is missing)", name));
        }
    }
    for (const auto &item : object.items()) {
        if (item.key() != first && item.key() != second) {
            throw Problem(fmt::format(R"("{}" is unknown here)", item.key()));
        }
    }
}

const json &RequireArray(const json &value, const char *name) {
    if (!value.is_array()) {
        throw Problem(fmt::format(R"("{}" is no array)", name));
    }
    return value;
}

uint32_t RequireId(const json &value, const char *name) {
    if (!value.is_number_unsigned() || value.get<uint64_t>() > UINT32_MAX) {
        throw Problem(fmt::format("{} is no whole number from 0 to {}", name, UINT32_MAX));
    }
    return value.get<uint32_t>();
}

/** Walks the JSON form, and knows where it is. */
class Walk {
  public:
    explicit Walk(const JsonTaker &taker) : taker_(taker) {}

    void TakeAll(const json &form) {
        if (!form.is_object() || form.size() != 1 || !form.contains("vs")) {
            throw Problem(R"(the text must be an object with the one member "vs")");
        }
        const json &list = RequireArray(form["vs"], "vs");
        if (list.empty()) {
            throw Problem("there is no VS, and a file cannot be without one");
        }
        ForEach(list, vs_, [this](const json &object) { TakeVs(object); });
    }

    /** The place, as "vs[0].records[3].fields[1]: ". */
    std::string Place() const {
        std::string place;
        for (const auto &[name, index] : {std::pair("vs", vs_), {".records", record_}, {".fields", field_}}) {
            if (index) {
                place += fmt::format("{}[{}]", name, *index);
            }
        }
        return place.empty() ? place : place + ": ";
    }

  private:
    using Index = std::optional<size_t>;

    template <typename Take>
    void ForEach(const json &array, Index &index, Take take) {
        for (size_t i = 0; i < array.size(); ++i) {
            index = i;
            take(array[i]);
        }
        index.reset();
    }

    void TakeVs(const json &object) {
        RequireMembers(object, "id", "records");
        const uint32_t vsId = RequireId(object["id"], R"("id")");
        taker_.vs(vsId);
        ForEach(RequireArray(object["records"], "records"), record_,
                [this, vsId](const json &record) { taker_.record(vsId, TakeRecord(record)); });
    }

    Record TakeRecord(const json &object) {
        RequireMembers(object, "class", "fields");
        Record record{RequireId(object["class"], R"("class")"), {}};
        if (!IsRecordClass(record.cid)) {
            throw Problem(fmt::format("{} is no class of records", record.cid));
        }
        const json &fields = RequireArray(object["fields"], "fields");
        record.fields.reserve(fields.size());
        ForEach(fields, field_, [&](const json &pair) { record.fields.push_back(TakeField(pair)); });
        return record;
    }

    static Field TakeField(const json &pair) {
        if (!pair.is_array() || pair.size() != 2) {
            throw Problem("a pair of field id and value must stand here");
        }
        const uint32_t fid = RequireId(pair[0], "the field id");
        return {fid, ValueFromJson(fid, pair[1])};
    }

    const JsonTaker &taker_;
    Index vs_, record_, field_;  // where the walk is in each of the nested arrays
};

}  // namespace

void PrintJson(const Model &model) {
    fmt::print("{{\"vs\":[");
    for (size_t i = 0; i < model.size(); ++i) {
        fmt::print("{}{{\"id\":{},\"records\":[", i == 0 ? "" : ",\n", model[i].id);
        const std::vector<Record> &records = model[i].records;
        for (size_t k = 0; k < records.size(); ++k) {
            fmt::print("{}{}", k == 0 ? "\n" : ",\n", RecordToJson(records[k]).dump());
        }
        fmt::print("]}}");
    }
    fmt::print("]}}\n");
}

json ParseJson(const std::string &text) {
    NameCheck check;
    json::sax_parse(text, &check);
    return json::parse(text);
}

size_t CountRecords(const json &form) {
    size_t count = 0;
    if (form.is_object() && form.contains("vs")) {
        for (const json &vs : form["vs"]) {
            count += vs.is_object() && vs.contains("records") ? vs["records"].size() : 0;
        }
    }
    return count;
}

void TakeJson(const json &form, const JsonTaker &taker) {
    Walk walk(taker);
    try {
        walk.TakeAll(form);
    } catch (const Problem &problem) {
        throw Problem(walk.Place() + problem.what());
    }
}

}  // namespace tavcfg
