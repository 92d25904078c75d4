#include "model.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "errors.h"
#include "tav_extcfg.h"
#include "value.h"

namespace tavcfg {

namespace {

/** Appends an integer's bytes. */
void AppendWord(Bytes &bytes, size_t word) {
    bytes.append(reinterpret_cast<const char *>(&word), sizeof(word));
}

}  // namespace

const Field *Record::Find(uint32_t fid) const {
    const auto found = std::find_if(fields.begin(), fields.end(), [=](const Field &field) { return field.fid == fid; });
    return found == fields.end() ? nullptr : &*found;
}

const Vs *FindVs(const Model &model, uint32_t vsId) {
    const auto found = std::find_if(model.begin(), model.end(), [=](const Vs &vs) { return vs.id == vsId; });
    return found == model.end() ? nullptr : &*found;
}

bool IsRecordClass(uint32_t type) {
    return TAV_GetExtTlvDataType(type) == TAV_EXT_DATA_TYPE_CONTAINER;
}

std::vector<uint32_t> KeyFids(uint32_t cid) {
    std::array<uint32_t, TAV_EXT_MAX_KEY_FIDS> fids;
    const uint32_t count = TAV_GetExtClassKeyFid(cid, fids.data(), TAV_EXT_MAX_KEY_FIDS);
    return {fids.begin(), fids.begin() + count};
}

bool IsKeyFid(uint32_t cid, uint32_t fid) {
    const std::vector<uint32_t> fids = KeyFids(cid);
    return std::find(fids.begin(), fids.end(), fid) != fids.end();
}

Bytes KeyOf(const Record &record) {
    Bytes key;
    AppendWord(key, record.cid);
    for (const uint32_t fid : KeyFids(record.cid)) {
        if (const Field *field = record.Find(fid)) {
            AppendWord(key, field->value.size());
            key += field->value;
        }
    }
    return key;
}

std::string Describe(uint32_t vsId, const Record &record) {
    std::string text = fmt::format("VS {} class {}", vsId, record.cid);
    for (const uint32_t fid : KeyFids(record.cid)) {
        if (const Field *field = record.Find(fid)) {
            text += fmt::format(" {}={}", fid, FormatValue(fid, field->value));
        }
    }
    return text;
}

const Record *FindRecord(const Vs &vs, const Record &key) {
    const Bytes wanted = KeyOf(key);
    const auto found = std::find_if(vs.records.begin(), vs.records.end(), [&](const Record &record) {
        return record.cid == key.cid && KeyOf(record) == wanted;
    });
    return found == vs.records.end() ? nullptr : &*found;
}

void RefuseRepeats(const Record &record) {
    std::unordered_set<uint32_t> seen;
    for (const Field &field : record.fields) {
        if (!seen.insert(field.fid).second) {
            throw Problem(fmt::format("field {} is given twice, and only one can be set", field.fid));
        }
    }
}

void RecordCheck::Pass(uint32_t vsId, const Record &record) {
    if (record.fields.empty()) {
        throw Problem("a record without fields cannot be read back");
    }
    for (const uint32_t fid : KeyFids(record.cid)) {
        if (record.Find(fid) == nullptr) {
            throw Problem(fmt::format("key field {} is missing", fid));
        }
    }
    for (const Field &field : record.fields) {
        try {
            CheckLength(field.fid, field.value.size());
        } catch (const Problem &problem) {
            throw Problem(fmt::format("field {}: {}", field.fid, problem.what()));
        }
    }
    Bytes key = KeyOf(record);
    AppendWord(key, vsId);
    if (!seen_.insert(std::move(key)).second) {
        throw Problem("a record with this key came before");
    }
}

}  // namespace tavcfg
