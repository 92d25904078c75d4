#include "store_records.h"

#include <cstring>
#include <filesystem>
#include <limits>
#include <stdexcept>

#include "numbers.h"
#include "tav_extcfg_nodes.h"

namespace {

constexpr uint16_t kTextDataType = 25;  // the platform's id of it

/** Returns whether a field holds a number; all of the fixed sizes 1, 2 and 4 are. */
bool IsNumber(const TAV_ExtTlvDataTypeRow &row) {
    return row.dataType != kTextDataType && (row.length == 1 || row.length == 2 || row.length == 4);
}

/** Parses a decimal number that fits its type, into bytes in host order. */
template <typename Number>
std::vector<uint8_t> ParseBytes(const std::string &text, const char *what) {
    const uint32_t wide = ParseNumber(text, what);
    if (wide > std::numeric_limits<Number>::max()) {
        throw std::invalid_argument(std::string(what) + " " + text + " is too large");
    }
    const auto number = static_cast<Number>(wide);
    std::vector<uint8_t> bytes(sizeof(number));
    memcpy(bytes.data(), &number, sizeof(number));
    return bytes;
}

std::string HexText(Bytes value) {
    std::string text = "0x";
    for (const uint8_t byte : value) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

}  // namespace

Store OpenForEditing(const std::string &path) {
    if (std::filesystem::exists(path + ".bak")) {
        throw std::runtime_error("a backup lies beside " + path + "; look at it first: tavcfg recover " + path);
    }
    Store store(TAV_ExtCfgLocalCreate(TAV_EXT_MODE_READ_WRITE, path.c_str(), nullptr));
    if (!store) {
        throw std::runtime_error(path + " cannot be opened");
    }
    TAV_ExtCfgFileContext context = {};
    context.local = store.get();
    if (std::filesystem::exists(path) && TAV_LoadExtCfgFile(path.c_str(), &context) != TAV_OK) {
        throw std::runtime_error(path + " is there, but is no store that can be read");
    }
    return store;
}

bool AddField(const Record &record, uint32_t fid, Bytes value) {
    const uint32_t before = record->fields.count;
    TAV_ExtCfgRecordAddFieldValue(record.get(), fid, static_cast<uint32_t>(value.size()), value.data());
    return record->fields.count > before;  // adding itself says nothing
}

std::optional<uint32_t> KeyFieldOf(uint32_t cid) {
    uint32_t fids[TAV_EXT_MAX_KEY_FIDS] = {};
    if (cid == EXT_TLV_VS || TAV_GetExtClassKeyFid(cid, fids, TAV_EXT_MAX_KEY_FIDS) != 1) {
        return std::nullopt;  // a VS has a key as well, but is no class
    }
    return fids[0];
}

std::vector<uint8_t> ParseValue(uint32_t fid, const std::string &text) {
    const std::string what = "field " + std::to_string(fid) + ": value";
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(fid);
    if (row != nullptr && row->dataType == kTextDataType) {
        if (text.size() > row->length) {
            throw std::invalid_argument(what + " has more than " + std::to_string(row->length) + " bytes");
        }
        return {text.begin(), text.end()};
    }
    if (row == nullptr || !IsNumber(*row)) {
        throw std::invalid_argument("field " + std::to_string(fid) + " is not one of a number or a text");
    }
    switch (row->length) {
        case 1:
            return ParseBytes<uint8_t>(text, what.c_str());
        case 2:
            return ParseBytes<uint16_t>(text, what.c_str());
        default:
            return ParseBytes<uint32_t>(text, what.c_str());
    }
}

std::string ValueText(uint32_t fid, Bytes value) {
    const TAV_ExtTlvDataTypeRow *row = TAV_GetExtTlvDataTable(fid);
    if (row != nullptr && row->dataType == kTextDataType) {
        return {value.begin(), value.end()};
    }
    if (row == nullptr || !IsNumber(*row) || value.size() != row->length) {
        return HexText(value);
    }
    switch (row->length) {
        case 1:
            return std::to_string(value[0]);
        case 2:
            return std::to_string(Load<uint16_t>(value.data()));
        default:
            return std::to_string(Load<uint32_t>(value.data()));
    }
}
