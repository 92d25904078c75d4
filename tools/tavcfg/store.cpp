#include "store.h"

#include <fmt/format.h>

#include <new>

#include "body.h"
#include "diagnose.h"
#include "errors.h"
#include "tav_extcfg_nodes.h"
#include "value.h"

namespace tavcfg {

namespace {}  // namespace

RecordNode::RecordNode(const Record &record) : node_(TAV_ExtCfgRecordNodeCreate(record.cid)) {
    if (node_ == nullptr) {
        throw std::bad_alloc();
    }
    Bytes host;
    for (const auto &[fid, value] : record.fields) {
        CheckLength(fid, value.size());
        host.resize(value.size());
        const auto length = static_cast<uint32_t>(value.size());
        if (TAV_ExtTlvConvertEndian(fid, length, value.data(), host.data()) != TAV_OK) {
            throw Problem(fmt::format("field {} cannot be converted", fid));
        }
        TAV_ExtCfgRecordAddFieldValue(node_.get(), fid, length, host.data());
    }
    if (node_->fields.count != record.fields.size()) {
        throw std::bad_alloc();  // adding a value does not say that it failed
    }
}

Store::Store(CfgLocal *local) : local_(local) {
    if (local == nullptr) {
        throw std::bad_alloc();
    }
}

/** Opening read-write would do the same, but forgive a file that does not load and start an empty store. */
Store Store::Parse(const Target &target, const Image &image) {
    Store store(TAV_ExtCfgLocalCreate(TAV_EXT_MODE_READ_WRITE, target.file.path.c_str(), target.ReferPath()));
    TAV_ExtCfgFileContext context = {};
    context.local = store.local_.get();
    context.referPath = target.ReferPath();
    if (const uint32_t code = TAV_ParseExtCfgFileData(image.data.get(), image.size, &context); code != TAV_OK) {
        throw Problem(Diagnose(image, target.refer, code));
    }
    return store;
}

void RequireLoads(const Target &target) {
    try {
        Store::Parse(target, ReadImage(target.file));
    } catch (const Problem &problem) {
        throw Damage(fmt::format("cannot load {}: {}", target.file.given, problem.what()));
    }
}

bool CarriesReferChecksum(const File &file) {
    try {
        return ReadFrame(ReadImage(file)).HeadField(EXT_TLV_REFER_CHECKSUM) != nullptr;
    } catch (const Problem &) {
        return false;  // loading it will say what is wrong
    }
}

}  // namespace tavcfg
