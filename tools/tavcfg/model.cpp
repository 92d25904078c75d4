#include "model.h"

#include <fmt/format.h>

#include <algorithm>

#include "errors.h"
#include "tav/store.h"

namespace tavcfg {

namespace {

/** Appends an integer's bytes. */
void AppendWord(Bytes &bytes, size_t word) {
    bytes.append(reinterpret_cast<const char *>(&word), sizeof(word));
}

/** What tells a record from all others of one VS, as bytes that are equal exactly for equal class and key. */
Bytes KeyOf(const Record &record) {
    Bytes key;
    AppendWord(key, record.cid);
    for (const uint32_t fid : tav::KeyFields(record.cid)) {
        if (const Field *field = record.Find(fid)) {
            AppendWord(key, field->value.size());
            key += field->value;
        }
    }
    return key;
}

}  // namespace

const Field *Record::Find(uint32_t fid) const {
    const auto found = std::find_if(fields.begin(), fields.end(), [=](const Field &field) { return field.fid == fid; });
    return found == fields.end() ? nullptr : &*found;
}

std::string Describe(uint32_t vsId, const Record &record) {
    std::string text = fmt::format("VS {} class {}", vsId, record.cid);
    for (const uint32_t fid : tav::KeyFields(record.cid)) {
        if (const Field *field = record.Find(fid)) {
            text += fmt::format(" {}={}", fid, FormatValue(fid, field->value));
        }
    }
    return text;
}

void RecordCheck::Pass(uint32_t vsId, const Record &record) {
    if (record.fields.empty()) {
        throw Problem("a record without fields cannot be read back");
    }
    for (const uint32_t fid : tav::KeyFields(record.cid)) {
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
