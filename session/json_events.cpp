/*
 * JSON read as events.
 */
#include "session/json_events.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "session/problem.h"

namespace session {

namespace {

/** Hands the parser's events on. */
class Sax final : public nlohmann::json_sax<nlohmann::json> {
  public:
    Sax(JsonEvents *events, std::string_view text) : events_(events), text_(text) {}

    bool null() override { return TakeOther("null"); }
    bool boolean(bool value) override { return TakeOther(value ? "true" : "false"); }
    bool number_integer(number_integer_t value) override { return TakeOther(std::to_string(value)); }
    bool number_float(number_float_t, const string_t &text) override { return TakeOther(text); }
    bool binary(binary_t &) override { return TakeOther("binary"); }

    bool number_unsigned(number_unsigned_t value) override {
        scalar_.type = Scalar::Type::kNumber;
        scalar_.number = value;
        events_->Take(scalar_);
        return true;
    }

    bool string(string_t &value) override {
        scalar_.type = Scalar::Type::kString;
        scalar_.text.swap(value);  // the room of the last one goes back to the parser
        events_->Take(scalar_);
        return true;
    }

    bool key(string_t &name) override {
        events_->TakeKey(name);
        return true;
    }

    bool start_object(size_t) override {
        events_->BeginObject();
        return true;
    }

    bool end_object() override {
        events_->EndObject();
        return true;
    }

    bool start_array(size_t) override {
        events_->BeginArray();
        return true;
    }

    bool end_array() override {
        events_->EndArray();
        return true;
    }

    bool parse_error(size_t position, const std::string &, const nlohmann::json::exception &error) override {
        const bool isTooLarge = dynamic_cast<const nlohmann::json::out_of_range *>(&error) != nullptr;
        // The position counts the bytes read, the faulty one included.
        const std::string_view before = text_.substr(0, position == 0 ? 0 : position - 1);
        const size_t lineFeed = before.rfind('\n');
        throw Problem(fmt::format("parse error at line {}, column {}: {}",
                                  std::count(before.begin(), before.end(), '\n') + 1,
                                  before.size() - (lineFeed == std::string_view::npos ? 0 : lineFeed + 1) + 1,
                                  isTooLarge                ? "this number is too large"
                                  : position > text_.size() ? "the text ends too early"
                                                            : "this is no JSON"));
    }

  private:
    bool TakeOther(const std::string &text) {
        scalar_.type = Scalar::Type::kOther;
        scalar_.text = text;
        events_->Take(scalar_);
        return true;
    }

    JsonEvents *events_;
    std::string_view text_;
    Scalar scalar_;
};

}  // namespace

std::string Scalar::ToText() const {
    switch (type) {
        case Type::kNumber:
            return std::to_string(number);
        case Type::kString:
            return '"' + text + '"';
        case Type::kOther:
            break;
    }
    return text;
}

void JsonEvents::Read(std::string_view text) {
    Sax sax(this, text);
    nlohmann::json::sax_parse(text.data(), text.data() + text.size(), &sax);
}

}  // namespace session
