#include "body.h"

#include <fmt/format.h>

#include <algorithm>

#include "errors.h"

namespace tavcfg {

namespace {

/** Offset of a TLV's header in the image. */
uint32_t OffsetOf(const Image &image, const Tlv &tlv) {
    return OffsetIn(image, tlv.value) - TAV_EXT_TLV_HEAD_SIZE;
}

/** Lists the TLVs inside a TLV. Throws Problem, beginning with `what`, when they do not fill it. */
std::vector<Tlv> Inside(const Image &image, const Tlv &tlv, const std::string &what) {
    TlvList list = ListTlvs(tlv.value, tlv.length);
    if (tlv.length == 0) {
        throw Problem(fmt::format("{} at offset {} is empty", what, OffsetOf(image, tlv)));
    }
    if (!list.isWhole) {
        throw Problem(fmt::format("{} at offset {} is malformed at offset {}", what, OffsetOf(image, tlv),
                                  OffsetIn(image, tlv.value) + list.walked));
    }
    return std::move(list.tlvs);
}

Record ReadRecord(const Image &image, uint32_t vsId, const Tlv &tlv) {
    Record record{tlv.type, {}, OffsetOf(image, tlv)};
    const std::vector<Tlv> fields = Inside(image, tlv, fmt::format("VS {}: the record of class {}", vsId, tlv.type));
    record.fields.reserve(fields.size());
    for (const Tlv &field : fields) {
        record.fields.push_back({field.type, ValueOf(field)});
    }
    return record;
}

/** The VS of an id, which is appended when it is absent. */
Vs &VsOf(Model &model, uint32_t id) {
    const auto found = std::find_if(model.begin(), model.end(), [=](const Vs &vs) { return vs.id == id; });
    return found == model.end() ? model.emplace_back(Vs{id, {}}) : *found;
}

/** Reads the records of a VS TLV. Like the library, puts those of two VS TLVs with the same id together. */
void ReadVs(const Image &image, const Tlv &tlv, Model &model) {
    uint32_t id = 0;
    const uint32_t code =
        tlv.length == 0 ? TAV_ERR_NOT_FOUND : TAV_ExtTlvGetValue_UINT32(tlv.value, tlv.length, EXT_TLV_VS_ID, &id);
    if (code != TAV_OK) {
        throw Problem(fmt::format("the VS at offset {} has {}", OffsetOf(image, tlv),
                                  code == TAV_ERR_NOT_FOUND ? "no id" : "an id that is not 4 bytes long"));
    }
    Vs &vs = VsOf(model, id);
    for (const Tlv &inner : Inside(image, tlv, fmt::format("VS {}", id))) {
        if (IsRecordClass(inner.type)) {
            vs.records.push_back(ReadRecord(image, id, inner));
        }
    }
}

}  // namespace

Model ReadBody(const Image &image, const Frame &frame) {
    Model model;
    for (const Tlv &tlv : frame.body) {
        if (tlv.type == EXT_TLV_VS) {
            ReadVs(image, tlv, model);
        }
    }
    return model;
}

}  // namespace tavcfg
