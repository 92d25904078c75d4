/*
 * Keys as bytes that sort, and as the names of a bucket.
 */
#include "fleet/store_key.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "common/words.h"
#include "tav/store.h"

namespace fleet {

namespace {

constexpr size_t kWord = sizeof(uint32_t);

void AppendNumber(uint32_t number, std::string *bytes) {
    std::array<char, kWord> word;
    common::StoreBigEndian(number, word.data());
    bytes->append(word.data(), word.size());
}

uint32_t NumberAt(std::string_view bytes, size_t at) {
    return common::LoadBigEndian<uint32_t>(&bytes[at]);
}

/** The value of the first field of an id. */
std::optional<std::string_view> FindField(std::string_view fields, uint32_t fid) {
    while (const std::optional<Tlv> field = TakeTlv(&fields)) {
        if (field->type == fid) {
            return field->value;
        }
    }
    return {};
}

bool IsNumber(uint32_t fid, std::string_view value) {
    return tav::KindOf(fid) == tav::Kind::kInteger && value.size() == TAV_GetExtTlvDataLen(fid);
}

bool IsPlain(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '_' ||
           c == '/';
}

std::string NameOfNumber(std::string_view value) {
    uint32_t number = 0;
    for (const char byte : value) {
        number = number << 8 | static_cast<uint8_t>(byte);
    }
    return std::to_string(number);
}

/** Names a value of a key field. */
std::string NameOfValue(uint32_t fid, std::string_view value) {
    if (IsNumber(fid, value)) {
        return NameOfNumber(value);
    }
    const bool mayBePlain = tav::KindOf(fid) == tav::Kind::kText;
    std::string name = value.empty() ? "=" : "";
    for (const char c : value) {
        if (mayBePlain && IsPlain(c)) {
            name += c;
        } else {
            constexpr std::string_view kDigits = "0123456789abcdef";
            name += {'=', kDigits[static_cast<uint8_t>(c) >> 4], kDigits[static_cast<uint8_t>(c) & 15]};
        }
    }
    return name;
}

/** Parses a number to the end of a text. */
template <typename Number>
std::optional<Number> ParseNumber(std::string_view text, int base = 10) {
    Number number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

/** The value that NameOfValue names so. What it never gives is found by naming the result again. */
std::optional<std::string> ParseValue(uint32_t fid, std::string_view name) {
    std::string value;
    if (tav::KindOf(fid) == tav::Kind::kInteger && name.find('=') == std::string_view::npos) {
        const std::optional<uint32_t> number = ParseNumber<uint32_t>(name);
        AppendNumber(number.value_or(0), &value);
        return number ? std::optional(value.substr(kWord - TAV_GetExtTlvDataLen(fid))) : std::nullopt;
    }
    while (!name.empty() && name != "=") {
        if (name[0] != '=') {
            value += name[0];
            name.remove_prefix(1);
            continue;
        }
        const std::optional<uint8_t> byte = ParseNumber<uint8_t>(name.substr(1, 2), 16);
        if (!byte || name.size() < 3) {
            return {};
        }
        value += static_cast<char>(*byte);
        name.remove_prefix(3);
    }
    return value;
}

/** Takes the text up to the next dot, and the dot. */
std::string_view TakeWord(std::string_view *text) {
    const std::string_view word = text->substr(0, text->find('.'));
    text->remove_prefix(std::min(text->size(), word.size() + 1));
    return word;
}

}  // namespace

std::optional<Tlv> TakeTlv(std::string_view *sequence) {
    if (sequence->size() < TAV_EXT_TLV_HEAD_SIZE) {
        return {};
    }
    const uint32_t length = NumberAt(*sequence, kWord);
    if (length > sequence->size() - TAV_EXT_TLV_HEAD_SIZE) {
        return {};
    }
    const std::string_view whole = sequence->substr(0, TAV_EXT_TLV_HEAD_SIZE + length);
    sequence->remove_prefix(whole.size());
    return Tlv{NumberAt(whole, 0), whole.substr(TAV_EXT_TLV_HEAD_SIZE), whole};
}

Key KeyOfVs(uint32_t vsId) {
    Key key;
    AppendNumber(vsId, &key);
    AppendNumber(0, &key);
    return key;
}

uint32_t VsOf(const Key &key) {
    return NumberAt(key, 0);
}

uint32_t ClassOf(const Key &key) {
    return NumberAt(key, kWord);
}

bool FindKey(uint32_t vsId, const Tlv &record, Key *key) {
    key->clear();
    AppendNumber(vsId, key);
    AppendNumber(record.type, key);
    for (const uint32_t fid : tav::KeyFields(record.type)) {
        const std::optional<std::string_view> value = FindField(record.value, fid);
        if (!value) {
            return false;
        }
        AppendNumber(static_cast<uint32_t>(value->size()), key);
        key->append(*value);
    }
    return true;
}

std::string NameOf(const Key &key) {
    const uint32_t cid = ClassOf(key);
    std::string name = std::string(kVsPrefix) + std::to_string(VsOf(key));
    if (cid == 0) {
        return name;
    }
    name += "." + std::to_string(cid);
    size_t at = 2 * kWord;
    for (const uint32_t fid : tav::KeyFields(cid)) {
        const size_t length = NumberAt(key, at);
        name += "." + NameOfValue(fid, std::string_view(key).substr(at + kWord, length));
        at += kWord + length;
    }
    return name;
}

std::optional<Key> ParseName(std::string_view name) {
    if (!name.starts_with(kVsPrefix)) {
        return {};
    }
    std::string_view rest = name.substr(kVsPrefix.size());
    const std::optional<uint32_t> vsId = ParseNumber<uint32_t>(TakeWord(&rest));
    const std::optional<uint32_t> cid = rest.empty() ? 0 : ParseNumber<uint32_t>(TakeWord(&rest));
    if (!vsId || !cid) {
        return {};
    }
    Key key;
    AppendNumber(*vsId, &key);
    AppendNumber(*cid, &key);
    for (const uint32_t fid : tav::KeyFields(*cid)) {
        const std::optional<std::string> value = ParseValue(fid, TakeWord(&rest));
        if (!value) {
            return {};
        }
        AppendNumber(static_cast<uint32_t>(value->size()), &key);
        key += *value;
    }
    return NameOf(key) == name ? std::optional(key) : std::nullopt;  // written in one way only
}

}  // namespace fleet
