/*
 * The content of a store, and changes, written as JSON.
 */
#include "tav/json.h"

#include <fmt/format.h>

#include <iterator>
#include <optional>
#include <utility>

#include "session/values.h"
#include "tav/values.h"

namespace tav {

namespace {

constexpr size_t kPieceSize = size_t{1} << 16;  // bytes that a sink is given at once, about

/** Appends a control character so that no terminal that shows the text is steered by it. */
void AppendEscape(std::string *out, uint8_t code) {
    fmt::format_to(std::back_inserter(*out), "\\u{:04x}", code);
}

/** Appends a string of JSON. The text must be UTF-8. */
void AppendString(std::string *out, std::string_view text) {
    constexpr std::string_view kNamed = "\"\\\b\f\n\r\t", kLetters = "\"\\bfnrt";
    *out += '"';
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        if (const size_t named = kNamed.find(text[i]); named != std::string_view::npos) {
            *out += '\\';
            *out += kLetters[named];
        } else if (byte < 0x20 || byte == 0x7F) {
            AppendEscape(out, byte);
        } else if (byte == 0xC2 && static_cast<uint8_t>(text[i + 1]) <= 0x9F) {  // of two bytes; see IsUtf8
            AppendEscape(out, static_cast<uint8_t>(text[++i]));
        } else {
            *out += text[i];
        }
    }
    *out += '"';
}

void AppendNumber(std::string *out, uint64_t number) {
    const fmt::format_int text(number);
    out->append(text.data(), text.size());
}

void AppendHexObject(std::string *out, std::string_view inFileOrder) {
    *out += R"({"hex":")";
    session::AppendHex(out, inFileOrder);
    *out += R"("})";
}

/** Appends the JSON form of a value, which is in host order. */
void AppendValue(std::string *out, uint32_t fid, std::string_view value) {
    const Kind kind = KindOf(fid);
    if (kind == Kind::kText && session::IsUtf8(value) && value.find('\0') == std::string_view::npos) {
        AppendString(out, value);
        return;
    }
    const session::Bytes inFileOrder = session::SwapOrder(fid, value);
    if (kind == Kind::kInteger && value.size() == session::LimitOf(fid)) {
        AppendNumber(out, session::LoadNumber(inFileOrder));
        return;
    }
    const std::optional<std::string> form = kind == Kind::kAddress ? session::AddressText(inFileOrder)
                                            : kind == Kind::kTime  ? session::TimeText(inFileOrder)
                                                                   : std::nullopt;
    if (form) {
        AppendString(out, *form);
    } else {
        AppendHexObject(out, inFileOrder);
    }
}

/** Appends an id, or the name that stands for it. */
void AppendId(std::string *out, uint32_t id, const std::string &name) {
    if (name.empty() || (name[0] >= '0' && name[0] <= '9')) {
        AppendNumber(out, id);
    } else {
        AppendString(out, name);
    }
}

/** Writes the parts that records and changes have in common. */
class Writer {
  public:
    Writer(std::string *out, const Names &names) : out_(out), names_(names) {}

    void AppendClass(uint32_t cid) {
        *out_ += R"("class":)";
        AppendId(out_, cid, names_.IsEmpty() ? std::string() : names_.ClassText(cid));
    }

    void AppendFid(uint32_t cid, uint32_t fid) {
        AppendId(out_, fid, names_.IsEmpty() ? std::string() : names_.FieldText(cid, fid));
    }

    void AppendField(uint32_t cid, uint32_t fid, std::string_view value, bool isFirst) {
        *out_ += isFirst ? "[" : ",[";
        AppendFid(cid, fid);
        *out_ += ',';
        AppendValue(out_, fid, value);
        *out_ += ']';
    }

    void AppendRecord(RecordView record) {
        AppendClass(record.Cid());
        *out_ += R"(,"fields":[)";
        bool isFirst = true;
        for (const FieldView field : record) {
            AppendField(record.Cid(), field.Id(), field.Text(), std::exchange(isFirst, false));
        }
        *out_ += "]}";
    }

  private:
    std::string *out_;
    const Names &names_;
};

}  // namespace

JsonWriter::JsonWriter(JsonForm form, TextSink sink, Names names)
    : form_(form), sink_(std::move(sink)), names_(std::move(names)) {
    if (form_ == JsonForm::kTree) {
        text_ = R"({"vs":[)";
    }
}

void JsonWriter::BeginVs(uint32_t vsId) {
    EndVs();
    if (form_ == JsonForm::kTree) {
        text_ += fmt::format(R"({}{{"id":{},"records":[)", vsCount_ == 0 ? "" : ",\n", vsId);
    }
    vsId_ = vsId;
    ++vsCount_;
    recordCount_ = 0;
}

void JsonWriter::EndVs() {
    if (vsCount_ > 0 && form_ == JsonForm::kTree) {
        text_ += "]}";
    } else if (vsCount_ > 0 && recordCount_ == 0) {
        text_ += fmt::format("{{\"vs\":{}}}\n", vsId_);
    }
}

void JsonWriter::Add(RecordView record) {
    if (form_ == JsonForm::kTree) {
        text_ += recordCount_ == 0 ? "\n{" : ",\n{";
        Writer(&text_, names_).AppendRecord(record);
    } else {
        text_ += RecordToJson(vsId_, record, names_) + '\n';
    }
    ++recordCount_;
    if (text_.size() >= kPieceSize) {
        sink_(text_);
        text_.clear();
    }
}

void JsonWriter::End() {
    EndVs();
    if (form_ == JsonForm::kTree) {
        text_ += "]}\n";
    }
    sink_(text_);
    text_.clear();
}

void WriteJson(const Store &store, JsonForm form, const TextSink &sink, const Names &names) {
    JsonWriter writer(form, sink, names);
    for (const VsView vs : store) {
        writer.BeginVs(vs.Id());
        for (const ClassView records : vs) {
            for (const RecordView record : records) {
                writer.Add(record);
            }
        }
    }
    writer.End();
}

std::string ValueToJson(FieldView field) {
    std::string text;
    AppendValue(&text, field.Id(), field.Text());
    return text;
}

std::string RecordToJson(uint32_t vsId, RecordView record, const Names &names) {
    std::string text = fmt::format("{{\"vs\":{},", vsId);
    Writer(&text, names).AppendRecord(record);
    return text;
}

std::string ChangeToJson(const Change &change, const Names &names) {
    constexpr const char *kVerbs[] = {"add", "set", "unset", "del"};
    std::string text = fmt::format(R"({{"verb":"{}","vs":{})", kVerbs[static_cast<size_t>(change.verb)], change.vsId);
    if (change.cid) {
        Writer writer(&text, names);
        text += ',';
        writer.AppendClass(*change.cid);
        text += R"(,"fields":[)";
        for (const auto &field : change.fields) {
            writer.AppendField(*change.cid, field.fid, field.value, &field == change.fields.data());
        }
        text += ']';
        if (change.verb == Verb::kUnset) {
            text += R"(,"unset":[)";
            for (const uint32_t &fid : change.unset) {
                text += &fid == change.unset.data() ? "" : ",";
                writer.AppendFid(*change.cid, fid);
            }
            text += ']';
        }
    }
    return text + '}';
}

}  // namespace tav
