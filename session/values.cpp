/*
 * Values of fields as people write them, and their order.
 */
#include "session/values.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

#include "session/problem.h"
#include "tav/error.h"
#include "tav/values.h"

using tav::Kind;
using tav::KindOf;

namespace session {

namespace {

constexpr std::string_view kHexPrefix = "hex:";

/** The form that is particular to the field's type; nothing when it would not give back the same bytes. */
std::optional<std::string> Friendly(uint32_t fid, std::string_view value) {
    switch (KindOf(fid)) {
        case Kind::kInteger:
            return value.size() == LimitOf(fid) ? std::optional(fmt::to_string(LoadNumber(value))) : std::nullopt;
        case Kind::kText:
            return IsUtf8(value) && !HasControls(value) && !value.starts_with(kHexPrefix)
                       ? std::optional(std::string(value))
                       : std::nullopt;
        case Kind::kBytes: {
            std::string digits;
            AppendHex(&digits, value);
            return digits;
        }
        case Kind::kAddress:
            return AddressText(value);
        case Kind::kTime:
            return TimeText(value);
        case Kind::kOpaque:
            break;
    }
    return {};
}

}  // namespace

size_t LimitOf(uint32_t fid) {
    return TAV_GetExtTlvDataLen(fid);
}

uint64_t MaxNumber(uint32_t fid) {
    const size_t size = LimitOf(fid);
    return size >= sizeof(uint64_t) ? UINT64_MAX : (uint64_t{1} << 8 * size) - 1;
}

Bytes SwapOrder(uint32_t fid, std::string_view value) {
    Bytes swapped(value.size(), '\0');
    const auto length = static_cast<uint32_t>(value.size());
    if (TAV_ExtTlvConvertEndian(fid, length, value.data(), swapped.data()) != TAV_OK) {
        throw Problem(fmt::format("a value of {} bytes cannot be converted", value.size()));
    }
    return swapped;
}

void CheckLength(uint32_t fid, size_t length) {
    if (const size_t limit = LimitOf(fid); length > limit) {
        throw Problem(fmt::format("the value has {} bytes, at most {} are possible", length, limit));
    }
}

Bytes ParseFriendly(uint32_t fid, std::string_view text) {
    switch (KindOf(fid)) {
        case Kind::kInteger:
            return StoreNumber(ParseNumber(text, MaxNumber(fid)), LimitOf(fid));
        case Kind::kText:
            return Bytes(text);
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

Bytes ParseValue(uint32_t fid, std::string_view text) {
    const Bytes value =
        text.starts_with(kHexPrefix) ? FromHex(text.substr(kHexPrefix.size())) : ParseFriendly(fid, text);
    CheckLength(fid, value.size());
    return SwapOrder(fid, value);
}

}  // namespace session

namespace tav {

namespace {

/** Makes a call whose Problem becomes an Error. */
template <typename Call>
auto Public(Call call) {
    try {
        return call();
    } catch (const session::Problem &problem) {
        throw Error(TAV_ERR_INVALID, "", problem.what());
    }
}

}  // namespace

bool IsRecordClass(uint32_t cid) {
    return TAV_GetExtTlvDataType(cid) == TAV_EXT_DATA_TYPE_CONTAINER;
}

bool IsKeyField(uint32_t cid, uint32_t fid) {
    std::array<uint32_t, TAV_EXT_MAX_KEY_FIDS> fids;
    const uint32_t count = TAV_GetExtClassKeyFid(cid, fids.data(), TAV_EXT_MAX_KEY_FIDS);
    return std::find(fids.begin(), fids.begin() + count, fid) != fids.begin() + count;
}

std::string FormatValue(uint32_t fid, std::string_view value) {
    const session::Bytes inFileOrder = Public([&] { return session::SwapOrder(fid, value); });
    if (std::optional<std::string> form = session::Friendly(fid, inFileOrder)) {
        return *form;
    }
    std::string text(session::kHexPrefix);
    session::AppendHex(&text, inFileOrder);
    return text;
}

std::string DescribeRecord(uint32_t vsId, RecordView record) {
    std::string text = fmt::format("VS {} class {}", vsId, record.Cid());
    for (const uint32_t fid : KeyFields(record.Cid())) {
        if (const std::optional<FieldView> field = record.Find(fid)) {
            text += fmt::format(" {}={}", fid, FormatValue(*field));
        }
    }
    return text;
}

std::string ParseValue(uint32_t fid, std::string_view text) {
    return Public([&] { return session::ParseValue(fid, text); });
}

uint32_t ParseId(std::string_view text) {
    return Public([&] { return static_cast<uint32_t>(session::ParseNumber(text, UINT32_MAX)); });
}

int CompareValues(uint32_t fid, std::string_view a, std::string_view b) {
    // The big-endian bytes of numbers, addresses and times have the order of what they mean.
    const Kind kind = KindOf(fid);
    if (kind != Kind::kText && kind != Kind::kBytes && kind != Kind::kOpaque) {
        const bool isOddA = a.size() != session::LimitOf(fid);
        const bool isOddB = b.size() != session::LimitOf(fid);
        if (isOddA != isOddB) {
            return isOddA ? 1 : -1;
        }
    }
    return Public([&] { return session::SwapOrder(fid, a).compare(session::SwapOrder(fid, b)); });
}

}  // namespace tav
