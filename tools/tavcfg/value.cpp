#include "value.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include "errors.h"
#include "tav_extcfg.h"
#include "value_forms.h"

using nlohmann::json;

namespace tavcfg {

namespace {

/** What values of a field are, for people. */
enum class Kind { kInteger, kText, kBytes, kAddress, kTime, kOpaque };

constexpr std::string_view kHexPrefix = "hex:";

Kind KindOf(uint32_t fid) {
    switch (TAV_GetExtTlvDataType(fid)) {
        case 4:
        case 6:
        case 13:
        case 17:
        case 45:
            return Kind::kInteger;
        case 25:
            return Kind::kText;
        case 26:
            return Kind::kBytes;
        case 38:
            return Kind::kAddress;
        case 61:
            return Kind::kTime;
        default:
            return Kind::kOpaque;
    }
}

/** Largest number of a field of integers. */
uint64_t MaxNumber(uint32_t fid) {
    return (uint64_t{1} << 8 * TAV_GetExtTlvDataLen(fid)) - 1;
}

/** Returns whether JSON can carry a text: UTF-8 that comes back the same. */
bool IsUtf8(const Bytes &text) {
    const bool isAscii = std::all_of(text.begin(), text.end(), [](char c) { return static_cast<uint8_t>(c) < 0x80; });
    return isAscii || json::parse(json(text).dump(-1, ' ', false, json::error_handler_t::ignore)) == json(text);
}

/** The form of a value for people, whether or not it gives back the same bytes; nothing when there is no form. */
std::optional<std::string> Friendly(uint32_t fid, const Bytes &value) {
    switch (KindOf(fid)) {
        case Kind::kInteger:
            return value.size() == TAV_GetExtTlvDataLen(fid) ? std::optional(fmt::to_string(LoadNumber(value)))
                                                             : std::nullopt;
        case Kind::kText:
            return IsUtf8(value) && !HasControls(value) ? std::optional(value) : std::nullopt;
        case Kind::kBytes:
            return ToHex(value);
        case Kind::kAddress:
            return AddressText(value);
        case Kind::kTime:
            return TimeText(value);
        case Kind::kOpaque:
            break;
    }
    return {};
}

/** Parses a value written in the form of the field's type. */
Bytes ParseFriendly(uint32_t fid, const std::string &text) {
    switch (KindOf(fid)) {
        case Kind::kInteger:
            return StoreNumber(ParseNumber(text, MaxNumber(fid)), TAV_GetExtTlvDataLen(fid));
        case Kind::kText:
            return text;
        case Kind::kBytes:
            return FromHex(text);
        case Kind::kAddress:
            return ParseAddress(text);
        case Kind::kTime:
            return ParseTime(text);
        case Kind::kOpaque:
            break;
    }
    throw Problem("a field of this type is given as hex:...");
}

/** Returns whether parsing a value's form gives back the same bytes. */
bool GivesBack(uint32_t fid, const std::optional<std::string> &form, const Bytes &value) {
    try {
        return form && !form->starts_with(kHexPrefix) && ParseFriendly(fid, *form) == value;
    } catch (const Problem &) {
        return false;
    }
}

Bytes FromHexObject(const json &form) {
    if (form.size() != 1 || !form.contains("hex") || !form["hex"].is_string()) {
        throw Problem(R"(an object must be {"hex":"..."})");
    }
    return FromHex(form["hex"].get_ref<const std::string &>());
}

}  // namespace

void CheckLength(uint32_t fid, size_t length) {
    const uint16_t limit = TAV_GetExtTlvDataLen(fid);
    if (length > limit) {
        throw Problem(fmt::format("the value has {} bytes, at most {} are possible", length, limit));
    }
}

bool IsInteger(uint32_t fid) {
    return KindOf(fid) == Kind::kInteger;
}

std::string FormatValue(uint32_t fid, const Bytes &value) {
    std::optional<std::string> form = Friendly(fid, value);
    return GivesBack(fid, form, value) ? *form : fmt::format("{}{}", kHexPrefix, ToHex(value));
}

std::string FormatTime(const Bytes &value) {
    return FormatValue(EXT_TLV_MODIFY_TIME, value);
}

Bytes ParseValue(uint32_t fid, const std::string &text) {
    Bytes value = text.starts_with(kHexPrefix) ? FromHex(std::string_view(text).substr(kHexPrefix.size()))
                                               : ParseFriendly(fid, text);
    CheckLength(fid, value.size());
    return value;
}

json ValueToJson(uint32_t fid, const Bytes &value) {
    const Kind kind = KindOf(fid);
    if (kind == Kind::kInteger && value.size() == TAV_GetExtTlvDataLen(fid)) {
        return LoadNumber(value);
    }
    if (kind == Kind::kText && IsUtf8(value) && value.find('\0') == Bytes::npos) {
        return value;
    }
    if (kind == Kind::kAddress || kind == Kind::kTime) {
        if (const std::optional<std::string> form = Friendly(fid, value); GivesBack(fid, form, value)) {
            return *form;
        }
    }
    return {{"hex", ToHex(value)}};
}

Bytes ValueFromJson(uint32_t fid, const json &form) {
    const Kind kind = KindOf(fid);
    Bytes value;
    if (form.is_object()) {
        value = FromHexObject(form);
    } else if (kind == Kind::kInteger && form.is_number_unsigned()) {
        const uint64_t number = form.get<uint64_t>();
        if (number > MaxNumber(fid)) {
            throw Problem(fmt::format("{} is out of range, at most {}", number, MaxNumber(fid)));
        }
        value = StoreNumber(number, TAV_GetExtTlvDataLen(fid));
    } else if ((kind == Kind::kText || kind == Kind::kAddress || kind == Kind::kTime) && form.is_string()) {
        value = ParseFriendly(fid, form.get_ref<const std::string &>());
    } else {
        throw Problem(fmt::format(R"({} does not suit the field's type, which takes {}{{"hex":"..."}})",
                                  form.dump(-1, ' ', false, json::error_handler_t::replace),
                                  kind == Kind::kInteger                          ? "a whole number or "
                                  : kind == Kind::kBytes || kind == Kind::kOpaque ? ""
                                                                                  : "a string or "));
    }
    CheckLength(fid, value.size());
    return value;
}

}  // namespace tavcfg
