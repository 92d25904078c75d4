/*
 * The written forms of values: numbers, hexadecimal digits, addresses, times.
 */
#include "session/value_forms.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

#include "session/problem.h"

namespace session {

namespace {

constexpr size_t kAddressSize = 21;  // family, 4 bytes of IPv4, 16 bytes of IPv6
constexpr size_t kIpv4At = 1;
constexpr size_t kIpv6At = 5;
constexpr size_t kTimeSize = 12;  // year (2), month, day, hour, minute, second, week day, milliseconds (4)

constexpr std::string_view kDigits = "0123456789abcdef";

uint8_t ByteAt(std::string_view bytes, size_t i) {
    return static_cast<uint8_t>(bytes[i]);
}

bool IsZero(std::string_view bytes) {
    return std::all_of(bytes.begin(), bytes.end(), [](char byte) { return byte == 0; });
}

/** The form of any 12 bytes. */
std::string DateText(std::string_view value) {
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", LoadNumber(value.substr(0, 2)), ByteAt(value, 2),
                       ByteAt(value, 3), ByteAt(value, 4), ByteAt(value, 5), ByteAt(value, 6),
                       LoadNumber(value.substr(8)));
}

/** Parses a time; nothing when the text is none. */
std::optional<Bytes> TimeOf(const std::string &text) {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, milli = 0;
    const int count =
        sscanf(text.c_str(), "%4u-%2u-%2uT%2u:%2u:%2u.%3u", &year, &month, &day, &hour, &minute, &second, &milli);
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                           std::chrono::day(day)};
    if (count != 7 || !date.ok() || hour >= 24 || minute >= 60 || second > 60) {
        return {};
    }
    const std::chrono::weekday weekDay{std::chrono::sys_days(date)};
    Bytes value = StoreNumber(year, 2);
    for (const unsigned part : {month, day, hour, minute, second, weekDay.c_encoding()}) {
        value += static_cast<char>(part);
    }
    value += StoreNumber(milli, 4);
    // sscanf forgives much (signs, spaces, what follows); the one right form does not.
    const std::string form = DateText(value);
    return form == text || form == text + "Z" ? std::optional(value) : std::nullopt;
}

/** The bytes of UTF-8 that follow a first byte: how many, and from where to where the first of them may be. */
struct Utf8Tail {
    size_t count;
    uint8_t from, to;
};

/** Nothing for a byte that begins no character. */
std::optional<Utf8Tail> TailOf(uint8_t first) {
    if (first >= 0xC2 && first <= 0xDF) {
        return Utf8Tail{1, 0x80, 0xBF};
    }
    if (first >= 0xE0 && first <= 0xEF) {
        // neither a longer form than is needed, nor half a surrogate pair
        return Utf8Tail{2, static_cast<uint8_t>(first == 0xE0 ? 0xA0 : 0x80),
                        static_cast<uint8_t>(first == 0xED ? 0x9F : 0xBF)};
    }
    if (first >= 0xF0 && first <= 0xF4) {
        return Utf8Tail{3, static_cast<uint8_t>(first == 0xF0 ? 0x90 : 0x80),
                        static_cast<uint8_t>(first == 0xF4 ? 0x8F : 0xBF)};
    }
    return {};
}

}  // namespace

void AppendHex(std::string *out, std::string_view bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) {
        *out += kDigits[ByteAt(bytes, i) >> 4];
        *out += kDigits[ByteAt(bytes, i) & 0xF];
    }
}

Bytes FromHex(std::string_view digits) {
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        uint8_t byte = 0;
        const std::string_view pair = digits.substr(i, 2);
        const auto [end, error] = std::from_chars(pair.data(), pair.data() + pair.size(), byte, 16);
        if (error != std::errc() || end != pair.data() + 2) {
            throw Problem(fmt::format("'{}' is not a sequence of pairs of hexadecimal digits", digits));
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

uint64_t ParseNumber(std::string_view text, uint64_t max) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const char *const end = text.data() + text.size();
    uint64_t number = 0;
    const auto [stop, error] = std::from_chars(text.data() + (isHex ? 2 : 0), end, number, isHex ? 16 : 10);
    const bool isNumber = stop == end && error != std::errc::invalid_argument;
    if (!isNumber) {
        throw Problem(fmt::format("'{}' is not a number", text));
    }
    if (error == std::errc::result_out_of_range || number > max) {
        throw Problem(fmt::format("{} is out of range, at most {}", text, max));
    }
    return number;
}

uint64_t LoadNumber(std::string_view bytes) {
    uint64_t number = 0;
    for (const char byte : bytes) {
        number = number << 8 | static_cast<uint8_t>(byte);
    }
    return number;
}

Bytes StoreNumber(uint64_t number, size_t size) {
    Bytes bytes(size, '\0');
    for (size_t i = size; i-- > 0; number >>= 8) {
        bytes[i] = static_cast<char>(number & 0xFF);
    }
    return bytes;
}

bool IsUtf8(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        if (ByteAt(text, i) < 0x80) {
            continue;
        }
        const std::optional<Utf8Tail> tail = TailOf(ByteAt(text, i));
        if (!tail || text.size() - i <= tail->count) {
            return false;
        }
        for (size_t k = 1; k <= tail->count; ++k) {
            const uint8_t byte = ByteAt(text, ++i);
            if (byte < (k == 1 ? tail->from : 0x80) || byte > (k == 1 ? tail->to : 0xBF)) {
                return false;
            }
        }
    }
    return true;
}

bool HasControls(std::string_view text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const uint8_t byte = ByteAt(text, i);
        const uint8_t next = i + 1 < text.size() ? ByteAt(text, i + 1) : uint8_t{0};
        if (byte < 0x20 || byte == 0x7F || (byte == 0xC2 && next >= 0x80 && next <= 0x9F)) {
            return true;
        }
    }
    return false;
}

std::optional<std::string> AddressText(std::string_view value) {
    if (value.size() != kAddressSize) {
        return {};
    }
    const std::string_view v4 = value.substr(kIpv4At, kIpv6At - kIpv4At);
    const std::string_view v6 = value.substr(kIpv6At);
    if (value[0] == 4 && IsZero(v6)) {
        return fmt::format("{}.{}.{}.{}", ByteAt(v4, 0), ByteAt(v4, 1), ByteAt(v4, 2), ByteAt(v4, 3));
    }
    std::array<char, INET6_ADDRSTRLEN> text;
    if (value[0] == 6 && IsZero(v4) && inet_ntop(AF_INET6, v6.data(), text.data(), text.size()) != nullptr) {
        return text.data();
    }
    return {};
}

Bytes ParseAddress(std::string_view text) {
    Bytes value(kAddressSize, '\0');
    const bool isV4 = text.find(':') == std::string_view::npos;
    value[0] = isV4 ? 4 : 6;
    if (text.find('\0') != std::string_view::npos || inet_pton(isV4 ? AF_INET : AF_INET6, std::string(text).c_str(),
                                                               value.data() + (isV4 ? kIpv4At : kIpv6At)) != 1) {
        throw Problem(fmt::format("'{}' is not an address", text));
    }
    return value;
}

std::optional<std::string> TimeText(std::string_view value) {
    if (value.size() != kTimeSize) {
        return {};
    }
    std::string text = DateText(value);
    return TimeOf(text) == value ? std::optional(std::move(text)) : std::nullopt;
}

Bytes ParseTime(std::string_view text) {
    std::optional<Bytes> value = TimeOf(std::string(text));
    if (!value) {
        throw Problem(fmt::format("'{}' is not a time like 2024-05-06T07:08:09.123", text));
    }
    return *value;
}

}  // namespace session
