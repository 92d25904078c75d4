#include "value_forms.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstdio>

#include "errors.h"

namespace tavcfg {

namespace {

constexpr size_t kAddressSize = 21;  // family, 4 bytes of IPv4, 16 bytes of IPv6
constexpr size_t kTimeSize = 12;     // year (2), month, day, hour, minute, second, week day, milliseconds (4)

}  // namespace

std::string ToHex(const Bytes &bytes) {
    std::string digits;
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(digits), "{:02x}", static_cast<uint8_t>(byte));
    }
    return digits;
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

uint64_t ParseNumber(const std::string &text, uint64_t max) {
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

bool HasControls(const Bytes &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        const auto next = static_cast<uint8_t>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte < 0x20 || byte == 0x7F || (byte == 0xC2 && next >= 0x80 && next <= 0x9F)) {
            return true;
        }
    }
    return false;
}

std::optional<std::string> AddressText(const Bytes &value) {
    if (value.size() != kAddressSize || (value[0] != 4 && value[0] != 6)) {
        return {};
    }
    char text[INET6_ADDRSTRLEN] = "";
    inet_ntop(value[0] == 4 ? AF_INET : AF_INET6, value.data() + (value[0] == 4 ? 1 : 5), text, sizeof(text));
    return text;
}

Bytes ParseAddress(const std::string &text) {
    Bytes value(kAddressSize, '\0');
    value[0] = text.find(':') == std::string::npos ? 4 : 6;
    if (inet_pton(value[0] == 4 ? AF_INET : AF_INET6, text.c_str(), value.data() + (value[0] == 4 ? 1 : 5)) != 1) {
        throw Problem(fmt::format("'{}' is not an address", text));
    }
    return value;
}

std::optional<std::string> TimeText(const Bytes &value) {
    if (value.size() != kTimeSize) {
        return {};
    }
    const auto at = [&](size_t i) { return static_cast<uint8_t>(value[i]); };
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", LoadNumber(value.substr(0, 2)), at(2), at(3),
                       at(4), at(5), at(6), LoadNumber(value.substr(8)));
}

Bytes ParseTime(const std::string &text) {
    unsigned year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, milli = 0;
    const int count =
        sscanf(text.c_str(), "%4u-%2u-%2uT%2u:%2u:%2u.%3u", &year, &month, &day, &hour, &minute, &second, &milli);
    const std::chrono::year_month_day date{std::chrono::year(static_cast<int>(year)), std::chrono::month(month),
                                           std::chrono::day(day)};
    if (count == 7 && date.ok() && hour < 24 && minute < 60 && second <= 60) {
        const std::chrono::weekday weekDay{std::chrono::sys_days(date)};
        Bytes value = StoreNumber(year, 2);
        for (const unsigned part : {month, day, hour, minute, second, weekDay.c_encoding()}) {
            value += static_cast<char>(part);
        }
        value += StoreNumber(milli, 4);
        // sscanf forgives much (signs, spaces, what follows); the one right form does not.
        if (const auto form = TimeText(value); form == text || form == text + "Z") {
            return value;
        }
    }
    throw Problem(fmt::format("'{}' is not a time like 2024-05-06T07:08:09.123", text));
}

}  // namespace tavcfg
