#include "store.h"

#include <fmt/format.h>

#include <new>

#include "body.h"
#include "diagnose.h"
#include "errors.h"
#include "tav_extcfg_nodes.h"
#include "value.h"

namespace tavcfg {

namespace {

/** Returns whether a file refers to another. */
bool CarriesReferChecksum(const Image &image) {
    try {
        return ReadFrame(image).HeadField(EXT_TLV_REFER_CHECKSUM) != nullptr;
    } catch (const Problem &) {
        return false;  // loading it will say what is wrong
    }
}

LoadedFile LoadImage(const Target &target, Image image) {
    try {
        Store store = Store::Parse(target, image);
        Frame frame = ReadFrame(image);
        return {std::move(image), std::move(frame), std::move(store)};
    } catch (const Problem &problem) {
        throw Failure(fmt::format("cannot load {}: {}", target.file.given, problem.what()));
    }
}

}  // namespace

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

Store::Store(Target target, CfgLocal *local) : target_(std::move(target)), local_(local) {
    if (local == nullptr) {
        throw std::bad_alloc();
    }
}

Store Store::New(const Target &target) {
    return {target, TAV_ExtCfgOpen(TAV_EXT_MODE_WRITE_ONLY, target.file.path.c_str(), target.ReferPath())};
}

/** Opening read-write would do the same, but forgive a file that does not load and start an empty store. */
Store Store::Parse(const Target &target, const Image &image) {
    Store store(target, TAV_ExtCfgLocalCreate(TAV_EXT_MODE_READ_WRITE, target.file.path.c_str(), target.ReferPath()));
    TAV_ExtCfgFileContext context = {};
    context.local = store.local_.get();
    context.referPath = target.ReferPath();
    if (const uint32_t code = TAV_ParseExtCfgFileData(image.data.get(), image.size, &context); code != TAV_OK) {
        throw Problem(Diagnose(image, target.refer, code));
    }
    return store;
}

void Store::AddVs(uint32_t vsId) {
    if (TAV_ExtCfgVsNodeGetInstance(local_.get(), vsId) == nullptr) {
        throw std::bad_alloc();
    }
}

/** Returns whether a record with the class and key of the given one is there. */
bool Store::Has(uint32_t vsId, const RecordNode &record) {
    return TAV_ExtCfgGetRecord(vsId, record.Get(), local_.get()) != nullptr;
}

/** Adds a record that is not there yet, and hands it over to the store. */
void Store::AddNode(uint32_t vsId, RecordNode &record) {
    if (const uint32_t code = TAV_ExtCfgAddRecord(vsId, record.Get(), local_.get()); code != TAV_OK) {
        throw Problem("it cannot be added: " + Explain(code));
    }
    record.Release();
}

void Store::Add(uint32_t vsId, const Record &record) {
    RecordNode node(record);
    if (Has(vsId, node)) {
        throw Problem("there is a record with this key already");
    }
    AddNode(vsId, node);
}

void Store::Set(uint32_t vsId, const Record &record) {
    RefuseRepeats(record);
    const uint32_t code = TAV_ExtCfgSetRecord(vsId, RecordNode(record).Get(), local_.get());
    if (code != TAV_OK) {
        throw Problem(code == TAV_ERR_NOT_FOUND ? "there is no such record" : "it cannot be set: " + Explain(code));
    }
}

Merge Store::AddOrSet(uint32_t vsId, const Record &record) {
    RecordNode node(record);
    if (Has(vsId, node)) {
        Set(vsId, record);
        return Merge::kOverwritten;
    }
    AddNode(vsId, node);
    return Merge::kAdded;
}

void Store::Delete(uint32_t vsId, const Record &key) {
    const uint32_t code = TAV_ExtCfgDelRecord(vsId, RecordNode(key).Get(), local_.get());
    if (code != TAV_OK) {
        throw Problem(code == TAV_ERR_NOT_FOUND ? "there is no such record" : "it cannot be deleted: " + Explain(code));
    }
}

/** Writes a file after having refused what the library would do and should not. */
template <typename WriteFile>
bool Store::WriteChecked(const File &file, WriteFile write) {
    RequireWritable(file);
    RequireRefer({file, target_.refer});
    const bool wasThere = Exists(file);
    const uint32_t code = write();
    if (code != TAV_OK && code != TAV_ERR_UNCHANGED) {
        if (!wasThere && Exists(file)) {
            DeleteFile(file);  // the beginning of a new one
        }
        throw Failure(fmt::format("cannot write {}: {}", file.given, Explain(code)));
    }
    return code == TAV_OK;
}

bool Store::Flush() {
    return WriteChecked(target_.file, [this] { return TAV_ExtCfgFlush(local_.get()); });
}

bool Store::WriteTo(const File &file) {
    return WriteChecked(file, [&] { return TAV_WriteExtCfgFile(file.path.c_str(), local_.get()); });
}

std::vector<uint8_t> Store::Body() {
    std::vector<uint8_t> body(TAV_CalcExtCfgFileBodySize(local_.get()));
    const uint32_t code =
        body.empty() ? TAV_OK : TAV_BuildExtCfgFileBody(local_.get(), body.data(), static_cast<uint32_t>(body.size()));
    if (code != TAV_OK) {
        throw Failure(fmt::format("cannot build the body of {}: {}", target_.file.given, Explain(code)));
    }
    return body;
}

Model LoadedFile::Content() const {
    return ReadBody(image, frame);
}

LoadedFile Load(const Target &target) {
    return LoadImage(target, ReadImage(target.file));
}

LoadedFile LoadWithReferIfAny(const File &file, const std::optional<File> &refer) {
    Image image = ReadImage(file);
    const Target target{file, CarriesReferChecksum(image) ? refer : std::nullopt};
    return LoadImage(target, std::move(image));
}

Store LoadOrNew(const Target &target) {
    return Exists(target.file) ? Load(target).store : Store::New(target);
}

}  // namespace tavcfg
