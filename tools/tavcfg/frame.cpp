#include "frame.h"

#include <fmt/format.h>

#include <algorithm>
#include <new>

#include "errors.h"

namespace tavcfg {

namespace {

/** Visitor: notes a TLV in the list that the context is. The library is C to us: no exception may pass through it. */
uint32_t NoteTlv(uint32_t type, uint8_t *value, uint32_t length, void *context) noexcept {
    auto &list = *static_cast<TlvList *>(context);
    try {
        list.tlvs.push_back({type, value, length});
    } catch (const std::bad_alloc &) {
        return TAV_ERR_NO_MEMORY;
    }
    list.walked += TAV_EXT_TLV_HEAD_SIZE + length;
    return TAV_OK;
}

}  // namespace

const Tlv *Frame::HeadField(uint32_t type) const {
    const auto found = std::find_if(head.begin(), head.end(), [=](const Tlv &tlv) { return tlv.type == type; });
    return found == head.end() ? nullptr : &*found;
}

TlvList ListTlvs(uint8_t *first, uint32_t length) {
    TlvList list;
    const uint32_t code = TAV_ExtTlvProcForEach(NoteTlv, first, length, &list);
    if (code == TAV_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    list.isWhole = code == TAV_OK;
    return list;
}

Frame ReadFrame(const Image &image) {
    TlvList top = ListTlvs(image.data.get(), image.size);
    if (top.tlvs.empty()) {
        throw Problem(fmt::format("the first TLV is not complete in its {} bytes", image.size));
    }
    const Tlv first = top.tlvs.front();
    if (first.type != EXT_TLV_HDR) {
        throw Problem(fmt::format("the first TLV is of type {}, not a head", first.type));
    }
    if (!top.isWhole) {
        throw Problem(fmt::format("it has {} bytes, but its TLVs end at byte {}", image.size, top.walked));
    }
    TlvList head = ListTlvs(first.value, first.length);
    if (!head.isWhole) {
        throw Problem(fmt::format("the head is malformed at offset {}", TAV_EXT_TLV_HEAD_SIZE + head.walked));
    }
    top.tlvs.erase(top.tlvs.begin());
    return {std::move(head.tlvs), TAV_EXT_TLV_HEAD_SIZE + first.length, std::move(top.tlvs)};
}

uint32_t OffsetIn(const Image &image, const uint8_t *place) {
    return static_cast<uint32_t>(place - image.data.get());
}

Checksum BodyChecksum(const Image &image, const Frame &frame) {
    Checksum checksum;
    const uint32_t code = TAV_CalcChecksum(image.data.get() + frame.headSize, image.size - frame.headSize,
                                           checksum.data(), static_cast<uint32_t>(checksum.size()));
    if (code != TAV_OK) {
        throw Problem("the checksum cannot be computed: " + tav::CodeText(code));
    }
    return checksum;
}

Bytes ValueOf(const Tlv &tlv) {
    return {reinterpret_cast<const char *>(tlv.value), tlv.length};
}

}  // namespace tavcfg
