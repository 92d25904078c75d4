#include "value.h"

#include <fmt/format.h>

#include "errors.h"
#include "tav/values.h"
#include "tav_extcfg.h"

namespace tavcfg {

std::string ToHex(const Bytes &bytes) {
    std::string digits;
    for (const char byte : bytes) {
        fmt::format_to(std::back_inserter(digits), "{:02x}", static_cast<uint8_t>(byte));
    }
    return digits;
}

void CheckLength(uint32_t fid, size_t length) {
    const uint16_t limit = TAV_GetExtTlvDataLen(fid);
    if (length > limit) {
        throw Problem(fmt::format("the value has {} bytes, at most {} are possible", length, limit));
    }
}

std::string FormatValue(uint32_t fid, const Bytes &value) {
    Bytes inHostOrder(value.size(), '\0');
    if (TAV_ExtTlvConvertEndian(fid, static_cast<uint32_t>(value.size()), value.data(), inHostOrder.data()) != TAV_OK) {
        return "hex:" + ToHex(value);
    }
    return tav::FormatValue(fid, inHostOrder);
}

std::string FormatTime(const Bytes &value) {
    return FormatValue(EXT_TLV_MODIFY_TIME, value);
}

}  // namespace tavcfg
