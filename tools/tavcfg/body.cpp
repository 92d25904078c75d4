#include "body.h"

#include <fmt/format.h>

#include <algorithm>

#include "errors.h"
#include "tav/values.h"

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

/** The element with the id of a VS, which is appended when it is absent. */
template <typename Element>
Element &ElementOf(std::vector<Element> &elements, uint32_t id) {
    const auto found = std::find_if(elements.begin(), elements.end(), [=](const Element &one) { return one.id == id; });
    return found == elements.end() ? elements.emplace_back(Element{id, {}}) : *found;
}

/** Reads the id of a VS TLV. */
uint32_t ReadVsId(const Image &image, const Tlv &tlv) {
    uint32_t id = 0;
    const uint32_t code =
        tlv.length == 0 ? TAV_ERR_NOT_FOUND : TAV_ExtTlvGetValue_UINT32(tlv.value, tlv.length, EXT_TLV_VS_ID, &id);
    if (code != TAV_OK) {
        throw Problem(fmt::format("the VS at offset {} has {}", OffsetOf(image, tlv),
                                  code == TAV_ERR_NOT_FOUND ? "no id" : "an id that is not 4 bytes long"));
    }
    return id;
}

/**
 * Walks the record TLVs of a body: take(element, tlv), with the element of the record's VS. Like the library, puts
 * those of two VS TLVs with the same id together.
 */
template <typename Element, typename Take>
std::vector<Element> WalkBody(const Image &image, const Frame &frame, const Take &take) {
    std::vector<Element> elements;
    for (const Tlv &tlv : frame.body) {
        if (tlv.type != EXT_TLV_VS) {
            continue;
        }
        const uint32_t id = ReadVsId(image, tlv);
        Element &element = ElementOf(elements, id);
        for (const Tlv &inner : Inside(image, tlv, fmt::format("VS {}", id))) {
            if (tav::IsRecordClass(inner.type)) {
                take(element, inner);
            }
        }
    }
    return elements;
}

}  // namespace

Model ReadBody(const Image &image, const Frame &frame) {
    return WalkBody<Vs>(image, frame,
                        [&](Vs &vs, const Tlv &tlv) { vs.records.push_back(ReadRecord(image, vs.id, tlv)); });
}

std::vector<VsCounts> CountBody(const Image &image, const Frame &frame) {
    return WalkBody<VsCounts>(image, frame, [](VsCounts &vs, const Tlv &tlv) { ++vs.byClass[tlv.type]; });
}

}  // namespace tavcfg
